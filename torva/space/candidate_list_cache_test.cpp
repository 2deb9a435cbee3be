// The cache at its edges: the scope at a point, the match test, the answer of
// an empty list, the on-conductor answer, ties and the reach. Answers on
// random layouts are in candidate_list_exactness_test.cpp.
#include "torva/space/candidate_list_cache.h"

#include <gtest/gtest.h>

#include "torva_testing/random_layout.h"

namespace torva {
namespace {

using namespace torva::testing;

// A list around the unit cube at the origin with the given scope.
candidate_list make_list(double scope, std::int64_t kind = spacemgr_all, const configure& config = configure{}) {
  candidate_list list;
  list.initialize(config, cube_at(0, 0, 0, 1), scope);
  list.kind = kind;
  return list;
}

nearest_result ask(const candidate_list& list, const point3& p, double limit) {
  candidate_list_cache cache;
  cache.list = &list;
  cache.get_scope(p);
  return cache.nearest(p, limit);
}

TEST(CandidateListCacheScope, ScopeGrowsWithTheDepthOfThePointInsideTheCube) {
  candidate_list list = make_list(2.0);
  candidate_list_cache cache;
  cache.list = &list;
  // Deeper inside the cube the scope grows by the depth; outside it shrinks,
  // and may go negative.
  const std::pair<point3, double> rows[] = {{p3(0, 0, 0), 3.0},         {p3(0.5, -0.25, 0.1), 2.5},
                                            {p3(0.1, 0.2, -0.9), 2.1}, {p3(1, 0, 0), 2.0},
                                            {p3(3, 0, 0), 0.0},         {p3(0, -4, 0), -1.0}};
  for (const auto& [p, scope] : rows) {
    EXPECT_DOUBLE_EQ(cache.get_scope(p).value, scope);
    EXPECT_DOUBLE_EQ(cache.scope.value, scope);
  }
  // Offsets within the tolerance count as zero: about a point cube the scope
  // is the scope bound less the offset.
  list.cube = cube_at(1, 1, 1, 0.0);
  EXPECT_EQ(cache.get_scope(p3(1 + 5e-11, 1 - 5e-11, 1)).value, 2.0);
  EXPECT_NE(cache.get_scope(p3(1 + 2e-10, 1, 1)).value, 2.0);
}

TEST(CandidateListCacheScope, MatchHoldsOnTheCubeBoundaryAndNotBeyondTheTolerance) {
  candidate_list_cache fresh;
  EXPECT_FALSE(fresh.match(p3(0, 0, 0)));  // no list yet
  candidate_list list = make_list(2.0);
  candidate_list_cache cache;
  cache.list = &list;
  EXPECT_TRUE(cache.match(p3(0.3, 0.2, 0.1)));
  EXPECT_DOUBLE_EQ(cache.scope.value, 2.7);
  EXPECT_TRUE(cache.match(p3(1, 0, 0)));
  EXPECT_TRUE(cache.match(p3(-1, 1, -1)));
  EXPECT_TRUE(cache.match(p3(0, 0, 1 + 5e-11)));
  EXPECT_FALSE(cache.match(p3(1 + 2e-10, 0, 0)));
  EXPECT_FALSE(cache.match(p3(0, -1.5, 0)));
  EXPECT_DOUBLE_EQ(cache.scope.value, 1.5);  // updated even on a miss
}

TEST(CandidateListCacheNearest, EmptyListAnswersTheSmallerOfLimitAndScope) {
  candidate_list list = make_list(2.0);
  list.complete();
  const point3 p = p3(0.5, 0, 0);  // scope 2.5
  nearest_result r = ask(list, p, 1.0);
  EXPECT_EQ(r.block, nullptr);
  EXPECT_EQ(r.distance.value, 1.0);
  EXPECT_EQ(r.reach.value, 1.0);
  r = ask(list, p, 7.0);
  EXPECT_EQ(r.block, nullptr);
  EXPECT_DOUBLE_EQ(r.distance.value, 2.5);
  EXPECT_DOUBLE_EQ(r.reach.value, 2.5);
  // Within the tolerance above the scope the scope still wins.
  EXPECT_DOUBLE_EQ(ask(list, p, 2.5 - 0.5e-10).distance.value, 2.5);
}

TEST(CandidateListCacheNearest, OnTheConductorAnswersZeroAndStopsTheScan) {
  circuit_layout store;
  candidate_list list = make_list(3.0);
  const wire_block* skin = add_cuboid(store, box(0.50005, -1, -1, 3, 1, 1));  // 0.00005 from the point
  const wire_block* deep = add_cuboid(store, box(0, -0.5, -0.5, 0.9, 0.5, 0.5));  // the point is 0.4 inside
  // Laid out by hand in this order: the first hit ends the search.
  list.candidates = {candidate_for(list, skin), candidate_for(list, deep)};
  list.candidates[0].distance = -1.0;
  list.candidates[1].distance = -0.9;
  const point3 p = p3(0.5, 0, 0);
  nearest_result r = ask(list, p, 10.0);
  EXPECT_EQ(r.block, skin);
  EXPECT_EQ(r.distance.value, 0.0);
  EXPECT_EQ(r.reach.value, 0.0);
  // Exactly 0.0001 away is not on the conductor.
  const wire_block* near_skin = add_cuboid(store, box(0.5001, -1, -1, 3, 1, 1));
  list.candidates = {candidate_for(list, near_skin)};
  r = ask(list, p, 10.0);
  EXPECT_EQ(r.block, near_skin);
  EXPECT_NEAR(r.distance.value, 0.0001, 1e-15);
}

TEST(CandidateListCacheNearest, ASecondCandidateJustBeyondARatioTwoHitShrinksTheReach) {
  circuit_layout store;
  configure config;
  config.double_incline_ratio = true;
  candidate_list list = make_list(5.0, spacemgr_all, config);
  const wire_block* cylinder = add_cylinder(store, 0, 2.5, 0, 1, 1);  // 0.5 from the cube
  const wire_block* cuboid = add_cuboid(store, box(1.65, -1, -1, 2.5, 1.5, 1));  // 0.65 from the cube
  list.add(candidate_for(list, cylinder));
  list.add(candidate_for(list, cuboid));
  list.complete();
  ASSERT_EQ(list.candidates.size(), 2u);
  ASSERT_EQ(list.candidates[0].block, cylinder);
  ASSERT_EQ(list.candidates[0].ratio, 2);
  const point3 p = p3(1, 1, 0);
  const double to_cylinder = manhattan_distance(p, *cylinder).value;  // the corner case, about 0.589
  ASSERT_GT(0.65, to_cylinder);
  ASSERT_LT(0.65, 2 * to_cylinder);
  nearest_result r = ask(list, p, 10.0);
  EXPECT_EQ(r.block, cylinder);
  EXPECT_EQ(r.distance.value, to_cylinder);
  EXPECT_DOUBLE_EQ(r.reach.value, 0.65);
  // Alone, the ratio-2 hit keeps the reach at twice its distance ...
  list.candidates.pop_back();
  r = ask(list, p, 10.0);
  EXPECT_EQ(r.distance.value, to_cylinder);
  EXPECT_DOUBLE_EQ(r.reach.value, 2 * to_cylinder);
  // ... but never beyond the old best, here the limit.
  r = ask(list, p, 0.8);
  EXPECT_EQ(r.distance.value, to_cylinder);
  EXPECT_DOUBLE_EQ(r.reach.value, 0.8);
}

TEST(CandidateListCacheNearest, OfTwoNearlyEqualCandidatesTheFirstStands) {
  circuit_layout store;
  candidate_list list = make_list(5.0);
  const wire_block* a = add_cuboid(store, box(1.5, -1, -1, 2, 1, 1));
  const wire_block* b = add_cuboid(store, box(-1, 1.5 - 5e-11, -1, 1, 2, 1));
  list.candidates = {candidate_for(list, a), candidate_for(list, b)};
  const nearest_result r = ask(list, p3(0, 0, 0), 10.0);
  EXPECT_EQ(r.block, a);
  EXPECT_DOUBLE_EQ(r.distance.value, 1.5);
}

}  // namespace
}  // namespace torva
