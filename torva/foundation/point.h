// Coordinate tuples: plan-view and space points, grid indices and sizes.
#pragma once

#include <algorithm>
#include <cstddef>

#include "torva/foundation/double_wrapper.h"
#include "torva/foundation/writer.h"

namespace torva {

template <class T, std::size_t N>
struct basic_point {
  T v[N]{};

  constexpr T& operator[](std::size_t i) noexcept { return v[i]; }
  constexpr const T& operator[](std::size_t i) const noexcept { return v[i]; }

  // Prints "(x, y, z)" with 12 decimals each; only for space points.
  sea::writer& write_to(sea::writer& out) const
    requires(std::is_same_v<T, sea::double_wrapper> && N == 3)
  {
    out("(");
    out.format("%.12f", double(v[0]));
    out(", ");
    out.format("%.12f", double(v[1]));
    out(", ");
    out.format("%.12f", double(v[2]));
    return out(")");
  }
};

using point2 = basic_point<sea::double_wrapper, 2>;
using point3 = basic_point<sea::double_wrapper, 3>;

// Component-wise op(a[i], b[i]) for i = 0, 1, 2, in that order.
template <class T, class F>
constexpr basic_point<T, 3> operate(const basic_point<T, 3>& a, const basic_point<T, 3>& b, F&& op) {
  basic_point<T, 3> r;
  r[0] = op(a[0], b[0]);
  r[1] = op(a[1], b[1]);
  r[2] = op(a[2], b[2]);
  return r;
}

// Component-wise std::max / std::min; with tolerant components a component of b
// replaces that of a only if it really differs.
template <class T, std::size_t N>
constexpr basic_point<T, N> maximal(const basic_point<T, N>& a, const basic_point<T, N>& b) {
  basic_point<T, N> r;
  for (std::size_t i = 0; i < N; ++i) r[i] = std::max(a[i], b[i]);
  return r;
}
template <class T, std::size_t N>
constexpr basic_point<T, N> minimal(const basic_point<T, N>& a, const basic_point<T, N>& b) {
  basic_point<T, N> r;
  for (std::size_t i = 0; i < N; ++i) r[i] = std::min(a[i], b[i]);
  return r;
}

// Plain component-wise arithmetic, for the geometry that builds on points.
template <class T, std::size_t N>
constexpr basic_point<T, N> operator+(const basic_point<T, N>& a, const basic_point<T, N>& b) {
  basic_point<T, N> r;
  for (std::size_t i = 0; i < N; ++i) r[i] = a[i] + b[i];
  return r;
}
template <class T, std::size_t N>
constexpr basic_point<T, N> operator-(const basic_point<T, N>& a, const basic_point<T, N>& b) {
  basic_point<T, N> r;
  for (std::size_t i = 0; i < N; ++i) r[i] = a[i] - b[i];
  return r;
}
template <class T, std::size_t N, class S>
constexpr basic_point<T, N> operator*(const basic_point<T, N>& a, S s) {
  basic_point<T, N> r;
  for (std::size_t i = 0; i < N; ++i) r[i] = a[i] * s;
  return r;
}

}  // namespace torva
