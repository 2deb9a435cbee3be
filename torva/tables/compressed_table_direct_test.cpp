#include <gtest/gtest.h>

#include <cmath>
#include <cstring>
#include <filesystem>
#include <memory>
#include <random>
#include <unordered_map>
#include <vector>

#include "torva/tables/internal/compressed_set.h"
#include "torva/tables/internal/test_table_files.h"
#include "torva_testing/log_capture.h"

namespace torva {
namespace {

using internal::compressed_files;
using internal::compressed_rows;

// A set of random rows, with the awkward values a reader must carry through
// bit for bit: negative entries, a row of zeros (its distribution is NaN),
// denormals and a NaN.
struct RandomSet : ::testing::Test {
  static void SetUpTestSuite() {
    dir = std::make_unique<testing::temp_dir>();
    std::mt19937 rng(5);
    std::uniform_real_distribution<float> u(-0.2f, 1.0f);
    for (const auto& file : compressed_files) {
      const std::size_t record = 36 + 4 * file.row_size;
      std::vector<unsigned char> bytes(compressed_rows * record);
      for (std::size_t r = 0; r < compressed_rows; ++r) {
        for (std::size_t c = 0; c < file.row_size; ++c) {
          float v = r == 7 ? 0.0f : u(rng);
          if (r == 11 && c == 1) v = 1e-40f;
          if (r == 12 && c == 0) v = std::nanf("");
          std::memcpy(bytes.data() + r * record + 36 + 4 * c, &v, 4);
        }
      }
      testing::write_bytes(prefix() + file.name, bytes.data(), bytes.size());
    }
  }
  static void TearDownTestSuite() { dir.reset(); }
  static std::string prefix() { return dir->file("Approx4equal/"); }

  static std::unique_ptr<testing::temp_dir> dir;
};
std::unique_ptr<testing::temp_dir> RandomSet::dir;

struct loaded {
  table_loader loader{nullptr, nullptr, nullptr};
  std::unique_ptr<cmpr_equal_layer_database> store = std::make_unique<cmpr_equal_layer_database>();
};

template <class T>
void expect_same_bits(const std::vector<T>& a, const std::vector<T>& b, const char* what) {
  ASSERT_EQ(a.size(), b.size()) << what;
  EXPECT_EQ(std::memcmp(a.data(), b.data(), a.size() * sizeof(T)), 0) << what;
}

// Same groups under the same keys with the same bits, the same pattern of
// uses in `order`, and the same row vectors.
void expect_same(const loaded& a, const loaded& b) {
  ASSERT_EQ(a.store->groups.size(), b.store->groups.size());
  for (const auto& [key, group] : a.store->groups) {
    const auto it = b.store->groups.find(key);
    ASSERT_NE(it, b.store->groups.end());
    ASSERT_EQ(std::memcmp(&group, &it->second, sizeof group), 0);
  }
  const auto& x = a.store->order;
  const auto& y = b.store->order;
  ASSERT_EQ(x.size(), y.size());
  std::unordered_map<const void*, std::size_t> first_x, first_y;
  for (std::size_t i = 0; i < x.size(); ++i) {
    ASSERT_EQ(std::memcmp(x[i], y[i], sizeof *x[i]), 0) << "use " << i;
    // Each use names the group of the same first use in both.
    ASSERT_EQ(first_x.try_emplace(x[i], i).first->second, first_y.try_emplace(y[i], i).first->second) << "use " << i;
  }
  expect_same_bits(a.loader.mix, b.loader.mix, "mix");
  expect_same_bits(a.loader.b_totals, b.loader.b_totals, "b_totals");
  expect_same_bits(a.loader.xy_b_totals, b.loader.xy_b_totals, "xy_b_totals");
}

TEST_F(RandomSet, DirectReadingGivesTheStagedGroupsBitForBit) {
  loaded staged;
  internal::load_compressed_staged(staged.loader, *staged.store, prefix());
  EXPECT_EQ(staged.store->groups.size(), 13357u);
  loaded direct[2];  // on two threads, and on this one alone
  for (int threaded : {1, 0}) {
    SCOPED_TRACE(threaded ? "threaded" : "one thread");
    ASSERT_TRUE(internal::load_compressed_direct(direct[threaded].loader, *direct[threaded].store, prefix(), threaded));
    expect_same(staged, direct[threaded]);
    EXPECT_EQ(direct[threaded].loader.raw_a, nullptr);
  }
  // A second load into the same stores makes no group, and appends a use and
  // the row vectors for every row.
  internal::load_compressed_staged(staged.loader, *staged.store, prefix());
  for (int threaded : {1, 0}) {
    SCOPED_TRACE(threaded ? "threaded, again" : "one thread, again");
    ASSERT_TRUE(internal::load_compressed_direct(direct[threaded].loader, *direct[threaded].store, prefix(), threaded));
    EXPECT_EQ(direct[threaded].store->order.size(), 2 * compressed_rows);
    expect_same(staged, direct[threaded]);
  }
}

TEST_F(RandomSet, DirectReadingDeclinesAFileNotOfItsLengthAndTouchesNothing) {
  testing::temp_dir other;
  const std::string to = other.file("Approx4equal/");
  for (const auto& file : compressed_files) {
    std::filesystem::create_directories(std::filesystem::path(to + file.name).parent_path());
    std::filesystem::copy_file(prefix() + file.name, to + file.name);
  }
  std::filesystem::resize_file(to + compressed_files[4].name, 1188 * (compressed_rows - 1));
  loaded direct;
  direct.loader.mix = {0.25};
  EXPECT_FALSE(internal::load_compressed_direct(direct.loader, *direct.store, to, true));
  EXPECT_TRUE(direct.store->groups.empty());
  EXPECT_TRUE(direct.store->order.empty());
  EXPECT_EQ(direct.loader.mix, std::vector<double>{0.25});
  EXPECT_TRUE(direct.loader.b_totals.empty());
}

}  // namespace
}  // namespace torva
