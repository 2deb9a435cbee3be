#include "logger_channels.h"

#include <cerrno>
#include <cstdarg>
#include <cstdio>
#include <cstring>
#include <memory>
#include <sstream>

#include "run_options.h"
#include "torva/foundation/logger.h"
#include "torva/foundation/writer.h"

namespace torva::cli {

namespace {

// One channel of the logger: forwards to the console, the log file and a kept
// copy, each optional.
class channel_writer : public sea::writer {
 public:
  channel_writer(FILE* console, FILE* file, std::string* kept) : console_(console), file_(file), kept_(kept) {}

  writer& write(char c) override { return write(&c, 1); }
  writer& write(const void* data, unsigned long size) override {
    if (console_) std::fwrite(data, 1, size, console_);
    if (file_) std::fwrite(data, 1, size, file_);
    if (kept_) kept_->append(static_cast<const char*>(data), size);
    return *this;
  }
  writer& vformat(const char* fmt, va_list args) override {
    va_list probe;
    va_copy(probe, args);
    const int n = std::vsnprintf(nullptr, 0, fmt, probe);
    va_end(probe);
    if (n <= 0) return *this;
    std::string text(static_cast<std::size_t>(n) + 1, '\0');
    std::vsnprintf(text.data(), text.size(), fmt, args);
    text.resize(static_cast<std::size_t>(n));
    return write(text.data(), text.size());
  }
  writer& flush() override {
    if (console_) std::fflush(console_);
    if (file_) std::fflush(file_);
    return *this;
  }

 private:
  FILE* console_;
  FILE* file_;
  std::string* kept_;
};

std::string& kept_errors() {
  static std::string s;
  return s;
}
std::string& kept_info() {
  static std::string s;
  return s;
}

}  // namespace

void install_logger() {
  FILE* file = nullptr;
  if (!options().log_file.empty()) {
    file = std::fopen(options().log_file.c_str(), "w");
    if (file == nullptr)
      throw input_error("cannot open log file \"" + options().log_file + "\": " + std::strerror(errno));
    // Left open to the end of the process: the logger's writers outlive main's scope.
  }
  FILE* chatty = options().verbose ? stderr : nullptr;
  auto& log = logger::instance();
  log.set_info(std::make_unique<channel_writer>(chatty, file, &kept_info()));
  log.set_detail(std::make_unique<channel_writer>(chatty, file, nullptr));
  log.set_warning(std::make_unique<channel_writer>(stderr, file, nullptr));
  log.set_error(std::make_unique<channel_writer>(nullptr, file, &kept_errors()));
}

void install_quiet_logger() {
  auto& log = logger::instance();
  log.set_info(std::make_unique<channel_writer>(nullptr, nullptr, nullptr));
  log.set_detail(std::make_unique<channel_writer>(nullptr, nullptr, nullptr));
  log.set_warning(std::make_unique<channel_writer>(nullptr, nullptr, nullptr));
  log.set_error(std::make_unique<channel_writer>(nullptr, nullptr, &kept_errors()));
}

std::string take_errors() {
  std::string all;
  all.swap(kept_errors());
  std::string joined;
  std::istringstream lines(all);
  std::string line;
  while (std::getline(lines, line)) {
    while (!line.empty() && (line.back() == '\r' || line.back() == ' ' || line.back() == '\t')) line.pop_back();
    if (line.empty()) continue;
    if (!joined.empty()) joined += "; ";
    joined += line;
  }
  return joined;
}

std::string take_info() {
  std::string all;
  all.swap(kept_info());
  return all;
}

void flush_errors() {
  const std::string e = take_errors();
  if (!e.empty()) std::fprintf(stderr, "%s\n", e.c_str());
}
}  // namespace torva::cli
