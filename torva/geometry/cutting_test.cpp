#include "torva/geometry/cutting.h"

#include <gtest/gtest.h>

#include <algorithm>
#include <cmath>
#include <random>
#include <string>
#include <vector>

#include "torva/geometry/convex_decomposition.h"
#include "torva/geometry/internal/prism_fixtures.h"

namespace torva {
namespace {

using testing::coords;
using testing::P;
using testing::pairs;
using testing::prism_of;

void expect_box(const cuboid_t& c, double x0, double y0, double z0, double x1, double y1, double z1) {
  const double want[6] = {x0, y0, z0, x1, y1, z1};
  for (int k = 0; k < 3; ++k) {
    EXPECT_DOUBLE_EQ(c.lower[k].value, want[k]) << "lower " << k;
    EXPECT_DOUBLE_EQ(c.upper[k].value, want[3 + k]) << "upper " << k;
  }
}

TEST(CutCuboid, SlicesTheLongerSideAndTiesWithinToleranceGoToY) {
  std::vector<cuboid_t> inner, outer;
  cut_cuboid(cuboid_t{{{0, 0, 0}}, {{2, 2, 1}}}, 2, inner, outer);
  ASSERT_EQ(inner.size(), 2u);
  ASSERT_EQ(outer.size(), 2u);
  expect_box(inner[0], 0, 0, 0, 2, 1, 1);
  expect_box(inner[1], 0, 1, 0, 2, 2, 1);
  expect_box(outer[0], 0, 0, 0, 2, 1, 1);
  expect_box(outer[1], 0, 1, 0, 2, 2, 1);
  inner.clear();
  cut_cuboid(cuboid_t{{{0, 0, 0}}, {{1 + 5e-11, 1, 1}}}, 2, inner, outer);
  EXPECT_DOUBLE_EQ(inner[0].upper[1].value, 0.5);
  EXPECT_DOUBLE_EQ(inner[0].upper[0].value, 1 + 5e-11);
  // Longer in x; the vectors are appended to.
  inner.assign(1, cuboid_t{});
  outer.assign(2, cuboid_t{});
  cut_cuboid(cuboid_t{{{1, 0, -1}}, {{5, 1, 1}}}, 4, inner, outer);
  ASSERT_EQ(inner.size(), 5u);
  ASSERT_EQ(outer.size(), 6u);
  for (int i = 0; i < 4; ++i) {
    expect_box(inner[1 + i], 1 + i, 0, -1, 2 + i, 1, 1);
    expect_box(outer[2 + i], 1 + i, 0, -1, 2 + i, 1, 1);
  }
  // No parts, no slices.
  cut_cuboid(cuboid_t{{{0, 0, 0}}, {{1, 1, 1}}}, 0, inner, outer);
  cut_cuboid(cuboid_t{{{0, 0, 0}}, {{1, 1, 1}}}, -3, inner, outer);
  EXPECT_EQ(inner.size(), 5u);
  EXPECT_EQ(outer.size(), 6u);
}

TEST(CutCuboid, LastSliceEndsAtTheSumOfStepsNotAtTheUpperFace) {
  // 0.1 + 3 * (3.6 / 3) is 3.6999999999999997 in doubles.
  std::vector<cuboid_t> inner, outer;
  cut_cuboid(cuboid_t{{{0.1, 0, 0}}, {{3.7, 1, 1}}}, 3, inner, outer);
  ASSERT_EQ(inner.size(), 3u);
  EXPECT_EQ(inner[2].upper[0].value, 3.6999999999999997);
  EXPECT_EQ(inner[1].upper[0].value, inner[2].lower[0].value);
}

TEST(Intersect, ChordsRunFromLowToHighAndEdgesOnTheLineGiveTheirEnds) {
  const nprism_t tri = prism_of({P(0, 0), P(4, 0), P(0, 3)});
  const nprism_t cw = prism_of({P(0, 0), P(0, 3), P(4, 0)});
  const struct {
    const nprism_t* p;
    bool along_x;  // a line of constant x
    double at;
    pairs chord;
  } cases[] = {
      {&tri, true, 4, {{4, 0}}},  // through a vertex: once
      {&tri, true, 0, {{0, 0}, {0, 3}}},  // along an edge: exactly its ends
      {&tri, false, 0, {{0, 0}, {4, 0}}},
      {&cw, true, 2, {{2, 0}, {2, 1.5}}},  // either way round
      {&tri, true, 5, {}},
  };
  for (const auto& c : cases) {
    SCOPED_TRACE(::testing::Message() << (c.along_x ? "x = " : "y = ") << c.at);
    EXPECT_EQ(coords(c.along_x ? intersect_x(*c.p, c.at) : intersect_y(*c.p, c.at)), c.chord);
  }
  EXPECT_TRUE(intersect_x(prism_of({}), 0).empty());
  // Within the tolerance of an edge its ends keep the line's own coordinate.
  const auto near = intersect_x(tri, 5e-11);
  ASSERT_EQ(near.size(), 2u);
  EXPECT_EQ(near[0][0].value, 5e-11);
}

TEST(CutPrism, TriangleInTwoPartsGivesAQuadrilateralAndATriangle) {
  const nprism_t tri = prism_of({P(0, 0), P(4, 0), P(0, 3)});
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

TEST(CutPrism, DegenerateOrCorruptPrismsStayInBounds) {
  std::vector<cuboid_t> inner, outer;
  cut_prism(prism_of({}), 3, inner, outer);
  cut_prism(prism_of({P(1, 1)}), 3, inner, outer);
  EXPECT_TRUE(inner.empty());
  EXPECT_TRUE(outer.empty());
  nprism_t p = prism_of({P(0, 0), P(4, 0), P(0, 3)});
  p.size = 1000;
  cut_prism(p, 2, inner, outer);  // must read no more than the array
  EXPECT_EQ(inner.size(), outer.size());
}

// Random convex pieces like the decomposition's, cut into random parts: the
// slices follow one another along the cutting axis and cover the prism.
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
    const int parts = 1 + int(rng() % 5);
    const std::string what = "#" + std::to_string(n) + " parts " + std::to_string(parts);
    std::vector<shape_t> slices;
    cut_prism_for_shape(prism_of(v, 0.5, 1.5), parts, slices);
    ASSERT_GE(slices.size(), std::size_t(parts)) << what;

    double lo[2] = {1e9, 1e9}, hi[2] = {-1e9, -1e9};
    for (const point2& p : v)
      for (int k = 0; k < 2; ++k) lo[k] = std::min(lo[k], p[k].value), hi[k] = std::max(hi[k], p[k].value);
    const int axis = (hi[1] - lo[1]) < (hi[0] - lo[0]) - 1e-10 ? 0 : 1;
    double sum = 0, at = lo[axis];
    for (const shape_t& s : slices) {
      const nprism_t& p = s.prism();
      ASSERT_GE(p.size, 3u) << what;
      ASSERT_LE(p.size, 4u) << what;
      const std::vector<point2> pts(p.points, p.points + p.size);
      EXPECT_TRUE(is_anticlock(pts.cbegin(), pts.size())) << what;
      EXPECT_GT(testing::signed_area(pts), 0) << what;
      sum += testing::signed_area(pts);
      EXPECT_NEAR(s.outer_box.lower[axis].value, at, 1e-12) << what;
      EXPECT_GT(s.outer_box.upper[axis].value, s.outer_box.lower[axis].value) << what;
      at = s.outer_box.upper[axis].value;
      for (const cuboid_t* b : {&s.inner_box, &s.outer_box}) {
        EXPECT_EQ(b->lower[2].value, 0.5) << what;
        EXPECT_EQ(b->upper[2].value, 1.5) << what;
      }
    }
    EXPECT_NEAR(at, hi[axis], 1e-12) << what;
    const double area = testing::signed_area(v);
    EXPECT_NEAR(sum, area, 1e-9 * std::max(1.0, area)) << what;
    // Every point of the outline lies in some slice's outer box.
    for (int k = 0; k < 200; ++k) {
      const double x = lo[0] + (hi[0] - lo[0]) * u(rng), y = lo[1] + (hi[1] - lo[1]) * u(rng);
      if (!testing::inside_convex(v, x, y)) continue;
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
