// Word helpers of the text reader: whole-word comparison and number reading.
#pragma once

#include <charconv>
#include <cstdint>
#include <cstdlib>
#include <cstring>
#include <string_view>

namespace torva::internal {

// Exact comparison of a word with a literal. Words are compared as views, so
// that most mismatches are settled by their lengths alone.
inline bool same(std::string_view word, std::string_view literal) noexcept { return word == literal; }

// strtod of a word: the longest prefix that is a number, 0 if there is none.
// Plain decimal words of at most 15 significant digits and a small scale, by
// far the most common in a layout, are read as an integer scaled by one exact
// power of ten: a single correctly rounded operation, so the result is the
// one strtod gives. Other decimal words go to std::from_chars (also correctly
// rounded); the rest (hexadecimal, exponents, leading blanks other than
// separators, out of range, inf, nan) to strtod itself. Decimal words are read
// with "." as the decimal point whatever the process's locale.
inline double to_double(const char* word) noexcept {
  static constexpr double powers[] = {1e0,  1e1,  1e2,  1e3,  1e4,  1e5,  1e6,  1e7,  1e8,  1e9,  1e10, 1e11,
                                      1e12, 1e13, 1e14, 1e15, 1e16, 1e17, 1e18, 1e19, 1e20, 1e21, 1e22};
  const char* p = word;
  const bool negative = *p == '-';
  if (*p == '+' || *p == '-') ++p;

  // Fast road: digits, an optional point, digits, and no exponent.
  {
    const char* q = p;
    std::uint64_t mantissa = 0;
    int significant = 0;
    int scale = 0;  // digits behind the point
    bool any = false;
    for (; *q >= '0' && *q <= '9'; ++q) {
      any = true;
      if (mantissa != 0 || *q != '0') ++significant;
      mantissa = mantissa * 10 + static_cast<unsigned>(*q - '0');
      if (significant > 15) break;
    }
    if (significant <= 15 && *q == '.') {
      for (++q; *q >= '0' && *q <= '9'; ++q) {
        any = true;
        if (mantissa != 0 || *q != '0') ++significant;
        mantissa = mantissa * 10 + static_cast<unsigned>(*q - '0');
        ++scale;
        if (significant > 15 || scale > 22) break;
      }
    }
    const char stop = *q;
    if (any && significant <= 15 && scale <= 22 && !(stop >= '0' && stop <= '9') && stop != 'e' && stop != 'E' &&
        stop != 'x' && stop != 'X' && stop != '.') {
      const double value = static_cast<double>(mantissa) / powers[scale];
      return negative ? -value : value;
    }
  }

  const bool decimal = (*p >= '0' && *p <= '9') || (*p == '.' && p[1] >= '0' && p[1] <= '9');
  if (decimal && !(p[0] == '0' && (p[1] == 'x' || p[1] == 'X'))) {
    double value = 0.0;
    const char* end = p + std::strlen(p);
    const auto [stop, error] = std::from_chars(p, end, value);
    if (error == std::errc() && stop != p) return negative ? -value : value;
  }
  return std::strtod(word, nullptr);
}

}  // namespace torva::internal
