#include "torva/extract/staged_file.h"

#include <fcntl.h>
#include <sys/stat.h>
#include <unistd.h>

#include <cerrno>
#include <cstdio>
#include <cstring>
#include <filesystem>
#include <utility>

#include "torva/foundation/errors.h"

namespace torva {

void fail_to_write(const std::string& path, const std::string& what) {
  const std::string message = "cannot write \"" + path + "\": " + what;
  throw sea::file_error(message.c_str());
}

staged_file::staged_file(std::string path) : path_(std::move(path)) {
  if (path_.empty()) throw sea::file_error("cannot write a file: the path is empty");
  const std::filesystem::path target(path_);
  std::filesystem::path folder = target.parent_path();
  if (folder.empty()) folder = ".";
  std::string pattern = (folder / ("." + target.filename().string() + ".tmp.XXXXXX")).string();
  const int fd = ::mkstemp(pattern.data());
  if (fd < 0)
    fail_to_write(path_, "cannot create a temporary file in \"" + folder.string() + "\": " + std::strerror(errno));
  temp_ = pattern;
  // mkstemp makes the file private; give it the mode a plain create would (or
  // the mode of the file it replaces).
  struct stat old {};
  mode_t mode;
  if (::stat(path_.c_str(), &old) == 0 && S_ISREG(old.st_mode)) {
    mode = old.st_mode & 07777;
  } else {
    const mode_t mask = ::umask(0);
    ::umask(mask);
    mode = 0666 & ~mask;
  }
  ::fchmod(fd, mode);
  ::close(fd);
}

staged_file::~staged_file() {
  if (!committed_) ::unlink(temp_.c_str());
}

void staged_file::commit() {
  const int fd = ::open(temp_.c_str(), O_RDONLY);
  if (fd < 0) fail_to_write(path_, std::strerror(errno));
  const int synced = ::fsync(fd);
  const int e = errno;
  ::close(fd);
  if (synced != 0) fail_to_write(path_, std::strerror(e));
  if (std::rename(temp_.c_str(), path_.c_str()) != 0) fail_to_write(path_, std::strerror(errno));
  committed_ = true;
}

}  // namespace torva
