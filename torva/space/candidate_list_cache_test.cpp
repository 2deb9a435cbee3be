#include "torva/space/candidate_list_cache.h"

#include <gtest/gtest.h>

#include <thread>
#include <vector>

#include "torva/space/internal/test_blocks.h"

namespace torva {
namespace {

using testing::block_store;
using testing::box;
using testing::candidate_for;
using testing::cube_at;
using candidate = candidate_list::candidate;

point3 at(double x, double y, double z) { return point3{{x, y, z}}; }

// A list around the unit cube at the origin with the given scope.
candidate_list make_list(double scope, std::int64_t kind = spacemgr_all, const configure& config = configure{}) {
  candidate_list list;
  list.initialize(config, cube_at(0, 0, 0, 1), scope);
  list.kind = kind;
  return list;
}

candidate_list_cache cache_on(const candidate_list& list, const point3& p) {
  candidate_list_cache cache;
  cache.list = &list;
  cache.get_scope(p);
  return cache;
}

// ---------------------------------------------------------------------------
// Scope and match

TEST(CandidateListCacheScope, ScopeGrowsWithTheDepthOfThePointInsideTheCube) {
  candidate_list list = make_list(2.0);
  candidate_list_cache cache;
  cache.list = &list;
  EXPECT_DOUBLE_EQ(cache.get_scope(at(0, 0, 0)).value, 3.0);
  EXPECT_DOUBLE_EQ(cache.scope.value, 3.0);
  EXPECT_DOUBLE_EQ(cache.get_scope(at(0.5, -0.25, 0.1)).value, 2.5);
  EXPECT_DOUBLE_EQ(cache.get_scope(at(0.1, -0.75, 0.5)).value, 2.25);
  EXPECT_DOUBLE_EQ(cache.get_scope(at(0.1, 0.2, -0.9)).value, 2.1);
  EXPECT_DOUBLE_EQ(cache.get_scope(at(1, 0, 0)).value, 2.0);
  // Outside the cube it shrinks, and may go negative.
  EXPECT_DOUBLE_EQ(cache.get_scope(at(3, 0, 0)).value, 0.0);
  EXPECT_DOUBLE_EQ(cache.get_scope(at(0, -4, 0)).value, -1.0);
}

TEST(CandidateListCacheScope, OffsetsWithinTheToleranceCountAsZero) {
  candidate_list list = make_list(2.0);
  list.cube = cube_at(1, 1, 1, 0.0);  // a point cube: the scope is scope_bound minus the offset
  candidate_list_cache cache;
  cache.list = &list;
  EXPECT_EQ(cache.get_scope(at(1 + 5e-11, 1 - 5e-11, 1)).value, 2.0);
  EXPECT_NE(cache.get_scope(at(1 + 2e-10, 1, 1)).value, 2.0);
}

TEST(CandidateListCacheScope, MatchIsFalseBeforeTheFirstQuery) {
  candidate_list_cache cache;
  cache.scope = 4.0;
  EXPECT_FALSE(cache.match(at(0, 0, 0)));
  EXPECT_EQ(cache.list, nullptr);
  EXPECT_EQ(cache.scope.value, 4.0);
}

TEST(CandidateListCacheScope, MatchHoldsOnTheCubeBoundaryAndNotBeyondTheTolerance) {
  candidate_list list = make_list(2.0);
  candidate_list_cache cache;
  cache.list = &list;
  EXPECT_TRUE(cache.match(at(0.3, 0.2, 0.1)));
  EXPECT_DOUBLE_EQ(cache.scope.value, 2.7);
  EXPECT_TRUE(cache.match(at(1, 0, 0)));
  EXPECT_TRUE(cache.match(at(-1, 1, -1)));
  EXPECT_TRUE(cache.match(at(0, 0, 1 + 5e-11)));
  EXPECT_FALSE(cache.match(at(1 + 2e-10, 0, 0)));
  EXPECT_FALSE(cache.match(at(0, -1.5, 0)));
  EXPECT_DOUBLE_EQ(cache.scope.value, 1.5);  // updated even on a miss
}

TEST(CandidateListCacheScope, UnusedListAlwaysMatchesAndAnswersTheDummy) {
  candidate_list list = make_list(2.0, spacemgr_none);
  candidate_list_cache cache;
  cache.list = &list;
  cache.scope = 0.125;
  for (const point3& p : {at(0, 0, 0), at(100, -50, 3), at(1, 1, 1)}) {
    EXPECT_TRUE(cache.match(p));
    EXPECT_EQ(cache.scope.value, 0.125);  // untouched
    for (double limit : {0.0, 0.5, 1e12}) {
      const nearest_result r = cache.nearest(p, limit);
      EXPECT_EQ(r.block, nullptr);
      EXPECT_EQ(r.distance.value, 1e9);
      EXPECT_EQ(r.reach.value, 1e9);
    }
  }
}

// ---------------------------------------------------------------------------
// Nearest

TEST(CandidateListCacheNearest, EmptyListAnswersTheSmallerOfLimitAndScope) {
  candidate_list list = make_list(2.0);
  list.complete();
  const candidate_list_cache cache = cache_on(list, at(0.5, 0, 0));  // scope 2.5
  nearest_result r = cache.nearest(at(0.5, 0, 0), 1.0);
  EXPECT_EQ(r.block, nullptr);
  EXPECT_EQ(r.distance.value, 1.0);
  EXPECT_EQ(r.reach.value, 1.0);
  r = cache.nearest(at(0.5, 0, 0), 7.0);
  EXPECT_EQ(r.block, nullptr);
  EXPECT_DOUBLE_EQ(r.distance.value, 2.5);
  EXPECT_DOUBLE_EQ(r.reach.value, 2.5);
  // Within the tolerance above the scope the scope still wins.
  r = cache.nearest(at(0.5, 0, 0), 2.5 - 0.5e-10);
  EXPECT_DOUBLE_EQ(r.distance.value, 2.5);
}

TEST(CandidateListCacheNearest, LimitAboveScopeNeverClaimsMoreThanTheScope) {
  block_store store;
  candidate_list list = make_list(2.0);
  // 2.5 from the cube: beyond what the list vouches for from the centre.
  const wire_block* far_block = store.cuboid(box(3.5, -1, -1, 4.5, 1, 1));
  list.add(candidate_for(list, far_block));
  list.complete();
  const candidate_list_cache cache = cache_on(list, at(0, 0, 0));
  const nearest_result r = cache.nearest(at(0, 0, 0), 100.0);
  EXPECT_EQ(r.block, nullptr);
  EXPECT_DOUBLE_EQ(r.distance.value, 3.0);
  EXPECT_DOUBLE_EQ(r.reach.value, 3.0);
}

TEST(CandidateListCacheNearest, FindsTheNearestAndItsDistance) {
  block_store store;
  candidate_list list = make_list(3.0);
  const wire_block* east = store.cuboid(box(2, -1, -1, 3, 1, 1));
  const wire_block* north = store.cuboid(box(-1, 1.5, -1, 1, 2, 1));
  const wire_block* cylinder = store.cylinder(0, -3, 0, 1, 1);
  for (const wire_block* b : {east, north, cylinder}) ASSERT_TRUE(list.try_add(candidate_for(list, b)));
  list.complete();
  ASSERT_EQ(list.candidates.size(), 3u);

  nearest_result r = cache_on(list, at(0.8, 0, 0)).nearest(at(0.8, 0, 0), 10.0);
  EXPECT_EQ(r.block, east);
  EXPECT_DOUBLE_EQ(r.distance.value, 1.2);
  EXPECT_DOUBLE_EQ(r.reach.value, 1.2);

  r = cache_on(list, at(0, 0.9, 0)).nearest(at(0, 0.9, 0), 10.0);
  EXPECT_EQ(r.block, north);
  EXPECT_DOUBLE_EQ(r.distance.value, 0.6);

  r = cache_on(list, at(0, -0.9, 0)).nearest(at(0, -0.9, 0), 10.0);
  EXPECT_EQ(r.block, cylinder);
  EXPECT_DOUBLE_EQ(r.distance.value, 1.1);

  // A limit below the nearest leaves no block.
  r = cache_on(list, at(0.8, 0, 0)).nearest(at(0.8, 0, 0), 1.0);
  EXPECT_EQ(r.block, nullptr);
  EXPECT_EQ(r.distance.value, 1.0);
}

TEST(CandidateListCacheNearest, TheVerticalGapCounts) {
  block_store store;
  candidate_list list = make_list(3.0);
  // Straight above the point in plan view, 1.5 higher.
  const wire_block* above = store.cuboid(box(-0.2, -0.2, 1.5, 0.2, 0.2, 2));
  const wire_block* side = store.cuboid(box(1.2, -1, -1, 2, 1, 1));
  for (const wire_block* b : {above, side}) list.add(candidate_for(list, b));
  list.complete();
  nearest_result r = cache_on(list, at(0, 0, 0)).nearest(at(0, 0, 0), 10.0);
  EXPECT_EQ(r.block, side);
  EXPECT_DOUBLE_EQ(r.distance.value, 1.2);
  r = cache_on(list, at(0, 0, 0.9)).nearest(at(0, 0, 0.9), 10.0);
  EXPECT_EQ(r.block, above);
  EXPECT_DOUBLE_EQ(r.distance.value, 0.6);
}

TEST(CandidateListCacheNearest, OnTheConductorAnswersZeroAndStopsTheScan) {
  block_store store;
  candidate_list list = make_list(3.0);
  const wire_block* skin = store.cuboid(box(0.50005, -1, -1, 3, 1, 1));  // 0.00005 from the point
  const wire_block* deep = store.cuboid(box(0, -0.5, -0.5, 0.9, 0.5, 0.5));  // the point is 0.4 inside
  // Laid out by hand in this order: the first hit ends the search.
  list.candidates = {candidate_for(list, skin), candidate_for(list, deep)};
  list.candidates[0].distance = -1.0;
  list.candidates[1].distance = -0.9;
  const point3 p = at(0.5, 0, 0);
  nearest_result r = cache_on(list, p).nearest(p, 10.0);
  EXPECT_EQ(r.block, skin);
  EXPECT_EQ(r.distance.value, 0.0);
  EXPECT_EQ(r.reach.value, 0.0);

  // Exactly 0.0001 away is not on the conductor.
  const wire_block* near_skin = store.cuboid(box(0.5001, -1, -1, 3, 1, 1));
  list.candidates = {candidate_for(list, near_skin)};
  r = cache_on(list, p).nearest(p, 10.0);
  EXPECT_EQ(r.block, near_skin);
  EXPECT_NEAR(r.distance.value, 0.0001, 1e-15);
}

TEST(CandidateListCacheNearest, TheScanStopsAtTheFirstEntryBeyondTheReach) {
  block_store store;
  candidate_list list = make_list(5.0);
  const wire_block* far_block = store.cuboid(box(3, -1, -1, 4, 1, 1));
  const wire_block* near_block = store.cuboid(box(1.5, -1, -1, 2, 1, 1));
  // Out of order on purpose: the search trusts the order and never sees the second.
  list.candidates = {candidate_for(list, far_block), candidate_for(list, near_block)};
  const point3 p = at(0, 0, 0);
  const nearest_result r = cache_on(list, p).nearest(p, 1.5);
  EXPECT_EQ(r.block, nullptr);
  EXPECT_EQ(r.distance.value, 1.5);
}

TEST(CandidateListCacheNearest, ASecondCandidateJustBeyondARatioTwoHitShrinksTheReach) {
  block_store store;
  configure config;
  config.double_incline_ratio = true;
  candidate_list list = make_list(5.0, spacemgr_all, config);
  const wire_block* cylinder = store.cylinder(0, 2.5, 0, 1, 1);  // 0.5 from the cube
  const wire_block* cuboid = store.cuboid(box(1.65, -1, -1, 2.5, 1.5, 1));  // 0.65 from the cube
  list.add(candidate_for(list, cylinder));
  list.add(candidate_for(list, cuboid));
  list.complete();
  ASSERT_EQ(list.candidates.size(), 2u);
  ASSERT_EQ(list.candidates[0].block, cylinder);
  ASSERT_EQ(list.candidates[0].ratio, 2);
  const point3 p = at(1, 1, 0);
  const double to_cylinder = manhattan_distance(p, *cylinder).value;  // the corner case, about 0.589
  ASSERT_GT(0.65, to_cylinder);
  ASSERT_LT(0.65, 2 * to_cylinder);
  nearest_result r = cache_on(list, p).nearest(p, 10.0);
  EXPECT_EQ(r.block, cylinder);
  EXPECT_EQ(r.distance.value, to_cylinder);
  EXPECT_DOUBLE_EQ(r.reach.value, 0.65);

  // Alone, the ratio-2 hit keeps the reach at twice its distance...
  list.candidates.pop_back();
  r = cache_on(list, p).nearest(p, 10.0);
  EXPECT_EQ(r.distance.value, to_cylinder);
  EXPECT_DOUBLE_EQ(r.reach.value, 2 * to_cylinder);
  // ... but never beyond the old best, here the limit.
  r = cache_on(list, p).nearest(p, 0.8);
  EXPECT_EQ(r.distance.value, to_cylinder);
  EXPECT_DOUBLE_EQ(r.reach.value, 0.8);
}

TEST(CandidateListCacheNearest, WithRatioOneTheReachEqualsTheDistanceOnAHit) {
  block_store store;
  candidate_list list = make_list(5.0);
  const wire_block* a = store.cuboid(box(-1, 1.5, -1, 1, 2, 1));
  const wire_block* b = store.cuboid(box(1.7, -1, -1, 2.5, 1, 1));
  list.add(candidate_for(list, a));
  list.add(candidate_for(list, b));
  list.complete();
  const point3 p = at(0, 1, 0);
  const nearest_result r = cache_on(list, p).nearest(p, 10.0);
  EXPECT_EQ(r.block, a);
  EXPECT_DOUBLE_EQ(r.distance.value, 0.5);
  EXPECT_EQ(r.reach.value, r.distance.value);
}

TEST(CandidateListCacheNearest, OfTwoNearlyEqualCandidatesTheFirstStands) {
  block_store store;
  candidate_list list = make_list(5.0);
  const wire_block* a = store.cuboid(box(1.5, -1, -1, 2, 1, 1));
  const wire_block* b = store.cuboid(box(-1, 1.5 - 5e-11, -1, 1, 2, 1));
  list.candidates = {candidate_for(list, a), candidate_for(list, b)};
  const point3 p = at(0, 0, 0);
  const nearest_result r = cache_on(list, p).nearest(p, 10.0);
  EXPECT_EQ(r.block, a);
  EXPECT_DOUBLE_EQ(r.distance.value, 1.5);
}

TEST(CandidateListCacheNearest, WalkersOnManyThreadsShareCompletedListsAndTheDummy) {
  block_store store;
  candidate_list list = make_list(2.0);
  for (int i = 0; i < 12; ++i) {
    const double x = -3.0 + 0.5 * i;
    list.try_add(candidate_for(list, store.cuboid(box(x, 1.2 + 0.1 * i, -1, x + 0.4, 1.6 + 0.1 * i, 1))));
    list.try_add(candidate_for(list, store.cylinder(x, -1.5 - 0.1 * i, 0.2 * i - 1, 0.3, 0.5)));
  }
  list.complete();
  candidate_list unused = make_list(0.0, spacemgr_none);

  std::vector<point3> points;
  for (int i = 0; i < 64; ++i) points.push_back(at(-1 + (i % 8) / 4.0, -1 + (i / 8) / 4.0, 0.3));
  std::vector<nearest_result> expected;
  for (const point3& p : points) expected.push_back(cache_on(list, p).nearest(p, 10.0));

  std::vector<int> mismatches(4, 0);
  std::vector<std::thread> walkers;
  for (int t = 0; t < 4; ++t)
    walkers.emplace_back([&, t] {
      candidate_list_cache first, second;
      first.list = &list;
      second.list = &unused;
      for (int round = 0; round < 200; ++round)
        for (std::size_t i = 0; i < points.size(); ++i) {
          const point3& p = points[(i + t * 7) % points.size()];
          const nearest_result& want = expected[(i + t * 7) % points.size()];
          if (!first.match(p)) first.get_scope(p);
          const nearest_result r = first.nearest(p, 10.0);
          const nearest_result none = second.match(p) ? second.nearest(p, r.distance) : nearest_result{};
          if (r.block != want.block || r.distance.value != want.distance.value || none.distance.value != 1e9)
            ++mismatches[t];
        }
    });
  for (std::thread& w : walkers) w.join();
  for (int m : mismatches) EXPECT_EQ(m, 0);
}

}  // namespace
}  // namespace torva
