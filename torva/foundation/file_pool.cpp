#include "torva/foundation/file_pool.h"

#include <sys/stat.h>

#include <cstring>

namespace torva::sea {

namespace {

// Releases the spin lock on every way out, exceptions included.
struct spin_guard {
  explicit spin_guard(std::atomic<unsigned char>& l) : lock(l) {
    while (lock.exchange(1, std::memory_order_acquire) != 0) {
    }
  }
  ~spin_guard() { lock.store(0, std::memory_order_release); }
  std::atomic<unsigned char>& lock;
};

}  // namespace

file_pool& file_pool::instance() {
  static file_pool pool;
  return pool;
}

file_pool::~file_pool() {
  for (auto& entry : files) std::fclose(entry.second.stream);
  files.clear();
}

std::uint32_t file_pool::mode_bits(const char* mode) {
  std::uint32_t bits = 0;
  if (mode == nullptr) return bits;
  if (std::strchr(mode, 'r')) bits |= 1;
  if (std::strchr(mode, 'w')) bits |= 2;
  if (std::strchr(mode, 'a')) bits |= 4;
  if (std::strchr(mode, '+')) bits |= 8;
  if (std::strchr(mode, 'b')) bits |= 16;
  return bits;
}

file_error file_pool::cannot_open(const char* path, const char* mode) {
  char text[1024];
  std::snprintf(text, sizeof text, "cannot open file \"%s\" with flag \"%s\"\n", path ? path : "",
                mode ? mode : "");
  return file_error(text);
}

FILE* file_pool::open_impl(const char* path, const char* mode) {
  if (path == nullptr || path[0] == '\0' || std::strcmp(path, "null") == 0) {
    path = "/dev/null";
  } else {
    if (std::strcmp(path, "stdin") == 0) return stdin;
    if (std::strcmp(path, "stdout") == 0) return stdout;
    if (std::strcmp(path, "stderr") == 0) return stderr;
  }
  const std::uint32_t bits = mode_bits(mode);
  if (std::strcmp(path, "-") == 0) {
    if ((bits & (2 | 4 | 8)) == 0) return stdin;
    if ((bits & (1 | 8)) == 0) return stdout;
  }
  struct stat before;
  const bool known = ::stat(path, &before) == 0;

  spin_guard guard(locked);
  if (known) {
    auto it = files.find(static_cast<unsigned long>(before.st_ino));
    if (it != files.end()) {
      if (it->second.flags != bits) throw cannot_open(path, mode);
      ++it->second.count;
      return it->second.stream;
    }
  }
  FILE* stream = std::fopen(path, mode);
  if (stream == nullptr) throw cannot_open(path, mode);
  struct stat after;
  if (::fstat(fileno(stream), &after) == 0) {
    files.emplace(static_cast<unsigned long>(after.st_ino), opened{bits, stream, 1});
  }
  return stream;
}

}  // namespace torva::sea
