#include "torva/geometry/convex_decomposition.h"

#include <gtest/gtest.h>

#include <algorithm>
#include <cmath>
#include <random>
#include <string>
#include <vector>

#include "torva/geometry/internal/polygon_repair.h"
#include "torva/geometry/internal/prism_fixtures.h"
#include "torva_testing/log_capture.h"

namespace torva {
namespace {

using testing::P;
using testing::pairs;
using testing::signed_area;

nprism_large_t poly_of(std::vector<point2> pts, double bottom = 0.0, double top = 1.0) {
  nprism_large_t p;
  p.points = std::move(pts);
  p.size = p.points.size();
  p.bottom = bottom;
  p.top = top;
  return p;
}

pairs coords(const nprism_large_t& p) { return testing::coords(p.points); }

// The outlines of the pieces, and in `warning` what was warned on the way.
std::vector<pairs> pieces_of(const nprism_large_t& poly, std::string& warning) {
  testing::log_capture log;
  std::vector<nprism_large_t> out;
  convex_decomposition(poly, out);
  std::vector<pairs> r;
  for (const nprism_large_t& piece : out) r.push_back(coords(piece));
  warning = log.warning();
  return r;
}

TEST(ConvexDecomposition, WorkedOutlines) {
  const struct {
    const char* what;
    std::vector<point2> in;
    std::vector<pairs> pieces;
  } cases[] = {
      {"clockwise square: reversed end for end", {P(0, 0), P(0, 1), P(1, 1), P(1, 0)}, {{{1, 0}, {1, 1}, {0, 1}, {0, 0}}}},
      {"convex hexagon: a quadrilateral, then a fan",
       {P(2, 0), P(4, 1), P(4, 3), P(2, 4), P(0, 3), P(0, 1)},
       {{{2, 0}, {4, 1}, {4, 3}, {2, 4}}, {{2, 0}, {2, 4}, {0, 3}}, {{2, 0}, {0, 3}, {0, 1}}}},
      {"L shape: split at the reflex vertex to vertex 0",
       {P(0, 0), P(2, 0), P(2, 1), P(1, 1), P(1, 2), P(0, 2)},
       {{{0, 0}, {2, 0}, {2, 1}, {1, 1}}, {{1, 1}, {1, 2}, {0, 2}, {0, 0}}}},
      {"clockwise L shape: turned first, then as above",
       {P(0, 2), P(1, 2), P(1, 1), P(2, 1), P(2, 0), P(0, 0)},
       {{{0, 0}, {2, 0}, {2, 1}, {1, 1}}, {{1, 1}, {1, 2}, {0, 2}, {0, 0}}}},
      {"repeated closing vertex and a point mid-edge",
       {P(0, 0), P(1, 0), P(2, 0), P(2, 2), P(0, 2), P(0, 0)},
       {{{0, 0}, {2, 0}, {2, 2}, {0, 2}}}},
      // The outline passes (1,1) twice. Reflex vertex 2 pairs with vertex 0;
      // the rest, still pinched, splits at its reflex vertex 0 to vertex 2,
      // then again through the pinch.
      {"two squares touching at a corner",
       {P(0, 0), P(1, 0), P(1, 1), P(2, 1), P(2, 2), P(1, 2), P(1, 1), P(0, 1)},
       {{{0, 0}, {1, 0}, {1, 1}}, {{2, 2}, {1, 2}, {1, 1}}, {{1, 1}, {0, 1}, {0, 0}}, {{1, 1}, {2, 1}, {2, 2}}}},
  };
  for (const auto& c : cases) {
    SCOPED_TRACE(c.what);
    std::string warning;
    EXPECT_EQ(pieces_of(poly_of(c.in), warning), c.pieces);
    EXPECT_EQ(warning, "");
  }
}

TEST(ConvexDecomposition, AppendsPiecesThatKeepTheHeights) {
  std::vector<nprism_large_t> out(1);
  convex_decomposition(poly_of({P(0, 0), P(2, 0), P(2, 1), P(1, 1), P(1, 2), P(0, 2)}, -1.0, 5.0), out);
  ASSERT_EQ(out.size(), 3u);
  EXPECT_TRUE(out[0].points.empty());
  for (std::size_t i = 1; i < 3; ++i) {
    EXPECT_EQ(out[i].size, 4u);
    EXPECT_EQ(out[i].bottom.value, -1.0);
    EXPECT_EQ(out[i].top.value, 5.0);
  }
}

TEST(ConvexDecomposition, PinchVertexAsPartnerIsTakenWhenTheDiagonalEntersItsWedge) {
  // A notched body below (0,0) and an arm above, touching only at (0,0),
  // visited at index 0 (a left turn) and at index 5. Reflex vertex 3, (1,-2),
  // has the pinch at index 0 as its first partner, reached from inside the
  // wedge there; the part from 0 to 3 comes first and splits once more. What
  // follows is left unchecked on purpose: the partner search tests the
  // bisector half plane, not the exact wedge, at the other visit of (0,0).
  std::string warning;
  const auto pieces = pieces_of(poly_of({P(0, 0), P(-1, -4), P(3, -4), P(1, -2), P(1, -1), P(0, 0), P(4, -0.5),
                                         P(6, 1), P(-10, 10), P(2, 0.75)}),
                                warning);
  ASSERT_GE(pieces.size(), 3u);
  EXPECT_EQ(pieces[0], (pairs{{-1, -4}, {3, -4}, {1, -2}}));
  EXPECT_EQ(pieces[1], (pairs{{1, -2}, {0, 0}, {-1, -4}}));
}

TEST(ConvexDecomposition, UnrepairableOutlinesGiveNothingButTheirWarning) {
  const struct {
    nprism_large_t in;
    std::string warning;
  } cases[] = {
      {poly_of({P(0, 0), P(1, 0), P(2, 0)}),
       "WARNING: (Geometry) number of valid vertexes less than 3 after deleting collinear vertexes.\n"},
      {poly_of({P(0, 0), P(2, 0), P(1, 0)}),
       "WARNING: (Geometry) input poly not vaild(may have same verexs).\n"
       "\tpt1:(0.000000000000, 0.000000000000)\n\tpt2:(2.000000000000, 0.000000000000)\n"
       "\tpt3:(1.000000000000, 0.000000000000)\n"},
      // Turned round first; then vertex 0 is reflex and its only partner, 2,
      // lies behind the bisector. The outline is listed as given.
      {poly_of({P(0, 0), P(2, 2), P(2, 0), P(0, 2)}, 0.5, 2.25),
       "WARNING: (Geometry) input poly not vaild(may have same vertexs or self intersection)\n"
       "pt 0:(0.000000000000, 0.000000000000)\npt 1:(2.000000000000, 2.000000000000)\n"
       "pt 2:(2.000000000000, 0.000000000000)\npt 3:(0.000000000000, 2.000000000000)\n"
       "z <min:0.500000000000;max: 2.250000000000>\n"},
  };
  for (const auto& c : cases) {
    std::string warning;
    EXPECT_TRUE(pieces_of(c.in, warning).empty());
    EXPECT_EQ(warning, c.warning);
  }
  for (std::size_t n : {0u, 1u, 2u}) {
    std::vector<point2> pts;
    for (std::size_t i = 0; i < n; ++i) pts.push_back(P(double(i), double(i * i)));
    std::string warning;
    EXPECT_TRUE(pieces_of(poly_of(pts), warning).empty()) << n;
    EXPECT_NE(warning.find("less than 3"), std::string::npos) << n;
  }
}

// ---------------------------------------------------------------- the helpers

// The outlines below cover repeats and collinear runs; what they cannot reach
// is where the tolerances end.
TEST(DecompositionHelpers, TolerancesEndWhereTheyShould) {
  auto on_line = poly_of({P(0, 0), P(1, 1e-11), P(2, 0), P(2, 1)});
  ASSERT_TRUE(delete_duplicate_point(on_line));
  EXPECT_EQ(coords(on_line), (pairs{{0, 0}, {2, 0}, {2, 1}}));
  EXPECT_EQ(on_line.size, 3u);
  auto off_line = poly_of({P(0, 0), P(1, -1e-6), P(2, 0), P(2, 1)});
  ASSERT_TRUE(delete_duplicate_point(off_line));
  EXPECT_EQ(coords(off_line), (pairs{{0, 0}, {1, -1e-6}, {2, 0}, {2, 1}}));
  EXPECT_TRUE(onSegment(P(0, 0), P(2 + 5e-11, 1), P(2, 2)));
  EXPECT_FALSE(onSegment(P(0, 0), P(2 + 1e-9, 1), P(2, 2)));
}

// ---------------------------------------------------------------- properties

// An x-monotone orthogonal outline: columns of random width between a lower
// and an upper profile, like a wire with jogs on both sides; half of them
// turned a quarter, so that they run in y.
std::vector<point2> orthogonal_polygon(std::mt19937_64& rng) {
  std::uniform_int_distribution<int> columns(1, 12), width(1, 5), level(0, 20);
  const int n = columns(rng);
  std::vector<int> xs{0}, lo, hi;
  for (int i = 0; i < n; ++i) {
    xs.push_back(xs.back() + width(rng));
    int a = level(rng), b = level(rng);
    if (a == b) b = a + 1;
    lo.push_back(std::min(a, b));
    hi.push_back(std::max(a, b));
    // Neighbouring columns must overlap in y, or the outline would pinch.
    if (i > 0 && lo[i] >= hi[i - 1]) lo[i] = hi[i - 1] - 1;
    if (i > 0 && hi[i] <= lo[i - 1]) hi[i] = lo[i - 1] + 1;
  }
  const bool turn = rng() & 1;
  auto at = [turn](int x, int y) { return turn ? P(-y, x) : P(x, y); };
  std::vector<point2> pts;
  for (int i = 0; i < n; ++i) pts.insert(pts.end(), {at(xs[i], lo[i]), at(xs[i + 1], lo[i])});
  for (int i = n - 1; i >= 0; --i) pts.insert(pts.end(), {at(xs[i + 1], hi[i]), at(xs[i], hi[i])});
  return pts;
}

// A star-shaped outline: angles about a centre, each jittered within its share
// of the turn so that no gap reaches a half turn, and random radii.
std::vector<point2> star_polygon(std::mt19937_64& rng) {
  std::uniform_real_distribution<double> jitter(0.0, 0.4), radius(0.5, 10.0);
  const int n = std::uniform_int_distribution<int>(3, 24)(rng);
  std::vector<point2> pts;
  for (int i = 0; i < n; ++i) {
    const double a = 2 * M_PI * (i + jitter(rng)) / n, r = radius(rng);
    pts.push_back(P(3.0 + r * std::cos(a), -2.0 + r * std::sin(a)));
  }
  return pts;
}

// An x-monotone outline with inclined edges: a lower chain from left to right
// under -0.1 and an upper chain back over 0.1, over distinct random abscissae.
std::vector<point2> monotone_polygon(std::mt19937_64& rng) {
  std::uniform_int_distribution<int> count(1, 10);
  std::uniform_real_distribution<double> step(0.1, 3.0), y(-5.0, 5.0), thickness(0.2, 4.0);
  const double left = -7.0, right = 13.0;
  auto xs = [&](int k) {
    std::vector<double> v;
    double x = left;
    for (int i = 0; i < k; ++i) v.push_back(x += step(rng));
    const double span = x - left + step(rng);
    for (double& e : v) e = left + (e - left) * (right - left) / span;
    return v;
  };
  const int lower = count(rng), upper = count(rng);
  std::vector<point2> pts{P(left, 0.0)};
  for (double x : xs(lower)) pts.push_back(P(x, -0.1 - thickness(rng) - std::fabs(y(rng))));
  pts.push_back(P(right, y(rng) * 0.01));
  const std::vector<double> up = xs(upper);
  for (auto it = up.rbegin(); it != up.rend(); ++it) pts.push_back(P(*it, 0.1 + thickness(rng) + std::fabs(y(rng))));
  return pts;
}

// Either way round and from any vertex, a simple outline splits into convex
// anticlockwise pieces of 3 or 4 vertices, at its heights, whose areas add up
// to its own, without a warning.
TEST(ConvexDecompositionProperty, PiecesAreConvexAndCoverRandomOutlines) {
  const struct {
    const char* kind;
    std::vector<point2> (*make)(std::mt19937_64&);
    std::uint64_t seed;
  } kinds[] = {{"orthogonal", orthogonal_polygon, 20261122}, {"star", star_polygon, 7}, {"monotone", monotone_polygon, 99}};
  for (const auto& k : kinds) {
    std::mt19937_64 rng(k.seed);
    for (int n = 0; n < 1000; ++n) {
      std::vector<point2> v = k.make(rng);
      const bool reverse = rng() & 1;
      if (reverse) std::reverse(v.begin(), v.end());
      std::rotate(v.begin(), v.begin() + (rng() % v.size()), v.end());
      std::string what = std::string(k.kind) + " #" + std::to_string(n) + (reverse ? " reversed" : "");
      for (const point2& p : v) what += " (" + std::to_string(p[0].value) + "," + std::to_string(p[1].value) + ")";
      testing::log_capture log;
      std::vector<nprism_large_t> out;
      convex_decomposition(poly_of(v, -0.5, 1.5), out);
      ASSERT_FALSE(out.empty()) << what;
      double total = 0.0;
      for (const auto& piece : out) {
        EXPECT_EQ(piece.size, piece.points.size()) << what;
        EXPECT_GE(piece.size, 3u) << what;
        EXPECT_LE(piece.size, 4u) << what;
        EXPECT_TRUE(is_anticlock(piece.points.cbegin(), piece.size)) << what;
        EXPECT_GT(signed_area(piece.points), 0.0) << what;
        total += signed_area(piece.points);
        const std::size_t m = piece.points.size();
        for (std::size_t i = 0; i < m; ++i) {
          const point2 &a = piece.points[i], &b = piece.points[(i + 1) % m], &c = piece.points[(i + 2) % m];
          const double turn = (b[0].value - a[0].value) * (c[1].value - b[1].value) -
                              (b[1].value - a[1].value) * (c[0].value - b[0].value);
          EXPECT_GE(turn, -1e-9) << what << " piece not convex";
        }
        EXPECT_EQ(piece.bottom.value, -0.5) << what;
        EXPECT_EQ(piece.top.value, 1.5) << what;
      }
      const double expected = std::fabs(signed_area(v));
      EXPECT_NEAR(total, expected, 1e-9 * std::max(1.0, expected)) << what;
      EXPECT_EQ(log.warning(), "") << what;
    }
  }
}

// Self-intersecting outlines on a small grid (many repeats and collinear
// runs), and coordinates that are not numbers, never give a piece of more
// than four vertices.
TEST(ConvexDecompositionRobustness, ArbitraryOutlinesNeverGiveLargePieces) {
  const double nan = std::nan(""), inf = INFINITY;
  std::vector<std::vector<point2>> outlines = {{P(nan, 0), P(1, 0), P(1, 1), P(0, 1)},
                                               {P(0, 0), P(inf, 0), P(1, 1), P(0, inf), P(-inf, 3)},
                                               std::vector<point2>(5, P(nan, nan))};
  std::mt19937_64 rng(3);
  std::uniform_int_distribution<int> count(0, 30), grid(-4, 4);
  for (int n = 0; n < 2000; ++n) {
    outlines.emplace_back();
    for (int i = count(rng); i > 0; --i) outlines.back().push_back(P(grid(rng), grid(rng)));
  }
  testing::log_capture quiet;
  for (const auto& pts : outlines) {
    std::vector<nprism_large_t> out;
    convex_decomposition(poly_of(pts), out);
    for (const auto& piece : out) {
      EXPECT_EQ(piece.size, piece.points.size());
      EXPECT_LE(piece.size, 4u);
    }
  }
}

TEST(ConvexDecompositionRobustness, LongCombDecomposesWithoutExhaustingTheStack) {
  // 200 teeth above a base: one reflex vertex after another, each split
  // leaving the rest.
  std::vector<point2> pts{P(0, 0), P(400, 0)};
  for (int t = 199; t >= 0; --t) pts.insert(pts.end(), {P(2 * t + 2, 5), P(2 * t + 1, 5), P(2 * t + 1, 1), P(2 * t, 1)});
  testing::log_capture log;
  std::vector<nprism_large_t> out;
  convex_decomposition(poly_of(pts), out);
  double total = 0.0;
  for (const auto& piece : out) {
    EXPECT_LE(piece.size, 4u);
    total += signed_area(piece.points);
  }
  EXPECT_NEAR(total, signed_area(pts), 1e-9);
  EXPECT_EQ(log.warning(), "");
}

}  // namespace
}  // namespace torva
