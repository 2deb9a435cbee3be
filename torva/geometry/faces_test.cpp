#include "torva/geometry/faces.h"

#include <gtest/gtest.h>

#include <cmath>
#include <string>
#include <vector>

#include "torva/foundation/errors.h"
#include "torva/geometry/internal/prism_fixtures.h"
#include "torva/geometry/prisms.h"
#include "torva_testing/log_capture.h"

namespace torva {
namespace {

using testing::P;
using testing::prism_of;

// A rectangle of direction `d` from (x, y, z) with lengths a and b.
void expect_rectangle(const plane_t& p, std::uint64_t d, double x, double y, double z, double a, double b) {
  ASSERT_EQ(p.tag, plane_t::rectangle_tag);
  EXPECT_EQ(p.rectangle.direction, d);
  const double origin[3] = {x, y, z};
  for (int k = 0; k < 3; ++k) EXPECT_DOUBLE_EQ(p.rectangle.origin[k].value, origin[k]) << "direction " << d;
  EXPECT_DOUBLE_EQ(p.rectangle.length_a.value, a) << "direction " << d;
  EXPECT_DOUBLE_EQ(p.rectangle.length_b.value, b) << "direction " << d;
}

TEST(PlanesForCuboid, SixRectanglesInDirectionOrderAppended) {
  std::vector<plane_t> out(1);
  generate_planes_for_cuboid(cuboid_t{{{1, 2, 3}}, {{2, 4, 7}}}, out);
  ASSERT_EQ(out.size(), 7u);
  expect_rectangle(out[1], 0, 2, 2, 3, 2, 4);  // +x: a along y, b along z
  expect_rectangle(out[2], 1, 1, 4, 3, 4, 1);  // +y: a along z, b along x
  expect_rectangle(out[3], 2, 1, 2, 7, 1, 2);  // +z: a along x, b along y
  expect_rectangle(out[4], 3, 1, 2, 3, 2, 4);
  expect_rectangle(out[5], 4, 1, 2, 3, 4, 1);
  expect_rectangle(out[6], 5, 1, 2, 3, 1, 2);
}

TEST(PlanesForPrism, TriangleGivesTwoLidsThenOneFacePerEdge) {
  std::vector<plane_t> out;
  generate_planes_for_prism(prism_of({P(0, 0), P(3, 0), P(0, 4)}, -1, 2), out);
  ASSERT_EQ(out.size(), 5u);
  for (int k = 0; k < 2; ++k) {
    ASSERT_EQ(out[k].tag, plane_t::triangle_tag);
    EXPECT_EQ(out[k].triangle.z.value, k == 0 ? -1.0 : 2.0);
    EXPECT_EQ(out[k].triangle.direction, k == 0 ? 5u : 2u);
    EXPECT_EQ(out[k].triangle.a[0].value, 0.0);
    EXPECT_EQ(out[k].triangle.b[0].value, 3.0);
    EXPECT_EQ(out[k].triangle.c[1].value, 4.0);
  }
  expect_rectangle(out[2], 4, 0, 0, -1, 3, 3);  // (0,0) to (3,0): outward -y; a the height, b the edge
  ASSERT_EQ(out[3].tag, plane_t::incline_tag);  // (3,0) to (0,4)
  const double start[3] = {3, 0, -1};
  for (int k = 0; k < 3; ++k) EXPECT_EQ(out[3].incline.origin[k].value, start[k]);
  EXPECT_EQ(out[3].incline.dx.value, -3.0);
  EXPECT_EQ(out[3].incline.dy.value, 4.0);
  EXPECT_EQ(out[3].incline.height.value, 3.0);
  expect_rectangle(out[4], 3, 0, 0, -1, 4, 3);  // (0,4) down to (0,0): outward -x, from its least corner
}

TEST(PlanesForPrism, SquareInterleavesItsLidsAndFacesOutward) {
  std::vector<plane_t> out;
  generate_planes_for_prism(prism_of({P(0, 0), P(2, 0), P(2, 2), P(0, 2)}), out);
  ASSERT_EQ(out.size(), 8u);
  for (int k = 0; k < 4; ++k) {
    ASSERT_EQ(out[k].tag, plane_t::triangle_tag);
    EXPECT_EQ(out[k].triangle.direction, k % 2 ? 2u : 5u);
  }
  EXPECT_EQ(out[2].triangle.b[1].value, 2.0);  // the second fan triangle
  expect_rectangle(out[4], 4, 0, 0, 0, 1, 2);
  expect_rectangle(out[5], 0, 2, 0, 0, 2, 1);
  expect_rectangle(out[6], 1, 0, 2, 0, 1, 2);  // runs in -x, from its least corner
  expect_rectangle(out[7], 3, 0, 0, 0, 2, 1);
  // Too few vertices for a lid: faces only.
  out.clear();
  generate_planes_for_prism(prism_of({P(0, 0), P(1, 1)}), out);
  ASSERT_EQ(out.size(), 2u);
  for (const plane_t& p : out) EXPECT_EQ(p.tag, plane_t::incline_tag);
  out.clear();
  generate_planes_for_prism(prism_of({}), out);
  EXPECT_TRUE(out.empty());
}

TEST(ExpandPrism, EdgesMoveAlongTheirNormalsAndLidsByTheMargin) {
  const nprism_t r = expand_prism(prism_of({P(0, 0), P(1, 0), P(1, 1), P(0, 1)}), 1.0);
  EXPECT_EQ(testing::coords(r),
            (testing::pairs{{0, -1}, {1, -1}, {2, 0}, {2, 1}, {1, 2}, {0, 2}, {-1, 1}, {-1, 0}}));
  EXPECT_EQ(r.bottom.value, -1.0);
  EXPECT_EQ(r.top.value, 2.0);
  // The hypotenuse (3,0)-(0,4) has outward normal (4,3)/5.
  const nprism_t tri = prism_of({P(0, 0), P(3, 0), P(0, 4)});
  const nprism_t t = expand_prism(tri, 0.5);
  ASSERT_EQ(t.size, 6u);
  EXPECT_DOUBLE_EQ(t.points[2][0].value, 3.4);
  EXPECT_DOUBLE_EQ(t.points[2][1].value, 0.3);
  EXPECT_DOUBLE_EQ(t.points[3][0].value, 0.4);
  EXPECT_DOUBLE_EQ(t.points[3][1].value, 4.3);
  // A negative margin shrinks; two vertices make four, however thin.
  const nprism_t s = expand_prism(tri, -0.25);
  EXPECT_DOUBLE_EQ(s.points[0][1].value, 0.25);
  EXPECT_EQ(s.bottom.value, 0.25);
  EXPECT_EQ(s.top.value, 0.75);
  EXPECT_EQ(expand_prism(prism_of({P(0, 0), P(1, 0)}), 0.1).size, 4u);
}

TEST(ExpandPrism, RefusesFiveVerticesAndFewerThanTwo) {
  {
    testing::log_capture log;
    try {
      expand_prism(prism_of({P(0, 0), P(2, 0), P(3, 1), P(1, 2), P(-1, 1)}), 1.0);
      ADD_FAILURE() << "five vertices accepted";
    } catch (const sea::fatal_error& e) {
      EXPECT_STREQ(e.what(), "Geometry error. \n");
    }
    EXPECT_EQ(log.error(), "ERROR: (Geometry) convex vertex number should less than 5.\n");
    EXPECT_EQ(log.detail(),
              "(0.000000000000, 0.000000000000) (2.000000000000, 0.000000000000) (3.000000000000, 1.000000000000) "
              "(1.000000000000, 2.000000000000) (-1.000000000000, 1.000000000000) 0.000000000000 1.000000000000\n");
  }
  for (std::size_t n : {0u, 1u}) {
    testing::log_capture log;
    try {
      expand_prism(prism_of(std::vector<point2>(n, P(1, 1))), 1.0);
      ADD_FAILURE() << n << " vertices accepted";
    } catch (const sea::fatal_error& e) {
      EXPECT_STREQ(e.what(), "GEOMETRY ERROR. \n");
    }
    EXPECT_EQ(log.error(), "ERROR: vertex number not supported.\n");
  }
}

TEST(GetRatio, LongestInclinedSideOverTheShortestSide) {
  EXPECT_DOUBLE_EQ(get_ratio(prism_of({P(0, 0), P(3, 0), P(0, 4)})).value, 5.0 / 3.0);
  EXPECT_EQ(get_ratio(prism_of({P(0, 0), P(3, 0), P(3, 1), P(0, 1)})).value, 0.0);  // no inclined side
  // Trapezoid: the inclined side sqrt(2) is not the longest; the left side 1 is the shortest.
  EXPECT_DOUBLE_EQ(get_ratio(prism_of({P(0, 0), P(4, 0), P(3, 1), P(0, 1)})).value, std::sqrt(2.0));
  const double zero_side = get_ratio(prism_of({P(0, 0), P(0, 0), P(3, 4)})).value;
  EXPECT_TRUE(std::isinf(zero_side) || std::isnan(zero_side));
}

}  // namespace
}  // namespace torva
