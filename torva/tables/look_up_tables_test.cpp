#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <array>
#include <cmath>
#include <memory>
#include <set>
#include <tuple>

#include "torva/tables/table_database.h"
#include "torva_testing/log_capture.h"

namespace torva {
namespace {

using point = std::vector<double>;
using cell = std::tuple<int, int, int, int>;  // axis of the face, its side, two indices

// The cell of a surface grid of k x k cells per face whose centre is p, or a
// test failure if p is not such a centre.
cell cell_of(const point& p, int k) {
  int axis = -1;
  for (int a = 0; a < 3; ++a) {
    if (std::fabs(p[a]) == 1.0) axis = a;
  }
  EXPECT_GE(axis, 0) << p[0] << " " << p[1] << " " << p[2];
  std::array<int, 2> idx{};
  for (int a = 0, n = 0; a < 3; ++a) {
    if (a == axis) continue;
    const double f = (p[a] + 1) * k / 2 - 0.5;
    idx[n] = static_cast<int>(std::lround(f));
    EXPECT_NEAR(f, idx[n], 1e-9);
    EXPECT_TRUE(idx[n] >= 0 && idx[n] < k);
    ++n;
  }
  return {axis, p[axis] > 0, idx[0], idx[1]};
}

struct LookUpTableSet : ::testing::Test {
  static void SetUpTestSuite() {
    testing::log_capture log;
    db = std::make_unique<table_database>();
    db->init_look_up_tables();
    progress = log.info();
  }
  static void TearDownTestSuite() { db.reset(); }
  static std::unique_ptr<table_database> db;
  static std::string progress;
};
std::unique_ptr<table_database> LookUpTableSet::db;
std::string LookUpTableSet::progress;

point mirror_z(point p) {
  p[2] = -p[2];
  return p;
}

// Equal up to the rounding of the cell centres, which are computed, not mirrored.
::testing::AssertionResult same_point(const point& a, const point& b) {
  for (int i = 0; i < 3; ++i) {
    if (!(std::fabs(a[i] - b[i]) < 1e-12)) {
      return ::testing::AssertionFailure() << "(" << a[0] << ", " << a[1] << ", " << a[2] << ") vs (" << b[0]
                                           << ", " << b[1] << ", " << b[2] << ")";
    }
  }
  return ::testing::AssertionSuccess();
}

TEST_F(LookUpTableSet, FirstLookupCoversEveryCellOfTheSurfaceOnce) {
  EXPECT_EQ(progress, "cmprz\ncmprxy\nfinish\n");
  ASSERT_EQ(db->first_lookup.size(), 1024u);
  std::set<cell> cells;
  for (const auto& images : db->first_lookup) {
    ASSERT_EQ(images.size(), 24u);
    for (const auto& p : images) {
      ASSERT_EQ(p.size(), 3u);
      cells.insert(cell_of(p, 64));
    }
  }
  EXPECT_EQ(cells.size(), 6u * 64 * 64);
  // Cell 0 lies in the corner of its quarter face, cell 1023 by the face centre.
  EXPECT_THAT(db->first_lookup[0][0], ::testing::ElementsAre(-63.0 / 64, -63.0 / 64, -1.0));
  EXPECT_THAT(db->first_lookup[1023][0], ::testing::ElementsAre(-1.0 / 64, -1.0 / 64, -1.0));
  // Image 20 is the same cell seen on the top face through x.
  EXPECT_THAT(db->first_lookup[1][20], ::testing::ElementsAre(1 - 3.0 / 64, -63.0 / 64, 1.0));
}

TEST_F(LookUpTableSet, ZRowsCoverTheSurfaceAndMirrorInZ) {
  ASSERT_EQ(db->cmprz_lookup.size(), 444u);
  std::set<cell> cells;
  for (const auto& row : db->cmprz_lookup) {
    ASSERT_EQ(row.size(), 8u);
    for (const auto& p : row) cells.insert(cell_of(p, 24));
  }
  EXPECT_EQ(cells.size(), 6u * 24 * 24);
  EXPECT_THAT(db->cmprz_lookup[0][0], ::testing::ElementsAre(-1.0 / 24, -1.0 / 24, -1.0));
  EXPECT_THAT(db->cmprz_lookup[366][0], ::testing::ElementsAre(-1.0 / 24, -1.0 / 24, 1.0));

  const auto& flip = db->cmprz_flip_z;
  ASSERT_EQ(flip.size(), 444u);
  for (std::size_t i = 0; i < 444; ++i) {
    ASSERT_LT(flip[i], 444u);
    ASSERT_EQ(flip[flip[i]], i) << i;
    for (std::size_t k = 0; k < 8; ++k) {
      ASSERT_TRUE(same_point(db->cmprz_lookup[flip[i]][k], mirror_z(db->cmprz_lookup[i][k]))) << i << " " << k;
    }
  }
}

// Cell c of an XY row stands for row c of cmprxy_lookup below 216 (bottom and
// the lower half of a y face), and for row c + 216 above (the lower half of an
// x face).
std::size_t xy_row(std::size_t c) { return c < 216 ? c : c + 216; }

TEST_F(LookUpTableSet, XYRowsCoverTheSurfaceAndTheMapsMoveCellsAsTheirNamesSay) {
  const auto& look = db->cmprxy_lookup;
  ASSERT_EQ(look.size(), 864u);
  std::set<cell> cells;
  for (const auto& row : look) {
    ASSERT_EQ(row.size(), 4u);
    for (const auto& p : row) cells.insert(cell_of(p, 24));
  }
  EXPECT_EQ(cells.size(), 6u * 24 * 24);
  for (const auto* map : {&db->cmprxy_flip_z, &db->cmprxy_flip_rows, &db->cmprxy_swap_xy, &db->cmprxy_swap_halves})
    ASSERT_EQ(map->size(), 288u);
  std::set<std::uint32_t> rows_image;
  for (std::size_t c = 0; c < 288; ++c) {
    SCOPED_TRACE(c);
    // Mirror in z: the map's value is a row of the lookup table itself.
    const std::uint32_t m = db->cmprxy_flip_z[c];
    ASSERT_LT(m, 864u);
    for (std::size_t k = 0; k < 4; ++k) ASSERT_TRUE(same_point(look[m][k], mirror_z(look[xy_row(c)][k])));
    // Swapping x and y.
    const std::size_t s = db->cmprxy_swap_xy[c];
    ASSERT_EQ(db->cmprxy_swap_xy[s], c);
    const point& p = look[xy_row(c)][0];
    ASSERT_TRUE(same_point(look[xy_row(s)][0], point{p[1], p[0], p[2]}));
    ASSERT_EQ(db->cmprxy_swap_halves[db->cmprxy_swap_halves[c]], c);
    ASSERT_NE(db->cmprxy_swap_halves[c], c);
    // Flipping the rows of the bottom quarter mirrors y about -1/2.
    const std::size_t f = db->cmprxy_flip_rows[c];
    ASSERT_LT(f, 288u);
    rows_image.insert(static_cast<std::uint32_t>(f));
    ASSERT_EQ(db->cmprxy_flip_rows[f], c);
    if (c < 144) {
      const point& q = look[f][0];
      ASSERT_EQ(q[0], p[0]);
      ASSERT_NEAR(q[1], -1 - p[1], 1e-15);
    }
  }
  EXPECT_EQ(rows_image.size(), 288u);
}

TEST(LookUpTables, RecomputingGivesExactSizesAndTheSameValues) {
  testing::log_capture log;
  auto db = std::make_unique<table_database>();
  db->init_look_up_tables();
  const auto first = db->first_lookup;
  const auto z = db->cmprz_lookup;
  const auto flip = db->cmprxy_flip_z;
  db->first_lookup.resize(3000);
  db->first_lookup[0][0].push_back(9.0);
  db->cmprz_lookup.clear();
  db->cmprxy_flip_z.assign(7, 5);
  db->cmprxy_swap_halves.resize(1000, 1);
  db->init_look_up_tables();
  EXPECT_EQ(db->first_lookup, first);
  EXPECT_EQ(db->cmprz_lookup, z);
  EXPECT_EQ(db->cmprxy_flip_z, flip);
  EXPECT_EQ(db->cmprxy_swap_halves.size(), 288u);
}

}  // namespace
}  // namespace torva
