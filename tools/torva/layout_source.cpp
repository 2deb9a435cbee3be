#include "layout_source.h"

#include <fcntl.h>
#include <sys/mman.h>
#include <sys/stat.h>
#include <unistd.h>

#include <cerrno>
#include <cstdlib>
#include <cstring>
#include <memory>

#include "cli_common.h"

namespace torva::cli {

namespace {

const char* kind_of(mode_t mode) {
  if (S_ISDIR(mode)) return "a directory";
  if (S_ISFIFO(mode)) return "a pipe";
  if (S_ISCHR(mode)) return "a character device";
  if (S_ISBLK(mode)) return "a block device";
  if (S_ISSOCK(mode)) return "a socket";
  return "not a regular file";
}

// Closes a descriptor when it goes out of scope.
struct fd_guard {
  int fd;
  ~fd_guard() {
    if (fd >= 0) ::close(fd);
  }
};

void write_all(int fd, const char* p, std::size_t n, const std::string& path) {
  while (n > 0) {
    const ssize_t w = ::write(fd, p, n);
    if (w < 0 && errno == EINTR) continue;
    if (w <= 0) throw input_error("cannot copy \"" + path + "\" into memory: " + std::strerror(errno));
    p += w;
    n -= std::size_t(w);
  }
}

// Memory of the process's own that a path under /proc reaches; a removed
// temporary file where memfd_create is missing.
int anonymous_file() {
  const int fd = ::memfd_create("torva-layout", MFD_CLOEXEC);
  if (fd >= 0) return fd;
  const char* tmp = std::getenv("TMPDIR");
  std::string name = std::string(tmp && *tmp ? tmp : "/tmp") + "/torva-layout-XXXXXX";
  const int t = ::mkostemp(name.data(), O_CLOEXEC);
  if (t >= 0) ::unlink(name.c_str());
  return t;
}

}  // namespace

layout_source::layout_source(const std::string& path) {
  // Not blocking: opening a pipe for reading would wait for a writer.
  const int in = ::open(path.c_str(), O_RDONLY | O_NONBLOCK | O_CLOEXEC | O_NOCTTY);
  if (in < 0) {
    if (errno == ENOENT) throw input_error("cannot open \"" + path + "\": no such file");
    throw input_error("cannot open \"" + path + "\": " + std::strerror(errno));
  }
  const fd_guard in_guard{in};
  struct stat st {};
  if (::fstat(in, &st) != 0) throw input_error("cannot read \"" + path + "\": " + std::strerror(errno));
  if (!S_ISREG(st.st_mode)) {
    if (S_ISDIR(st.st_mode)) throw input_error("\"" + path + "\" is a directory, not a layout file");
    throw input_error("\"" + path + "\" is " + kind_of(st.st_mode) +
                      ", not a regular file: layouts are read only from regular files, whose size is known before "
                      "they are read (copy the stream into a file first)");
  }
  file_bytes = std::uint64_t(st.st_size);

  fd_ = anonymous_file();
  if (fd_ < 0) throw input_error("cannot copy \"" + path + "\" into memory: " + std::strerror(errno));
  try {
    copy(in, path);
  } catch (...) {
    ::close(fd_);
    throw;
  }
  reader_path_ = "/proc/self/fd/" + std::to_string(fd_);
}

void layout_source::copy(int in, const std::string& path) {
  // A file that grows while it is read is taken as it was when opened.
  std::uint64_t left = file_bytes;
  const std::size_t chunk = 1 << 20;
  std::unique_ptr<char[]> buffer(new char[chunk]);
  bool first = true;
  char last = '\n';
  std::uint64_t copied = 0;
  while (left > 0) {
    const ssize_t got = ::read(in, buffer.get(), std::size_t(std::min<std::uint64_t>(chunk, left)));
    if (got < 0 && errno == EINTR) continue;
    if (got < 0) throw input_error("cannot read \"" + path + "\": " + std::strerror(errno));
    if (got == 0) break;  // the file shrank
    const char* p = buffer.get();
    std::size_t n = std::size_t(got);
    if (first) {
      first = false;
      binary = n >= 12 && std::memcmp(p, "CAP3D_BINARY", 12) == 0;
      if (!binary && n >= 3 && std::memcmp(p, "\xEF\xBB\xBF", 3) == 0) {
        had_mark = true;
        p += 3;
        n -= 3;
      }
    }
    if (n > 0) last = p[n - 1];
    write_all(fd_, p, n, path);
    copied += n;
    left -= std::uint64_t(got);
  }
  if (!binary && copied > 0 && last != '\n') {
    write_all(fd_, "\n", 1, path);
    added_newline = true;
    ++copied;
  }
  size_ = std::size_t(copied);
  if (size_ > 0) {
    void* m = ::mmap(nullptr, size_, PROT_READ, MAP_PRIVATE, fd_, 0);
    if (m == MAP_FAILED) throw input_error("cannot map the copy of \"" + path + "\": " + std::strerror(errno));
    data_ = static_cast<const char*>(m);
  }
}

layout_source::~layout_source() {
  if (data_ != nullptr) ::munmap(const_cast<char*>(data_), size_);
  if (fd_ >= 0) ::close(fd_);
}

}  // namespace torva::cli
