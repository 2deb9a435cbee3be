#include "torva/layout/internal/mapped_file.h"

#include <fcntl.h>
#include <sys/mman.h>
#include <sys/stat.h>
#include <unistd.h>

namespace torva::internal {

mapped_file::mapped_file(const std::string& path, std::size_t smallest) {
  // Not blocking: a pipe or a device must not hold the read up here.
  const int fd = ::open(path.c_str(), O_RDONLY | O_CLOEXEC | O_NONBLOCK);
  if (fd < 0) return;
  struct stat info {};
  if (::fstat(fd, &info) == 0 && S_ISREG(info.st_mode) && info.st_size > 0 &&
      static_cast<std::size_t>(info.st_size) >= smallest) {
    const std::size_t length = static_cast<std::size_t>(info.st_size);
    void* at = ::mmap(nullptr, length, PROT_READ, MAP_PRIVATE | MAP_POPULATE, fd, 0);
    if (at != MAP_FAILED) {
      ::madvise(at, length, MADV_SEQUENTIAL);
      data = static_cast<const char*>(at);
      size = length;
    }
  }
  ::close(fd);
}

mapped_file::~mapped_file() {
  if (data != nullptr) ::munmap(const_cast<char*>(data), size);
}

}  // namespace torva::internal
