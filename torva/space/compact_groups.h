// The overflow groups of the compact index: their layout, and the integer
// bounds that one SSE2 pass computes for the 8 entries of a group.
#pragma once

#include <algorithm>
#include <cmath>
#include <cstddef>
#include <cstdint>
#include <cstring>

#if defined(__SSE2__)
#include <emmintrin.h>
#endif

namespace torva {

// Integer layout of an overflow group of `s` entries (s <= 8) at `base`:
// seven arrays of s int16 (distance, x low, x high, y low, y high, z low,
// z high), then s uint32 block numbers. A cell's overflow is full groups of 8,
// then the rest.
namespace compact_layout {
inline constexpr unsigned lanes = 8;
inline constexpr unsigned entry_bytes = 18;
inline constexpr std::int16_t clamp_units = 16383;  // integer values lie within +-this
inline constexpr std::int16_t open = 32767;         // a bound that lets every entry through
inline constexpr double reach_units = 8191.0;       // units in a cell's reach: scope_bound + 2 half
inline constexpr std::size_t tail_bytes = 16;       // the overflow's end, read past by the last group

inline std::uint32_t block_number(const std::uint8_t* base, unsigned s, unsigned lane) noexcept {
  std::uint32_t v;
  std::memcpy(&v, base + 14 * s + 4 * lane, 4);
  return v;
}
}  // namespace compact_layout

namespace compact_detail {

// The smallest integer n (or one more) with n * unit >= x, for a cell whose
// integers are meaningful above -range; 32767 where they are not. The
// quotient lies above -8192 there, so truncation after a shift is the floor.
inline std::int16_t units_above(double x, double inv_unit, double range) noexcept {
  if (!(x > -range)) return compact_layout::open;
  const double q = x * inv_unit;
  if (!(q < 32000.0)) return compact_layout::open;
  return static_cast<std::int16_t>(static_cast<std::int32_t>(q + 16384.0) - 16383);
}

// A point's offset from the cell's centre, in units, rounded outwards:
// up * unit >= offset >= down * unit (to within the rounding the margin
// covers). False, with both 0, outside +-8190 units, where the integers of a
// group would overflow; inside the cell the offset lies within +-4096.
inline bool point_units(double units, std::int16_t& up, std::int16_t& down) noexcept {
  if (!(std::fabs(units) <= 8190.0)) {
    up = down = 0;
    return false;
  }
  const std::int32_t f = static_cast<std::int32_t>(units + 16384.0) - 16384;
  down = static_cast<std::int16_t>(f);
  up = static_cast<std::int16_t>(f + 1);
  return true;
}

// The largest integer n (or one less) with n * unit < x - 2 units: a stored
// distance below it is surely below x. Its lowest value keeps every lane out.
inline std::int16_t units_surely_below(double x, double inv_unit, double range) noexcept {
  if (!(x > -range)) return -32768;
  const double q = x * inv_unit;
  if (!(q < 32000.0)) return 32000;
  return static_cast<std::int16_t>(static_cast<std::int32_t>(q + 16384.0) - 16387);
}

// Per group: the stored distances and the lower bounds of the entries'
// distances from the point, and which lanes lie below a threshold.
#if defined(__SSE2__)
struct group_bounds {
  __m128i dist, low;

  group_bounds(const std::uint8_t* base, unsigned s, const std::int16_t up[3], const std::int16_t down[3]) noexcept {
    auto field = [&](unsigned f) { return _mm_loadu_si128(reinterpret_cast<const __m128i*>(base + 2 * s * f)); };
    dist = field(0);
    __m128i m = _mm_max_epi16(_mm_subs_epi16(field(1), _mm_set1_epi16(up[0])),
                              _mm_subs_epi16(_mm_set1_epi16(down[0]), field(2)));
    m = _mm_max_epi16(m, _mm_subs_epi16(field(3), _mm_set1_epi16(up[1])));
    m = _mm_max_epi16(m, _mm_subs_epi16(_mm_set1_epi16(down[1]), field(4)));
    m = _mm_max_epi16(m, _mm_subs_epi16(field(5), _mm_set1_epi16(up[2])));
    low = _mm_max_epi16(m, _mm_subs_epi16(_mm_set1_epi16(down[2]), field(6)));
  }
  static unsigned below(__m128i v, std::int16_t t) noexcept {
    return unsigned(_mm_movemask_epi8(_mm_packs_epi16(_mm_cmplt_epi16(v, _mm_set1_epi16(t)), _mm_setzero_si128())));
  }
  unsigned dist_below(std::int16_t t) const noexcept { return below(dist, t); }
  unsigned low_below(std::int16_t t) const noexcept { return below(low, t); }
};
#else
struct group_bounds {
  std::int16_t dist[8], low[8];

  group_bounds(const std::uint8_t* base, unsigned s, const std::int16_t up[3], const std::int16_t down[3]) noexcept {
    std::int16_t f[7][8];
    for (unsigned k = 0; k < 7; ++k) std::memcpy(f[k], base + 2 * s * k, 16);
    for (unsigned i = 0; i < 8; ++i) {
      dist[i] = f[0][i];
      int m = -32768;
      for (int a = 0; a < 3; ++a) {
        m = std::max(m, int(f[1 + 2 * a][i]) - up[a]);
        m = std::max(m, int(down[a]) - f[2 + 2 * a][i]);
      }
      low[i] = std::int16_t(std::max(-32768, std::min(32767, m)));
    }
  }
  static unsigned below(const std::int16_t* v, std::int16_t t) noexcept {
    unsigned m = 0;
    for (unsigned i = 0; i < 8; ++i) m |= unsigned(v[i] < t) << i;
    return m;
  }
  unsigned dist_below(std::int16_t t) const noexcept { return below(dist, t); }
  unsigned low_below(std::int16_t t) const noexcept { return below(low, t); }
};
#endif

}  // namespace compact_detail

}  // namespace torva
