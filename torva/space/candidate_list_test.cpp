#include "torva/space/candidate_list.h"

#include <gtest/gtest.h>

#include <cmath>
#include <limits>

#include "torva/geometry/distance.h"
#include "torva/space/internal/test_blocks.h"

namespace torva {
namespace {

using testing::block_store;
using testing::box;
using testing::candidate_for;
using testing::cube_at;
using candidate = candidate_list::candidate;

constexpr double eps = 1e-10;

// A list around the unit cube at the origin (half size 1).
candidate_list make_list(std::int64_t kind, double bound, const configure& config = configure{}) {
  candidate_list list;
  list.initialize(config, cube_at(0, 0, 0, 1), bound);
  list.kind = kind;
  return list;
}

candidate raw_candidate(const wire_block* block, double distance, bool is_cuboid = true, int ratio = 1) {
  candidate c;
  c.block = block;
  c.distance = distance;
  c.is_cuboid = is_cuboid;
  c.in_tree_cuboid = is_cuboid;
  c.ratio = ratio;
  return c;
}

// ---------------------------------------------------------------------------
// Setting up and freezing

TEST(CandidateListSetup, InitializeCopiesFlagsAndCubeAndLeavesKind) {
  configure config;
  config.group_dominance = true;
  config.double_incline_ratio = true;
  candidate_list list;
  list.kind = spacemgr_cuboid;
  list.initialize(config, cube_at(1, 2, 3, 0.5), 4.0);
  EXPECT_EQ(list.kind, spacemgr_cuboid);
  EXPECT_TRUE(list.group_dominance);
  EXPECT_FALSE(list.group_optimize);
  EXPECT_TRUE(list.double_incline_ratio);
  EXPECT_EQ(list.cube.center[2].value, 3.0);
  EXPECT_EQ(list.cube.half.value, 0.5);
  EXPECT_EQ(list.scope_bound.value, 4.0);
  EXPECT_EQ(list.bound.value, 4.0);
}

TEST(CandidateListSetup, InitializeAgainEmptiesAndGivesStorageBack) {
  block_store store;
  candidate_list list = make_list(spacemgr_all_nd, 10.0);
  for (int i = 0; i < 5; ++i) list.add(raw_candidate(store.cuboid(box(3, 0, 0, 4, 1, 1)), 2.0));
  ASSERT_EQ(list.candidates.size(), 5u);
  list.initialize(configure{}, cube_at(0, 0, 0, 2), 1.5);
  EXPECT_TRUE(list.candidates.empty());
  EXPECT_EQ(list.candidates.capacity(), 0u);
  EXPECT_EQ(list.bound.value, 1.5);
  EXPECT_EQ(list.kind, spacemgr_all_nd);
}

TEST(CandidateListSetup, CompleteOfAnEmptyListDoesNothing) {
  candidate_list list = make_list(spacemgr_all, 3.0);
  list.complete();
  EXPECT_TRUE(list.candidates.empty());
  EXPECT_EQ(list.candidates.capacity(), 0u);
  EXPECT_EQ(list.bound.value, 3.0);
}

TEST(CandidateListSetup, TryAddOnAnEmptyListGoesStraightToAdd) {
  block_store store;
  candidate_list list = make_list(spacemgr_all, 5.0);
  const candidate c = candidate_for(list, store.cuboid(box(3, -1, -1, 4, 1, 1)));
  ASSERT_DOUBLE_EQ(c.distance.value, 2.0);
  EXPECT_TRUE(list.try_add(c));
  ASSERT_EQ(list.candidates.size(), 1u);
  // Stored, and the bound tightened to (2h + distance) * ratio.
  EXPECT_EQ(list.bound.value, 4.0);
}

TEST(CandidateListSetup, CompleteSortsAscendingAndLeavesExactCapacity) {
  block_store store;
  candidate_list list = make_list(spacemgr_all_nd, 10.0);
  const double distances[] = {3.0, -0.5, 1.0, 2.0 + 5e-11, 2.0, 0.25, 7.0};
  for (double d : distances) list.add(raw_candidate(store.cuboid(box(3, 0, 0, 4, 1, 1)), d));
  list.candidates.reserve(64);
  list.complete();
  ASSERT_EQ(list.candidates.size(), 7u);
  EXPECT_EQ(list.candidates.capacity(), 7u);
  for (std::size_t i = 1; i < list.candidates.size(); ++i) {
    EXPECT_LE(list.candidates[i - 1].distance.value, list.candidates[i].distance.value);
    EXPECT_FALSE(list.candidates[i] < list.candidates[i - 1]);
  }
  EXPECT_EQ(list.candidates.front().distance.value, -0.5);
  EXPECT_EQ(list.candidates.back().distance.value, 7.0);
}

TEST(CandidateListSetup, CompleteAfterEvictionsDropsTheStorageOfAnEmptiedList) {
  block_store store;
  candidate_list list = make_list(spacemgr_all, 10.0);
  ASSERT_TRUE(list.try_add(candidate_for(list, store.cuboid(box(5, -1, -1, 6, 1, 1)))));
  // A block that fills the whole cube pushes the bound below everything else.
  list.add(raw_candidate(store.cuboid(box(-9, -9, -9, 9, 9, 9)), -2.5));
  ASSERT_EQ(list.candidates.size(), 1u);
  list.candidates.pop_back();
  list.complete();
  EXPECT_EQ(list.candidates.capacity(), 0u);
}

TEST(CandidateListSetup, CompleteSurvivesANotANumberDistance) {
  block_store store;
  candidate_list list = make_list(spacemgr_all_nd, 10.0);
  const wire_block* b = store.cuboid(box(3, 0, 0, 4, 1, 1));
  const double nan = std::numeric_limits<double>::quiet_NaN();
  for (double d : {2.0, nan, 1.0, nan, 0.5, 3.0, nan, -1.0}) list.add(raw_candidate(b, d));
  // try_add refuses what is not a number: the bound test is false.
  EXPECT_FALSE(list.try_add(raw_candidate(b, nan)));
  list.complete();
  ASSERT_EQ(list.candidates.size(), 8u);
  EXPECT_EQ(list.candidates[0].distance.value, -1.0);
  EXPECT_EQ(list.candidates[4].distance.value, 3.0);
  for (std::size_t i = 5; i < 8; ++i) EXPECT_TRUE(std::isnan(list.candidates[i].distance.value));
}

TEST(CandidateListSetup, CompleteRemovesFarNonCuboidsButKeepsCuboidsInTheSamePlace) {
  block_store store;
  // No tightening in kind 5, so the limit of complete is h + bound = 2.
  candidate_list list = make_list(spacemgr_all_nd, 1.0);
  const wire_block* far_cylinder = store.cylinder(3, 0, 0, 1, 1);  // manhattan 2 from the centre
  const wire_block* far_cuboid = store.cuboid(box(2, -1, -1, 3, 1, 1));
  const wire_block* near_cylinder = store.cylinder(2.5, 0, 0, 1, 1);  // 1.5
  const wire_block* edge_prism =
      store.prism({point2{{2 - 0.5e-10, -1}}, point2{{3, -1}}, point2{{3, 1}}, point2{{2 - 0.5e-10, 1}}}, -1, 1);
  ASSERT_DOUBLE_EQ(manhattan_distance(list.cube.center, *far_cylinder).value, 2.0);
  for (const wire_block* b : {far_cylinder, far_cuboid, near_cylinder, edge_prism}) list.add(candidate_for(list, b));
  list.complete();
  ASSERT_EQ(list.candidates.size(), 2u);
  EXPECT_EQ(list.candidates[0].block, near_cylinder);
  EXPECT_EQ(list.candidates[1].block, far_cuboid);
  EXPECT_EQ(list.bound.value, 1.0);
}

// ---------------------------------------------------------------------------
// The bound and the filtered insertion

TEST(CandidateListBound, TryAddIsStrictAtTheBoundMinusTolerance) {
  block_store store;
  const wire_block* b = store.cuboid(box(3, 0, 0, 4, 1, 1));
  candidate_list list = make_list(spacemgr_all_nd, 5.0);
  EXPECT_FALSE(list.try_add(raw_candidate(b, 5.0 - 1e-10)));
  EXPECT_FALSE(list.try_add(raw_candidate(b, 5.0)));
  EXPECT_TRUE(list.try_add(raw_candidate(b, 5.0 - 2e-10)));
  EXPECT_EQ(list.candidates.size(), 1u);
}

TEST(CandidateListBound, ANegativeOrZeroBoundRefusesEverything) {
  block_store store;
  const wire_block* b = store.cuboid(box(-9, -9, -9, 9, 9, 9));
  candidate_list list = make_list(spacemgr_all, 0.0);
  EXPECT_FALSE(list.try_add(raw_candidate(b, 0.0)));
  EXPECT_TRUE(list.try_add(raw_candidate(b, -0.5)));
  candidate_list negative = make_list(spacemgr_all, -1.0);
  EXPECT_FALSE(negative.try_add(raw_candidate(b, -0.5)));
  EXPECT_FALSE(negative.try_add(raw_candidate(b, -1.0)));
}

TEST(CandidateListBound, AddTightensOnlyByMoreThanTheTolerance) {
  block_store store;
  const wire_block* b = store.cuboid(box(3, 0, 0, 4, 1, 1));
  candidate_list list = make_list(spacemgr_all, 4.0);
  list.add(raw_candidate(b, 2.0 + 0.5e-10));  // t = 4 + 5e-11: no change
  EXPECT_EQ(list.bound.value, 4.0);
  list.add(raw_candidate(b, 2.0 - 0.5e-10));  // within the tolerance below: no change
  EXPECT_EQ(list.bound.value, 4.0);
  list.add(raw_candidate(b, 1.5));
  EXPECT_EQ(list.bound.value, 3.5);
}

TEST(CandidateListBound, RatioTwoWidensTheTightening) {
  block_store store;
  configure config;
  config.double_incline_ratio = true;
  candidate_list list = make_list(spacemgr_all, 10.0, config);
  const candidate c = candidate_for(list, store.cylinder(3, 0, 0, 1, 1));  // distance 1, ratio 2
  ASSERT_EQ(c.ratio, 2);
  list.add(c);
  EXPECT_EQ(list.bound.value, 6.0);  // (2 + 1) * 2
}

TEST(CandidateListBound, DeepEntriesSkipTheScanAndDominanceButFallByTheBound) {
  block_store store;
  candidate_list list = make_list(spacemgr_all, 10.0);
  // Reaches into the cube: distance -0.5.
  const wire_block* inside = store.cuboid(box(0.5, -1, -1, 3, 1, 1));
  const candidate deep = candidate_for(list, inside);
  ASSERT_DOUBLE_EQ(deep.distance.value, -0.5);
  EXPECT_TRUE(list.try_add(deep));
  EXPECT_TRUE(list.try_add(deep));  // the same block again: no duplicate test for it
  ASSERT_EQ(list.candidates.size(), 2u);

  // A block that dominates it by the box test does not evict it.
  const wire_block* wider = store.cuboid(box(0.4, -1.5, -1.5, 3.5, 1.5, 1.5));
  const candidate dominator = candidate_for(list, wider);
  ASSERT_TRUE(list.dominate(dominator, deep));
  EXPECT_TRUE(list.try_add(dominator));
  EXPECT_EQ(list.candidates.size(), 3u);
  EXPECT_DOUBLE_EQ(list.bound.value, 2.0 - 0.6);

  // Once bound - eps falls to its distance, it goes; the dominator, deeper
  // still, stays. t = 2 - 2.5 = -0.5 exactly.
  list.add(raw_candidate(store.cuboid(box(-9, -9, -9, 9, 9, 9)), -2.5));
  EXPECT_EQ(list.bound.value, -0.5);
  ASSERT_EQ(list.candidates.size(), 2u);
  EXPECT_EQ(list.candidates[0].block, wider);
  EXPECT_EQ(list.candidates[1].distance.value, -2.5);
}

TEST(CandidateListBound, AnEntryJustBelowTheNewBoundStays) {
  block_store store;
  const wire_block* b = store.cuboid(box(-9, -9, -9, 9, 9, 9));
  candidate_list list = make_list(spacemgr_all, 10.0);
  list.add(raw_candidate(b, -0.5 - 2e-10));
  list.add(raw_candidate(b, -0.5));
  list.add(raw_candidate(b, -2.5));  // bound -0.5
  ASSERT_EQ(list.candidates.size(), 2u);
  EXPECT_EQ(list.candidates[0].distance.value, -0.5 - 2e-10);
  EXPECT_EQ(list.candidates[1].distance.value, -2.5);
}

TEST(CandidateListBound, TryAddRefusesADuplicateAndADominatedNewcomer) {
  block_store store;
  candidate_list list = make_list(spacemgr_all, 10.0);
  const wire_block* near_wall = store.cuboid(box(-1, 2, -1, 1, 2.5, 1));
  const wire_block* behind = store.cuboid(box(-1, 3, -1, 1, 4, 1));
  EXPECT_TRUE(list.try_add(candidate_for(list, near_wall)));
  EXPECT_FALSE(list.try_add(candidate_for(list, near_wall)));
  EXPECT_FALSE(list.try_add(candidate_for(list, behind)));
  ASSERT_EQ(list.candidates.size(), 1u);
  EXPECT_EQ(list.candidates[0].block, near_wall);
}

TEST(CandidateListBound, EvictionSwapsTheLastEntryIntoTheGap) {
  block_store store;
  candidate_list list = make_list(spacemgr_all, 10.0);
  const wire_block* plus_x = store.cuboid(box(3, -1, -1, 4, 1, 1));
  const wire_block* plus_y = store.cuboid(box(-1, 3, -1, 1, 4, 1));
  const wire_block* minus_x = store.cuboid(box(-4, -1, -1, -3, 1, 1));
  const wire_block* minus_y = store.cuboid(box(-1, -4, -1, 1, -3, 1));
  for (const wire_block* b : {plus_x, plus_y, minus_x, minus_y}) ASSERT_TRUE(list.try_add(candidate_for(list, b)));
  // A wall between the cube and plus_y shadows plus_y alone.
  const wire_block* wall = store.cuboid(box(-1, 2, -1, 1, 2.5, 1));
  EXPECT_TRUE(list.try_add(candidate_for(list, wall)));
  ASSERT_EQ(list.candidates.size(), 4u);
  EXPECT_EQ(list.candidates[0].block, plus_x);
  EXPECT_EQ(list.candidates[1].block, minus_y);
  EXPECT_EQ(list.candidates[2].block, minus_x);
  EXPECT_EQ(list.candidates[3].block, wall);
  EXPECT_EQ(list.bound.value, 3.0);
}

// ---------------------------------------------------------------------------
// Kinds

TEST(CandidateListKinds, CuboidListTightensAndEvictsByANonCuboidItDoesNotStore) {
  block_store store;
  candidate_list list = make_list(spacemgr_cuboid, 10.0);
  const wire_block* far_cuboid = store.cuboid(box(2.8, -1, -1, 3.5, 1, 1));  // distance 1.8
  ASSERT_TRUE(list.try_add(candidate_for(list, far_cuboid)));
  const wire_block* cylinder = store.cylinder(2, 0, 0, 1, 1);  // distance 0, inner box in front
  const candidate c = candidate_for(list, cylinder);
  ASSERT_DOUBLE_EQ(c.distance.value, 0.0);
  EXPECT_TRUE(list.try_add(c));
  EXPECT_TRUE(list.candidates.empty());
  EXPECT_EQ(list.bound.value, 2.0);
}

TEST(CandidateListKinds, InclineListTightensAndEvictsByACuboidItDoesNotStore) {
  block_store store;
  candidate_list list = make_list(spacemgr_incline, 10.0);
  const wire_block* far_cylinder = store.cylinder(3.3, 0, 0, 0.5, 1);  // distance 1.8
  ASSERT_TRUE(list.try_add(candidate_for(list, far_cylinder)));
  ASSERT_EQ(list.candidates.size(), 1u);
  const wire_block* cuboid = store.cuboid(box(1.29, -0.7, -1, 2.7, 0.7, 1));
  EXPECT_TRUE(list.try_add(candidate_for(list, cuboid)));
  EXPECT_TRUE(list.candidates.empty());
  EXPECT_DOUBLE_EQ(list.bound.value, 2.29);
}

TEST(CandidateListKinds, CuboidListStillRefusesANonCuboidDominatedByAStoredCuboid) {
  block_store store;
  candidate_list list = make_list(spacemgr_cuboid, 10.0);
  ASSERT_TRUE(list.try_add(candidate_for(list, store.cuboid(box(-2, -2, 1.5, 2, 2, 2)))));
  EXPECT_FALSE(list.try_add(candidate_for(list, store.cylinder(0, 0, 3, 1, 0.5))));
  EXPECT_EQ(list.candidates.size(), 1u);
}

TEST(CandidateListKinds, UnfilteredKindsKeepTheBoundAndStoreDuplicates) {
  block_store store;
  const wire_block* cylinder = store.cylinder(3, 0, 0, 1, 1);
  const wire_block* wall = store.cuboid(box(-1, 1.5, -1, 1, 2, 1));
  const wire_block* behind = store.cuboid(box(-1, 3, -1, 1, 4, 1));

  candidate_list all = make_list(spacemgr_all_nd, 10.0);
  for (const wire_block* b : {wall, behind, behind, cylinder}) EXPECT_TRUE(all.try_add(candidate_for(all, b)));
  EXPECT_EQ(all.bound.value, 10.0);
  EXPECT_EQ(all.candidates.size(), 4u);

  candidate_list incline = make_list(spacemgr_incline_nd, 10.0);
  for (const wire_block* b : {wall, cylinder, cylinder}) EXPECT_TRUE(incline.try_add(candidate_for(incline, b)));
  EXPECT_EQ(incline.bound.value, 10.0);
  ASSERT_EQ(incline.candidates.size(), 2u);
  EXPECT_EQ(incline.candidates[0].block, cylinder);
  EXPECT_EQ(incline.candidates[1].block, cylinder);
  // Still gated by the bound itself.
  EXPECT_FALSE(incline.try_add(raw_candidate(cylinder, 10.0, false)));
}

TEST(CandidateListKinds, InTreeCuboidIsCarriedAlongUnread) {
  block_store store;
  candidate_list list = make_list(spacemgr_all, 10.0);
  candidate c = candidate_for(list, store.cuboid(box(3, -1, -1, 4, 1, 1)));
  c.in_tree_cuboid = false;
  ASSERT_TRUE(list.try_add(c));
  list.complete();
  ASSERT_EQ(list.candidates.size(), 1u);
  EXPECT_FALSE(list.candidates[0].in_tree_cuboid);
  EXPECT_TRUE(list.candidates[0].is_cuboid);
}

// ---------------------------------------------------------------------------
// Dominance

TEST(CandidateListDominance, BoxTestNeedsTheDominatorTwiceAsCloseWithRatioTwo) {
  block_store store;
  candidate_list list = make_list(spacemgr_all, 10.0);
  const wire_block* target = store.cuboid(box(3, -1, -1, 4, 1, 1));  // gap 2
  const wire_block* close = store.cuboid(box(1.5, -1, -1, 1.8, 1, 1));  // gap 0.5
  const wire_block* half_way = store.cuboid(box(2.5, -1, -1, 2.8, 1, 1));  // gap 1.5
  const candidate b = raw_candidate(target, 2.0);
  EXPECT_TRUE(list.dominate_new_halden(raw_candidate(close, 0.5, true, 1), b));
  EXPECT_TRUE(list.dominate_new_halden(raw_candidate(close, 0.5, true, 2), b));
  EXPECT_TRUE(list.dominate_new_halden(raw_candidate(half_way, 1.5, true, 1), b));
  EXPECT_FALSE(list.dominate_new_halden(raw_candidate(half_way, 1.5, true, 2), b));
  // The dominated block's own ratio plays no part.
  EXPECT_FALSE(list.dominate_new_halden(raw_candidate(half_way, 1.5, true, 2), raw_candidate(target, 2.0, true, 2)));
}

TEST(CandidateListDominance, BoxTestUsesTheDominatorsInnerAndTheTargetsOuterBox) {
  block_store store;
  candidate_list list = make_list(spacemgr_all, 10.0);
  // A target 0.2 beyond the +y face must be shadowed across x and z from -0.8
  // to 0.8. A cylinder of radius 1 counts as a dominator by its inscribed
  // square (half side 0.707) and fails; a cuboid of its outer box passes.
  const wire_block* slab = store.cuboid(box(-1, 1.2, -1, 1, 2, 1));
  const wire_block* cylinder = store.cylinder(0, 1.05, 0, 1.0, 1);
  const wire_block* its_box = store.cuboid(cylinder->outer_box);
  EXPECT_FALSE(list.dominate(candidate_for(list, cylinder), candidate_for(list, slab)));
  EXPECT_TRUE(list.dominate(candidate_for(list, its_box), candidate_for(list, slab)));

  // As a target a cylinder counts by its outer box: a wall of half width
  // 0.35 shadows its inscribed square but not its box of half width 0.4.
  const wire_block* wall = store.cuboid(box(-0.35, 1.0, -1, 0.35, 1.1, 1));
  const wire_block* target = store.cylinder(0, 1.6, 0, 0.4, 1);
  const wire_block* its_square = store.cuboid(target->inner_box);
  EXPECT_FALSE(list.dominate(candidate_for(list, wall), candidate_for(list, target)));
  EXPECT_TRUE(list.dominate(candidate_for(list, wall), candidate_for(list, its_square)));
}

configure mode_config(bool group_dominance, bool group_optimize, bool double_ratio) {
  configure config;
  config.group_dominance = group_dominance;
  config.group_optimize = group_optimize;
  config.double_incline_ratio = double_ratio;
  return config;
}

TEST(CandidateListDominance, SinglePieceCuboidsThatFailTheBoxTestFailInEveryMode) {
  block_store store;
  const wire_block* east = store.cuboid(box(2, -1, -1, 3, 1, 1));
  const wire_block* north = store.cuboid(box(-1, 2, -1, 1, 3, 1));
  for (bool gd : {false, true})
    for (bool go : {false, true})
      for (bool dr : {false, true}) {
        candidate_list list = make_list(spacemgr_all, 10.0, mode_config(gd, go, dr));
        const candidate a = candidate_for(list, east);
        const candidate b = candidate_for(list, north);
        ASSERT_FALSE(list.dominate_new_halden(a, b));
        ASSERT_FALSE(list.dominate_new_halden(b, a));
        EXPECT_FALSE(list.dominate(a, b)) << gd << go << dr;
        EXPECT_FALSE(list.dominate(b, a)) << gd << go << dr;
      }
}

// A thin plate just above the unit cube (z 1 to 1.1) whose inner pieces are
// slices across x at the given extents, spanning y -0.9 to 0.9; its inner box
// is the second slice alone. The target lies 0.2 above the cube, over its
// whole plan, so d = 0.2 and gaps of up to 0.4 between slices close.
const wire_block* plate_of_slices(block_store& store, std::initializer_list<std::pair<double, double>> xs) {
  shape_t s = make_cuboid_shape(box(-0.9, -0.9, 1.0, 0.9, 0.9, 1.1));
  s.inner_pieces.clear();
  for (auto [lo, hi] : xs) s.inner_pieces.push_back(box(lo, -0.9, 1.0, hi, 0.9, 1.1));
  s.inner_box = s.inner_pieces[1];
  return store.add(s);
}

TEST(CandidateListDominance, MergedSlicesAboveTheCubeCloseGapsOfUpToTwiceD) {
  block_store store;
  const wire_block* target = store.cuboid(box(-1, -1, 1.2, 1, 1, 2));
  const wire_block* closed = plate_of_slices(store, {{-0.9, -0.35}, {-0.05, 0.35}, {0.65, 0.9}});
  const wire_block* open = plate_of_slices(store, {{-0.9, -0.35}, {0.15, 0.35}, {0.65, 0.9}});

  candidate_list merged = make_list(spacemgr_all, 10.0, mode_config(false, true, false));
  const candidate t = candidate_for(merged, target);
  ASSERT_DOUBLE_EQ(t.distance.value, 0.2);
  ASSERT_FALSE(merged.dominate_new_halden(candidate_for(merged, closed), t));
  EXPECT_TRUE(merged.dominate(candidate_for(merged, closed), t));
  EXPECT_FALSE(merged.dominate(candidate_for(merged, open), t));
  EXPECT_TRUE(merged.dominate_group_optimize_impl(closed->inner_pieces, target->outer_box, 0.2));
  EXPECT_FALSE(merged.dominate_group_optimize_impl(open->inner_pieces, target->outer_box, 0.2));
  // Each slice of the open plate is admitted: with a larger d its gap closes.
  EXPECT_TRUE(merged.dominate_group_optimize_impl(open->inner_pieces, target->outer_box, 0.25));

  // No single slice shadows the target, so the piecewise and plain modes say no.
  candidate_list piecewise = make_list(spacemgr_all, 10.0, mode_config(true, false, false));
  EXPECT_FALSE(piecewise.dominate(candidate_for(piecewise, closed), t));
  candidate_list plain = make_list(spacemgr_all, 10.0);
  EXPECT_FALSE(plain.dominate(candidate_for(plain, closed), t));
}

TEST(CandidateListDominance, MergingJoinsOnlyWithTheLastInterval) {
  block_store store;
  candidate_list list = make_list(spacemgr_all, 10.0, mode_config(false, true, false));
  const cuboid_t target = box(-1, -1, 1.2, 1, 1, 2);
  auto slice = [](double lo, double hi) { return box(lo, -0.9, 1.0, hi, 0.9, 1.1); };
  // In order the slices chain up; out of order the middle one comes last and
  // joins only the interval before it.
  EXPECT_TRUE(list.dominate_group_optimize_impl({slice(-0.9, -0.35), slice(-0.05, 0.35), slice(0.65, 0.9)}, target, 0.2));
  EXPECT_FALSE(list.dominate_group_optimize_impl({slice(-0.9, -0.35), slice(0.65, 0.9), slice(-0.05, 0.35)}, target, 0.2));
}

TEST(CandidateListDominance, MergingHandlesGroupsOfManySlices) {
  candidate_list list = make_list(spacemgr_all, 10.0, mode_config(false, true, false));
  const cuboid_t target = box(-1, -1, 1.2, 1, 1, 2);  // d = 0.2
  // 60 thin slices across x with gaps of 0.01, then the same with one gap of 0.5.
  std::vector<cuboid_t> slices, broken;
  for (int k = 0; k < 60; ++k) {
    const double x0 = -0.95 + k * 0.0316;
    slices.push_back(box(x0, -0.9, 1.0, x0 + 0.0216, 0.9, 1.1));
    const double shift = k >= 30 ? 0.5 : 0.0;
    broken.push_back(box(x0 + shift - 0.25, -0.9, 1.0, x0 + shift - 0.25 + 0.0216, 0.9, 1.1));
  }
  EXPECT_TRUE(list.dominate_group_optimize_impl(slices, target, 0.2));
  EXPECT_FALSE(list.dominate_group_optimize_impl(broken, target, 0.2));
  // Each slice alone is far too narrow.
  EXPECT_FALSE(list.dominate_group_optimize_impl({slices[30]}, target, 0.2));
}

TEST(CandidateListDominance, MergedGroupNeedsAdmissionAndTheCommonHeight) {
  candidate_list list = make_list(spacemgr_all, 10.0, mode_config(false, true, false));
  // Target on the +x side, 0.2 from the cube, spanning the cube's y and z.
  const cuboid_t target = box(1.2, -1, -1, 2, 1, 1);
  auto slab = [](double y0, double y1, double x0 = 1.0, double x1 = 1.1, double z0 = -0.9, double z1 = 0.9) {
    return box(x0, y0, z0, x1, y1, z1);
  };
  EXPECT_TRUE(list.dominate_group_optimize_impl({slab(-0.9, 0.0), slab(0.1, 0.9)}, target, 0.2));
  // Too low: the common height (taken from the first slice) misses the span.
  EXPECT_FALSE(list.dominate_group_optimize_impl({slab(-0.9, 0.0, 1.0, 1.1, -0.5, 0.9), slab(0.1, 0.9)}, target, 0.2));
  // Starting behind the target along x is not admitted.
  EXPECT_FALSE(list.dominate_group_optimize_impl({slab(-0.9, 0.0, 1.3, 1.4), slab(0.1, 0.9, 1.3, 1.4)}, target, 0.2));
  // Too far from the cube's face (more than d) is not admitted either.
  EXPECT_FALSE(list.dominate_group_optimize_impl({slab(-0.9, 0.0, 0.5, 0.7), slab(0.1, 0.9, 0.5, 0.7)}, target, 0.2));
  // On the -y side the mirror image holds.
  const cuboid_t south = box(-1, -2, -1, 1, -1.2, 1);
  auto south_slab = [](double x0, double x1) { return box(x0, -1.1, -0.9, x1, -1.0, 0.9); };
  EXPECT_TRUE(list.dominate_group_optimize_impl({south_slab(-0.9, 0.0), south_slab(0.1, 0.9)}, south, 0.2));
  EXPECT_FALSE(list.dominate_group_optimize_impl({south_slab(-0.9, 0.0), south_slab(0.5, 0.9)}, south, 0.2));
  // A target on the -x side is named a -z target by the side finder (its
  // later values all exceed the very negative first one), so the same wall
  // in front of it is not admitted: a refusal, never a false claim.
  const cuboid_t west = box(-2, -1, -1, -1.2, 1, 1);
  EXPECT_FALSE(list.dominate_group_optimize_impl({slab(-0.9, 0.0, -1.1, -1.0), slab(0.1, 0.9, -1.1, -1.0)}, west, 0.2));
}

TEST(CandidateListDominance, AnEmptyGroupShadowsNothing) {
  candidate_list list = make_list(spacemgr_all, 10.0, mode_config(false, true, false));
  EXPECT_FALSE(list.dominate_group_optimize_impl({}, box(1.2, -1, -1, 2, 1, 1), 0.2));

  // A dominator with no inner pieces against a cut target: false, no crash.
  block_store store;
  shape_t empty = make_cuboid_shape(box(1.0, -1, -1, 1.1, 1, 1));
  empty.inner_pieces.clear();
  empty.inner_box = box(1.0, -0.1, -0.1, 1.1, 0.1, 0.1);
  const wire_block* a = store.add(empty);
  const wire_block* b = store.sliced_cuboid(box(1.2, -1, -1, 2, 1, 1), 1, 2);
  ASSERT_FALSE(list.dominate_new_halden(candidate_for(list, a), candidate_for(list, b)));
  EXPECT_FALSE(list.dominate(candidate_for(list, a), candidate_for(list, b)));
}

// Two halves of a target, each shadowed by its own piece of the dominator,
// while the dominator's inner box (one piece) cannot shadow the whole target.
struct split_pair {
  const wire_block* dominator;
  const wire_block* target;
};
split_pair halves(block_store& store) {
  shape_t a = make_cuboid_shape(box(-1.5, -1, 1.0, 1.5, 1, 1.1));
  a.inner_pieces = {box(-1.5, -1, 1.0, 0, 1, 1.1), box(0, -1, 1.0, 1.5, 1, 1.1)};
  a.inner_box = a.inner_pieces[0];
  return {store.add(a), store.sliced_cuboid(box(-1, -1, 1.2, 1, 1, 2), 0, 2)};
}

TEST(CandidateListDominance, PiecewiseShadowsEachPieceByOnePiece) {
  block_store store;
  const split_pair p = halves(store);
  candidate_list piecewise = make_list(spacemgr_all, 10.0, mode_config(true, false, false));
  const candidate a = candidate_for(piecewise, p.dominator);
  const candidate b = candidate_for(piecewise, p.target);
  ASSERT_FALSE(piecewise.dominate_new_halden(a, b));
  EXPECT_TRUE(piecewise.dominate(a, b));
  candidate_list plain = make_list(spacemgr_all, 10.0);
  EXPECT_FALSE(plain.dominate(a, b));
  // Without the second dominator piece the right half stays unshadowed.
  shape_t one = *p.dominator;
  one.inner_pieces.pop_back();
  one.inner_pieces.push_back(box(0, -1, 1.0, 0.5, 1, 1.1));
  const wire_block* short_one = store.add(one);
  EXPECT_FALSE(piecewise.dominate(candidate_for(piecewise, short_one), b));
}

TEST(CandidateListDominance, EmptyOuterPiecesCountAsShadowedInGroupModes) {
  block_store store;
  const split_pair p = halves(store);
  // Below the cube: the dominator's single inner box cannot shadow it.
  shape_t hollow = make_cuboid_shape(box(-1, -3, -1, 1, -2, 1));
  hollow.outer_pieces.clear();
  const wire_block* b = store.add(hollow);
  for (bool optimize : {false, true}) {
    candidate_list list = make_list(spacemgr_all, 10.0, mode_config(!optimize, optimize, false));
    ASSERT_FALSE(list.dominate_new_halden(candidate_for(list, p.dominator), candidate_for(list, b)));
    EXPECT_TRUE(list.dominate(candidate_for(list, p.dominator), candidate_for(list, b)));
  }
}

TEST(CandidateListDominance, DoubleRatioSwitchesMergedModeOff) {
  block_store store;
  const wire_block* target = store.cuboid(box(-1, -1, 1.2, 1, 1, 2));
  const wire_block* closed = plate_of_slices(store, {{-0.9, -0.35}, {-0.05, 0.35}, {0.65, 0.9}});
  const split_pair p = halves(store);

  // Merged alone says yes; with the double ratio it falls back to plain.
  candidate_list merged = make_list(spacemgr_all, 10.0, mode_config(false, true, false));
  ASSERT_TRUE(merged.dominate(candidate_for(merged, closed), candidate_for(merged, target)));
  ASSERT_TRUE(merged.dominate(candidate_for(merged, p.dominator), candidate_for(merged, p.target)));
  candidate_list no_merge = make_list(spacemgr_all, 10.0, mode_config(false, true, true));
  EXPECT_FALSE(no_merge.dominate(candidate_for(no_merge, closed), candidate_for(no_merge, target)));
  EXPECT_FALSE(no_merge.dominate(candidate_for(no_merge, p.dominator), candidate_for(no_merge, p.target)));

  // ... and to piecewise when group dominance is set as well.
  candidate_list piecewise = make_list(spacemgr_all, 10.0, mode_config(true, true, true));
  EXPECT_TRUE(piecewise.dominate(candidate_for(piecewise, p.dominator), candidate_for(piecewise, p.target)));
  EXPECT_FALSE(piecewise.dominate(candidate_for(piecewise, closed), candidate_for(piecewise, target)));
}

TEST(CandidateListDominance, MergedModeRefusesADominatorFartherThanAPiece) {
  block_store store;
  // The slices themselves would shadow the target, but the solid of the
  // dominator is measured as a whole first: a solid farther than the target's
  // piece cannot dominate it.
  shape_t a = make_cuboid_shape(box(-0.9, -0.9, 1.3, 0.9, 0.9, 1.4));
  a.inner_pieces = {box(-0.9, -0.9, 1.0, 0.0, 0.9, 1.1), box(0.0, -0.9, 1.0, 0.9, 0.9, 1.1)};
  a.inner_box = a.inner_pieces[0];
  const wire_block* far_solid = store.add(a);
  const wire_block* target = store.cuboid(box(-1, -1, 1.2, 1, 1, 2));
  candidate_list merged = make_list(spacemgr_all, 10.0, mode_config(false, true, false));
  EXPECT_TRUE(merged.dominate_group_optimize_impl(far_solid->inner_pieces, target->outer_box, 0.2));
  EXPECT_FALSE(merged.dominate(candidate_for(merged, far_solid), candidate_for(merged, target)));
}

TEST(CandidateListDominance, MergedModeTakesItsXAndYIntervalsFromDifferentBoxes) {
  // Merged dominance as it is defined: for a target above or below the cube the
  // x intervals and the y intervals are merged in two separate lists, and any x
  // interval may pair with any y interval. Two rods of a prism cut along a
  // diagonal, one that covers in x and one that covers in y, thus count as a
  // wall, although from a corner of the cube the target is nearer than the
  // prism. The behaviour is kept; the piecewise mode makes no such claim.
  block_store store;
  const wire_block* prism = store.prism(
      {point2{{0.4, -3.1}}, point2{{0.6, -3.1}}, point2{{3.6, 0.6}}, point2{{3.4, 0.6}}}, -2.0, -1.2);
  shape_t cut = *prism;
  cut.inner_pieces = {box(0.4999, -3.0001, -2.0, 0.5001, -2.9999, -1.2), box(3.4999, 0.4999, -2.0, 3.5001, 0.5001, -1.2)};
  cut.outer_pieces = {box(0.4, -3.1, -2.0, 2.0, -1.25, -1.2), box(2.0, -1.25, -2.0, 3.6, 0.6, -1.2)};
  const wire_block* dominator = store.add(cut);
  const wire_block* below = store.cuboid(box(-1, -1, -3, 1, 1, -2.5));  // 1.5 below the cube

  candidate_list merged = make_list(spacemgr_all, 10.0, mode_config(false, true, false));
  const candidate a = candidate_for(merged, dominator);
  const candidate b = candidate_for(merged, below);
  ASSERT_DOUBLE_EQ(b.distance.value, 1.5);
  ASSERT_FALSE(merged.dominate_new_halden(a, b));
  EXPECT_TRUE(merged.dominate(a, b));
  candidate_list piecewise = make_list(spacemgr_all, 10.0, mode_config(true, false, false));
  EXPECT_FALSE(piecewise.dominate(a, b));

  const point3 corner{{-1, -1, -1}};
  EXPECT_DOUBLE_EQ(manhattan_distance(corner, *below).value, 1.5);
  EXPECT_GT(manhattan_distance(corner, *dominator).value, 1.7);
}

}  // namespace
}  // namespace torva
