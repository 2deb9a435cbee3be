#include "torva/tables/table_database.h"

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <memory>

#include "torva/tables/internal/test_table_files.h"
#include "torva_testing/log_capture.h"

namespace torva {
namespace {

using ::testing::HasSubstr;

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

struct MultipleTables : ::testing::Test {
  MultipleTables() {
    config.table_dir = dir.file("unused");
    config.table_dir_two = dir.file("two");  // no slash: one is added
    config.table_dir_multi = dir.file("multi") + "/";
    two = dir.file("two") + "/";
    multi = dir.file("multi") + "/";
  }
  testing::log_capture log;
  testing::temp_dir dir;
  testing::scoped_env home{"HOME", std::nullopt};
  configure config;
  std::string two, multi;
  std::unique_ptr<table_database> db = std::make_unique<table_database>();
};

TEST_F(MultipleTables, NothingBeyondTheFirstTableWhenTheRunNeedsNone) {
  const auto layers = stack_of({1, 2});
  // Mode 0; a walk scheme above 2; a short stack without force.
  config.table_mode = 0;
  db->load(config, layers, false);
  EXPECT_EQ(db->first_group.first_table[1023], 1.0);
  EXPECT_EQ(db->first_group.first_table[0], 1.09281e-06);
  config.table_mode = 2;
  config.walk_scheme = 3;
  db->load(config, layers, true);
  config.walk_scheme = 2;
  dielectric_layers short_stack = layers;
  short_stack.diels.resize(11);
  db->load(config, short_stack, false);
  EXPECT_TRUE(db->two_layer.groups.empty());
  EXPECT_TRUE(db->half_layer.order.empty());
  EXPECT_EQ(log.info(), "");
  EXPECT_EQ(log.error(), "");
}

TEST_F(MultipleTables, ModeOneWithTwoLayersLoadsSixFilesAndNoPathLine) {
  // Names written out in full: value 1 prints as "1", 2.5 as "2.5".
  using testing::write_marked;
  write_marked<two_layer_gft_is_table>(two + "Multiple/GFT/NumGFT_IS1_2.5_23.db", 11);
  write_marked<two_layer_gft_table>(two + "Multiple/GFT/NumGFT1_2.5_23.db", 11);
  write_marked<two_layer_wvt_is_table>(two + "Multiple/WVT/NumWVT_IS1_2.5_23.db", 11);
  write_marked<half_layer_gft_is_table>(two + "Multiple/GFT/hNumGFT_IS1_2.5_23.db", 12);
  write_marked<half_layer_gft_table>(two + "Multiple/GFT/hNumGFT1_2.5_23.db", 12);
  write_marked<half_layer_wvt_is_table>(two + "Multiple/WVT/hNumWVT_IS1_2.5_23.db", 12);
  config.table_mode = 1;
  db->load(config, stack_of({1, 2.5}), false);
  EXPECT_EQ(log.info(), "loading table: (1.000000000000, 2.500000000000)\n"
                        "loading table: (1.000000000000, 2.500000000000)\n");
  ASSERT_EQ(db->two_layer.order.size(), 1u);
  ASSERT_EQ(db->half_layer.order.size(), 1u);
  EXPECT_TRUE(testing::loaded_with(*db->two_layer.order[0], 11));
  EXPECT_TRUE(testing::loaded_with(*db->half_layer.order[0], 12));
  EXPECT_EQ(db->two_layer.order[0], &db->two_layer.groups.at(diel_tuple<2>{{1, 2.5}}));
  EXPECT_TRUE(db->three_layer.groups.empty());
}

TEST_F(MultipleTables, ModeTwoWithThreeLayersLoadsOneThreeLayerGroup) {
  testing::write_two_layer(two, 1, 2, 1);
  testing::write_two_layer(two, 2, 4, 2);
  testing::write_half_layer(two, 1, 2, 3);
  testing::write_half_layer(two, 2, 4, 4);
  testing::write_three_layer(multi, 1, 2, 4, 5);
  config.table_mode = 2;
  db->load(config, stack_of({1, 2, 4}), false);
  ASSERT_EQ(db->two_layer.order.size(), 2u);
  EXPECT_TRUE(testing::loaded_with(*db->two_layer.order[0], 1));
  EXPECT_TRUE(testing::loaded_with(*db->two_layer.order[1], 2));
  EXPECT_TRUE(testing::loaded_with(*db->half_layer.order[1], 4));
  ASSERT_EQ(db->three_layer.order.size(), 1u);
  EXPECT_TRUE(testing::loaded_with(*db->three_layer.order[0], 5));
  EXPECT_TRUE(db->four_layer.groups.empty());
  EXPECT_THAT(log.info(), HasSubstr("loading table: (1.000000000000, 2.000000000000, 4.000000000000)\n"));
  EXPECT_THAT(log.info(), ::testing::EndsWith("table_path:" + multi + "\n"));
  EXPECT_EQ(count_of(log.info(), "loading table: "), 5);
}

TEST_F(MultipleTables, ModeTwoWithFourLayersLoadsEveryRun) {
  for (double a : {1.0, 2.0, 4.0}) {
    testing::write_two_layer(two, a, a * 2, a);
    testing::write_half_layer(two, a, a * 2, a + 10);
  }
  testing::write_three_layer(multi, 1, 2, 4, 20);
  testing::write_three_layer(multi, 2, 4, 8, 21);
  testing::write_marked<four_layer_gft_table>(multi + "Multiple/GFT/NumGFT1_2_4_8_24.db", 30);
  config.table_mode = 7;  // any other mode is the full Multiple set
  db->load(config, stack_of({1, 2, 4, 8}), false);
  EXPECT_EQ(db->two_layer.order.size(), 3u);
  EXPECT_EQ(db->half_layer.order.size(), 3u);
  EXPECT_EQ(db->three_layer.order.size(), 2u);
  ASSERT_EQ(db->four_layer.order.size(), 1u);
  EXPECT_TRUE(testing::loaded_with(*db->three_layer.order[1], 21));
  EXPECT_TRUE(testing::loaded_with(*db->four_layer.order[0], 30));
  EXPECT_THAT(log.info(), HasSubstr("loading table: (1.000000000000, 2.000000000000, 4.000000000000, "
                                    "8.000000000000)\n"));
}

TEST_F(MultipleTables, RepeatingLayersLoadEachGroupOnce) {
  testing::write_two_layer(two, 3, 5, 35);
  testing::write_two_layer(two, 5, 3, 53);
  testing::write_half_layer(two, 3, 5, 35);
  testing::write_half_layer(two, 5, 3, 53);
  testing::write_three_layer(multi, 3, 5, 3, 353);
  testing::write_three_layer(multi, 5, 3, 5, 535);
  testing::write_four_layer(multi, 3, 5, 3, 5, 3535);
  testing::write_four_layer(multi, 5, 3, 5, 3, 5353);
  config.table_mode = 2;
  db->load(config, stack_of({3, 5, 3, 5, 3}), false);
  const auto& order = db->two_layer.order;
  ASSERT_EQ(order.size(), 4u);
  EXPECT_EQ(db->two_layer.groups.size(), 2u);
  EXPECT_EQ(order[0], order[2]);
  EXPECT_EQ(order[1], order[3]);
  EXPECT_NE(order[0], order[1]);
  EXPECT_TRUE(testing::loaded_with(*order[1], 53));
  ASSERT_EQ(db->three_layer.order.size(), 3u);
  EXPECT_EQ(db->three_layer.groups.size(), 2u);
  EXPECT_EQ(db->three_layer.order[0], db->three_layer.order[2]);
  ASSERT_EQ(db->four_layer.order.size(), 2u);
  EXPECT_TRUE(testing::loaded_with(*db->four_layer.order[1], 5353));
  // A group already in its store gives no second line.
  EXPECT_EQ(count_of(log.info(), "loading table: "), 2 + 2 + 2 + 2);
}

TEST_F(MultipleTables, OneLayerLoadsNothingButStillNamesThePath) {
  config.table_mode = 2;
  db->load(config, stack_of({4}), false);
  EXPECT_TRUE(db->two_layer.groups.empty());
  EXPECT_TRUE(db->three_layer.groups.empty());
  EXPECT_EQ(log.info(), "table_path:" + multi + "\n");
}

TEST_F(MultipleTables, EmptyStackWithForceHasNoInterfaces) {
  for (unsigned mode : {1u, 2u, 4u, 5u}) {
    config.table_mode = mode;
    db->load(config, dielectric_layers{}, true);
  }
  EXPECT_TRUE(db->two_layer.groups.empty());
  EXPECT_TRUE(db->half_layer.groups.empty());
  EXPECT_TRUE(db->four_layer.groups.empty());
  EXPECT_TRUE(db->pair_index.empty());
  EXPECT_EQ(log.error(), "");
}

TEST_F(MultipleTables, MissingFileStopsTheLoadAndLeavesThePartlyFilledGroup) {
  testing::write_marked<two_layer_gft_is_table>(two + "Multiple/GFT/NumGFT_IS1_2_23.db", 7);
  config.table_mode = 1;
  try {
    db->load(config, stack_of({1, 2}), false);
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

}  // namespace
}  // namespace torva
