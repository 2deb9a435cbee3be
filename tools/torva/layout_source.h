// The bytes of a layout file as the program hands them to the reader: taken
// whole from a regular file at the moment it is opened, into memory of the
// process's own, with a UTF-8 byte-order mark left out and a missing final
// line feed supplied. The reader then reads that copy by a path of its own.
//
// Why a copy: the reader reads to the end of its stream, so a pipe, a device
// such as /dev/zero, or a file that another process keeps writing would never
// end (or fill memory), and the reader treats the invisible mark as a word and
// needs a separator behind the last one. Only regular files are taken; their
// size is known before the first byte is read, and the copy stops there.
#pragma once

#include <cstddef>
#include <cstdint>
#include <string>

namespace torva::cli {

class layout_source {
 public:
  // Throws input_error naming the path: missing, unreadable, or not a
  // regular file (saying what it is instead).
  explicit layout_source(const std::string& path);
  ~layout_source();
  layout_source(const layout_source&) = delete;
  layout_source& operator=(const layout_source&) = delete;

  // The path the reader opens: the copy, under /proc/self/fd.
  const std::string& reader_path() const { return reader_path_; }
  // The descriptor of the copy, which a progress display leaves aside.
  int fd() const { return fd_; }
  // The copy's bytes, as the reader sees them.
  const char* data() const { return data_; }
  std::size_t size() const { return size_; }

  std::uint64_t file_bytes = 0;  // the file's size when it was opened
  bool binary = false;           // begins with the binary form's flag
  bool had_mark = false;         // a byte-order mark was left out
  bool added_newline = false;    // a final line feed was supplied

 private:
  void copy(int in, const std::string& path);

  int fd_ = -1;
  const char* data_ = nullptr;
  std::size_t size_ = 0;
  std::string reader_path_;
};

}  // namespace torva::cli
