// Output sinks. Every message and dump of the library goes through a writer.
#pragma once

#include <cstdarg>
#include <cstdio>
#include <string>
#include <string_view>

namespace torva::sea {

class writer {
 public:
  virtual ~writer() = default;
  virtual writer& write(char c) = 0;
  virtual writer& write(const void* data, unsigned long size) = 0;
  virtual writer& vformat(const char* format, va_list args) = 0;
  virtual writer& flush() = 0;

  // Both print under a printf format: a literal text is itself read as a
  // format, so untrusted text must go through "%s".
  writer& operator()(const char* format, ...) __attribute__((format(printf, 2, 3)));
  writer& format(const char* format, ...) __attribute__((format(printf, 2, 3)));

  // Plain text, never read as a format.
  writer& print(std::string_view s) { return write(s.data(), s.size()); }
};

// Writes on a stdio stream that it does not own: the destructor only flushes.
class file_writer : public writer {
 public:
  explicit file_writer(FILE* s) : stream(s) {}
  ~file_writer() override;
  writer& write(char c) override;
  writer& write(const void* data, unsigned long size) override;
  writer& vformat(const char* format, va_list args) override;
  writer& flush() override;

  FILE* stream;
};

// Collects everything it is given into a string; what tests and embedding
// clients use to capture the library's messages.
class string_writer : public writer {
 public:
  writer& write(char c) override;
  writer& write(const void* data, unsigned long size) override;
  writer& vformat(const char* format, va_list args) override;
  writer& flush() override;

  std::string text;
  unsigned long flushes = 0;  // how many times flush() was called
};

}  // namespace torva::sea
