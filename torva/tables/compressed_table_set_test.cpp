#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <filesystem>
#include <memory>

#include "torva/tables/internal/test_table_files.h"
#include "torva/tables/table_database.h"
#include "torva/tables/table_loader.h"
#include "torva_testing/log_capture.h"

namespace torva {
namespace {

constexpr std::size_t rows = 13718;

// Row r of every file: the first element marks the row (r + 1, or 2 (r + 1)
// for XY_B so that the two XY files can't be confused), the rest are 1. The
// weights are -(r + 1) and r + 0.5.
double first_of(const char* file, std::size_t r) {
  return std::string(file) == "GFT/NumGFT_IS_XY_B.db" ? 2.0 * double(r + 1) : double(r + 1);
}

void write_compressed(const std::string& path, const char* file, std::size_t size) {
  std::filesystem::create_directories(std::filesystem::path(path).parent_path());
  FILE* f = std::fopen(path.c_str(), "wb");
  ASSERT_NE(f, nullptr);
  std::vector<unsigned char> record(36 + 4 * size);
  for (std::size_t r = 0; r < rows; ++r) {
    for (std::size_t i = 0; i < 36; ++i) record[i] = static_cast<unsigned char>(r + i);
    for (std::size_t c = 0; c < size; ++c) {
      float v = c == 0 ? float(first_of(file, r)) : 1.0f;
      if (size == 2) v = c == 0 ? -float(r + 1) : float(r) + 0.5f;
      std::memcpy(record.data() + 36 + 4 * c, &v, 4);
    }
    ASSERT_EQ(std::fwrite(record.data(), 1, record.size(), f), record.size());
  }
  std::fclose(f);
}

// Loads the compressed set under `root` (mode 3) into `db`.
void load_equal(table_database& db, const std::string& root, bool force) {
  configure config;
  config.table_mode = 3;
  config.table_dir_equal = root;
  db.load(config, dielectric_layers{}, force);
}

const std::pair<const char*, std::size_t> files[] = {
    {"GFT/NumGFT_A.db", 150},       {"GFT/NumGFT_B.db", 144},       {"GFT/NumGFT_IS_Z.db", 444},
    {"GFT/NumGFT_IS_XY_A.db", 288}, {"GFT/NumGFT_IS_XY_B.db", 288}, {"WVT/NumWVT_IS.db", 2}};

// The set (about 75 MB of files) is written once and loaded once for the
// whole suite.
struct CompressedSet : ::testing::Test {
  static void SetUpTestSuite() {
    dir = std::make_unique<testing::temp_dir>();
    for (auto [file, size] : files) write_compressed(dir->file("equal/Approx4equal/") + file, file, size);
    testing::log_capture log;
    db = std::make_unique<table_database>();
    load_equal(*db, dir->file("equal"), true);
    info = log.info();
  }
  static void TearDownTestSuite() {
    db.reset();
    dir.reset();
  }
  // The row whose contents a group of row `row` holds: rows of the second
  // half with a first value of 1 repeat a key of the first half.
  static std::size_t source_of(std::size_t row) { return row >= 6859 && (row - 6859) / 361 == 18 ? row - 6859 : row; }

  static std::unique_ptr<testing::temp_dir> dir;
  static std::unique_ptr<table_database> db;
  static std::string info;
};
std::unique_ptr<testing::temp_dir> CompressedSet::dir;
std::unique_ptr<table_database> CompressedSet::db;
std::string CompressedSet::info;

TEST_F(CompressedSet, SpreadsTheRowsOverTheGroupsOfTheGrid) {
  EXPECT_EQ(info, "in load_approxc\ncmprz\ncmprxy\nfinish\n");
  const auto& store = db->cmpr_equal_layer;
  EXPECT_EQ(store.groups.size(), 13357u);
  EXPECT_EQ(store.order.size(), rows);
  EXPECT_EQ(db->mix.size(), rows);
  EXPECT_EQ(db->b_totals.size(), rows);
  EXPECT_EQ(db->xy_b_totals.size(), rows);
  EXPECT_EQ(db->first_lookup.size(), 1024u);
  EXPECT_EQ(db->cmprxy_swap_halves.size(), 288u);
  // Keys by row number: (1, r[j], r[k], r[l]), then (r[j], 1, r[k], r[l]).
  double r[19];
  for (int i = 0; i < 19; ++i) r[i] = 0.1 + 0.05 * i;
  const auto key_of = [&](std::size_t row) {
    const std::size_t pos = row / 6859, j = row / 361 % 19, k = row / 19 % 19, l = row % 19;
    return pos == 0 ? diel_tuple<4>{{1.0, r[j], r[k], r[l]}} : diel_tuple<4>{{r[j], 1.0, r[k], r[l]}};
  };
  for (std::size_t row : {0ul, 1ul, 400ul, 6858ul, 6859ul, 10000ul, 13717ul}) {
    SCOPED_TRACE(row);
    const auto it = store.groups.find(key_of(row));
    ASSERT_NE(it, store.groups.end());
    EXPECT_EQ(store.order[row], &it->second);
  }
}

TEST_F(CompressedSet, EveryGroupHoldsTheFinishedRowsOfItsFirstUse) {
  const auto& order = db->cmpr_equal_layer.order;
  for (std::size_t row = 0; row < rows; ++row) {
    const std::size_t src = source_of(row);
    const cmpr_equal_layer_cube_group& g = *order[row];
    const float n = float(src + 1);
    ASSERT_EQ(g.gft_a[0], n / float(src + 150)) << row;
    ASSERT_EQ(g.gft_b[0], n / float(src + 144)) << row;
    ASSERT_EQ(g.gft_is_z[0], n / float(src + 444)) << row;
    ASSERT_EQ(g.gft_is_xy_a[0], n / float(src + 288)) << row;
    ASSERT_EQ(g.gft_is_xy_b[0], 2 * n / float(2 * (src + 1) + 287)) << row;
    ASSERT_EQ(g.gft_is_xy_b[286], float(2 * (src + 1) + 286) / float(2 * (src + 1) + 287)) << row;
    ASSERT_EQ(g.gft_a[149], 1.0f);
    ASSERT_EQ(g.gft_b[143], 1.0f);
    ASSERT_EQ(g.gft_is_z[443], 1.0f);
    ASSERT_EQ(g.gft_is_xy_a[287], 1.0f);
    ASSERT_EQ(g.gft_is_xy_b[287], 1.0f);
    // Weights lose their sign.
    ASSERT_EQ(g.weights[0], n) << row;
    ASSERT_EQ(g.weights[1], float(src) + 0.5f) << row;
  }
}

TEST_F(CompressedSet, ShadowedRowsStillCountInTheRowVectors) {
  // Row 13400 lies in the second half with a first value of 1: its group is
  // that of row 6541, but its totals are its own.
  ASSERT_EQ(source_of(13400), 6541u);
  EXPECT_EQ(db->cmpr_equal_layer.order[13400], db->cmpr_equal_layer.order[6541]);
  for (std::size_t row : {0ul, 6541ul, 13400ul, 13717ul}) {
    EXPECT_EQ(db->b_totals[row], double(float(row + 144) * 8.0f)) << row;
    EXPECT_EQ(db->xy_b_totals[row], double(float(2 * (row + 1) + 287) * 4.0f)) << row;
  }
}

TEST_F(CompressedSet, MixIsTheShareOfTheUpperPair) {
  // Key (1, 1, 1, 1) is row 6858: both pairs in series give 1/2.
  EXPECT_EQ(db->mix[6858], 0.5);
  EXPECT_EQ(db->mix[6858 + 6859], 0.5);
  // Key (1, 0.1, 0.1, 0.1), row 0: s01 = 0.1 / 1.1, s23 = 0.05.
  EXPECT_NEAR(db->mix[0], (0.1 / 1.1) / (0.1 / 1.1 + 0.05), 1e-15);
  // Key (0.1, 1, 1, 0.1), row 6859 + 18 * 19: the pairs are alike.
  EXPECT_NEAR(db->mix[6859 + 18 * 19], 0.5, 1e-15);
  for (double m : db->mix) {
    ASSERT_GT(m, 0.0);
    ASSERT_LT(m, 1.0);
  }
}

TEST_F(CompressedSet, NothingWithoutForceAndNoGroupFromAShortOrMissingFile) {
  testing::log_capture log;
  table_database other;
  load_equal(other, dir->file("equal"), false);  // an empty stack needs no tables
  EXPECT_TRUE(other.cmpr_equal_layer.groups.empty());
  EXPECT_TRUE(other.first_lookup.empty());
  EXPECT_EQ(log.info(), "");
  // The five good files linked, the weights one record short.
  const std::string broken = dir->file("broken/");
  for (auto [file, size] : files) {
    const std::string to = broken + "Approx4equal/" + file;
    std::filesystem::create_directories(std::filesystem::path(to).parent_path());
    if (size != 2) std::filesystem::create_symlink(dir->file("equal/Approx4equal/") + file, to);
  }
  std::vector<unsigned char> short_file((rows - 1) * 44, 0);
  testing::write_bytes(broken + "Approx4equal/WVT/NumWVT_IS.db", short_file.data(), short_file.size());
  try {
    load_equal(other, broken, true);
    ADD_FAILURE() << "accepted";
  } catch (const sea::file_error& e) {
    EXPECT_STREQ(e.what(), "SYSTEM ERROR. \n");
  }
  EXPECT_EQ(log.error(), "ERROR: incorrect table file size.\n");
  EXPECT_TRUE(other.cmpr_equal_layer.groups.empty());
  EXPECT_TRUE(other.b_totals.empty());
  EXPECT_TRUE(other.mix.empty());
  // A missing file names itself.
  log.clear();
  std::filesystem::remove(broken + "Approx4equal/GFT/NumGFT_IS_Z.db");
  EXPECT_THROW(load_equal(other, broken, true), sea::file_error);
  EXPECT_EQ(log.error(), "ERROR: cannot open \"NumGFT_IS_Z.db\", please register correct GFT/WVTs\n");
}

}  // namespace
}  // namespace torva
