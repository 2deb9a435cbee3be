// A regular file mapped read-only into memory for the whole of a read, so that
// its bytes are used where the kernel's cache holds them, with no copy. As
// with any mapping, a file that another process cuts short while it is being
// read leaves pages that fault (SIGBUS) when touched; a file that is only
// read, or replaced by renaming, is safe.
#pragma once

#include <cstddef>
#include <string>

namespace torva::internal {

struct mapped_file {
  const char* data = nullptr;  // null when the file could not be mapped
  std::size_t size = 0;

  // Maps `path` if it is a regular file of at least `smallest` bytes; anything
  // else (a pipe, a device, a failed call) leaves the mapping empty, and the
  // caller reads the file the ordinary way.
  mapped_file(const std::string& path, std::size_t smallest);
  ~mapped_file();
  mapped_file(const mapped_file&) = delete;
  mapped_file& operator=(const mapped_file&) = delete;
};

}  // namespace torva::internal
