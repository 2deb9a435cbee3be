#include "torva/geometry/cutting.h"

#include <gtest/gtest.h>

#include <algorithm>
#include <cmath>
#include <random>
#include <string>
#include <vector>

#include "torva/geometry/convex_decomposition.h"

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

using pairs = std::vector<std::pair<double, double>>;
pairs coords(const std::vector<point2>& v) {
  pairs r;
  for (const point2& p : v) r.emplace_back(p[0].value, p[1].value);
  return r;
}
pairs coords(const nprism_t& p) {
  return coords(std::vector<point2>(p.points, p.points + p.size));
}

void expect_box(const cuboid_t& c, double x0, double y0, double z0, double x1, double y1, double z1) {
  EXPECT_DOUBLE_EQ(c.lower[0].value, x0);
  EXPECT_DOUBLE_EQ(c.lower[1].value, y0);
  EXPECT_DOUBLE_EQ(c.lower[2].value, z0);
  EXPECT_DOUBLE_EQ(c.upper[0].value, x1);
  EXPECT_DOUBLE_EQ(c.upper[1].value, y1);
  EXPECT_DOUBLE_EQ(c.upper[2].value, z1);
}

// ---------------------------------------------------------------- cut_cuboid

TEST(CutCuboid, EqualSidesAreCutInY) {
  std::vector<cuboid_t> inner, outer;
  cut_cuboid(cuboid_t{{{0, 0, 0}}, {{2, 2, 1}}}, 2, inner, outer);
  ASSERT_EQ(inner.size(), 2u);
  ASSERT_EQ(outer.size(), 2u);
  expect_box(inner[0], 0, 0, 0, 2, 1, 1);
  expect_box(inner[1], 0, 1, 0, 2, 2, 1);
  expect_box(outer[0], 0, 0, 0, 2, 1, 1);
  expect_box(outer[1], 0, 1, 0, 2, 2, 1);
}

TEST(CutCuboid, LongerXIsCutInXAndVectorsAreAppendedTo) {
  std::vector<cuboid_t> inner(1), outer(2);
  cut_cuboid(cuboid_t{{{1, 0, -1}}, {{5, 1, 1}}}, 4, inner, outer);
  ASSERT_EQ(inner.size(), 5u);
  ASSERT_EQ(outer.size(), 6u);
  for (int i = 0; i < 4; ++i) {
    expect_box(inner[1 + i], 1 + i, 0, -1, 2 + i, 1, 1);
    expect_box(outer[2 + i], 1 + i, 0, -1, 2 + i, 1, 1);
  }
}

TEST(CutCuboid, NearlyEqualSidesAreCutInY) {
  std::vector<cuboid_t> inner, outer;
  cut_cuboid(cuboid_t{{{0, 0, 0}}, {{1 + 5e-11, 1, 1}}}, 2, inner, outer);
  ASSERT_EQ(inner.size(), 2u);
  EXPECT_DOUBLE_EQ(inner[0].upper[1].value, 0.5);
  EXPECT_DOUBLE_EQ(inner[0].upper[0].value, 1 + 5e-11);
}

TEST(CutCuboid, LastSliceEndsAtTheSumOfStepsNotAtTheUpperFace) {
  // 0.1 + 3 * (3.6 / 3) is 3.6999999999999997 in doubles.
  std::vector<cuboid_t> inner, outer;
  cut_cuboid(cuboid_t{{{0.1, 0, 0}}, {{3.7, 1, 1}}}, 3, inner, outer);
  ASSERT_EQ(inner.size(), 3u);
  EXPECT_EQ(inner[2].upper[0].value, 3.6999999999999997);
  EXPECT_NE(inner[2].upper[0].value, 3.7);
  EXPECT_EQ(inner[1].upper[0].value, inner[2].lower[0].value);
}

TEST(CutCuboid, NoPartsNoSlices) {
  std::vector<cuboid_t> inner, outer;
  cut_cuboid(cuboid_t{{{0, 0, 0}}, {{1, 1, 1}}}, 0, inner, outer);
  cut_cuboid(cuboid_t{{{0, 0, 0}}, {{1, 1, 1}}}, -3, inner, outer);
  EXPECT_TRUE(inner.empty());
  EXPECT_TRUE(outer.empty());
}

// ---------------------------------------------------------------- intersect

TEST(Intersect, ThroughAVertexGivesItOnce) {
  const nprism_t tri = prism_of({P(0, 0), P(4, 0), P(0, 3)});
  EXPECT_EQ(coords(intersect_x(tri, 4)), (pairs{{4, 0}}));
  EXPECT_EQ(coords(intersect_y(tri, 3)), (pairs{{0, 3}}));
}

TEST(Intersect, AlongAnEdgeGivesExactlyItsEnds) {
  const nprism_t tri = prism_of({P(0, 0), P(4, 0), P(0, 3)});
  // x = 0: the point from the first edge is dropped for the vertical edge's ends.
  EXPECT_EQ(coords(intersect_x(tri, 0)), (pairs{{0, 0}, {0, 3}}));
  EXPECT_EQ(coords(intersect_y(tri, 0)), (pairs{{0, 0}, {4, 0}}));
  // Within the tolerance of the edge the ends keep the line's own coordinate.
  const auto near = intersect_x(tri, 5e-11);
  ASSERT_EQ(near.size(), 2u);
  EXPECT_EQ(near[0][0].value, 5e-11);
}

TEST(Intersect, ChordsRunFromLowToHigh) {
  const nprism_t tri = prism_of({P(0, 0), P(4, 0), P(0, 3)});
  EXPECT_EQ(coords(intersect_x(tri, 2)), (pairs{{2, 0}, {2, 1.5}}));
  const auto y = intersect_y(tri, 1.5);
  ASSERT_EQ(y.size(), 2u);
  EXPECT_DOUBLE_EQ(y[0][0].value, 0.0);
  EXPECT_DOUBLE_EQ(y[1][0].value, 2.0);
  // A clockwise outline gives the same order.
  const nprism_t cw = prism_of({P(0, 0), P(0, 3), P(4, 0)});
  EXPECT_EQ(coords(intersect_x(cw, 2)), (pairs{{2, 0}, {2, 1.5}}));
}

TEST(Intersect, MissingTheOutlineGivesNothing) {
  const nprism_t tri = prism_of({P(0, 0), P(4, 0), P(0, 3)});
  EXPECT_TRUE(intersect_x(tri, 5).empty());
  EXPECT_TRUE(intersect_y(tri, -1).empty());
  EXPECT_TRUE(intersect_x(prism_of({}), 0).empty());
}

TEST(Intersect, VerticalEdgeCrossedByAHorizontalLine) {
  const nprism_t sq = prism_of({P(0, 0), P(2, 0), P(2, 2), P(0, 2)});
  EXPECT_EQ(coords(intersect_y(sq, 1)), (pairs{{0, 1}, {2, 1}}));
  EXPECT_EQ(coords(intersect_x(sq, 1)), (pairs{{1, 0}, {1, 2}}));
}

// ---------------------------------------------------------------- cut_prism

TEST(CutPrism, SquareInOnePartIsOneSliceOfTheWholeSquare) {
  std::vector<cuboid_t> inner, outer;
  cut_prism(prism_of({P(0, 0), P(2, 0), P(2, 2), P(0, 2)}, -1, 3), 1, inner, outer);
  ASSERT_EQ(inner.size(), 1u);
  ASSERT_EQ(outer.size(), 1u);
  expect_box(inner[0], 1 - 0.0001, 1 - 0.0001, -1, 1 + 0.0001, 1 + 0.0001, 3);
  expect_box(outer[0], 0, 0, -1, 2, 2, 3);
}

TEST(CutPrism, TriangleInTwoPartsGivesAQuadrilateralAndATriangle) {
  const nprism_t tri = prism_of({P(0, 0), P(4, 0), P(0, 3)}, 0, 1);
  std::vector<shape_t> shapes;
  cut_prism_for_shape(tri, 2, shapes);
  ASSERT_EQ(shapes.size(), 2u);
  EXPECT_EQ(coords(shapes[0].prism()), (pairs{{2, 0}, {2, 1.5}, {0, 3}, {0, 0}}));
  EXPECT_EQ(coords(shapes[1].prism()), (pairs{{4, 0}, {2, 1.5}, {2, 0}}));
  expect_box(shapes[0].inner_box, 1 - 0.0001, 1.125 - 0.0001, 0, 1 + 0.0001, 1.125 + 0.0001, 1);
  expect_box(shapes[0].outer_box, 0, 0, 0, 2, 3, 1);
  expect_box(shapes[1].inner_box, 8.0 / 3 - 0.0001, 0.5 - 0.0001, 0, 8.0 / 3 + 0.0001, 0.5 + 0.0001, 1);
  expect_box(shapes[1].outer_box, 2, 0, 0, 4, 1.5, 1);
  for (const shape_t& s : shapes) {
    EXPECT_EQ(s.shape_kind, shape_prism);
    EXPECT_EQ(s.prism().bottom.value, 0.0);
    EXPECT_EQ(s.prism().top.value, 1.0);
    ASSERT_EQ(s.inner_pieces.size(), 1u);
    ASSERT_EQ(s.outer_pieces.size(), 1u);
    EXPECT_EQ(s.inner_pieces[0].lower[0].value, s.inner_box.lower[0].value);
    EXPECT_EQ(s.outer_pieces[0].upper[1].value, s.outer_box.upper[1].value);
  }
  // cut_prism gives the same boxes in the same order.
  std::vector<cuboid_t> inner, outer;
  cut_prism(tri, 2, inner, outer);
  ASSERT_EQ(inner.size(), 2u);
  EXPECT_EQ(outer[1].lower[0].value, shapes[1].outer_box.lower[0].value);
}

TEST(CutPrism, UniformPositionNearAVertexFallsAway) {
  // Vertex at x = 1 + 5e-11 and a uniform cut at 1: one line, so two slices.
  std::vector<cuboid_t> inner, outer;
  cut_prism(prism_of({P(0, 0), P(1 + 5e-11, -0.5), P(2, 0), P(1 + 5e-11, 0.5)}), 2, inner, outer);
  ASSERT_EQ(outer.size(), 2u);
  EXPECT_EQ(outer[0].upper[0].value, 1 + 5e-11);
}

TEST(CutPrism, DegeneratePrismsGiveNoSlices) {
  std::vector<cuboid_t> inner, outer;
  cut_prism(prism_of({}), 3, inner, outer);
  cut_prism(prism_of({P(1, 1)}), 3, inner, outer);
  EXPECT_TRUE(inner.empty());
  EXPECT_TRUE(outer.empty());
}

TEST(CutPrism, CorruptSizeReadsAtMostEightVertices) {
  nprism_t p = prism_of({P(0, 0), P(4, 0), P(0, 3)});
  p.size = 1000;
  std::vector<cuboid_t> inner, outer;
  cut_prism(p, 2, inner, outer);  // must stay within the array
  EXPECT_EQ(inner.size(), outer.size());
}

// Random convex pieces like the decomposition's, cut into random parts.
TEST(CutPrismProperty, SlicesCoverThePrismAndOverlapOnlyAtCuttingLines) {
  std::mt19937_64 rng(17);
  std::uniform_real_distribution<double> u(0, 1);
  for (int n = 0; n < 500; ++n) {
    const int count = 3 + int(rng() % 2);
    std::vector<point2> v;
    if (n % 4 == 0) {
      // A right trapezoid: axis-parallel and inclined edges together.
      const double w = 0.5 + 3 * u(rng), h = 0.5 + 3 * u(rng);
      v = {P(0, 0), P(w, 0), P(w * (0.2 + 0.6 * u(rng)), h), P(0, h)};
    } else {
      const double r = 0.5 + 2 * u(rng);
      for (int i = 0; i < count; ++i) {
        const double a = 2 * M_PI * (i + 0.4 * u(rng)) / count;
        v.push_back(P(r * std::cos(a) + 10, r * std::sin(a) - 3));
      }
    }
    const nprism_t prism = prism_of(v, 0.5, 1.5);
    const int parts = 1 + int(rng() % 5);
    const std::string what = "#" + std::to_string(n) + " parts " + std::to_string(parts);
    std::vector<shape_t> slices;
    cut_prism_for_shape(prism, parts, slices);
    ASSERT_GE(slices.size(), std::size_t(parts)) << what;

    double xmin = 1e9, xmax = -1e9, ymin = 1e9, ymax = -1e9, area = 0;
    for (std::size_t i = 0; i < v.size(); ++i) {
      xmin = std::min(xmin, v[i][0].value), xmax = std::max(xmax, v[i][0].value);
      ymin = std::min(ymin, v[i][1].value), ymax = std::max(ymax, v[i][1].value);
      const point2& b = v[(i + 1) % v.size()];
      area += v[i][0].value * b[1].value - b[0].value * v[i][1].value;
    }
    area /= 2;
    const int axis = (ymax - ymin) < (xmax - xmin) - 1e-10 ? 0 : 1;

    double sum = 0, at = axis ? ymin : xmin;
    for (const shape_t& s : slices) {
      const nprism_t& p = s.prism();
      ASSERT_GE(p.size, 3u) << what;
      ASSERT_LE(p.size, 4u) << what;
      std::vector<point2> pts(p.points, p.points + p.size);
      EXPECT_TRUE(is_anticlock(pts.cbegin(), pts.size())) << what;
      double a = 0;
      for (std::size_t i = 0; i < pts.size(); ++i) {
        const point2& b = pts[(i + 1) % pts.size()];
        a += pts[i][0].value * b[1].value - b[0].value * pts[i][1].value;
      }
      EXPECT_GT(a, 0) << what;
      sum += a / 2;
      // Consecutive along the cutting axis: each box starts where the last ended.
      EXPECT_NEAR(s.outer_box.lower[axis].value, at, 1e-12) << what;
      EXPECT_GT(s.outer_box.upper[axis].value, s.outer_box.lower[axis].value) << what;
      at = s.outer_box.upper[axis].value;
      // The inner rod stands at the slice's centre, between its bottom and top.
      EXPECT_EQ(s.inner_box.lower[2].value, 0.5);
      EXPECT_EQ(s.inner_box.upper[2].value, 1.5);
      EXPECT_EQ(s.outer_box.lower[2].value, 0.5);
      EXPECT_EQ(s.outer_box.upper[2].value, 1.5);
    }
    EXPECT_NEAR(at, axis ? ymax : xmax, 1e-12) << what;
    EXPECT_NEAR(sum, area, 1e-9 * std::max(1.0, area)) << what;
    // Every point of the outline lies in some slice's outer box.
    for (int k = 0; k < 200; ++k) {
      const double x = xmin + (xmax - xmin) * u(rng), y = ymin + (ymax - ymin) * u(rng);
      bool in = true;
      for (std::size_t i = 0; i < v.size(); ++i) {
        const point2& a = v[i];
        const point2& b = v[(i + 1) % v.size()];
        if ((b[0].value - a[0].value) * (y - a[1].value) - (b[1].value - a[1].value) * (x - a[0].value) < 0) in = false;
      }
      if (!in) continue;
      bool covered = false;
      for (const shape_t& s : slices)
        covered |= x >= s.outer_box.lower[0].value - 1e-12 && x <= s.outer_box.upper[0].value + 1e-12 &&
                   y >= s.outer_box.lower[1].value - 1e-12 && y <= s.outer_box.upper[1].value + 1e-12;
      EXPECT_TRUE(covered) << what << " at " << x << ", " << y;
    }
  }
}

// Outlines that are not convex, not anticlockwise or not even outlines must
// not take the cutting out of bounds.
TEST(CutPrismRobustness, ArbitraryVerticesStayInBounds) {
  std::mt19937_64 rng(23);
  std::uniform_int_distribution<int> grid(-3, 3);
  for (int n = 0; n < 3000; ++n) {
    std::vector<point2> v;
    const int count = int(rng() % 9);
    for (int i = 0; i < count; ++i) v.push_back(P(grid(rng) * 0.5, grid(rng) * 0.5));
    const nprism_t p = prism_of(v);
    const int parts = int(rng() % 9) - 2;
    std::vector<cuboid_t> inner, outer;
    cut_prism(p, parts, inner, outer);
    EXPECT_EQ(inner.size(), outer.size());
    std::vector<shape_t> shapes;
    cut_prism_for_shape(p, parts, shapes);
    EXPECT_EQ(shapes.size(), inner.size());
    for (const shape_t& s : shapes) EXPECT_LE(s.prism().size, 8u);
    for (double at : {-1.0, 0.0, 0.25, 1.5}) {
      EXPECT_LE(intersect_x(p, at).size(), std::size_t(count) + 2);
      EXPECT_LE(intersect_y(p, at).size(), std::size_t(count) + 2);
    }
  }
}

}  // namespace
}  // namespace torva
