#include "torva/tables/diel_tuple.h"

#include <gtest/gtest.h>

#include <vector>

#include "torva/tables/table_groups.h"

namespace torva {
namespace {

TEST(DielTuple, EqualityForgivesLessThanTheTolerance) {
  const diel_tuple<2> a{{1.0, 2.0}};
  EXPECT_EQ(a, (diel_tuple<2>{{1.0, 2.0 + 1e-11}}));
  EXPECT_EQ(a, (diel_tuple<2>{{1.0 - 9e-11, 2.0}}));
  EXPECT_NE(a, (diel_tuple<2>{{1.0, 2.0 + 1e-9}}));
  // The bound itself is not forgiven.
  EXPECT_NE((diel_tuple<2>{{0.0, 0.0}}), (diel_tuple<2>{{0.0, 1e-10}}));
  EXPECT_EQ((diel_tuple<2>{{0.0, 0.0}}), (diel_tuple<2>{{-0.0, 9.9e-11}}));
  // Every element counts, in order.
  EXPECT_NE((diel_tuple<4>{{1, 2, 3, 4}}), (diel_tuple<4>{{1, 2, 3, 5}}));
  EXPECT_NE((diel_tuple<3>{{1, 2, 3}}), (diel_tuple<3>{{3, 2, 1}}));
  const double nan = std::numeric_limits<double>::quiet_NaN();
  EXPECT_NE((diel_tuple<2>{{nan, 1}}), (diel_tuple<2>{{nan, 1}}));
}

TEST(DielTuple, HashTakesTheExactBits) {
  const sea::hash<diel_tuple<2>> h2;
  // The hash of 0.0 is 0, so an all-zero key leaves 5381 * 33 * 33.
  EXPECT_EQ(h2(diel_tuple<2>{{0.0, 0.0}}), 5381ul * 33 * 33);
  EXPECT_EQ(h2(diel_tuple<2>{{-0.0, 0.0}}), h2(diel_tuple<2>{{0.0, -0.0}}));
  EXPECT_EQ((sea::hash<diel_tuple<4>>{}(diel_tuple<4>{{0, 0, 0, 0}})), 5381ul * 33 * 33 * 33 * 33);
  EXPECT_NE(h2(diel_tuple<2>{{1.0, 2.0}}), h2(diel_tuple<2>{{2.0, 1.0}}));
  // Equal by tolerance, yet hashed apart: the accepted mismatch.
  const diel_tuple<2> a{{1.0, 2.0}}, b{{1.0, 2.0 + 1e-11}};
  EXPECT_EQ(a, b);
  EXPECT_NE(h2(a), h2(b));
}

TEST(GroupKinds, HoldTheirTablesAndNothingElse) {
  EXPECT_EQ(sizeof(two_layer_cube_group), 1117512u);
  EXPECT_EQ(sizeof(half_layer_cube_group), 55308u);
  EXPECT_EQ(sizeof(three_layer_cube_group), 3041940u);
  EXPECT_EQ(sizeof(four_layer_cube_group), 2280960u);
  EXPECT_EQ(sizeof(cmpr_equal_layer_cube_group), 5264u);
}

TEST(GroupDatabase, GroupsKeepTheirAddressAsTheStoreGrows) {
  group_database<cmpr_equal_layer_cube_group, 4> store;
  auto [first, inserted] = store.groups.try_emplace(diel_tuple<4>{{1, 1, 1, 1}});
  ASSERT_TRUE(inserted);
  // Fresh groups are zero.
  for (float v : first->second.gft_is_z) ASSERT_EQ(v, 0.0f);
  first->second.weights[0] = 3.0f;
  cmpr_equal_layer_cube_group* address = &first->second;
  for (int i = 0; i < 2000; ++i) store.groups.try_emplace(diel_tuple<4>{{1, 0.5, double(i), 2}});
  EXPECT_EQ(&store.groups.at(diel_tuple<4>{{1, 1, 1, 1}}), address);
  EXPECT_EQ(address->weights[0], 3.0f);
}

}  // namespace
}  // namespace torva
