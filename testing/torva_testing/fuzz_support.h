// Helpers shared by the fuzzing harnesses.
#pragma once

#include <unistd.h>

#include <cstddef>
#include <cstdint>
#include <cstdio>
#include <cstdlib>
#include <memory>
#include <string>

#include "torva/foundation/logger.h"
#include "torva/foundation/writer.h"

namespace torva::fuzzing {

// A writer that drops everything: the harnesses care about faults, not text.
class discard_writer : public sea::writer {
 public:
  sea::writer& write(char) override { return *this; }
  sea::writer& write(const void*, unsigned long) override { return *this; }
  sea::writer& vformat(const char* format, va_list args) override {
    // Still format, so that a bad format or argument is caught by the sanitizers.
    char scratch[256];
    std::vsnprintf(scratch, sizeof scratch, format, args);
    return *this;
  }
  sea::writer& flush() override { return *this; }
};

inline void quiet_logger() {
  static const bool done = [] {
    auto& log = logger::instance();
    log.set_info(std::make_unique<discard_writer>());
    log.set_detail(std::make_unique<discard_writer>());
    log.set_warning(std::make_unique<discard_writer>());
    log.set_error(std::make_unique<discard_writer>());
    return true;
  }();
  (void)done;
}

// One scratch file per process (fuzzers of several processes may run at once),
// removed when the process ends normally.
inline const std::string& scratch_path() {
  static const std::string path = [] {
    // Memory-backed by default: a run rewrites it for every input.
    const char* dir = std::getenv("TMPDIR");
    std::string base = dir && *dir ? dir : (access("/dev/shm", W_OK) == 0 ? "/dev/shm" : "/tmp");
    return base + "/torva_fuzz_" + std::to_string(getpid());
  }();
  // Registered once the path stands, so that it runs before the path goes.
  static const bool removed_at_exit = [] { return std::atexit([] { std::remove(path.c_str()); }) == 0; }();
  (void)removed_at_exit;
  return path;
}

// Writes the bytes to the scratch file and returns its path.
inline const std::string& write_scratch(const void* data, std::size_t size) {
  const std::string& path = scratch_path();
  FILE* f = std::fopen(path.c_str(), "wb");
  if (f == nullptr) std::abort();
  if (size != 0 && std::fwrite(data, 1, size, f) != size) std::abort();
  std::fclose(f);
  return path;
}

}  // namespace torva::fuzzing
