// Process-wide pool of stdio streams, one stream per file (by inode number),
// so that two opens of one file in a run share a stream however the path is
// spelled. Streams stay open until process exit.
//
// Word paths: "", "null" and a null path mean "/dev/null"; "stdin", "stdout"
// and "stderr" are the standard streams whatever the mode; "-" is stdin for a
// reading mode and stdout for a writing one.
#pragma once

#include <atomic>
#include <cstdint>
#include <cstdio>
#include <unordered_map>

#include "torva/foundation/errors.h"
#include "torva/foundation/hash.h"

namespace torva {

namespace sea {

class file_pool {
 public:
  struct opened {
    std::uint32_t flags = 0;  // mode bits: r 1, w 2, a 4, + 8, b 16
    FILE* stream = nullptr;
    std::int32_t count = 0;   // opens sharing the stream
  };

  static file_pool& instance();

  file_pool() : files(1) {}
  ~file_pool();
  file_pool(const file_pool&) = delete;
  file_pool& operator=(const file_pool&) = delete;

  // Never returns null; throws file_error (text of cannot_open) when the file
  // cannot be opened or is already open under other mode bits.
  FILE* open_impl(const char* path, const char* mode);
  FILE* open(const char* path, const char* mode) { return open_impl(path, mode); }

  static file_error cannot_open(const char* path, const char* mode);
  static std::uint32_t mode_bits(const char* mode);

  std::unordered_map<unsigned long, opened, sea::hash<unsigned long>> files;
  std::atomic<unsigned char> locked{0};
};

}  // namespace sea

// Deleter for std::shared_ptr<FILE>: closes anything but null, stdout and
// stderr. stdin is not spared.
struct file_deleter {
  void operator()(FILE* f) const {
    if (f == nullptr || f == stdout || f == stderr) return;
    std::fclose(f);
  }
};

}  // namespace torva
