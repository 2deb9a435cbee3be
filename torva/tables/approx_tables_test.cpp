#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <array>
#include <cstdio>
#include <memory>

#include "torva/tables/internal/test_table_files.h"
#include "torva/tables/table_database.h"
#include "torva/tables/table_loader.h"
#include "torva_testing/log_capture.h"

namespace torva {
namespace {

using grid = std::array<double, 51>;

// The two ratio grids: 50 geometric steps of 50^(1/50), or 50 additions of
// 0.02, from 0.02; the last entry is then set to 1.
grid geometric() {
  grid g;
  g[0] = 0.02;
  for (int i = 1; i < 51; ++i) g[i] = g[i - 1] * 1.0813826568002933;
  g[50] = 1.0;
  return g;
}

grid linear() {
  grid g;
  g[0] = 0.02;
  for (int i = 1; i < 51; ++i) g[i] = g[i - 1] + 0.02;
  g[50] = 1.0;
  return g;
}

dielectric_layers stack_of(std::vector<double> layers) {
  dielectric_layers s;
  s.diels.assign(5, 0.0);
  s.diels.insert(s.diels.end(), layers.begin(), layers.end());
  s.diels.insert(s.diels.end(), 6, 0.0);
  s.layer_slots.assign(s.diels.size(), 0.0);
  return s;
}

struct ApproxTables : ::testing::Test {
  ApproxTables() {
    config.table_dir_two = dir.file("approx");
    prefix = config.table_dir_two + "/";
  }
  // Files of the grid groups (1, g[i]) with marker i, two-layer and half-layer.
  void write_grid_groups(const grid& g, std::initializer_list<int> indices) {
    for (int i : indices) {
      testing::write_two_layer(prefix, 1.0, g[i], i);
      testing::write_half_layer(prefix, 1.0, g[i], i + 100);
    }
  }
  void load(unsigned mode, std::vector<double> layers) {
    config.table_mode = mode;
    db->load(config, stack_of(std::move(layers)), false);
  }
  // The same, under names spelled out: "1_<v>_23.db".
  void write_named_group(const char* v, double m) {
    using testing::write_marked;
    const std::string key = std::string("1_") + v + "_23.db";
    write_marked<two_layer_gft_is_table>(prefix + "Multiple/GFT/NumGFT_IS" + key, m);
    write_marked<two_layer_gft_table>(prefix + "Multiple/GFT/NumGFT" + key, m);
    write_marked<two_layer_wvt_is_table>(prefix + "Multiple/WVT/NumWVT_IS" + key, m);
    write_marked<half_layer_gft_is_table>(prefix + "Multiple/GFT/hNumGFT_IS" + key, m + 100);
    write_marked<half_layer_gft_table>(prefix + "Multiple/GFT/hNumGFT" + key, m + 100);
    write_marked<half_layer_wvt_is_table>(prefix + "Multiple/WVT/hNumWVT_IS" + key, m + 100);
  }
  double weight(const grid& g, int lo, double ratio) { return (ratio - g[lo]) / (g[lo + 1] - g[lo]); }

  testing::log_capture log;
  testing::temp_dir dir;
  testing::scoped_env home{"HOME", std::nullopt};
  configure config;
  std::string prefix;
  std::unique_ptr<table_database> db = std::make_unique<table_database>();
};

TEST_F(ApproxTables, GridsAreFilledByTheirMode) {
  write_grid_groups(geometric(), {0, 1});
  load(4, {1.0, 0.0200001});
  for (int i = 0; i < 51; ++i) ASSERT_EQ(diel_ratios[i], geometric()[i]) << i;
  char printed[32];
  std::snprintf(printed, sizeof printed, "%g", diel_ratios[1]);
  EXPECT_STREQ(printed, "0.0216277");
  write_grid_groups(linear(), {0, 1});
  load(5, {1.0, 0.0200001});
  for (int i = 0; i < 51; ++i) ASSERT_EQ(diel_ratios[i], linear()[i]) << i;
  // The additions overshoot: entry 49 stays one step in the last place above 1.
  EXPECT_EQ(diel_ratios[49], 1.0000000000000004);
  EXPECT_GT(diel_ratios[49], diel_ratios[50]);
}

TEST_F(ApproxTables, RatioJustAboveTheFloorTakesTheFirstBracket) {
  // The first two grid values print as 0.02 and 0.0216277.
  write_named_group("0.02", 0);
  write_named_group("0.0216277", 1);
  load(4, {1.0, 0.020000000001});
  EXPECT_THAT(db->pair_index, ::testing::ElementsAre(0u, 0u));
  ASSERT_EQ(db->pair_weight.size(), 2u);
  EXPECT_GT(db->pair_weight[0], 0.0);
  EXPECT_LT(db->pair_weight[0], 1e-6);
  EXPECT_EQ(db->pair_weight[0], db->pair_weight[1]);
  ASSERT_EQ(db->two_layer.order.size(), 2u);
  EXPECT_EQ(db->two_layer.order[0], &db->two_layer.groups.at(diel_tuple<2>{{1.0, 0.02}}));
  EXPECT_EQ(db->two_layer.order[1], &db->two_layer.groups.at(diel_tuple<2>{{1.0, geometric()[1]}}));
  EXPECT_TRUE(testing::loaded_with(*db->two_layer.order[1], 1));
  EXPECT_TRUE(testing::loaded_with(*db->half_layer.order[0], 100));
  EXPECT_EQ(log.info(), "in load_approx2\n"
                        "loading table: (1.000000000000, 0.020000000000)\n"
                        "loading table: (1.000000000000, 0.021627653136)\n"
                        "in load_approx2\n"
                        "loading table: (1.000000000000, 0.020000000000)\n"
                        "loading table: (1.000000000000, 0.021627653136)\n");
}

TEST_F(ApproxTables, RatioOnAGridPointIsTheUpperEndOfItsBracket) {
  const grid g = geometric();
  write_grid_groups(g, {9, 10});
  load(4, {2.0, 2.0 * g[10]});
  ASSERT_EQ(db->pair_weight.size(), 2u);
  EXPECT_EQ(db->pair_weight[0], 1.0);
  EXPECT_TRUE(testing::loaded_with(*db->two_layer.order[0], 9));
  EXPECT_TRUE(testing::loaded_with(*db->two_layer.order[1], 10));
  EXPECT_TRUE(testing::loaded_with(*db->half_layer.order[1], 110));
}

TEST_F(ApproxTables, RatioOfOneInTheGeometricGrid) {
  const grid g = geometric();
  write_grid_groups(g, {49, 50});
  load(4, {3.0, 3.0});
  EXPECT_THAT(db->pair_weight, ::testing::ElementsAre(1.0, 1.0));
  ASSERT_EQ(db->two_layer.order.size(), 2u);
  EXPECT_TRUE(testing::loaded_with(*db->two_layer.order[0], 49));
  EXPECT_TRUE(testing::loaded_with(*db->two_layer.order[1], 50));
}

TEST_F(ApproxTables, RatioOfOneInTheLinearGridStopsAtEntry49) {
  // Entries 48 and 49 print as 0.98 and 1.
  write_named_group("0.98", 48);
  write_named_group("1", 49);
  load(5, {3.0, 3.0});
  ASSERT_EQ(db->pair_weight.size(), 2u);
  EXPECT_LT(db->pair_weight[0], 1.0);
  EXPECT_GT(db->pair_weight[0], 1.0 - 1e-12);
  ASSERT_EQ(db->two_layer.order.size(), 2u);
  EXPECT_TRUE(testing::loaded_with(*db->two_layer.order[0], 48));
  EXPECT_TRUE(testing::loaded_with(*db->two_layer.order[1], 49));
  EXPECT_EQ(db->two_layer.order[1], &db->two_layer.groups.at(diel_tuple<2>{{1.0, 1.0000000000000004}}));
}

TEST_F(ApproxTables, BracketsAreSharedAndWeightsKept) {
  const grid g = linear();
  // Ratios 0.545 and 0.555 fall in one bracket (0.54, 0.56), the swapped
  // 1 / 0.57 in the next (0.56, 0.58), 0.31 in (0.30, 0.32).
  const std::vector<double> layers = {1.0, 0.545, 0.545 * 0.555, 0.545 * 0.555 / 0.57, 0.545 * 0.555 / 0.57 * 0.31};
  write_grid_groups(g, {26, 27, 28, 14, 15});
  load(5, layers);
  std::vector<double> expected;
  const int lo[] = {26, 26, 27, 14};
  for (int j = 0; j < 4; ++j) {
    double ratio = layers[j + 1] / layers[j];
    const bool swapped = ratio > 1.0;
    if (swapped) ratio = 1.0 / ratio;
    ASSERT_GT(ratio, g[lo[j]]);
    ASSERT_LE(ratio, g[lo[j] + 1]);
    expected.push_back(swapped ? -weight(g, lo[j], ratio) : weight(g, lo[j], ratio));
  }
  expected.insert(expected.end(), expected.begin(), expected.end());
  EXPECT_THAT(db->pair_weight, ::testing::Pointwise(::testing::DoubleEq(), expected));
  EXPECT_LT(db->pair_weight[2], 0.0);
  EXPECT_NE(db->pair_weight[0], db->pair_weight[1]);
  // Both halves index the same positions: 0, 0 (shared bracket), 2, 4.
  EXPECT_THAT(db->pair_index, ::testing::ElementsAre(0u, 0u, 2u, 4u, 0u, 0u, 2u, 4u));
  const auto& order = db->two_layer.order;
  ASSERT_EQ(order.size(), 6u);
  EXPECT_EQ(db->two_layer.groups.size(), 5u);
  EXPECT_EQ(order[1], order[2]);  // adjacent brackets share grid point 27
  const int marker[] = {26, 27, 27, 28, 14, 15};
  for (int p = 0; p < 6; ++p) EXPECT_TRUE(testing::loaded_with(*order[p], marker[p])) << p;
  for (int p = 0; p < 6; ++p) EXPECT_TRUE(testing::loaded_with(*db->half_layer.order[p], marker[p] + 100)) << p;
}

TEST_F(ApproxTables, RatioAtOrBelowTheFloorIsRefused) {
  const grid g = geometric();
  write_grid_groups(g, {49, 50});
  const std::vector<std::vector<double>> refused = {
      {1.0, 0.02}, {0.02, 1.0}, {1.0, 0.001}, {1.0, 0.0}, {0.0, 1.0}, {0.0, 0.0}, {1.0, -2.0}};
  for (const auto& layers : refused) {
    SCOPED_TRACE(::testing::Message() << layers[0] << " " << layers[1]);
    log.clear();
    try {
      load(4, layers);
      ADD_FAILURE() << "accepted";
    } catch (const sea::fatal_error& e) {
      EXPECT_STREQ(e.what(), "SYSTEM ERROR. \n");
    }
    EXPECT_EQ(log.error(), "ERROR: diel ratio not supported.\n");
  }
  EXPECT_TRUE(db->pair_weight.empty());
  // What was loaded before the refusal stays.
  log.clear();
  EXPECT_THROW(load(4, {2.0, 2.0, 0.01}), sea::fatal_error);
  EXPECT_EQ(db->two_layer.groups.size(), 2u);
  EXPECT_EQ(db->two_layer.order.size(), 2u);
  EXPECT_TRUE(db->half_layer.groups.empty());
}

TEST_F(ApproxTables, OneLayerHasNoInterface) {
  load(4, {2.0});
  EXPECT_EQ(log.info(), "in load_approx2\nin load_approx2\n");
  EXPECT_TRUE(db->pair_index.empty());
  EXPECT_TRUE(db->two_layer.groups.empty());
}

TEST_F(ApproxTables, MissingGridFileIsAFileFailure) {
  write_grid_groups(geometric(), {49});
  EXPECT_THROW(load(4, {1.0, 1.0}), sea::file_error);
  EXPECT_THAT(log.error(), ::testing::HasSubstr("cannot open \"NumGFT_IS1_1_23.db\""));
}

TEST(ApproxLoader, UnfilledGridRefusesRatherThanReadingOutside) {
  testing::log_capture log;
  const double saved[51] = {};
  std::array<double, 51> keep;
  std::copy(diel_ratios, diel_ratios + 51, keep.begin());
  std::copy(saved, saved + 51, diel_ratios);
  const auto layers = stack_of({1.0, 0.5});
  std::vector<unsigned long> index;
  std::vector<double> weight;
  table_loader loader(&layers, &index, &weight);
  auto store = std::make_unique<two_layer_database>();
  EXPECT_THROW(loader.load_approx2(*store, "/nowhere/"), sea::fatal_error);
  std::copy(keep.begin(), keep.end(), diel_ratios);
  EXPECT_TRUE(store->groups.empty());
}

}  // namespace
}  // namespace torva
