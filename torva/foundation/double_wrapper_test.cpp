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

TEST(DoubleWrapper, InsideTheBandValuesAreEqualAndNeitherLess) {
  double_wrapper a = 1.0, b = 1.0 + 5e-11;
  EXPECT_TRUE(a == b);
  EXPECT_FALSE(a != b);
  EXPECT_FALSE(a < b);
  EXPECT_FALSE(a > b);
  EXPECT_FALSE(b < a);
  EXPECT_TRUE(a <= b);
  EXPECT_TRUE(a >= b);
}

TEST(DoubleWrapper, OutsideTheBandValuesAreOrdered) {
  double_wrapper a = 1.0, b = 1.0 + 2e-10;
  EXPECT_TRUE(a < b);
  EXPECT_TRUE(b > a);
  EXPECT_FALSE(a == b);
  EXPECT_TRUE(a != b);
  EXPECT_TRUE(a <= b);
  EXPECT_FALSE(a >= b);
}

TEST(DoubleWrapper, ExactlyToleranceApartIsNeitherLessGreaterNorEqual) {
  // Chosen so that the difference is exactly representable as the tolerance.
  double_wrapper a = 0.0, b = double_wrapper::tolerance;
  EXPECT_FALSE(a < b);
  EXPECT_FALSE(a > b);
  EXPECT_FALSE(b > a);
  EXPECT_FALSE(a == b);
  EXPECT_TRUE(a <= b);
  EXPECT_TRUE(a >= b);
  EXPECT_TRUE(b <= a);
  EXPECT_TRUE(b >= a);
}

TEST(DoubleWrapper, EqualityIsNotTransitive) {
  double_wrapper a = 0.0, b = 8e-11, c = 1.6e-10;
  EXPECT_TRUE(a == b);
  EXPECT_TRUE(b == c);
  EXPECT_FALSE(a == c);
}

TEST(DoubleWrapper, NanComparesFalseButForNotEqual) {
  double_wrapper n = std::nan(""), one = 1.0;
  EXPECT_FALSE(n < one);
  EXPECT_FALSE(n > one);
  EXPECT_FALSE(n <= one);
  EXPECT_FALSE(n >= one);
  EXPECT_FALSE(n == one);
  EXPECT_FALSE(n == n);
  EXPECT_TRUE(n != one);
}

TEST(DoubleWrapper, MixedOperandsUseTheToleranceToo) {
  double_wrapper a = 1.0;
  EXPECT_TRUE(a == 1.0 + 5e-11);
  EXPECT_TRUE(1.0 + 5e-11 == a);
  EXPECT_FALSE(a < 1.0 + 5e-11);
  EXPECT_FALSE(1.0 - 5e-11 < a);
  EXPECT_TRUE(a > 0);
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
}

TEST(DoubleWrapper, MaxAndMinReturnTheFirstOfNearlyEqualValues) {
  double_wrapper a = 1.0, b = 1.0 + 5e-11;
  EXPECT_EQ(std::max(a, b).value, 1.0);
  EXPECT_EQ(std::max(b, a).value, 1.0 + 5e-11);
  EXPECT_EQ(std::min(a, b).value, 1.0);
  EXPECT_EQ(std::min(b, a).value, 1.0 + 5e-11);
  EXPECT_EQ(std::max(a, double_wrapper(3.0)).value, 3.0);
  EXPECT_EQ(std::min(a, double_wrapper(-3.0)).value, -3.0);
}

TEST(DoubleWrapper, SetKeepsTheFirstOfNearlyEqualValues) {
  std::set<double_wrapper> s;
  s.insert(1.0);
  s.insert(1.0 + 5e-11);
  s.insert(1.0 - 5e-11);
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
  // The magnitude in == keeps tiny values: -5e-11 is not equal to 1e-10 - 5e-11 ... but is to 0.
  EXPECT_TRUE(double_wrapper(-5e-11) == 0.0);
  EXPECT_EQ(SS_ZERO.value, 0.0);
}

TEST(DoubleWrapper, HasTheSizeOfADouble) {
  static_assert(sizeof(double_wrapper) == sizeof(double));
  static_assert(std::is_trivially_copyable_v<double_wrapper>);
  double_wrapper zeroed{};
  EXPECT_EQ(zeroed.value, 0.0);
}

TEST(Point, OperateAppliesComponentWise) {
  point3 a{{1.0, 5.0, 3.0}}, b{{4.0, 2.0, 3.0 + 5e-11}};
  auto hi = operate(a, b, [](double_wrapper x, double_wrapper y) { return std::max(x, y); });
  EXPECT_EQ(hi[0].value, 4.0);
  EXPECT_EQ(hi[1].value, 5.0);
  EXPECT_EQ(hi[2].value, 3.0);  // nearly equal: the first stands
  auto mx = maximal(a, b);
  auto mn = minimal(a, b);
  EXPECT_EQ(mx[0].value, 4.0);
  EXPECT_EQ(mx[2].value, 3.0);
  EXPECT_EQ(mn[0].value, 1.0);
  EXPECT_EQ(mn[1].value, 2.0);
  EXPECT_EQ(mn[2].value, 3.0);
  basic_point<long, 3> i{{-1, 4, 2}}, j{{0, 0, 0}};
  auto clamped = operate(i, j, [](long x, long y) { return std::max<long>(x, y); });
  EXPECT_EQ(clamped[0], 0);
  EXPECT_EQ(clamped[1], 4);
}

TEST(Point, WriteToPrintsTwelveDecimals) {
  sea::string_writer out;
  point3 p{{1.0, -2.5, 1.0 / 3.0}};
  p.write_to(out);
  EXPECT_EQ(out.text, "(1.000000000000, -2.500000000000, 0.333333333333)");
}

TEST(Point, FormatPrintsTheFullStoredValue) {
  sea::string_writer out;
  double_wrapper x = 1.0 + 5e-11;
  out.format("%.12f", double(x));
  EXPECT_EQ(out.text, "1.000000000050");
}

}  // namespace
}  // namespace torva
