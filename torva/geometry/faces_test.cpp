#include "torva/geometry/faces.h"

#include <gtest/gtest.h>

#include <cmath>
#include <string>
#include <vector>

#include "torva/foundation/errors.h"
#include "torva/geometry/prisms.h"
#include "torva_testing/log_capture.h"

namespace torva {
namespace {

point2 P(double x, double y) { return point2{{x, y}}; }

nprism_t prism_of(const std::vector<point2>& v, double bottom = 0.0, double top = 1.0) {
  nprism_t p;
  for (std::size_t i = 0; i < v.size(); ++i) p.points[i] = v[i];
  p.size = v.size();
  p.bottom = bottom;
  p.top = top;
  return p;
}

void expect_point(const point3& p, double x, double y, double z) {
  EXPECT_DOUBLE_EQ(p[0].value, x);
  EXPECT_DOUBLE_EQ(p[1].value, y);
  EXPECT_DOUBLE_EQ(p[2].value, z);
}

// ---------------------------------------------------------------- faces

TEST(PlanesForCuboid, SixRectanglesInDirectionOrder) {
  std::vector<plane_t> out(1);
  generate_planes_for_cuboid(cuboid_t{{{1, 2, 3}}, {{2, 4, 7}}}, out);
  ASSERT_EQ(out.size(), 7u);
  // direction, origin, length_a, length_b
  struct expected {
    double ox, oy, oz, a, b;
  } e[6] = {
      {2, 2, 3, 2, 4},  // +x: a along y, b along z
      {1, 4, 3, 4, 1},  // +y: a along z, b along x
      {1, 2, 7, 1, 2},  // +z: a along x, b along y
      {1, 2, 3, 2, 4},  // -x
      {1, 2, 3, 4, 1},  // -y
      {1, 2, 3, 1, 2},  // -z
  };
  for (int d = 0; d < 6; ++d) {
    const plane_t& p = out[1 + d];
    ASSERT_EQ(p.tag, plane_t::rectangle_tag);
    EXPECT_EQ(p.rectangle.direction, std::uint64_t(d));
    expect_point(p.rectangle.origin, e[d].ox, e[d].oy, e[d].oz);
    EXPECT_DOUBLE_EQ(p.rectangle.length_a.value, e[d].a) << d;
    EXPECT_DOUBLE_EQ(p.rectangle.length_b.value, e[d].b) << d;
  }
}

TEST(PlanesForPrism, TriangleGivesTwoLidsAndThreeSides) {
  std::vector<plane_t> out;
  generate_planes_for_prism(prism_of({P(0, 0), P(3, 0), P(0, 4)}, -1, 2), out);
  ASSERT_EQ(out.size(), 5u);
  ASSERT_EQ(out[0].tag, plane_t::triangle_tag);
  EXPECT_EQ(out[0].triangle.z.value, -1.0);
  EXPECT_EQ(out[0].triangle.direction, 5u);
  ASSERT_EQ(out[1].tag, plane_t::triangle_tag);
  EXPECT_EQ(out[1].triangle.z.value, 2.0);
  EXPECT_EQ(out[1].triangle.direction, 2u);
  for (int k = 0; k < 2; ++k) {
    EXPECT_EQ(out[k].triangle.a[0].value, 0.0);
    EXPECT_EQ(out[k].triangle.b[0].value, 3.0);
    EXPECT_EQ(out[k].triangle.c[1].value, 4.0);
  }
  // (0,0) to (3,0): along x, outward -y.
  ASSERT_EQ(out[2].tag, plane_t::rectangle_tag);
  EXPECT_EQ(out[2].rectangle.direction, 4u);
  expect_point(out[2].rectangle.origin, 0, 0, -1);
  EXPECT_EQ(out[2].rectangle.length_a.value, 3.0);  // the height
  EXPECT_EQ(out[2].rectangle.length_b.value, 3.0);  // the edge
  // (3,0) to (0,4): inclined.
  ASSERT_EQ(out[3].tag, plane_t::incline_tag);
  expect_point(out[3].incline.origin, 3, 0, -1);
  EXPECT_EQ(out[3].incline.dx.value, -3.0);
  EXPECT_EQ(out[3].incline.dy.value, 4.0);
  EXPECT_EQ(out[3].incline.height.value, 3.0);
  // (0,4) to (0,0): along y going down, outward -x.
  ASSERT_EQ(out[4].tag, plane_t::rectangle_tag);
  EXPECT_EQ(out[4].rectangle.direction, 3u);
  expect_point(out[4].rectangle.origin, 0, 0, -1);
  EXPECT_EQ(out[4].rectangle.length_a.value, 4.0);
  EXPECT_EQ(out[4].rectangle.length_b.value, 3.0);
}

TEST(PlanesForPrism, SquareGivesFourLidsAndFourRectanglesFacingOut) {
  std::vector<plane_t> out;
  generate_planes_for_prism(prism_of({P(0, 0), P(2, 0), P(2, 2), P(0, 2)}, 0, 1), out);
  ASSERT_EQ(out.size(), 8u);
  for (int k = 0; k < 4; ++k) EXPECT_EQ(out[k].tag, plane_t::triangle_tag);
  // Lids interleave: bottom then top for each fan triangle.
  EXPECT_EQ(out[0].triangle.direction, 5u);
  EXPECT_EQ(out[1].triangle.direction, 2u);
  EXPECT_EQ(out[2].triangle.direction, 5u);
  EXPECT_EQ(out[2].triangle.b[0].value, 2.0);
  EXPECT_EQ(out[2].triangle.b[1].value, 2.0);
  const std::uint64_t directions[4] = {4, 0, 1, 3};
  for (int k = 0; k < 4; ++k) {
    ASSERT_EQ(out[4 + k].tag, plane_t::rectangle_tag);
    EXPECT_EQ(out[4 + k].rectangle.direction, directions[k]) << k;
  }
  expect_point(out[5].rectangle.origin, 2, 0, 0);  // right side: its least corner
  expect_point(out[6].rectangle.origin, 0, 2, 0);  // top side, running in -x
}

TEST(PlanesForPrism, TooFewVerticesGiveNoLids) {
  std::vector<plane_t> out;
  generate_planes_for_prism(prism_of({P(0, 0), P(1, 1)}), out);
  EXPECT_EQ(out.size(), 2u);  // two inclined faces, no triangle
  for (const plane_t& p : out) EXPECT_EQ(p.tag, plane_t::incline_tag);
  out.clear();
  generate_planes_for_prism(prism_of({}), out);
  EXPECT_TRUE(out.empty());
}

// ---------------------------------------------------------------- expand, ratio

TEST(ExpandPrism, UnitSquareByOne) {
  const nprism_t r = expand_prism(prism_of({P(0, 0), P(1, 0), P(1, 1), P(0, 1)}, 0, 1), 1.0);
  ASSERT_EQ(r.size, 8u);
  const double expected[8][2] = {{0, -1}, {1, -1}, {2, 0}, {2, 1}, {1, 2}, {0, 2}, {-1, 1}, {-1, 0}};
  for (int k = 0; k < 8; ++k) {
    EXPECT_DOUBLE_EQ(r.points[k][0].value, expected[k][0]) << k;
    EXPECT_DOUBLE_EQ(r.points[k][1].value, expected[k][1]) << k;
  }
  EXPECT_EQ(r.bottom.value, -1.0);
  EXPECT_EQ(r.top.value, 2.0);
}

TEST(ExpandPrism, InclinedEdgeMovesAlongItsNormalAndNegativeMarginShrinks) {
  const nprism_t tri = prism_of({P(0, 0), P(3, 0), P(0, 4)}, 0, 1);
  const nprism_t r = expand_prism(tri, 0.5);
  ASSERT_EQ(r.size, 6u);
  // The hypotenuse (3,0)-(0,4) has outward normal (4,3)/5.
  EXPECT_DOUBLE_EQ(r.points[2][0].value, 3 + 0.4);
  EXPECT_DOUBLE_EQ(r.points[2][1].value, 0.3);
  EXPECT_DOUBLE_EQ(r.points[3][0].value, 0.4);
  EXPECT_DOUBLE_EQ(r.points[3][1].value, 4.3);
  const nprism_t s = expand_prism(tri, -0.25);
  EXPECT_DOUBLE_EQ(s.points[0][1].value, 0.25);
  EXPECT_EQ(s.bottom.value, 0.25);
  EXPECT_EQ(s.top.value, 0.75);
}

TEST(ExpandPrism, FiveVerticesAreRefused) {
  testing::log_capture log;
  const nprism_t p = prism_of({P(0, 0), P(2, 0), P(3, 1), P(1, 2), P(-1, 1)}, 0, 1);
  try {
    expand_prism(p, 1.0);
    FAIL();
  } catch (const sea::fatal_error& e) {
    EXPECT_STREQ(e.what(), "Geometry error. \n");
  }
  EXPECT_EQ(log.error(), "ERROR: (Geometry) convex vertex number should less than 5.\n");
  EXPECT_EQ(log.detail(),
            "(0.000000000000, 0.000000000000) (2.000000000000, 0.000000000000) (3.000000000000, 1.000000000000) "
            "(1.000000000000, 2.000000000000) (-1.000000000000, 1.000000000000) 0.000000000000 1.000000000000\n");
}

TEST(ExpandPrism, OneOrNoVertexIsNotSupported) {
  for (std::size_t n : {0u, 1u}) {
    testing::log_capture log;
    std::vector<point2> v(n, P(1, 1));
    try {
      expand_prism(prism_of(v), 1.0);
      FAIL() << n;
    } catch (const sea::fatal_error& e) {
      EXPECT_STREQ(e.what(), "GEOMETRY ERROR. \n");
    }
    EXPECT_EQ(log.error(), "ERROR: vertex number not supported.\n");
  }
  // Two vertices make four: accepted, however thin.
  EXPECT_EQ(expand_prism(prism_of({P(0, 0), P(1, 0)}), 0.1).size, 4u);
}

TEST(GetRatio, RightTriangle) {
  EXPECT_DOUBLE_EQ(get_ratio(prism_of({P(0, 0), P(3, 0), P(0, 4)})).value, 5.0 / 3.0);
}

TEST(GetRatio, AxisParallelSidesOnlyGiveZero) {
  EXPECT_EQ(get_ratio(prism_of({P(0, 0), P(3, 0), P(3, 1), P(0, 1)})).value, 0.0);
}

TEST(GetRatio, ShortestCountsEverySideLongestOnlyInclinedOnes) {
  // Trapezoid: bottom 4, right side inclined of length sqrt(2), top 3, left 1.
  EXPECT_DOUBLE_EQ(get_ratio(prism_of({P(0, 0), P(4, 0), P(3, 1), P(0, 1)})).value, std::sqrt(2.0));
}

TEST(GetRatio, ZeroLengthSideGivesInfinityOrNotANumber) {
  const double r = get_ratio(prism_of({P(0, 0), P(0, 0), P(3, 4)})).value;
  EXPECT_TRUE(std::isinf(r) || std::isnan(r));
}

}  // namespace
}  // namespace torva
