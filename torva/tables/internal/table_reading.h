// Private helpers of the table readers.
#pragma once

#include <cmath>
#include <cstddef>
#include <cstdio>
#include <memory>

namespace torva::internal {

// Opens a table file for reading, falling back to the copy under the home
// directory. On failure prints the cannot-open message naming the base name of
// `path` (with "ERROR: " in front when `error_prefix`, as the compressed
// reader words it) to logger::error and throws sea::file_error with that text.
std::shared_ptr<FILE> open_table_file(const char* path, bool error_prefix);

// Prints strerror(errno) on logger::error and throws sea::fatal_error with it.
[[noreturn]] void throw_errno();

// Prints "ERROR: incorrect table file size." on logger::error and throws
// sea::file_error with `thrown`.
[[noreturn]] void throw_wrong_size(const char* thrown);

// Running single-precision sum in place, divided by the row's total, and the
// last element set to exactly 1.0 so that a search can't fall off the end.
inline void make_cumulative(float* row, std::size_t size) {
  if (size == 0) return;
  float sum = 0.0f;
  for (std::size_t i = 0; i < size; ++i) {
    sum += row[i];
    row[i] = sum;
  }
  const float total = row[size - 1];
  for (std::size_t i = 0; i < size; ++i) row[i] /= total;
  row[size - 1] = 1.0f;
}

// Clears the sign bit of every element.
inline void make_absolute(float* values, std::size_t size) {
  for (std::size_t i = 0; i < size; ++i) values[i] = std::fabs(values[i]);
}

}  // namespace torva::internal
