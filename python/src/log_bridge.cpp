// The library's four logger channels, collected while a call runs without the
// GIL and handed to Python's logging when it returns, so that nothing is
// printed behind the caller's back: what shows is what the caller's logging
// configuration lets through. Error lines go into the exception they precede.
#include <cstdarg>
#include <cstdio>
#include <new>
#include <sstream>
#include <stdexcept>
#include <vector>

#include "bindings.h"
#include "torva/foundation/errors.h"
#include "torva/foundation/logger.h"
#include "torva/foundation/writer.h"

namespace torva::python {

namespace {

// Levels of Python's logging module.
constexpr int level_debug = 10, level_info = 20, level_warning = 30, level_error = 40;

// Text of every channel since it was last taken. The library writes from its
// build and walk threads too, so one lock guards it all.
struct collected {
  std::mutex lock;
  std::string text[4];  // info, detail, warning, error
};
collected& store() {
  static collected* s = new collected;  // outlives the logger, which may write while the process ends
  return *s;
}

class channel : public sea::writer {
 public:
  explicit channel(int slot) : slot_(slot) {}
  writer& write(char c) override { return write(&c, 1); }
  writer& write(const void* data, unsigned long size) override {
    std::lock_guard<std::mutex> hold(store().lock);
    store().text[slot_].append(static_cast<const char*>(data), size);
    return *this;
  }
  writer& vformat(const char* format, va_list args) override {
    va_list probe;
    va_copy(probe, args);
    const int n = std::vsnprintf(nullptr, 0, format, probe);
    va_end(probe);
    if (n <= 0) return *this;
    std::string text(static_cast<std::size_t>(n) + 1, '\0');
    std::vsnprintf(text.data(), text.size(), format, args);
    text.resize(static_cast<std::size_t>(n));
    return write(text.data(), text.size());
  }
  writer& flush() override { return *this; }

 private:
  int slot_;
};

std::string take(int slot) {
  std::lock_guard<std::mutex> hold(store().lock);
  std::string out;
  out.swap(store().text[slot]);
  return out;
}

std::vector<std::string> lines_of(const std::string& text) {
  std::vector<std::string> lines;
  std::istringstream in(text);
  std::string line;
  while (std::getline(in, line)) {
    while (!line.empty() && (line.back() == '\r' || line.back() == ' ' || line.back() == '\t')) line.pop_back();
    if (!line.empty()) lines.push_back(line);
  }
  return lines;
}

void forward(int slot, int level) {
  const std::vector<std::string> lines = lines_of(take(slot));
  if (lines.empty()) return;
  py::object log = py::module_::import("logging").attr("getLogger")("torva");
  for (const std::string& line : lines) log.attr("log")(level, "%s", line);
}

void forward_all(bool with_errors) {
  forward(0, level_info);
  forward(1, level_debug);
  forward(2, level_warning);
  if (with_errors) forward(3, level_error);
}

}  // namespace

void install_log_channels() {
  logger& log = logger::instance();
  log.set_info(std::make_unique<channel>(0));
  log.set_detail(std::make_unique<channel>(1));
  log.set_warning(std::make_unique<channel>(2));
  log.set_error(std::make_unique<channel>(3));
}

std::string take_error_lines() {
  std::string joined;
  for (const std::string& line : lines_of(take(3))) joined += (joined.empty() ? "" : "; ") + line;
  return joined;
}

void forward_log_lines() { forward_all(true); }

void raise_failure(std::exception_ptr failure) {
  const std::string lines = take_error_lines();
  forward_all(false);
  try {
    std::rethrow_exception(failure);
  } catch (const library_error&) {
    throw;
  } catch (const argument_error&) {
    throw;
  } catch (const path_error&) {
    throw;
  } catch (const std::bad_alloc&) {
    throw;
  } catch (const py::error_already_set&) {
    throw;
  } catch (const std::exception& e) {
    // sea::base_error and the standard errors the readers throw (a binary
    // polygon of too many vertices is a length_error).
    throw library_error(lines.empty() ? std::string(e.what()) : lines);
  }
}

void bind_logging(py::module_& m) {
  install_log_channels();
  // Never destroyed: the interpreter may be gone when static objects are.
  static auto* torva_error = new py::exception<library_error>(m, "TorvaError", PyExc_RuntimeError);
  torva_error->doc() = "A failure reported by the torva library; the message holds the library's own lines.";
  py::register_exception_translator([](std::exception_ptr p) {
    try {
      if (p) std::rethrow_exception(p);
    } catch (const library_error& e) {
      (*torva_error)(e.what());
    } catch (const argument_error& e) {
      PyErr_SetString(PyExc_ValueError, e.what());
    } catch (const path_error& e) {
      PyObject* type = e.kind == path_error::folder   ? PyExc_IsADirectoryError
                       : e.kind == path_error::exists ? PyExc_FileExistsError
                                                      : PyExc_FileNotFoundError;
      PyErr_SetString(type, e.what());
    }
  });
}

}  // namespace torva::python
