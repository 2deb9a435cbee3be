#include "torva/foundation/writer.h"

#include <cstdio>

namespace torva::sea {

writer& writer::operator()(const char* fmt, ...) {
  va_list args;
  va_start(args, fmt);
  vformat(fmt, args);
  va_end(args);
  return *this;
}

writer& writer::format(const char* fmt, ...) {
  va_list args;
  va_start(args, fmt);
  vformat(fmt, args);
  va_end(args);
  return *this;
}

file_writer::~file_writer() { std::fflush(stream); }

writer& file_writer::write(char c) {
  std::fputc(c, stream);
  return *this;
}

writer& file_writer::write(const void* data, unsigned long size) {
  std::fwrite(data, 1, size, stream);
  return *this;
}

writer& file_writer::vformat(const char* fmt, va_list args) {
  std::vfprintf(stream, fmt, args);
  return *this;
}

writer& file_writer::flush() {
  std::fflush(stream);
  return *this;
}

writer& string_writer::write(char c) {
  text.push_back(c);
  return *this;
}

writer& string_writer::write(const void* data, unsigned long size) {
  text.append(static_cast<const char*>(data), size);
  return *this;
}

writer& string_writer::vformat(const char* fmt, va_list args) {
  va_list probe;
  va_copy(probe, args);
  const int n = std::vsnprintf(nullptr, 0, fmt, probe);
  va_end(probe);
  if (n <= 0) return *this;
  const std::size_t old = text.size();
  text.resize(old + static_cast<std::size_t>(n) + 1);
  std::vsnprintf(text.data() + old, static_cast<std::size_t>(n) + 1, fmt, args);
  text.resize(old + static_cast<std::size_t>(n));
  return *this;
}

writer& string_writer::flush() {
  ++flushes;
  return *this;
}

}  // namespace torva::sea
