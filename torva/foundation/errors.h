// The exceptions the library throws on purpose. None adds a field; what()
// returns the message unchanged.
#pragma once

#include <stdexcept>

namespace torva::sea {

class base_error : public std::logic_error {
 public:
  explicit base_error(const char* message) : std::logic_error(message) {}
};

// Never thrown by itself; the parent of file_error.
class basic_error : public base_error {
 public:
  explicit basic_error(const char* message) : base_error(message) {}
};

// The run cannot go on: bad geometry, a failed system call.
class fatal_error : public base_error {
 public:
  explicit fatal_error(const char* message) : base_error(message) {}
};

// A file could not be opened or holds the wrong contents.
class file_error : public basic_error {
 public:
  explicit file_error(const char* message) : basic_error(message) {}
};

}  // namespace torva::sea
