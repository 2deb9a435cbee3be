#include "torva/geometry/distance.h"

#include <gtest/gtest.h>

#include <algorithm>
#include <cmath>
#include <random>
#include <vector>

#include "torva/geometry/cube.h"
#include "torva/geometry/internal/prism_fixtures.h"

namespace torva {
namespace {

point2 P2(double x, double y) { return testing::P(x, y); }
point3 P3(double x, double y, double z) { return point3{{x, y, z}}; }
cuboid_t box(double x0, double y0, double z0, double x1, double y1, double z1) {
  return cuboid_t{P3(x0, y0, z0), P3(x1, y1, z1)};
}

shape_t cylinder_shape(double cx, double cy, double cz, double r, double half) {
  shape_t s;
  s.solid = new_solid(cylinder_t{P3(cx, cy, cz), r, half});
  s.outer_box = s.inner_box = box(cx - r, cy - r, cz - half, cx + r, cy + r, cz + half);
  s.shape_kind = shape_cylinder;
  return s;
}

shape_t prism_shape(const std::vector<point2>& v, double bottom, double top) {
  point2 lo = v[0], hi = v[0];
  for (const point2& p : v) lo = minimal(lo, p), hi = maximal(hi, p);
  shape_t s;
  s.solid = new_solid(testing::prism_of(v, bottom, top));
  s.outer_box = s.inner_box = box(lo[0], lo[1], bottom, hi[0], hi[1], top);
  s.shape_kind = shape_prism;
  return s;
}

// The brute-force test below checks the distances at large; these, the ties
// and tolerances at their edges, and the worked cases it can't pin down.
TEST(Distance, NearlyEqualGapsKeepTheEarlierAxis) {
  const cuboid_t u = box(0, 0, 0, 1, 1, 1);
  EXPECT_EQ(distance(u, P3(2, 2 + 5e-11, 0.5)).value, 1.0);
  EXPECT_EQ(horizontal_manhattan_distance(P2(2, 2 + 5e-11), u).value, 1.0);
  EXPECT_DOUBLE_EQ(distance(u, P3(2, 2 + 1e-6, 0.5)).value, 1.0 + 1e-6);  // a clearly larger later gap wins
  EXPECT_EQ(distance(u, P3(1, 0.5, 0.5)), 0.0);
}

TEST(Distance, ContainsForgivesLessThanTheTolerance) {
  const cuboid_t c = box(0, 0, 0, 1, 1, 1);
  for (const point3& p : {P3(1, 0.5, 0.5), P3(0, 0, 0), P3(1 + 5e-11, 0.5, 0.5), P3(0.5, -5e-11, 0.5)})
    EXPECT_TRUE(contains(c, p)) << p[0] << " " << p[1] << " " << p[2];
  for (const point3& p : {P3(1 + 2e-10, 0.5, 0.5), P3(0.5, 0.5, -2e-10), P3(0.5, 2, 0.5)})
    EXPECT_FALSE(contains(c, p)) << p[0] << " " << p[1] << " " << p[2];
}

TEST(HorizontalDistance, WorkedCylinderAndPrismCases) {
  // At the cylinder's centre the square of half side r / sqrt(2) fits inside.
  EXPECT_DOUBLE_EQ(horizontal_manhattan_distance(P2(0, 0), cylinder_shape(0, 0, 0, 1, 1)).value, -std::sqrt(0.5));
  // A prism of axis-parallel edges is its box.
  const shape_t rect = prism_shape({P2(0, 0), P2(2, 0), P2(2, 1), P2(0, 1)}, 0, 1);
  for (const point2& p : {P2(3, 0.5), P2(1, 0.5), P2(-1, -1), P2(1.9, 0.2)})
    EXPECT_EQ(horizontal_manhattan_distance(p, rect).value, horizontal_manhattan_distance(p, rect.outer_box).value);
  // The hypotenuse x + y = 2 counts as a half plane: from (2,2) the square of
  // half side 1 touches it at (1,1).
  const shape_t tri = prism_shape({P2(0, 0), P2(2, 0), P2(0, 2)}, 0, 1);
  EXPECT_DOUBLE_EQ(horizontal_manhattan_distance(P2(2, 2), tri).value, 1.0);
  EXPECT_DOUBLE_EQ(horizontal_manhattan_distance(P2(0.5, 0.5), tri).value, -0.5);
  EXPECT_DOUBLE_EQ(horizontal_manhattan_distance(P2(1.2, 0.6), tri).value, -0.1);
}

TEST(HorizontalDistance, CorruptVertexCountsReadOnlyTheArray) {
  shape_t s = prism_shape({P2(0, 0), P2(4, 0), P2(5, 1), P2(5, 3), P2(4, 4), P2(1, 4), P2(0, 3), P2(-1, 1)}, 0, 1);
  const double eight = horizontal_manhattan_distance(P2(6, 5), s).value;
  nprism_t p = s.prism();
  p.size = 1000;  // claims more vertices than it can hold
  s.solid = new_solid(p);
  EXPECT_EQ(horizontal_manhattan_distance(P2(6, 5), s).value, eight);
  p.size = 0;  // no outline: its box
  s.solid = new_solid(p);
  EXPECT_EQ(horizontal_manhattan_distance(P2(6, 5), s).value, horizontal_manhattan_distance(P2(6, 5), s.outer_box).value);
}

TEST(ManhattanDistance, HeightComesFromTheOuterBoxAndUnknownKindsAreFar) {
  shape_t s = cylinder_shape(0, 0, 0, 1, 1);
  EXPECT_DOUBLE_EQ(manhattan_distance(P3(0, 0, 3), s).value, 2.0);
  s.outer_box.upper[2] = 5;  // the solid's own half height is not read
  EXPECT_DOUBLE_EQ(manhattan_distance(P3(0, 0, 3), s).value, -std::sqrt(0.5));
  shape_t c = make_cuboid_shape(box(0, 0, 0, 1, 1, 1));
  for (std::uint32_t kind : {3u, 7u}) {
    c.shape_kind = kind;
    EXPECT_EQ(horizontal_manhattan_distance(P2(0.5, 0.5), c).value, 1e9) << kind;
    EXPECT_GE(manhattan_distance(P3(0.5, 0.5, 0.5), c).value, 1e9) << kind;
    EXPECT_GE(manhattan_distance(P3(0.5, 0.5, 2e9), c).value, 2e9 - 1) << kind;
  }
}

TEST(Cube, SizeMiddleAndEnclosingCube) {
  EXPECT_EQ(size_of(box(0, 0, 0, 1, 1 + 5e-11, 1)).value, 1.0);  // the earlier of nearly equal edges
  EXPECT_EQ(size_of(box(0, 0, 0, 3, 2, 1)).value, 3.0);
  EXPECT_EQ(size_of(box(0, 0, 0, 1, 4, 1)).value, 4.0);
  EXPECT_EQ(size_of(box(0, 0, 0, 1, 2, 3)).value, 3.0);
  const cube_t c = make_cube(box(1, 2, 3, 3, 3, 7));
  EXPECT_EQ(c.center[0].value, 2.0);
  EXPECT_EQ(c.center[1].value, 2.5);
  EXPECT_EQ(c.center[2].value, 5.0);
  EXPECT_EQ(c.half.value, 2.0);
  EXPECT_EQ(middle_helper(1.0, 3.0, 0.25).value, 1.5);
  EXPECT_EQ(middle_helper(3.0, 1.0, 0.25).value, 2.5);
}

TEST(RelativeDirection, EachSideTiesAndTheTolerance) {
  // Centre at the origin; d holds the box's lower corner, then its upper one.
  const cube_t c{P3(0, 0, 0), 1};
  const struct {
    cuboid_t d;
    int side;
  } cases[] = {
      {box(1, 5, 2, 0, 0, 0), 2},  // the later index wins over the larger value
      {box(5, -1, -1, 6, 1, 1), 0},
      {box(-1, 5, -1, 1, 6, 1), 1},
      {box(-1, -1, 5, 1, 1, 6), 2},
      {box(-6, -1, -1, -5, 1, 1), 5},  // everything exceeds a d0 of -6
      {box(-6, -1, -1, -5, 6, 6), 3},  // -x needs d4 and d5 no larger than d0
      {box(-1, -6, -1, 1, -5, 1), 4},
      {box(-1, -1, -6, 1, 1, -5), 5},
      {box(1, 1 + 5e-11, -9, 9, 9, 9), 0},  // exceeding d0 within the tolerance does not count
      {box(1, 1 + 1e-9, -9, 9, 9, 9), 1},
  };
  for (const auto& k : cases) EXPECT_EQ(relative_direction(c, k.d), k.side) << &k - cases;
}

// ---------------------------------------------------------------- brute force

// Points on the surface of an upright solid over a convex anticlockwise
// outline, no more than step / 4 from any surface point along each axis.
std::vector<point3> sample_surface(const std::vector<point2>& v, double bottom, double top, double step) {
  std::vector<point3> s;
  const int up = int(std::ceil((top - bottom) / (step / 2)));
  double lo[2] = {1e9, 1e9}, hi[2] = {-1e9, -1e9};
  for (std::size_t i = 0; i < v.size(); ++i) {
    const point2 a = v[i], e = v[(i + 1) % v.size()] - a;
    const int along = std::max(1, int(std::ceil(std::max(std::fabs(e[0].value), std::fabs(e[1].value)) / (step / 2))));
    for (int j = 0; j < along; ++j)
      for (int k = 0; k <= up; ++k)
        s.push_back(P3((a[0] + e[0] * (double(j) / along)).value, (a[1] + e[1] * (double(j) / along)).value,
                       bottom + (top - bottom) * k / up));
    for (int k = 0; k < 2; ++k) lo[k] = std::min(lo[k], a[k].value), hi[k] = std::max(hi[k], a[k].value);
  }
  for (double x = lo[0]; x <= hi[0]; x += step / 2)
    for (double y = lo[1]; y <= hi[1]; y += step / 2)
      if (testing::inside_convex(v, x, y)) s.insert(s.end(), {P3(x, y, bottom), P3(x, y, top)});
  return s;
}

double nearest_on(const std::vector<point3>& s, const point3& q) {
  double best = INFINITY;
  for (const point3& v : s)
    best = std::min(best, std::max({std::fabs((v[0] - q[0]).value), std::fabs((v[1] - q[1]).value),
                                    std::fabs((v[2] - q[2]).value)}));
  return best;
}

// A random solid of each kind, with its outline in plan view.
struct solid_case {
  shape_t shape;
  std::vector<point2> outline;
  double bottom, top;
};

solid_case random_solid(std::uint32_t kind, std::mt19937_64& rng) {
  std::uniform_real_distribution<double> u(0, 1);
  const double bottom = 4 * u(rng) - 2, top = bottom + 0.2 + 1.5 * u(rng);
  std::vector<point2> v;
  if (kind == shape_cuboid) {
    const double x = 4 * u(rng) - 2, y = 4 * u(rng) - 2, w = 0.1 + 1.9 * u(rng), h = 0.1 + 1.9 * u(rng);
    v = {P2(x, y), P2(x + w, y), P2(x + w, y + h), P2(x, y + h)};
    return {make_cuboid_shape(box(x, y, bottom, x + w, y + h, top)), v, bottom, top};
  }
  if (kind == shape_cylinder) {
    const double cx = 4 * u(rng) - 2, cy = 4 * u(rng) - 2, r = 0.2 + 1.3 * u(rng);
    for (int i = 0; i < 160; ++i) v.push_back(P2(cx + r * std::cos(M_PI * i / 80), cy + r * std::sin(M_PI * i / 80)));
    return {cylinder_shape(cx, cy, (bottom + top) / 2, r, (top - bottom) / 2), v, bottom, top};
  }
  // Convex pieces of 3 or 4 vertices like the decomposition's; a third of
  // them right triangles or trapezoids, with axis-parallel edges.
  const int n = 3 + int(rng() % 2);
  const double w = 0.5 + 2 * u(rng), h = 0.5 + 2 * u(rng), r = 0.5 + 1.5 * u(rng);
  if (rng() % 3 == 0) {
    v = {P2(0, 0), P2(w, 0), P2(0, h)};
    if (n == 4) v.insert(v.begin() + 2, P2(w * (0.2 + 0.6 * u(rng)), h));
  } else {
    for (int i = 0; i < n; ++i) {
      const double a = 2 * M_PI * (i + 0.4 * u(rng)) / n;
      v.push_back(P2(r * std::cos(a), r * std::sin(a)));
    }
  }
  return {prism_shape(v, bottom, top), v, bottom, top};
}

// Against the nearest of points sampled on the surface: the sign tells inside
// from outside, and the distance never claims more room than there is.
// Cuboids and cylinders are exact; a prism counts outside as the intersection
// of its box and the half planes of its inclined edges, exact where the square
// first meets the outline on an edge or a lid and an underestimate where it
// meets a vertex between inclined edges. Inside, every kind is exact.
TEST(DistanceBruteForce, SignIsRightAndDistanceNeverOverstates) {
  constexpr double step = 0.03;
  for (std::uint32_t kind : {shape_cuboid, shape_cylinder, shape_prism}) {
    SCOPED_TRACE(::testing::Message() << "kind " << kind);
    std::mt19937_64 rng(kind + 1);
    std::uniform_real_distribution<double> around(-0.5, 1.5);
    int inside = 0, outside = 0, exact_outside = 0;
    for (int n = 0; n < 30; ++n) {
      const solid_case c = random_solid(kind, rng);
      const std::vector<point3> surface = sample_surface(c.outline, c.bottom, c.top, step);
      const cuboid_t& b = c.shape.outer_box;
      for (int k = 0; k < 40; ++k) {
        point3 q;
        for (int a = 0; a < 3; ++a) q[a] = b.lower[a] + (b.upper[a] - b.lower[a]) * around(rng);
        const double d = manhattan_distance(q, c.shape).value;
        if (kind == shape_cuboid) {
          EXPECT_EQ(d, distance(c.shape.cuboid(), q).value);
        }
        const double sampled = nearest_on(surface, q);
        // Cuboids and cylinders are exact everywhere; prisms never overstate.
        if (kind != shape_prism) {
          EXPECT_NEAR(std::fabs(d), sampled, step) << n << "/" << k;
        }
        EXPECT_LE(std::fabs(d), sampled + step) << n << "/" << k;
        if (sampled <= step) continue;
        const bool in = testing::inside_convex(c.outline, q[0].value, q[1].value) && q[2] > c.bottom && q[2] < c.top;
        EXPECT_EQ(d < 0, in) << n << "/" << k;
        if (in) {
          EXPECT_NEAR(-d, sampled, step) << n << "/" << k;
        }
        inside += in;
        outside += !in;
        exact_outside += !in && std::fabs(d - sampled) <= step;
      }
    }
    EXPECT_GT(inside, 30);  // the sample reached inside often enough to mean something
    EXPECT_GT(exact_outside, outside / 2);  // most outside points meet an edge or a lid first
  }
}

}  // namespace
}  // namespace torva
