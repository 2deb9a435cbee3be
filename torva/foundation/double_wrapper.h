// Tolerant double: every length and coordinate of the library has this type.
//
// Arithmetic is plain IEEE arithmetic; only the comparisons forgive differences
// below the absolute tolerance 1e-10. The comparison forms below are not
// negations of one another (two values exactly 1e-10 apart are neither <, >
// nor ==, but both <= and >=), and geometry code relies on each form as written.
#pragma once

#include <type_traits>

namespace torva::sea {

struct double_wrapper {
  static constexpr double tolerance = 1e-10;

  double value = 0.0;

  constexpr double_wrapper() noexcept = default;
  constexpr double_wrapper(double v) noexcept : value(v) {}  // NOLINT: implicit on purpose
  constexpr operator double() const noexcept { return value; }  // NOLINT

  constexpr double_wrapper& operator+=(double_wrapper o) noexcept { value += o.value; return *this; }
  constexpr double_wrapper& operator-=(double_wrapper o) noexcept { value -= o.value; return *this; }
  constexpr double_wrapper& operator*=(double_wrapper o) noexcept { value *= o.value; return *this; }
  constexpr double_wrapper& operator/=(double_wrapper o) noexcept { value /= o.value; return *this; }
  constexpr double_wrapper operator-() const noexcept { return double_wrapper(-value); }
  constexpr double_wrapper operator+() const noexcept { return *this; }
};

// Arithmetic types other than double_wrapper itself; the mixed operators take
// them by template so that they beat the built-in operators that the implicit
// conversion would otherwise make equally good (and ambiguous).
template <class T>
concept plain_number = std::is_arithmetic_v<T>;

namespace detail {
constexpr double raw(double_wrapper v) noexcept { return v.value; }
template <plain_number T>
constexpr double raw(T v) noexcept { return static_cast<double>(v); }
}  // namespace detail

template <class A, class B>
concept wrapper_operands =
    (std::is_same_v<A, double_wrapper> && (std::is_same_v<B, double_wrapper> || plain_number<B>)) ||
    (plain_number<A> && std::is_same_v<B, double_wrapper>);

template <class A, class B> requires wrapper_operands<A, B>
constexpr double_wrapper operator+(A a, B b) noexcept { return detail::raw(a) + detail::raw(b); }
template <class A, class B> requires wrapper_operands<A, B>
constexpr double_wrapper operator-(A a, B b) noexcept { return detail::raw(a) - detail::raw(b); }
template <class A, class B> requires wrapper_operands<A, B>
constexpr double_wrapper operator*(A a, B b) noexcept { return detail::raw(a) * detail::raw(b); }
template <class A, class B> requires wrapper_operands<A, B>
constexpr double_wrapper operator/(A a, B b) noexcept { return detail::raw(a) / detail::raw(b); }

template <class A, class B> requires wrapper_operands<A, B>
constexpr bool operator<(A a, B b) noexcept {
  return detail::raw(a) < detail::raw(b) - double_wrapper::tolerance;
}
template <class A, class B> requires wrapper_operands<A, B>
constexpr bool operator>(A a, B b) noexcept {
  return detail::raw(a) - double_wrapper::tolerance > detail::raw(b);
}
template <class A, class B> requires wrapper_operands<A, B>
constexpr bool operator<=(A a, B b) noexcept {
  return detail::raw(b) + double_wrapper::tolerance >= detail::raw(a);
}
template <class A, class B> requires wrapper_operands<A, B>
constexpr bool operator>=(A a, B b) noexcept {
  return detail::raw(a) + double_wrapper::tolerance >= detail::raw(b);
}
template <class A, class B> requires wrapper_operands<A, B>
constexpr bool operator==(A a, B b) noexcept {
  const double d = detail::raw(a) - detail::raw(b);
  // The plain magnitude (0.0 > d ? -d : d); fabs gives the same comparison
  // for every d, signed zeros and NaN included, without a branch.
  return __builtin_fabs(d) < double_wrapper::tolerance;
}
template <class A, class B> requires wrapper_operands<A, B>
constexpr bool operator!=(A a, B b) noexcept { return !(a == b); }

}  // namespace torva::sea

namespace torva {

// The wrapper's zero, the bound of a list that covers the whole space.
inline constexpr sea::double_wrapper SS_ZERO{0.0};

// Absolute value that turns anything within the tolerance of zero into a true
// zero (unlike the magnitude taken by ==, which keeps tiny values).
constexpr sea::double_wrapper tolerant_abs(sea::double_wrapper x) noexcept {
  if (x > 0.0) return x;
  if (x < 0.0) return -x;
  return 0.0;
}

}  // namespace torva
