#include "torva/foundation/double_wrapper.h"

#include <gtest/gtest.h>

#include <algorithm>
#include <cmath>
#include <set>

#include "torva/foundation/point.h"
#include "torva/foundation/writer.h"

namespace torva {
namespace {

using sea::double_wrapper;

// Which of the six comparisons of a with b hold, in the order < > == != <= >=.
std::string relations(double_wrapper a, double_wrapper b) {
  std::string r;
  if (a < b) r += " <";
  if (a > b) r += " >";
  if (a == b) r += " ==";
  if (a != b) r += " !=";
  if (a <= b) r += " <=";
  if (a >= b) r += " >=";
  return r;
}

TEST(DoubleWrapper, ComparisonsForgiveLessThanTheTolerance) {
  const double tol = double_wrapper::tolerance, nan = std::nan("");
  const struct {
    double a, b;
    const char* hold;
  } cases[] = {
      {1.0, 1.0 + 5e-11, " == <= >="},  // inside the band: equal and neither less
      {1.0 + 5e-11, 1.0, " == <= >="},
      {1.0, 1.0 + 2e-10, " < != <="},  // outside it: ordered
      {1.0 + 2e-10, 1.0, " > != >="},
      {0.0, tol, " != <= >="},  // exactly the tolerance apart: neither <, > nor ==
      {tol, 0.0, " != <= >="},
      {0.0, 8e-11, " == <= >="},  // equality is not transitive
      {8e-11, 1.6e-10, " == <= >="},
      {0.0, 1.6e-10, " < != <="},
      {nan, 1.0, " !="},  // not a number: only !=
      {nan, nan, " !="},
      {-5e-11, 0.0, " == <= >="},  // == takes the magnitude
  };
  for (const auto& c : cases) EXPECT_EQ(relations(c.a, c.b), c.hold) << c.a << " vs " << c.b;
  // A plain number on either side is compared the same way.
  const double_wrapper a = 1.0;
  EXPECT_TRUE(a == 1.0 + 5e-11);
  EXPECT_TRUE(1.0 + 5e-11 == a);
  EXPECT_FALSE(a < 1.0 + 5e-11);
  EXPECT_FALSE(1.0 - 5e-11 < a);
  EXPECT_TRUE(-1e-10 > double_wrapper(-3e-10));
}

TEST(DoubleWrapper, ArithmeticIsExactAndStaysWrapped) {
  double_wrapper a = 0.1, b = 0.2;
  double_wrapper c = a + b;
  EXPECT_EQ(c.value, 0.1 + 0.2);
  EXPECT_EQ((a * 3).value, 0.1 * 3);
  EXPECT_EQ((2 * a).value, 2 * 0.1);
  EXPECT_EQ((a / 4.0).value, 0.1 / 4.0);
  EXPECT_EQ((-a).value, -0.1);
  c -= a;
  EXPECT_EQ(c.value, (0.1 + 0.2) - 0.1);
  // Differences of wrapped values still compare tolerantly.
  EXPECT_TRUE((double_wrapper(1.0) - double_wrapper(0.5)) == 0.5 + 5e-11);
  static_assert(sizeof(double_wrapper) == sizeof(double));
  static_assert(std::is_trivially_copyable_v<double_wrapper>);
  EXPECT_EQ(double_wrapper{}.value, 0.0);
}

TEST(DoubleWrapper, MaxMinAndSetsKeepTheFirstOfNearlyEqualValues) {
  const double_wrapper a = 1.0, b = 1.0 + 5e-11;
  EXPECT_EQ(std::max(a, b).value, 1.0);
  EXPECT_EQ(std::max(b, a).value, 1.0 + 5e-11);
  EXPECT_EQ(std::min(a, b).value, 1.0);
  EXPECT_EQ(std::min(b, a).value, 1.0 + 5e-11);
  EXPECT_EQ(std::max(a, double_wrapper(3.0)).value, 3.0);
  EXPECT_EQ(std::min(a, double_wrapper(-3.0)).value, -3.0);
  std::set<double_wrapper> s{1.0, 1.0 + 5e-11, 1.0 - 5e-11};
  ASSERT_EQ(s.size(), 1u);
  EXPECT_EQ(s.begin()->value, 1.0);
  s.insert(1.0 + 2e-10);
  EXPECT_EQ(s.size(), 2u);
}

TEST(DoubleWrapper, TolerantAbsZeroesTheBandOnly) {
  EXPECT_EQ(tolerant_abs(-5e-11).value, 0.0);
  EXPECT_EQ(tolerant_abs(5e-11).value, 0.0);
  EXPECT_EQ(tolerant_abs(-2e-10).value, 2e-10);
  EXPECT_EQ(tolerant_abs(3.5).value, 3.5);
}

TEST(Point, OperateAppliesComponentWise) {
  const point3 a{{1.0, 5.0, 3.0}}, b{{4.0, 2.0, 3.0 + 5e-11}};
  const auto hi = operate(a, b, [](double_wrapper x, double_wrapper y) { return std::max(x, y); });
  const auto mx = maximal(a, b), mn = minimal(a, b);
  const double want_hi[3] = {4.0, 5.0, 3.0}, want_lo[3] = {1.0, 2.0, 3.0};  // nearly equal: the first stands
  for (int k = 0; k < 3; ++k) {
    EXPECT_EQ(hi[k].value, want_hi[k]) << k;
    EXPECT_EQ(mx[k].value, want_hi[k]) << k;
    EXPECT_EQ(mn[k].value, want_lo[k]) << k;
  }
  const basic_point<long, 3> i{{-1, 4, 2}}, j{{0, 0, 0}};
  const auto clamped = operate(i, j, [](long x, long y) { return std::max<long>(x, y); });
  EXPECT_EQ(clamped[0], 0);
  EXPECT_EQ(clamped[1], 4);
}

TEST(Point, WriteToPrintsTwelveDecimals) {
  sea::string_writer out;
  const point3 p{{1.0, -2.5, 1.0 / 3.0}};
  p.write_to(out);
  EXPECT_EQ(out.text, "(1.000000000000, -2.500000000000, 0.333333333333)");
}

}  // namespace
}  // namespace torva
