#include "torva/solids/solids.h"

#include <gtest/gtest.h>

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
  out.text.clear();
  p.size = 0;  // an empty prism prints only its heights
  p.write_to(out);
  EXPECT_EQ(out.text, "-1.000000000000 2.250000000000");
}

}  // namespace
}  // namespace torva
