#include "torva/layout/solids.h"

#include <gtest/gtest.h>

#include "torva/foundation/errors.h"
#include "torva_testing/log_capture.h"

namespace torva {
namespace {

point2 P(double x, double y) { return point2{{x, y}}; }

TEST(SolidsWriteTo, CuboidPrintsCornersAndEdgeLengths) {
  sea::string_writer out;
  const cuboid_t c{{{1, -2, 0.5}}, {{4, 3, 0.75}}};
  c.write_to(out);
  EXPECT_EQ(out.text,
            "(1.000000000000, -2.000000000000, 0.500000000000):(4.000000000000, 3.000000000000, 0.750000000000)"
            ", xlen: 3.000000000000, ylen: 5.000000000000, zlen: 0.250000000000");
}

TEST(SolidsWriteTo, PrismPrintsVerticesInUseThenBottomAndTop) {
  sea::string_writer out;
  nprism_t p;
  p.points[0] = P(0, 0);
  p.points[1] = P(1.5, 0);
  p.points[2] = P(0, -2);
  p.points[3] = P(9, 9);  // beyond size: not printed
  p.size = 3;
  p.bottom = -1;
  p.top = 2.25;
  p.write_to(out);
  EXPECT_EQ(out.text,
            "(0.000000000000, 0.000000000000) (1.500000000000, 0.000000000000) (0.000000000000, -2.000000000000) "
            "-1.000000000000 2.250000000000");
}

TEST(SolidsWriteTo, EmptyPrismPrintsOnlyItsHeights) {
  sea::string_writer out;
  nprism_t p;
  p.bottom = 0;
  p.top = 1;
  p.write_to(out);
  EXPECT_EQ(out.text, "0.000000000000 1.000000000000");
}

TEST(SolidShapes, CuboidShapeIsItsOwnBoxesAndPieces) {
  const cuboid_t c{{{0, 0, 0}}, {{1, 2, 3}}};
  const shape_t s = make_cuboid_shape(c);
  EXPECT_EQ(s.shape_kind, shape_cuboid);
  EXPECT_EQ(s.cuboid().upper[2].value, 3.0);
  EXPECT_EQ(s.inner_box.upper[1].value, 2.0);
  EXPECT_EQ(s.outer_box.lower[0].value, 0.0);
  ASSERT_EQ(s.inner_pieces.size(), 1u);
  ASSERT_EQ(s.outer_pieces.size(), 1u);
  // Copies share the solid and own their piece lists.
  shape_t copy = s;
  EXPECT_EQ(copy.solid, s.solid);
  copy.inner_pieces.push_back(c);
  EXPECT_EQ(s.inner_pieces.size(), 1u);
}

TEST(SolidShapes, CylinderShapeBoxes) {
  const shape_t s = make_cylinder_shape(cylinder_t{{{1, 2, 3}}, 2.0, 0.5});
  EXPECT_EQ(s.shape_kind, shape_cylinder);
  EXPECT_EQ(s.cylinder().radius.value, 2.0);
  EXPECT_DOUBLE_EQ(s.inner_box.lower[0].value, 1 - 0.7071067811865476 * 2);
  EXPECT_DOUBLE_EQ(s.inner_box.upper[1].value, 2 + 0.7071067811865476 * 2);
  EXPECT_EQ(s.inner_box.lower[2].value, 2.5);
  EXPECT_EQ(s.inner_box.upper[2].value, 3.5);
  EXPECT_EQ(s.outer_box.lower[0].value, -1.0);
  EXPECT_EQ(s.outer_box.upper[1].value, 4.0);
  EXPECT_EQ(s.outer_box.upper[2].value, 3.5);
  ASSERT_EQ(s.inner_pieces.size(), 1u);
  EXPECT_EQ(s.inner_pieces[0].upper[0].value, s.inner_box.upper[0].value);
  EXPECT_EQ(s.outer_pieces[0].lower[1].value, 0.0);
}

TEST(SolidShapes, PrismShapeHasARodInsideAndTheBoundingBoxOutside) {
  const point2 v[4] = {P(0, 0), P(4, 0), P(3, 2), P(1, 2)};
  const shape_t s = make_prism_shape(v, 4, -1.0, 1.0);
  EXPECT_EQ(s.shape_kind, shape_prism);
  EXPECT_EQ(s.prism().size, 4u);
  EXPECT_EQ(s.prism().points[2][0].value, 3.0);
  EXPECT_DOUBLE_EQ(s.inner_box.lower[0].value, 2 - 0.0001);
  EXPECT_DOUBLE_EQ(s.inner_box.upper[1].value, 1 + 0.0001);
  EXPECT_EQ(s.inner_box.lower[2].value, -1.0);
  EXPECT_EQ(s.outer_box.lower[0].value, 0.0);
  EXPECT_EQ(s.outer_box.upper[0].value, 4.0);
  EXPECT_EQ(s.outer_box.upper[1].value, 2.0);
  EXPECT_EQ(s.outer_box.upper[2].value, 1.0);
}

TEST(SolidShapes, PrismShapeRefusesFewerThanThreeOrMoreThanEightVertices) {
  const point2 v[9] = {P(0, 0), P(1, 0), P(2, 1), P(2, 2), P(1, 3), P(0, 3), P(-1, 2), P(-1, 1), P(-0.5, 0.2)};
  EXPECT_NO_THROW(make_prism_shape(v, 8, 0, 1));
  EXPECT_NO_THROW(make_prism_shape(v, 3, 0, 1));
  for (std::uint64_t n : {0u, 2u, 9u}) {
    testing::log_capture log;
    try {
      make_prism_shape(v, n, 0, 1);
      ADD_FAILURE() << n;
    } catch (const sea::fatal_error& e) {
      EXPECT_STREQ(e.what(), "GEOMETRY ERROR.\n");
    }
    EXPECT_EQ(log.error(), "ERROR: vertex number not supported.\n");
  }
}

}  // namespace
}  // namespace torva
