// The key of a table group: N dielectric values (or value ratios) in order.
//
// Equality forgives a difference below 1e-10 in each element, while the hash
// takes the exact bits. Two tuples that are equal by tolerance but differ in
// their bits may therefore hash apart, and such a tuple is found in a map only
// when it lands in the bucket of the stored key. That is accepted: the keys a
// run uses come from the same arithmetic and so carry the same bits.
#pragma once

#include <array>
#include <cstddef>
#include <cstdint>
#include <functional>

#include "torva/foundation/hash.h"

namespace torva {

template <std::size_t N>
struct diel_tuple {
  static_assert(N >= 2 && N <= 4, "a table group is keyed by 2, 3 or 4 values");
  static constexpr std::size_t size() { return N; }
  double& operator[](std::size_t i) { return values[i]; }
  double operator[](std::size_t i) const { return values[i]; }

  std::array<double, N> values;
};

template <std::size_t N>
bool operator==(const diel_tuple<N>& a, const diel_tuple<N>& b) {
  for (std::size_t i = 0; i < N; ++i) {
    const double d = a.values[i] - b.values[i];
    if (!((d < 0.0 ? -d : d) < 1e-10)) return false;
  }
  return true;
}

template <std::size_t N>
bool operator!=(const diel_tuple<N>& a, const diel_tuple<N>& b) {
  return !(a == b);
}

namespace sea {

// 5381, then for each element: times 33 plus the standard hash of the double
// (0 for 0.0 and -0.0 alike), wrapping modulo 2^64.
template <std::size_t N>
struct hash<diel_tuple<N>> {
  unsigned long operator()(const diel_tuple<N>& key) const noexcept {
    std::uint64_t h = 5381;
    for (double v : key.values) h = h * 33 + std::hash<double>{}(v);
    return h;
  }
};

}  // namespace sea

}  // namespace torva
