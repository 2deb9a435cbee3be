// What the files of the Python module share: the layout as Python holds it,
// the way every library call is run (without the GIL, with the library's
// lines collected and its failures turned into Python exceptions), and the
// functions that add each subject's names to the module.
#pragma once

#include <pybind11/pybind11.h>

#include <exception>
#include <memory>
#include <mutex>
#include <string>
#include <utility>

#include "torva/layout/records.h"

namespace torva::python {

namespace py = pybind11;

// How a layout file was read; kept with the layout so that a copy can say so.
struct read_settings {
  int incline_slices = 4;
  bool allow_floating = true;
  bool cuboids_only = false;
};

// A layout read from a file, with its derived fields. Never written after
// reading, so indexes query it from many threads and extract works on a copy.
struct layout_holder {
  std::unique_ptr<circuit_layout> layout = std::make_unique<circuit_layout>();
  std::string path;
  read_settings how;
  bool binary = false;
};

// The reader and the generator share the process-wide list of layer names,
// so no two of them may run at once.
std::mutex& reader_mutex();

// Reads a layout and derives its fields; `dump_file`, when not empty, receives
// the text form of a binary file. Throws path_error or library_error.
std::shared_ptr<layout_holder> read_layout_file(const std::string& path, const read_settings& how,
                                                const std::string& dump_file = "");

// A deep copy whose nets and blocks point at one another, not at the source's.
std::unique_ptr<circuit_layout> copy_layout(const circuit_layout& source);

// Failures of the library: the message holds the lines it wrote on its error
// channel, or the exception's text when it wrote none.
struct library_error : std::runtime_error {
  using std::runtime_error::runtime_error;
};
// Failures of the caller's arguments, raised as ValueError.
struct argument_error : std::runtime_error {
  using std::runtime_error::runtime_error;
};
// A path that names no file, a folder, or a file that may not be replaced:
// FileNotFoundError, IsADirectoryError, FileExistsError.
struct path_error : std::runtime_error {
  enum kind_t { missing, folder, exists };
  path_error(const std::string& what, kind_t k) : std::runtime_error(what), kind(k) {}
  kind_t kind;
};

// The logger's channels collect; these hand what they hold to Python.
void install_log_channels();
std::string take_error_lines();  // joined by "; ", trimmed; the error channel emptied
void forward_log_lines();        // every channel's lines to logging.getLogger("torva"); needs the GIL
// Rethrows a failure of the library as library_error carrying its error lines;
// the caller's own error types go through unchanged.
[[noreturn]] void raise_failure(std::exception_ptr failure);

// Runs `fn` with the GIL released, then forwards the library's lines and turns
// a library exception into library_error (with the error lines as its text).
template <class F>
auto run_library(F&& fn) -> decltype(fn()) {
  std::exception_ptr failure;
  using result_t = decltype(fn());
  if constexpr (std::is_void_v<result_t>) {
    {
      py::gil_scoped_release release;
      try {
        fn();
      } catch (...) {
        failure = std::current_exception();
      }
    }
    if (failure) raise_failure(failure);
    forward_log_lines();
  } else {
    std::unique_ptr<result_t> out;
    {
      py::gil_scoped_release release;
      try {
        out = std::make_unique<result_t>(fn());
      } catch (...) {
        failure = std::current_exception();
      }
    }
    if (failure) raise_failure(failure);
    forward_log_lines();
    return std::move(*out);
  }
}

// Adds the names of one subject to the module.
void bind_logging(py::module_& m);
using layout_class = py::class_<layout_holder, std::shared_ptr<layout_holder>>;
layout_class bind_layout(py::module_& m);
void bind_index(py::module_& m, layout_class& layout);
void bind_extract(py::module_& m);
void bind_files(py::module_& m);
void bind_import(py::module_& m);

}  // namespace torva::python
