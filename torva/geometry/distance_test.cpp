#include "torva/geometry/distance.h"

#include <gtest/gtest.h>

#include <algorithm>
#include <cmath>
#include <random>
#include <vector>

#include "torva/geometry/cube.h"
#include "torva/layout/solids.h"

namespace torva {
namespace {

point3 P3(double x, double y, double z) { return point3{{x, y, z}}; }
point2 P2(double x, double y) { return point2{{x, y}}; }
cuboid_t box(double x0, double y0, double z0, double x1, double y1, double z1) {
  return cuboid_t{P3(x0, y0, z0), P3(x1, y1, z1)};
}

shape_t cylinder_shape(double cx, double cy, double cz, double r, double half) {
  shape_t s;
  s.solid = new_solid(cylinder_t{P3(cx, cy, cz), r, half});
  s.outer_box = box(cx - r, cy - r, cz - half, cx + r, cy + r, cz + half);
  s.inner_box = s.outer_box;
  s.shape_kind = shape_cylinder;
  return s;
}

shape_t prism_shape(const std::vector<point2>& v, double bottom, double top) {
  nprism_t p;
  point2 lo = v[0], hi = v[0];
  for (std::size_t i = 0; i < v.size(); ++i) {
    p.points[i] = v[i];
    lo = minimal(lo, v[i]);
    hi = maximal(hi, v[i]);
  }
  p.size = v.size();
  p.bottom = bottom;
  p.top = top;
  shape_t s;
  s.solid = new_solid(p);
  s.outer_box = box(lo[0], lo[1], bottom, hi[0], hi[1], top);
  s.inner_box = s.outer_box;
  s.shape_kind = shape_prism;
  return s;
}

// ---------------------------------------------------------------- worked cases

TEST(Distance, InsideUnitCuboidIsMinusTheDepth) {
  const cuboid_t c = box(0, 0, 0, 1, 1, 1);
  EXPECT_DOUBLE_EQ(distance(c, P3(0.25, 0.5, 0.5)).value, -0.25);
  EXPECT_DOUBLE_EQ(distance(c, P3(0.5, 0.5, 0.5)).value, -0.5);
  EXPECT_DOUBLE_EQ(distance(c, P3(0.5, 0.9, 0.5)).value, -0.1);
}

TEST(Distance, OutsideIsTheLargestGap) {
  const cuboid_t c = box(0, 0, 0, 1, 2, 3);
  EXPECT_DOUBLE_EQ(distance(c, P3(3, 0.5, 0.5)).value, 2.0);
  EXPECT_DOUBLE_EQ(distance(c, P3(-1, -4, 3.5)).value, 4.0);  // not the sum, not Euclid
  EXPECT_DOUBLE_EQ(distance(c, P3(0.5, 1, 5)).value, 2.0);
}

TEST(Distance, OnAFaceIsZeroAndContained) {
  const cuboid_t c = box(0, 0, 0, 1, 1, 1);
  EXPECT_EQ(distance(c, P3(1, 0.5, 0.5)), 0.0);
  EXPECT_TRUE(contains(c, P3(1, 0.5, 0.5)));
  EXPECT_TRUE(contains(c, P3(0, 0, 0)));
  EXPECT_TRUE(contains(c, P3(1 + 5e-11, 0.5, 0.5)));
  EXPECT_TRUE(contains(c, P3(0.5, -5e-11, 0.5)));
  EXPECT_FALSE(contains(c, P3(1 + 2e-10, 0.5, 0.5)));
  EXPECT_FALSE(contains(c, P3(0.5, 0.5, -2e-10)));
  EXPECT_FALSE(contains(c, P3(0.5, 2, 0.5)));
}

TEST(Distance, NearlyEqualGapsKeepTheEarlierAxis) {
  // Both the x gap and the y gap are about 1; the x gap, first, stands.
  const cuboid_t c = box(0, 0, 0, 1, 1, 1);
  EXPECT_EQ(distance(c, P3(2, 2 + 5e-11, 0.5)).value, 1.0);
  EXPECT_EQ(horizontal_manhattan_distance(P2(2, 2 + 5e-11), c).value, 1.0);
  // A clearly larger later gap wins.
  EXPECT_DOUBLE_EQ(distance(c, P3(2, 2 + 1e-6, 0.5)).value, 1.0 + 1e-6);
}

TEST(Distance, InvertedCuboidGivesWhatTheFormulaYields) {
  const cuboid_t c = box(1, 1, 1, 0, 0, 0);
  // Gap along each axis: max(1 - 0.5, 0.5 - 0) = 0.5.
  EXPECT_DOUBLE_EQ(distance(c, P3(0.5, 0.5, 0.5)).value, 0.5);
}

TEST(HorizontalDistance, CylinderSideAndCornerCases) {
  const shape_t s = cylinder_shape(0, 0, 0, 1, 1);
  EXPECT_DOUBLE_EQ(horizontal_manhattan_distance(P2(2, 0), s).value, 1.0);
  EXPECT_DOUBLE_EQ(horizontal_manhattan_distance(P2(0, -3), s).value, 2.0);
  EXPECT_DOUBLE_EQ(horizontal_manhattan_distance(P2(2, 2), s).value, (4 - std::sqrt(2.0)) * 0.5);
  EXPECT_DOUBLE_EQ(horizontal_manhattan_distance(P2(-2, -2), s).value, (4 - std::sqrt(2.0)) * 0.5);
  // The centre: the square of half side r / sqrt(2) fits inside.
  EXPECT_DOUBLE_EQ(horizontal_manhattan_distance(P2(0, 0), s).value, -std::sqrt(0.5));
}

TEST(HorizontalDistance, PrismWithAxisParallelEdgesIsItsBox) {
  const shape_t s = prism_shape({P2(0, 0), P2(2, 0), P2(2, 1), P2(0, 1)}, 0, 1);
  for (const point2& p : {P2(3, 0.5), P2(1, 0.5), P2(-1, -1), P2(1.9, 0.2)})
    EXPECT_EQ(horizontal_manhattan_distance(p, s).value, horizontal_manhattan_distance(p, s.outer_box).value);
}

TEST(HorizontalDistance, PrismInclinedEdgeCountsAsAHalfPlane) {
  // Triangle (0,0), (2,0), (0,2): the hypotenuse x + y = 2.
  const shape_t s = prism_shape({P2(0, 0), P2(2, 0), P2(0, 2)}, 0, 1);
  // From (2,2) the square of half side 1 touches the hypotenuse at (1,1).
  EXPECT_DOUBLE_EQ(horizontal_manhattan_distance(P2(2, 2), s).value, 1.0);
  // Inside at (0.5, 0.5): the box gives -0.5, the hypotenuse -(2 - 1) / 2 = -0.5.
  EXPECT_DOUBLE_EQ(horizontal_manhattan_distance(P2(0.5, 0.5), s).value, -0.5);
  EXPECT_DOUBLE_EQ(horizontal_manhattan_distance(P2(1.2, 0.6), s).value, -0.1);
}

TEST(HorizontalDistance, EmptyPrismIsItsBox) {
  shape_t s = prism_shape({P2(0, 0), P2(2, 0), P2(0, 2)}, 0, 1);
  nprism_t empty = s.prism();
  empty.size = 0;
  s.solid = new_solid(empty);
  EXPECT_EQ(horizontal_manhattan_distance(P2(2, 2), s).value, 0.0);
}

TEST(HorizontalDistance, OversizedVertexCountReadsOnlyTheArray) {
  // A prism record claiming more vertices than it can hold: the distance is
  // that of its eight real vertices (and nothing past the array is read).
  shape_t s = prism_shape({P2(0, 0), P2(4, 0), P2(5, 1), P2(5, 3), P2(4, 4), P2(1, 4), P2(0, 3), P2(-1, 1)}, 0, 1);
  const double eight = horizontal_manhattan_distance(P2(6, 5), s).value;
  nprism_t bad = s.prism();
  bad.size = 1000;
  s.solid = new_solid(bad);
  EXPECT_EQ(horizontal_manhattan_distance(P2(6, 5), s).value, eight);
}

TEST(ManhattanDistance, HeightComesFromTheOuterBox) {
  shape_t s = cylinder_shape(0, 0, 0, 1, 1);
  EXPECT_DOUBLE_EQ(manhattan_distance(P3(0, 0, 3), s).value, 2.0);
  EXPECT_DOUBLE_EQ(manhattan_distance(P3(3, 0, 1.5), s).value, 2.0);
  EXPECT_DOUBLE_EQ(manhattan_distance(P3(0, 0, 0.9), s).value, -0.1);
  // The solid's own half height is not read: a taller outer box wins.
  s.outer_box.upper[2] = 5;
  EXPECT_DOUBLE_EQ(manhattan_distance(P3(0, 0, 3), s).value, -std::sqrt(0.5));
  const shape_t c = make_cuboid_shape(box(0, 0, 0, 1, 1, 1));
  EXPECT_DOUBLE_EQ(manhattan_distance(P3(0.5, 0.5, -2), c).value, 2.0);
  EXPECT_DOUBLE_EQ(manhattan_distance(P3(0.5, 0.5, 0.5), c).value, -0.5);
}

TEST(ManhattanDistance, UnknownKindIsFarAway) {
  shape_t s = make_cuboid_shape(box(0, 0, 0, 1, 1, 1));
  s.shape_kind = 7;
  EXPECT_EQ(horizontal_manhattan_distance(P2(0.5, 0.5), s).value, 1e9);
  EXPECT_GE(manhattan_distance(P3(0.5, 0.5, 0.5), s).value, 1e9);
  EXPECT_GE(manhattan_distance(P3(0.5, 0.5, 2e9), s).value, 2e9 - 1);
  s.shape_kind = 3;
  EXPECT_EQ(horizontal_manhattan_distance(P2(0.5, 0.5), s).value, 1e9);
}

TEST(Cube, SizeOfKeepsTheEarlierOfNearlyEqualEdges) {
  EXPECT_EQ(size_of(box(0, 0, 0, 1, 1 + 5e-11, 1)).value, 1.0);
  EXPECT_EQ(size_of(box(0, 0, 0, 1, 2, 3)).value, 3.0);
  EXPECT_EQ(size_of(box(0, 0, 0, 3, 2, 1)).value, 3.0);
  EXPECT_EQ(size_of(box(0, 0, 0, 1, 4, 1)).value, 4.0);
}

TEST(Cube, MakeCubeEnclosesTheCuboid) {
  const cube_t c = make_cube(box(1, 2, 3, 3, 3, 7));
  EXPECT_EQ(c.center[0].value, 2.0);
  EXPECT_EQ(c.center[1].value, 2.5);
  EXPECT_EQ(c.center[2].value, 5.0);
  EXPECT_EQ(c.half.value, 2.0);
  EXPECT_EQ(middle_helper(1.0, 3.0, 0.25).value, 1.5);
  EXPECT_EQ(middle_helper(3.0, 1.0, 0.25).value, 2.5);
}

TEST(RelativeDirection, LaterIndexWinsOverLargerValue) {
  // Centre at the origin; d = (1, 5, 2, 0, 0, 0).
  const cube_t c{P3(0, 0, 0), 1};
  EXPECT_EQ(relative_direction(c, box(1, 5, 2, 0, 0, 0)), 2);
}

TEST(RelativeDirection, EachSideAndTies) {
  const cube_t c{P3(0, 0, 0), 1};
  EXPECT_EQ(relative_direction(c, box(5, -1, -1, 6, 1, 1)), 0);   // only d0 large
  EXPECT_EQ(relative_direction(c, box(-1, 5, -1, 1, 6, 1)), 1);
  EXPECT_EQ(relative_direction(c, box(-1, -1, 5, 1, 1, 6)), 2);
  // Everything exceeds a d0 of -6, so the last index wins here ...
  EXPECT_EQ(relative_direction(c, box(-6, -1, -1, -5, 1, 1)), 5);
  // ... and -x needs d4 and d5 no larger than d0.
  EXPECT_EQ(relative_direction(c, box(-6, -1, -1, -5, 6, 6)), 3);
  EXPECT_EQ(relative_direction(c, box(-1, -6, -1, 1, -5, 1)), 4);
  EXPECT_EQ(relative_direction(c, box(-1, -1, -6, 1, 1, -5)), 5);
  // A value exceeding d0 by no more than the tolerance does not count.
  EXPECT_EQ(relative_direction(c, box(1, 1 + 5e-11, -9, 9, 9, 9)), 0);
  EXPECT_EQ(relative_direction(c, box(1, 1 + 1e-9, -9, 9, 9, 9)), 1);
}

// ---------------------------------------------------------------- brute force

// Points on the surface of a solid, no farther apart than `step` along it.
struct surface {
  std::vector<point3> points;
};

void sample_rectangle(surface& s, const point3& o, const point3& u, const point3& v, double step) {
  const double lu = std::max({std::fabs(u[0].value), std::fabs(u[1].value), std::fabs(u[2].value)});
  const double lv = std::max({std::fabs(v[0].value), std::fabs(v[1].value), std::fabs(v[2].value)});
  const int nu = std::max(1, int(std::ceil(lu / step))), nv = std::max(1, int(std::ceil(lv / step)));
  for (int i = 0; i <= nu; ++i)
    for (int j = 0; j <= nv; ++j) s.points.push_back(o + u * (double(i) / nu) + v * (double(j) / nv));
}

surface sample_cuboid(const cuboid_t& c, double step) {
  surface s;
  const point3 e = c.upper - c.lower;
  const point3 X = P3(e[0], 0, 0), Y = P3(0, e[1], 0), Z = P3(0, 0, e[2]);
  sample_rectangle(s, c.lower, X, Y, step);
  sample_rectangle(s, c.lower + Z, X, Y, step);
  sample_rectangle(s, c.lower, X, Z, step);
  sample_rectangle(s, c.lower + Y, X, Z, step);
  sample_rectangle(s, c.lower, Y, Z, step);
  sample_rectangle(s, c.lower + X, Y, Z, step);
  return s;
}

// Lids by a grid clipped to the plan outline, walls by rectangles per edge.
template <class Inside>
void sample_lids(surface& s, double x0, double y0, double x1, double y1, double bottom, double top, double step,
                 Inside inside) {
  for (double x = x0; x <= x1; x += step * 0.5)
    for (double y = y0; y <= y1; y += step * 0.5)
      if (inside(x, y)) {
        s.points.push_back(P3(x, y, bottom));
        s.points.push_back(P3(x, y, top));
      }
}

surface sample_cylinder(const cylinder_t& c, double step) {
  surface s;
  const double r = c.radius.value, h = c.half_height.value;
  const double cx = c.center[0].value, cy = c.center[1].value, cz = c.center[2].value;
  const int around = int(std::ceil(2 * M_PI * r / (step * 0.5)));
  const int up = int(std::ceil(2 * h / (step * 0.5)));
  for (int i = 0; i < around; ++i) {
    const double a = 2 * M_PI * i / around;
    for (int j = 0; j <= up; ++j)
      s.points.push_back(P3(cx + r * std::cos(a), cy + r * std::sin(a), cz - h + 2 * h * j / up));
  }
  sample_lids(s, cx - r, cy - r, cx + r, cy + r, cz - h, cz + h, step, [&](double x, double y) {
    return (x - cx) * (x - cx) + (y - cy) * (y - cy) <= r * r;
  });
  return s;
}

bool inside_polygon(const nprism_t& p, double x, double y) {
  for (std::uint64_t i = 0; i < p.size; ++i) {
    const point2& a = p.points[i];
    const point2& b = p.points[(i + 1) % p.size];
    if ((b[0].value - a[0].value) * (y - a[1].value) - (b[1].value - a[1].value) * (x - a[0].value) < 0) return false;
  }
  return true;
}

surface sample_prism(const nprism_t& p, const cuboid_t& outer, double step) {
  surface s;
  const point3 Z = P3(0, 0, (p.top - p.bottom).value);
  for (std::uint64_t i = 0; i < p.size; ++i) {
    const point2& a = p.points[i];
    const point2& b = p.points[(i + 1) % p.size];
    sample_rectangle(s, P3(a[0], a[1], p.bottom), P3((b[0] - a[0]).value, (b[1] - a[1]).value, 0), Z, step * 0.5);
  }
  sample_lids(s, outer.lower[0], outer.lower[1], outer.upper[0], outer.upper[1], p.bottom, p.top, step,
              [&](double x, double y) { return inside_polygon(p, x, y); });
  return s;
}

double nearest_on(const surface& s, const point3& q) {
  double best = INFINITY;
  for (const point3& v : s.points) {
    const double d = std::max({std::fabs((v[0] - q[0]).value), std::fabs((v[1] - q[1]).value),
                               std::fabs((v[2] - q[2]).value)});
    best = std::min(best, d);
  }
  return best;
}

constexpr double step = 0.03;

TEST(DistanceBruteForce, CuboidsAgreeWithSampledSurfaceAndSign) {
  std::mt19937_64 rng(1);
  std::uniform_real_distribution<double> corner(-2, 2), edge(0.1, 2), where(-4, 5);
  int inside = 0;
  for (int n = 0; n < 40; ++n) {
    const double x = corner(rng), y = corner(rng), z = corner(rng);
    const cuboid_t c = box(x, y, z, x + edge(rng), y + edge(rng), z + edge(rng));
    const surface s = sample_cuboid(c, step);
    const shape_t shape = make_cuboid_shape(c);
    for (int k = 0; k < 30; ++k) {
      // Half the points near or in the solid, half anywhere.
      const point3 q = k % 2 ? P3(where(rng), where(rng), where(rng))
                             : c.lower + P3(std::uniform_real_distribution<double>(-0.3, 1.3)(rng) *
                                                (c.upper[0] - c.lower[0]).value,
                                            std::uniform_real_distribution<double>(-0.3, 1.3)(rng) *
                                                (c.upper[1] - c.lower[1]).value,
                                            std::uniform_real_distribution<double>(-0.3, 1.3)(rng) *
                                                (c.upper[2] - c.lower[2]).value);
      const double sampled = nearest_on(s, q);
      const bool in = contains(c, q);
      const double d = distance(c, q).value;
      EXPECT_NEAR(std::fabs(d), sampled, step) << n << "/" << k;
      if (sampled > step) {
        EXPECT_EQ(d < 0, in) << n << "/" << k;
        inside += in;
      }
      EXPECT_EQ(manhattan_distance(q, shape).value, d);
    }
  }
  EXPECT_GT(inside, 50);  // the sample reached inside often enough to mean something
}

TEST(DistanceBruteForce, CylindersAgreeWithSampledSurfaceAndSign) {
  std::mt19937_64 rng(2);
  std::uniform_real_distribution<double> centre(-2, 2), radius(0.2, 1.5), half(0.1, 1), near(-2.5, 2.5);
  int inside = 0;
  for (int n = 0; n < 20; ++n) {
    const shape_t shape = cylinder_shape(centre(rng), centre(rng), centre(rng), radius(rng), half(rng));
    const cylinder_t& c = shape.cylinder();
    const surface s = sample_cylinder(c, step);
    for (int k = 0; k < 30; ++k) {
      const double r = c.radius.value, h = c.half_height.value;
      const point3 q = c.center + P3(near(rng) * r, near(rng) * r, near(rng) * h);
      const double sampled = nearest_on(s, q);
      const double dx = (q[0] - c.center[0]).value, dy = (q[1] - c.center[1]).value;
      const bool in = dx * dx + dy * dy < r * r && std::fabs((q[2] - c.center[2]).value) < h;
      const double d = manhattan_distance(q, shape).value;
      EXPECT_NEAR(std::fabs(d), sampled, step) << n << "/" << k;
      if (sampled > step) {
        EXPECT_EQ(d < 0, in) << n << "/" << k;
        inside += in;
      }
    }
  }
  EXPECT_GT(inside, 20);
}

// Random convex polygons of 3 or 4 vertices, some with axis-parallel edges,
// anticlockwise: the pieces the decomposition makes.
std::vector<point2> convex_piece(std::mt19937_64& rng) {
  std::uniform_real_distribution<double> u(0, 1);
  const int n = 3 + int(rng() % 2);
  if (rng() % 3 == 0) {
    // A right trapezoid or right triangle: a box with one corner cut.
    const double w = 0.5 + 2 * u(rng), h = 0.5 + 2 * u(rng), cut = 0.2 + 0.6 * u(rng);
    if (n == 3) return {P2(0, 0), P2(w, 0), P2(0, h)};
    return {P2(0, 0), P2(w, 0), P2(w * cut, h), P2(0, h)};
  }
  std::vector<double> angles;
  for (int i = 0; i < n; ++i) angles.push_back(2 * M_PI * (i + 0.4 * u(rng)) / n);
  std::vector<point2> v;
  const double r = 0.5 + 1.5 * u(rng);
  for (double a : angles) v.push_back(P2(r * std::cos(a), r * std::sin(a)));
  return v;
}

TEST(DistanceBruteForce, PrismsAgreeInsideAndNeverOverstateOutside) {
  // Outside, a prism counts as the intersection of its box and the half planes
  // of its inclined edges: the largest of those distances is exact where the
  // square first meets the outline on an edge, and a lower bound where it
  // meets a vertex between inclined edges. Inside it is exact.
  std::mt19937_64 rng(3);
  std::uniform_real_distribution<double> near(-1.0, 1.0), height(0.2, 1.5);
  int inside = 0, exact_outside = 0;
  for (int n = 0; n < 40; ++n) {
    const std::vector<point2> v = convex_piece(rng);
    const double bottom = near(rng), top = bottom + height(rng);
    const shape_t shape = prism_shape(v, bottom, top);
    const nprism_t& p = shape.prism();
    const surface s = sample_prism(p, shape.outer_box, step);
    for (int k = 0; k < 30; ++k) {
      const point3 q = P3(2.5 * near(rng), 2.5 * near(rng), bottom + (top - bottom) * (0.5 + 1.5 * near(rng)));
      const double sampled = nearest_on(s, q);
      const bool in = inside_polygon(p, q[0].value, q[1].value) && q[2] > bottom && q[2] < top;
      const double d = manhattan_distance(q, shape).value;
      if (sampled <= step) continue;
      EXPECT_EQ(d < 0, in) << n << "/" << k;
      if (in) {
        ++inside;
        EXPECT_NEAR(-d, sampled, step) << n << "/" << k;
      } else {
        EXPECT_LE(d, sampled + step) << n << "/" << k;
        exact_outside += std::fabs(d - sampled) <= step;
      }
    }
  }
  EXPECT_GT(inside, 30);
  EXPECT_GT(exact_outside, 400);  // most outside points meet an edge or a lid first
}

}  // namespace
}  // namespace torva
