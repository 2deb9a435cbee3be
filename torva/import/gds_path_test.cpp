// PATH outlines: the area each kind of end adds, octilinear paths kept
// octilinear, and sharp turns that stay within the mitre limit as simple
// polygons.
#include <gtest/gtest.h>

#include <cmath>
#include <numbers>
#include <random>

#include "torva/import/gds_path.h"

namespace torva {
namespace {

using rings = std::vector<std::vector<gds_point>>;

rings outline(std::vector<gds_point> centre, std::int64_t width, gds_path_ends ends, std::int64_t begin = 0,
              std::int64_t end = 0) {
  gds_path_style style;
  style.width = width;
  style.ends = ends;
  style.begin_extension = begin;
  style.end_extension = end;
  rings out;
  gds_path_outline(centre, style, out);
  return out;
}

double perimeter(const std::vector<gds_point>& r) {
  double p = 0;
  for (std::size_t i = 0; i < r.size(); ++i) {
    const gds_point a = r[i], b = r[(i + 1) % r.size()];
    p += std::hypot(double(b.x - a.x), double(b.y - a.y));
  }
  return p;
}

TEST(GdsPath, EachKindOfEndAddsItsArea) {
  const std::int64_t w = 400;
  const double h = w / 2.0;
  const double n = 16;  // segments of a round end
  struct line {
    std::vector<gds_point> centre;
    double length;
  };
  for (const line& l : {line{{{0, 0}, {10000, 0}}, 10000}, line{{{0, 0}, {10000, 0}, {10000, 6000}}, 16000},
                        line{{{0, 0}, {0, -3000}, {5000, -3000}, {5000, 1000}}, 12000}}) {
    const double body = l.length * w;
    struct expectation {
      gds_path_ends ends;
      std::int64_t begin, end;
      double area;
    };
    for (const expectation& e : {expectation{gds_path_ends::flush, 0, 0, body},
                                 expectation{gds_path_ends::extended, 0, 0, body + w * w},
                                 expectation{gds_path_ends::custom, 300, -100, body + 200 * w},
                                 expectation{gds_path_ends::round, 0, 0, body + n * h * h * std::sin(std::numbers::pi / n)}}) {
      const rings r = outline(l.centre, w, e.ends, e.begin, e.end);
      ASSERT_EQ(r.size(), 1u) << int(e.ends);
      // Whole-number corners are exact; the round ends' vertices move by up to
      // half a unit in x and y when rounded.
      const double slack = e.ends == gds_path_ends::round ? 0.71 * perimeter(r[0]) : 0;
      EXPECT_NEAR(gds_area(r[0]), e.area, slack) << int(e.ends) << " over " << l.length;
    }
  }
}

TEST(GdsPath, FortyFiveDegreePathsComeOutOctilinear) {
  const std::vector<gds_point> centre{{0, 0}, {1000, 0}, {3000, 2000}, {3000, 5000}, {1000, 7000}};
  const double length = 1000 + 2 * 2000 * std::numbers::sqrt2 + 3000;
  for (auto ends : {gds_path_ends::flush, gds_path_ends::extended}) {
    for (std::int64_t w : {200, 170, 1000}) {
      const rings r = outline(centre, w, ends);
      ASSERT_EQ(r.size(), 1u);
      for (std::size_t i = 0; i < r[0].size(); ++i) {
        const gds_point a = r[0][i], b = r[0][(i + 1) % r[0].size()];
        const std::int64_t dx = std::abs(b.x - a.x), dy = std::abs(b.y - a.y);
        EXPECT_TRUE(dx == 0 || dy == 0 || dx == dy) << "edge " << i << " (" << dx << ", " << dy << "), width " << w;
      }
      // The diagonals are at most a unit off their width; the ends add w^2 if extended.
      const double area = length * double(w) + (ends == gds_path_ends::extended ? double(w * w) : 0);
      EXPECT_NEAR(gds_area(r[0]), area, 4 * 2000 * std::numbers::sqrt2 + 4.0 * w) << w;
    }
  }
}

double distance_to_segment(gds_point p, gds_point a, gds_point b) {
  const double dx = double(b.x - a.x), dy = double(b.y - a.y);
  double t = ((p.x - a.x) * dx + (p.y - a.y) * dy) / (dx * dx + dy * dy);
  t = std::clamp(t, 0.0, 1.0);
  return std::hypot(p.x - a.x - t * dx, p.y - a.y - t * dy);
}

int turn(gds_point a, gds_point b, gds_point c) {
  const double v = double(b.x - a.x) * double(c.y - a.y) - double(b.y - a.y) * double(c.x - a.x);
  return v > 0 ? 1 : (v < 0 ? -1 : 0);
}

// Two edges that are not neighbours cross (strictly).
bool self_crossing(const std::vector<gds_point>& r) {
  const std::size_t n = r.size();
  for (std::size_t i = 0; i < n; ++i)
    for (std::size_t j = i + 2; j < n; ++j) {
      if (i == 0 && j == n - 1) continue;
      const gds_point a = r[i], b = r[(i + 1) % n], c = r[j], d = r[(j + 1) % n];
      if (turn(a, b, c) * turn(a, b, d) < 0 && turn(c, d, a) * turn(c, d, b) < 0) return true;
    }
  return false;
}

TEST(GdsPath, SharpTurnsStayWithinTheMitreLimitAsSimplePolygons) {
  // A full reversal: two overlapping flush pieces, no spike.
  const rings back = outline({{0, 0}, {1000, 0}, {500, 0}}, 100, gds_path_ends::flush);
  ASSERT_EQ(back.size(), 2u);
  EXPECT_EQ(gds_area(back[0]) + gds_area(back[1]), 150000.0);
  for (const auto& r : back)
    for (gds_point p : r) EXPECT_TRUE(p.x >= 0 && p.x <= 1000 && std::abs(p.y) <= 50);

  // Random bent paths: every vertex within twice the half width (the mitre
  // limit) of the centre line, every piece simple and anticlockwise.
  std::mt19937 rng(7);
  std::uniform_int_distribution<int> coordinate(-2000, 2000), count(2, 3), width(2, 800), kind(0, 3);
  for (int trial = 0; trial < 2000; ++trial) {
    std::vector<gds_point> centre(count(rng));
    for (auto& p : centre) p = {coordinate(rng), coordinate(rng)};
    const std::int64_t w = width(rng);
    const gds_path_ends ends = std::array{gds_path_ends::flush, gds_path_ends::round, gds_path_ends::extended,
                                          gds_path_ends::custom}[kind(rng)];
    const rings r = outline(centre, w, ends, w / 2, -w / 4);
    for (const auto& ring : r) {
      EXPECT_GT(gds_area(ring), 0) << "trial " << trial;
      EXPECT_FALSE(self_crossing(ring)) << "trial " << trial;
      for (gds_point p : ring) {
        double d = 1e300;
        for (std::size_t i = 0; i + 1 < centre.size(); ++i)
          if (!(centre[i] == centre[i + 1])) d = std::min(d, distance_to_segment(p, centre[i], centre[i + 1]));
        EXPECT_LE(d, double(w) + 1.0) << "trial " << trial;
      }
    }
  }
}

}  // namespace
}  // namespace torva
