// Flattening: references placed by their definition (reflection, then
// magnification, then rotation, then the move), arrays by their vectors,
// the top cell chosen or refused, and hierarchies that cannot be flattened
// refused before anything is built.
#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <algorithm>
#include <chrono>
#include <cmath>

#include "torva/foundation/errors.h"
#include "torva/import/gds_flatten.h"
#include "torva/import/gds_path.h"
#include "torva_testing/gds_writer.h"
#include "torva_testing/log_capture.h"

namespace torva {
namespace {

using testing::gds_strans;
using testing::gds_writer;
using ::testing::HasSubstr;

// An outline with no symmetry, so every placement shows.
const std::vector<testing::gds_xy> ell{{0, 0}, {30, 0}, {30, 10}, {10, 10}, {10, 20}, {0, 20}};

gds_flat_cell flatten(const gds_writer& w, const std::string& top = "", std::uint64_t max_polygons = 1'000'000) {
  gds_flatten_options o;
  o.top = top;
  o.max_polygons = max_polygons;
  return flatten_gds(read_gds_bytes(w.bytes, "t.gds"), o);
}

// A point of the leaf placed by one reference, computed from the definition.
struct placement {
  bool reflect = false;
  double mag = 1;
  int quarter_turns = 0;
  double x = 0, y = 0;
  std::array<double, 2> operator()(double px, double py) const {
    if (reflect) py = -py;
    px *= mag;
    py *= mag;
    static const int cosine[] = {1, 0, -1, 0}, sine[] = {0, 1, 0, -1};
    const int c = cosine[quarter_turns % 4], s = sine[quarter_turns % 4];
    return {c * px - s * py + x, s * px + c * py + y};
  }
};

// A polygon's points in a fixed order, to compare outlines whatever their start.
using point_set = std::vector<std::pair<std::int64_t, std::int64_t>>;

point_set sorted(std::span<const gds_point> r) {
  point_set v;
  for (gds_point p : r) v.emplace_back(p.x, p.y);
  std::sort(v.begin(), v.end());
  return v;
}

point_set placed(const std::function<std::array<double, 2>(double, double)>& f) {
  std::vector<gds_point> v;
  for (auto p : ell) {
    const auto q = f(p.x, p.y);
    v.push_back({std::llround(q[0]), std::llround(q[1])});
  }
  return sorted(v);
}

TEST(GdsFlatten, SrefPlacesByReflectionMagnificationRotationAndMove) {
  for (bool reflect : {false, true})
    for (int quarter = 0; quarter < 4; ++quarter)
      for (double mag : {1.0, 3.0}) {
        gds_writer w;
        w.begin_library();
        w.begin_cell("LEAF").boundary(1, 0, ell).text(2, 5, {5, 15}, "a").end_cell();
        w.begin_cell("TOP").sref("LEAF", {1000, 2000}, {reflect, mag, 90.0 * quarter}).end_cell();
        w.end_library();
        const gds_flat_cell f = flatten(w);
        const placement p{reflect, mag, quarter, 1000, 2000};
        const std::string what = "reflect " + std::to_string(reflect) + ", quarter " + std::to_string(quarter) +
                                 ", mag " + std::to_string(mag);
        ASSERT_EQ(f.polygon_count(), 1u) << what;
        const auto ring = f.find({1, 0})->polygon(0);
        EXPECT_EQ(sorted(ring), placed(p)) << what;
        EXPECT_EQ(gds_area(ring), 400 * mag * mag) << what;  // still anticlockwise
        ASSERT_EQ(f.labels.size(), 1u);
        const auto at = p(5, 15);
        EXPECT_EQ(f.labels[0].at, (gds_point{std::llround(at[0]), std::llround(at[1])})) << what;
        EXPECT_EQ(f.labels[0].key, (gds_layer{2, 5}));
      }
}

TEST(GdsFlatten, NestedPlacementsComposeInsideOut) {
  gds_writer w;
  w.begin_library();
  w.begin_cell("LEAF").boundary(1, 0, ell).end_cell();
  w.begin_cell("MID").sref("LEAF", {10, 0}, {true, 2.0, 0.0}).end_cell();
  w.begin_cell("TOP").sref("MID", {100, 0}, {false, 1.0, 90.0}).end_cell();
  w.end_library();
  const placement inner{true, 2, 0, 10, 0}, outer{false, 1, 1, 100, 0};
  EXPECT_EQ(sorted(flatten(w).find({1, 0})->polygon(0)), placed([&](double x, double y) {
              const auto q = inner(x, y);
              return outer(q[0], q[1]);
            }));
}

TEST(GdsFlatten, OffGridPlacementsRoundEachCoordinateOnce) {
  gds_writer w;
  w.begin_library();
  w.begin_cell("LEAF").boundary(1, 0, ell).end_cell();
  w.begin_cell("MID").sref("LEAF", {7, 3}, {false, 1.5, 30.0}).end_cell();
  w.begin_cell("TOP").sref("MID", {0, 0}, {false, 1.0, 15.0}).end_cell();
  w.end_library();
  const gds_flat_cell f = flatten(w);
  const auto ring = f.find({1, 0})->polygon(0);
  ASSERT_EQ(ring.size(), ell.size());
  // 30 then 15 degrees: 45 degrees in all, magnified 1.5, moved by (7, 3) turned 15.
  const double r15 = 15 * std::numbers::pi / 180, r45 = 45 * std::numbers::pi / 180;
  const double mx = 7 * std::cos(r15) - 3 * std::sin(r15), my = 7 * std::sin(r15) + 3 * std::cos(r15);
  for (auto p : ell) {
    const double x = 1.5 * (p.x * std::cos(r45) - p.y * std::sin(r45)) + mx;
    const double y = 1.5 * (p.x * std::sin(r45) + p.y * std::cos(r45)) + my;
    const bool found = std::any_of(ring.begin(), ring.end(), [&](gds_point q) {
      return std::abs(double(q.x) - x) <= 0.5 && std::abs(double(q.y) - y) <= 0.5;
    });
    EXPECT_TRUE(found) << "(" << x << ", " << y << ") in " << ::testing::PrintToString(sorted(ring));
  }
}

TEST(GdsFlatten, ArraysPlaceEveryInstanceAlongTheirVectors) {
  // A skewed, rotated 4 x 3 array whose column step (1000, 250) divides
  // evenly, and a 3 x 1 row whose step of 1000/3 does not.
  gds_writer w;
  w.begin_library();
  w.begin_cell("LEAF").boundary(1, 0, ell).rectangle(1, 0, 100, 100, 120, 130).end_cell();
  w.begin_cell("TOP");
  w.aref("LEAF", 4, 3, {50, 60}, {4050, 1060}, {-550, 3060}, {false, 1.0, 90.0});
  w.aref("LEAF", 3, 1, {0, -9000}, {1000, -9000}, {0, -9000});
  w.end_cell().end_library();
  const gds_flat_cell f = flatten(w);
  const gds_polygons& shapes = *f.find({1, 0});
  ASSERT_EQ(shapes.size(), 2u * (12 + 3));  // N instances: N times the polygons of one
  std::vector<point_set> got, want;
  for (std::size_t i = 0; i < shapes.size(); ++i) got.push_back(sorted(shapes.polygon(i)));
  auto add = [&](const placement& p) {
    want.push_back(placed(p));
    std::vector<gds_point> rect;
    for (auto [x, y] : {std::pair{100, 100}, {120, 100}, {120, 130}, {100, 130}}) {
      const auto q = p(x, y);
      rect.push_back({std::llround(q[0]), std::llround(q[1])});
    }
    want.push_back(sorted(rect));
  };
  for (int c = 0; c < 4; ++c)
    for (int r = 0; r < 3; ++r) add({false, 1, 1, 50 + 1000.0 * c - 200.0 * r, 60 + 250.0 * c + 1000.0 * r});
  for (int c = 0; c < 3; ++c) add({false, 1, 0, std::round(1000.0 * c / 3), -9000});
  std::sort(got.begin(), got.end());
  std::sort(want.begin(), want.end());
  EXPECT_EQ(got, want);
}

// The hierarchy's fault, as a message of the flattener.
template <class Error = sea::file_error>
void expect_refused(const gds_writer& w, const std::string& top, const std::string& message,
                    std::uint64_t max_polygons = 1'000'000, int max_depth = 1000) {
  testing::log_capture log;
  gds_flatten_options o;
  o.top = top;
  o.max_polygons = max_polygons;
  o.max_depth = max_depth;
  const gds_library lib = read_gds_bytes(w.bytes, "t.gds");
  try {
    flatten_gds(lib, o);
    ADD_FAILURE() << "flattened; expected: " << message;
  } catch (const Error& e) {
    EXPECT_THAT(e.what(), HasSubstr(message));
    EXPECT_THAT(log.error(), ::testing::StartsWith("ERROR: "));
    EXPECT_THAT(log.error(), HasSubstr(message));
  }
}

TEST(GdsFlatten, TopCellIsNamedOrTheOneNobodyReferences) {
  gds_writer w;
  w.begin_library("L");
  w.begin_cell("LEAF").rectangle(1, 0, 0, 0, 10, 10).end_cell();
  w.begin_cell("T1").sref("LEAF", {0, 0}).end_cell();
  w.begin_cell("T2").sref("LEAF", {0, 0}).sref("LEAF", {20, 0}).end_cell();
  w.end_library();
  EXPECT_EQ(flatten(w, "T2").polygon_count(), 2u);
  EXPECT_EQ(flatten(w, "LEAF").top, "LEAF");
  expect_refused(w, "", "GDS library \"L\" has 2 cells that no other references (\"T1\", \"T2\"); name the top cell");
  expect_refused(w, "T3", "has no cell named \"T3\"; its cells: \"LEAF\", \"T1\", \"T2\"");
  gds_writer single;
  single.begin_library().begin_cell("LEAF").rectangle(1, 0, 0, 0, 10, 10).end_cell();
  single.begin_cell("TOP").sref("LEAF", {0, 0}).end_cell().end_library();
  EXPECT_EQ(flatten(single).top, "TOP");
}

TEST(GdsFlatten, HierarchiesThatCannotBeFlattenedAreRefused) {
  gds_writer cycle;
  cycle.begin_library();
  cycle.begin_cell("TOP").sref("A", {0, 0}).end_cell();
  cycle.begin_cell("A").rectangle(1, 0, 0, 0, 5, 5).sref("B", {0, 0}).end_cell();
  cycle.begin_cell("B").sref("C", {0, 0}).end_cell();
  cycle.begin_cell("C").sref("A", {10, 0}).end_cell();
  cycle.end_library();
  expect_refused(cycle, "TOP", "GDS cell \"A\" references itself: \"A\" -> \"B\" -> \"C\" -> \"A\"");
  expect_refused(cycle, "", "\"A\" -> \"B\" -> \"C\" -> \"A\"");

  gds_writer self;
  self.begin_library("S").begin_cell("A").sref("A", {1, 0}).end_cell().end_library();
  expect_refused(self, "A", "\"A\" -> \"A\"");
  expect_refused(self, "", "GDS library \"S\" has no top cell");

  gds_writer deep;
  deep.begin_library();
  for (int i = 0; i < 5; ++i) deep.begin_cell("C" + std::to_string(i)).sref("C" + std::to_string(i + 1), {0, 0}).end_cell();
  deep.begin_cell("C5").rectangle(1, 0, 0, 0, 5, 5).end_cell().end_library();
  expect_refused(deep, "", "has a hierarchy deeper than 3 levels", 1000, 3);

  gds_writer huge;
  huge.begin_library();
  huge.begin_cell("LEAF").rectangle(1, 0, 0, 0, 5, 5).end_cell();
  huge.begin_cell("TOP").aref("LEAF", 32767, 32767, {0, 0}, {32767 * 10, 0}, {0, 32767 * 10}).end_cell();
  huge.end_library();
  const auto start = std::chrono::steady_clock::now();
  expect_refused<sea::fatal_error>(huge, "", "GDS cell \"TOP\" would flatten to 1073676289 polygons of 4294705156 points");
  // An array as large of an empty cell is not walked at all.
  gds_writer empty;
  empty.begin_library().begin_cell("NOTHING").end_cell();
  empty.begin_cell("TOP").aref("NOTHING", 32767, 32767, {0, 0}, {32767, 0}, {0, 32767}).end_cell().end_library();
  EXPECT_EQ(flatten(empty).polygon_count(), 0u);
  EXPECT_LT(std::chrono::steady_clock::now() - start, std::chrono::seconds(2));  // counted, not built

  gds_writer far;
  far.begin_library();
  far.begin_cell("LEAF").rectangle(1, 0, 0, 0, 5, 5).end_cell();
  far.begin_cell("TOP").sref("LEAF", {0, 0}, {false, 1e9, 0.0}).end_cell().end_library();
  expect_refused(far, "", "beyond the coordinate range");
}

TEST(GdsFlatten, ReportsProgressUpToTheCount) {
  gds_writer w;
  w.begin_library();
  w.begin_cell("LEAF").rectangle(1, 0, 0, 0, 5, 5).rectangle(2, 0, 0, 0, 5, 5).end_cell();
  w.begin_cell("TOP").aref("LEAF", 300, 300, {0, 0}, {3000, 0}, {0, 3000}).end_cell().end_library();
  gds_flatten_options o;
  std::vector<std::pair<std::uint64_t, std::uint64_t>> calls;
  o.progress = [&](std::uint64_t done, std::uint64_t total) { calls.emplace_back(done, total); };
  const gds_library lib = read_gds_bytes(w.bytes, "t.gds");
  const gds_flat_cell f = flatten_gds(lib, o);
  EXPECT_EQ(f.polygon_count(), 180000u);
  ASSERT_GE(calls.size(), 3u);  // every 65536 polygons, and at the end
  EXPECT_EQ(calls.back(), (std::pair<std::uint64_t, std::uint64_t>{180000, 180000}));
  EXPECT_TRUE(std::is_sorted(calls.begin(), calls.end()));
}

}  // namespace
}  // namespace torva
