// An input stream over bytes held in memory, with the reads and seeks the
// reader makes of a file stream.
#pragma once

#include <cstddef>
#include <ios>
#include <istream>
#include <streambuf>

namespace torva::internal {

class memory_buffer : public std::streambuf {
 public:
  memory_buffer(const char* data, std::size_t size) {
    // The get area is only read from; streambuf's interface wants it mutable.
    char* begin = const_cast<char*>(data);
    setg(begin, begin, begin + size);
  }

 protected:
  pos_type seekoff(off_type offset, std::ios_base::seekdir dir, std::ios_base::openmode which) override {
    if (!(which & std::ios_base::in)) return pos_type(off_type(-1));
    const off_type base = dir == std::ios_base::beg ? 0 : dir == std::ios_base::cur ? gptr() - eback() : egptr() - eback();
    const off_type target = base + offset;
    if (target < 0 || target > egptr() - eback()) return pos_type(off_type(-1));
    setg(eback(), eback() + target, egptr());
    return pos_type(target);
  }
  pos_type seekpos(pos_type position, std::ios_base::openmode which) override {
    return seekoff(off_type(position), std::ios_base::beg, which);
  }
};

// The stream and its buffer in one object.
class memory_stream : private memory_buffer, public std::istream {
 public:
  memory_stream(const char* data, std::size_t size) : memory_buffer(data, size), std::istream(this) {}
};

}  // namespace torva::internal
