// Word helpers of the text reader: whole-word comparison and number reading.
#pragma once

#include <charconv>
#include <cstdlib>
#include <cstring>

namespace torva::internal {

// Exact comparison of a NUL-terminated word with a literal.
inline bool same(const char* word, const char* literal) noexcept { return std::strcmp(word, literal) == 0; }

// strtod of a word: the longest prefix that is a number, 0 if there is none.
// Plain decimal words, by far the most common, take a faster road with the
// same result (both round correctly); the rest (hexadecimal, leading blanks
// other than separators, out of range) go to strtod itself. Decimal words are
// read with "." as the decimal point whatever the process's locale.
inline double to_double(const char* word) noexcept {
  const char* p = word;
  if (*p == '+' || *p == '-') ++p;
  const bool decimal = (*p >= '0' && *p <= '9') || (*p == '.' && p[1] >= '0' && p[1] <= '9');
  if (decimal && !(p[0] == '0' && (p[1] == 'x' || p[1] == 'X'))) {
    double value = 0.0;
    const char* end = p + std::strlen(p);
    const auto [stop, error] = std::from_chars(p, end, value);
    if (error == std::errc() && stop != p) return *word == '-' ? -value : value;
  }
  return std::strtod(word, nullptr);
}

}  // namespace torva::internal
