// Loading the tables a dielectric stack needs: the Multiple family by runs of
// layers, and the approximate family by interface ratios on a grid.
#include "torva/tables/table_database.h"

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <array>
#include <cstdio>
#include <filesystem>
#include <memory>

#include "torva/tables/internal/test_table_files.h"
#include "torva/tables/table_loader.h"
#include "torva_testing/log_capture.h"

namespace torva {
namespace {

using ::testing::ElementsAre;
using ::testing::HasSubstr;
using testing::loaded_with;

// A stack of the given layers, with the five and six filler entries around it.
dielectric_layers stack_of(std::vector<double> layers) {
  dielectric_layers s;
  s.diels.assign(5, -7.0);
  s.diels.insert(s.diels.end(), layers.begin(), layers.end());
  s.diels.insert(s.diels.end(), 6, -7.0);
  s.layer_slots.assign(s.diels.size(), 0.0);
  return s;
}

int count_of(const std::string& text, const std::string& what) {
  int n = 0;
  for (auto at = text.find(what); at != std::string::npos; at = text.find(what, at + 1)) ++n;
  return n;
}

// The groups of `order`, one by one, came from the files of these markers.
template <class Order>
void expect_markers(const Order& order, const std::vector<double>& markers) {
  ASSERT_EQ(order.size(), markers.size());
  for (std::size_t p = 0; p < markers.size(); ++p) EXPECT_TRUE(loaded_with(*order[p], markers[p])) << "at " << p;
}

struct TableLoad : ::testing::Test {
  TableLoad() {
    config.table_dir = dir.file("unused");
    config.table_dir_two = dir.file("two");  // no slash: one is added
    config.table_dir_multi = multi;
  }
  void load(unsigned mode, std::vector<double> layers, bool force = false) {
    config.table_mode = mode;
    db->load(config, stack_of(std::move(layers)), force);
  }
  // The six files of a two-layer and a half-layer group under names spelled
  // out, "<stem><key>", with markers m and m + 100.
  void write_named_group(const std::string& key, double m) {
    using testing::write_marked;
    write_marked<two_layer_gft_is_table>(two + "Multiple/GFT/NumGFT_IS" + key, m);
    write_marked<two_layer_gft_table>(two + "Multiple/GFT/NumGFT" + key, m);
    write_marked<two_layer_wvt_is_table>(two + "Multiple/WVT/NumWVT_IS" + key, m);
    write_marked<half_layer_gft_is_table>(two + "Multiple/GFT/hNumGFT_IS" + key, m + 100);
    write_marked<half_layer_gft_table>(two + "Multiple/GFT/hNumGFT" + key, m + 100);
    write_marked<half_layer_wvt_is_table>(two + "Multiple/WVT/hNumWVT_IS" + key, m + 100);
  }

  testing::log_capture log;
  testing::temp_dir dir;
  testing::scoped_env home{"HOME", std::nullopt};
  configure config;
  const std::string two = dir.file("two") + "/", multi = dir.file("multi") + "/";
  std::unique_ptr<table_database> db = std::make_unique<table_database>();
};

// ---------------------------------------------------------------- Multiple

using MultipleTables = TableLoad;

TEST_F(MultipleTables, NothingBeyondTheFirstTableWhenTheRunNeedsNone) {
  // Mode 0; a walk scheme above 2; a short stack without force.
  load(0, {1, 2});
  EXPECT_EQ(db->first_group.first_table[1023], 1.0);
  EXPECT_EQ(db->first_group.first_table[0], 1.09281e-06);
  config.walk_scheme = 3;
  load(2, {1, 2}, true);
  config.walk_scheme = 2;
  dielectric_layers short_stack = stack_of({1, 2});
  short_stack.diels.resize(11);
  db->load(config, short_stack, false);
  EXPECT_TRUE(db->two_layer.groups.empty());
  EXPECT_TRUE(db->half_layer.order.empty());
  EXPECT_EQ(log.info(), "");
  EXPECT_EQ(log.error(), "");
}

TEST_F(MultipleTables, ModeOneWithTwoLayersLoadsSixFilesAndNoPathLine) {
  write_named_group("1_2.5_23.db", 11);  // value 1 prints as "1", 2.5 as "2.5"
  load(1, {1, 2.5});
  EXPECT_EQ(log.info(), "loading table: (1.000000000000, 2.500000000000)\n"
                        "loading table: (1.000000000000, 2.500000000000)\n");
  expect_markers(db->two_layer.order, {11});
  expect_markers(db->half_layer.order, {111});
  EXPECT_EQ(db->two_layer.order[0], &db->two_layer.groups.at(diel_tuple<2>{{1, 2.5}}));
  EXPECT_TRUE(db->three_layer.groups.empty());
}

TEST_F(MultipleTables, EveryRunIsLoadedAndARepeatedOneOnlyOnce) {
  testing::write_two_layer(two, 3, 5, 35);
  testing::write_two_layer(two, 5, 3, 53);
  testing::write_half_layer(two, 3, 5, 135);
  testing::write_half_layer(two, 5, 3, 153);
  testing::write_three_layer(multi, 3, 5, 3, 353);
  testing::write_three_layer(multi, 5, 3, 5, 535);
  testing::write_four_layer(multi, 3, 5, 3, 5, 3535);
  testing::write_four_layer(multi, 5, 3, 5, 3, 5353);
  for (unsigned mode : {2u, 7u}) {  // 7, as any mode but 0 to 5, is the full Multiple set too
    SCOPED_TRACE(mode);
    db = std::make_unique<table_database>();
    log.clear();
    load(mode, {3, 5, 3, 5, 3});
    expect_markers(db->two_layer.order, {35, 53, 35, 53});
    expect_markers(db->half_layer.order, {135, 153, 135, 153});
    expect_markers(db->three_layer.order, {353, 535, 353});
    expect_markers(db->four_layer.order, {3535, 5353});
    EXPECT_EQ(db->two_layer.groups.size(), 2u);
    EXPECT_EQ(db->three_layer.groups.size(), 2u);
    const std::string& info = log.info();
    EXPECT_THAT(info, HasSubstr("loading table: (3.000000000000, 5.000000000000, 3.000000000000)\n"));
    EXPECT_THAT(info, HasSubstr("loading table: (3.000000000000, 5.000000000000, 3.000000000000, 5.000000000000)\n"));
    // A group already in its store gives no second line; the path comes last.
    EXPECT_EQ(count_of(info, "loading table: "), 2 + 2 + 2 + 2);
    EXPECT_THAT(info, ::testing::EndsWith("table_path:" + multi + "\n"));
  }
}

TEST_F(MultipleTables, StacksWithoutAnInterfaceLoadNothing) {
  load(2, {4});
  EXPECT_EQ(log.info(), "table_path:" + multi + "\n");  // the path is still named
  log.clear();
  load(4, {2.0});
  EXPECT_EQ(log.info(), "in load_approx2\nin load_approx2\n");
  for (unsigned mode : {2u, 5u}) {  // one of each family
    config.table_mode = mode;
    db->load(config, dielectric_layers{}, true);
  }
  EXPECT_TRUE(db->two_layer.groups.empty());
  EXPECT_TRUE(db->half_layer.groups.empty());
  EXPECT_TRUE(db->three_layer.groups.empty());
  EXPECT_TRUE(db->four_layer.groups.empty());
  EXPECT_TRUE(db->pair_index.empty());
  EXPECT_EQ(log.error(), "");
}

TEST_F(MultipleTables, MissingFileStopsTheLoadAndLeavesThePartlyFilledGroup) {
  testing::write_marked<two_layer_gft_is_table>(two + "Multiple/GFT/NumGFT_IS1_2_23.db", 7);
  try {
    load(1, {1, 2});
    ADD_FAILURE() << "no failure";
  } catch (const sea::file_error& e) {
    EXPECT_STREQ(e.what(), "cannot open \"NumGFT1_2_23.db\", please register correct GFT/WVTs\n");
  }
  EXPECT_EQ(db->two_layer.groups.size(), 1u);
  EXPECT_TRUE(db->two_layer.order.empty());
  const auto& group = db->two_layer.groups.at(diel_tuple<2>{{1, 2}});
  EXPECT_EQ(group.gft_is[0], testing::marked_first<two_layer_gft_is_table>(7));
  EXPECT_EQ(group.gft[0], 0.0f);
}

TEST_F(MultipleTables, StackShorterThanItsSlotsIsRefused) {
  auto layers = stack_of({1, 2, 4});
  layers.diels.resize(7);  // slots speak of three layers, diels hold two
  config.table_mode = 2;
  EXPECT_THROW(db->load(config, layers, true), sea::fatal_error);
  EXPECT_EQ(log.error(), "ERROR: dielectric stack shorter than its layer slots.\n");
  EXPECT_TRUE(db->two_layer.groups.empty());
}

// ---------------------------------------------------------------- approximate

// The two ratio grids: 50 geometric steps of 50^(1/50) (mode 4), or 50
// additions of 0.02 (mode 5), from 0.02; the last entry is then set to 1.
using grid = std::array<double, 51>;
grid ratio_grid(unsigned mode) {
  grid g;
  g[0] = 0.02;
  for (int i = 1; i < 51; ++i) g[i] = mode == 4 ? g[i - 1] * 1.0813826568002933 : g[i - 1] + 0.02;
  g[50] = 1.0;
  return g;
}

struct ApproxTables : TableLoad {
  // Files of the grid groups (1, g[i]) with marker i, two-layer and half-layer.
  void write_grid_groups(const grid& g, std::initializer_list<int> indices) {
    for (int i : indices) {
      testing::write_two_layer(two, 1.0, g[i], i);
      testing::write_half_layer(two, 1.0, g[i], i + 100);
    }
  }
  const grid geometric = ratio_grid(4), linear = ratio_grid(5);
};

TEST_F(ApproxTables, GridsAreFilledByTheirMode) {
  write_grid_groups(geometric, {0, 1});
  load(4, {1.0, 0.0200001});
  for (int i = 0; i < 51; ++i) ASSERT_EQ(diel_ratios[i], geometric[i]) << i;
  char printed[32];
  std::snprintf(printed, sizeof printed, "%g", diel_ratios[1]);
  EXPECT_STREQ(printed, "0.0216277");
  write_grid_groups(linear, {0, 1});
  load(5, {1.0, 0.0200001});
  for (int i = 0; i < 51; ++i) ASSERT_EQ(diel_ratios[i], linear[i]) << i;
  // The additions overshoot: entry 49 stays one step in the last place above 1.
  EXPECT_EQ(diel_ratios[49], 1.0000000000000004);
  EXPECT_GT(diel_ratios[49], diel_ratios[50]);
}

TEST_F(ApproxTables, RatioJustAboveTheFloorTakesTheFirstBracket) {
  // The first two grid values print as 0.02 and 0.0216277.
  write_named_group("1_0.02_23.db", 0);
  write_named_group("1_0.0216277_23.db", 1);
  load(4, {1.0, 0.020000000001});
  EXPECT_THAT(db->pair_index, ElementsAre(0u, 0u));
  ASSERT_EQ(db->pair_weight.size(), 2u);
  EXPECT_GT(db->pair_weight[0], 0.0);
  EXPECT_LT(db->pair_weight[0], 1e-6);
  EXPECT_EQ(db->pair_weight[0], db->pair_weight[1]);
  expect_markers(db->two_layer.order, {0, 1});
  expect_markers(db->half_layer.order, {100, 101});
  EXPECT_EQ(db->two_layer.order[0], &db->two_layer.groups.at(diel_tuple<2>{{1.0, 0.02}}));
  EXPECT_EQ(db->two_layer.order[1], &db->two_layer.groups.at(diel_tuple<2>{{1.0, geometric[1]}}));
  EXPECT_EQ(log.info(), "in load_approx2\n"
                        "loading table: (1.000000000000, 0.020000000000)\n"
                        "loading table: (1.000000000000, 0.021627653136)\n"
                        "in load_approx2\n"
                        "loading table: (1.000000000000, 0.020000000000)\n"
                        "loading table: (1.000000000000, 0.021627653136)\n");
}

TEST_F(ApproxTables, RatioOnAGridPointIsTheUpperEndOfItsBracket) {
  write_grid_groups(geometric, {9, 10, 49, 50});
  load(4, {2.0, 2.0 * geometric[10], 2.0 * geometric[10]});  // g[10], then a ratio of 1
  EXPECT_THAT(db->pair_weight, ElementsAre(1.0, 1.0, 1.0, 1.0));
  expect_markers(db->two_layer.order, {9, 10, 49, 50});
  expect_markers(db->half_layer.order, {109, 110, 149, 150});
}

TEST_F(ApproxTables, RatioOfOneInTheLinearGridStopsAtEntry49) {
  // Entries 48 and 49 print as 0.98 and 1.
  write_named_group("1_0.98_23.db", 48);
  write_named_group("1_1_23.db", 49);
  load(5, {3.0, 3.0});
  ASSERT_EQ(db->pair_weight.size(), 2u);
  EXPECT_LT(db->pair_weight[0], 1.0);
  EXPECT_GT(db->pair_weight[0], 1.0 - 1e-12);
  expect_markers(db->two_layer.order, {48, 49});
  EXPECT_EQ(db->two_layer.order[1], &db->two_layer.groups.at(diel_tuple<2>{{1.0, 1.0000000000000004}}));
}

TEST_F(ApproxTables, BracketsAreSharedAndWeightsKept) {
  const grid& g = linear;
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
    const double weight = (ratio - g[lo[j]]) / (g[lo[j] + 1] - g[lo[j]]);
    expected.push_back(swapped ? -weight : weight);
  }
  expected.insert(expected.end(), expected.begin(), expected.end());
  EXPECT_THAT(db->pair_weight, ::testing::Pointwise(::testing::DoubleEq(), expected));
  EXPECT_LT(db->pair_weight[2], 0.0);
  EXPECT_NE(db->pair_weight[0], db->pair_weight[1]);
  // Both halves index the same positions: 0, 0 (shared bracket), 2, 4.
  EXPECT_THAT(db->pair_index, ElementsAre(0u, 0u, 2u, 4u, 0u, 0u, 2u, 4u));
  expect_markers(db->two_layer.order, {26, 27, 27, 28, 14, 15});
  expect_markers(db->half_layer.order, {126, 127, 127, 128, 114, 115});
  EXPECT_EQ(db->two_layer.groups.size(), 5u);
  EXPECT_EQ(db->two_layer.order[1], db->two_layer.order[2]);  // adjacent brackets share grid point 27
}

TEST_F(ApproxTables, RatioAtOrBelowTheFloorOrAMissingFileIsRefused) {
  write_grid_groups(geometric, {49, 50});
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
  EXPECT_THROW(load(4, {2.0, 2.0, 0.01}), sea::fatal_error);
  EXPECT_EQ(db->two_layer.groups.size(), 2u);
  EXPECT_EQ(db->two_layer.order.size(), 2u);
  EXPECT_TRUE(db->half_layer.groups.empty());
  // A grid group without its files.
  db = std::make_unique<table_database>();
  std::filesystem::remove_all(two);
  write_grid_groups(geometric, {49});
  log.clear();
  EXPECT_THROW(load(4, {1.0, 1.0}), sea::file_error);
  EXPECT_THAT(log.error(), HasSubstr("cannot open \"NumGFT_IS1_1_23.db\""));
}

TEST(ApproxLoader, UnfilledGridRefusesRatherThanReadingOutside) {
  testing::log_capture log;
  std::array<double, 51> keep;
  std::copy(diel_ratios, diel_ratios + 51, keep.begin());
  std::fill(diel_ratios, diel_ratios + 51, 0.0);
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
