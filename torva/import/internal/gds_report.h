// How the GDS reader and the flattener give up and warn: the line on the
// error channel then the throw, as the rest of the library does; warnings of
// one kind are counted and said once, with the first place they arose.
#pragma once

#include <cstdint>
#include <map>
#include <string>
#include <vector>

namespace torva::internal {

// A stream or hierarchy the reader cannot take: sea::file_error.
[[noreturn]] void gds_fail(const std::string& message);
// A cell too large for the limits it was given: sea::fatal_error.
[[noreturn]] void gds_refuse(const std::string& message);

class gds_warnings {
 public:
  // Keeps the first message of a kind and counts the rest.
  void add(const std::string& kind, const std::string& message);
  // Prints one line per kind on the warning channel and appends the same
  // lines (without "WARNING: ") to out; forgets what it held.
  void flush(std::vector<std::string>& out);

 private:
  struct entry {
    std::string first;
    std::uint64_t count = 0;
  };
  std::vector<std::string> order_;
  std::map<std::string, entry> kinds_;
};

}  // namespace torva::internal
