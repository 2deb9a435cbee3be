// The candidate list at its edges: the tolerance of its gates, the bound, and
// each dominance mode on hand-made cases. Random layouts against a
// brute-force scan are in candidate_list_exactness_test.cpp.
#include "torva/space/candidate_list.h"

#include <gtest/gtest.h>

#include <cmath>
#include <limits>

#include "torva_testing/random_layout.h"

namespace torva {
namespace {

using namespace torva::testing;
using candidate = candidate_list::candidate;

// A list around the unit cube at the origin (half size 1).
candidate_list make_list(std::int64_t kind, double bound, const configure& config = configure{}) {
  candidate_list list;
  list.initialize(config, cube_at(0, 0, 0, 1), bound);
  list.kind = kind;
  return list;
}

configure mode_config(bool group_dominance, bool group_optimize, bool double_ratio = false) {
  configure config;
  config.group_dominance = group_dominance;
  config.group_optimize = group_optimize;
  config.double_incline_ratio = double_ratio;
  return config;
}

candidate raw_candidate(const wire_block* block, double distance, bool is_cuboid = true, int ratio = 1) {
  candidate c;
  c.block = block;
  c.distance = distance;
  c.is_cuboid = is_cuboid;
  c.ratio = ratio;
  return c;
}

TEST(CandidateListSetup, CompleteSortsWithNotANumberLastAndKeepsNoSpareStorage) {
  circuit_layout store;
  const wire_block* b = add_cuboid(store, box(3, 0, 0, 4, 1, 1));
  candidate_list list = make_list(spacemgr_all_nd, 10.0);
  const double nan = std::numeric_limits<double>::quiet_NaN();
  for (double d : {3.0, nan, -0.5, 1.0, 2.0 + 5e-11, nan, 2.0, 0.25, 7.0}) list.add(raw_candidate(b, d));
  EXPECT_FALSE(list.try_add(raw_candidate(b, nan)));  // the bound test is false
  list.candidates.reserve(64);
  list.complete();
  ASSERT_EQ(list.candidates.size(), 9u);
  EXPECT_EQ(list.candidates.capacity(), 9u);
  for (std::size_t i = 1; i < 7; ++i) {
    EXPECT_LE(list.candidates[i - 1].distance.value, list.candidates[i].distance.value);
    EXPECT_FALSE(list.candidates[i] < list.candidates[i - 1]);
  }
  EXPECT_EQ(list.candidates.front().distance.value, -0.5);
  EXPECT_EQ(list.candidates[6].distance.value, 7.0);
  EXPECT_TRUE(std::isnan(list.candidates[7].distance.value) && std::isnan(list.candidates[8].distance.value));
  // Initializing again, and completing an emptied list, give all storage back.
  list.initialize(configure{}, cube_at(0, 0, 0, 2), 1.5);
  EXPECT_EQ(list.candidates.capacity(), 0u);
  EXPECT_EQ(list.kind, spacemgr_all_nd);  // the kind is the owner's to set
  list.add(raw_candidate(b, 1.0));
  list.candidates.pop_back();
  list.complete();
  EXPECT_EQ(list.candidates.capacity(), 0u);
  EXPECT_EQ(list.bound.value, 1.5);
}

TEST(CandidateListSetup, CompleteRemovesFarNonCuboidsButKeepsCuboidsInTheSamePlace) {
  circuit_layout store;
  // No tightening in kind 5, so the limit of complete is h + bound = 2.
  candidate_list list = make_list(spacemgr_all_nd, 1.0);
  const wire_block* far_cylinder = add_cylinder(store, 3, 0, 0, 1, 1);  // manhattan 2 from the centre
  const wire_block* far_cuboid = add_cuboid(store, box(2, -1, -1, 3, 1, 1));
  const wire_block* near_cylinder = add_cylinder(store, 2.5, 0, 0, 1, 1);  // 1.5
  const wire_block* edge_prism =
      add_prism(store, {p2(2 - 0.5e-10, -1), p2(3, -1), p2(3, 1), p2(2 - 0.5e-10, 1)}, -1, 1);
  ASSERT_DOUBLE_EQ(manhattan_distance(list.cube.center, *far_cylinder).value, 2.0);
  for (const wire_block* b : {far_cylinder, far_cuboid, near_cylinder, edge_prism}) list.add(candidate_for(list, b));
  list.complete();
  ASSERT_EQ(list.candidates.size(), 2u);
  EXPECT_EQ(list.candidates[0].block, near_cylinder);
  EXPECT_EQ(list.candidates[1].block, far_cuboid);
  EXPECT_EQ(list.bound.value, 1.0);
}

TEST(CandidateListBound, TryAddIsStrictAtTheBoundMinusTheTolerance) {
  circuit_layout store;
  const wire_block* b = add_cuboid(store, box(-9, -9, -9, 9, 9, 9));
  candidate_list list = make_list(spacemgr_all_nd, 5.0);
  EXPECT_FALSE(list.try_add(raw_candidate(b, 5.0 - 1e-10)));
  EXPECT_FALSE(list.try_add(raw_candidate(b, 5.0)));
  EXPECT_TRUE(list.try_add(raw_candidate(b, 5.0 - 2e-10)));
  EXPECT_EQ(list.candidates.size(), 1u);
  // A bound of zero or below refuses all but what lies deeper than it.
  candidate_list zero = make_list(spacemgr_all, 0.0);
  EXPECT_FALSE(zero.try_add(raw_candidate(b, 0.0)));
  EXPECT_TRUE(zero.try_add(raw_candidate(b, -0.5)));
  candidate_list negative = make_list(spacemgr_all, -1.0);
  EXPECT_FALSE(negative.try_add(raw_candidate(b, -0.5)));
  EXPECT_FALSE(negative.try_add(raw_candidate(b, -1.0)));
}

TEST(CandidateListBound, AddTightensToTwiceTheHalfPlusTheDistanceTimesTheRatio) {
  circuit_layout store;
  const wire_block* b = add_cuboid(store, box(3, 0, 0, 4, 1, 1));
  candidate_list list = make_list(spacemgr_all, 4.0);
  list.add(raw_candidate(b, 2.0 + 0.5e-10));  // t = 4 + 5e-11: no change
  EXPECT_EQ(list.bound.value, 4.0);
  list.add(raw_candidate(b, 2.0 - 0.5e-10));  // within the tolerance below: no change
  EXPECT_EQ(list.bound.value, 4.0);
  list.add(raw_candidate(b, 1.5));
  EXPECT_EQ(list.bound.value, 3.5);

  candidate_list doubled = make_list(spacemgr_all, 10.0, mode_config(false, false, true));
  const candidate c = candidate_for(doubled, add_cylinder(store, 3, 0, 0, 1, 1));  // distance 1, ratio 2
  ASSERT_EQ(c.ratio, 2);
  doubled.add(c);
  EXPECT_EQ(doubled.bound.value, 6.0);
}

TEST(CandidateListBound, DeepEntriesSkipTheScanAndDominanceButFallByTheBound) {
  circuit_layout store;
  candidate_list list = make_list(spacemgr_all, 10.0);
  const candidate deep = candidate_for(list, add_cuboid(store, box(0.5, -1, -1, 3, 1, 1)));
  ASSERT_DOUBLE_EQ(deep.distance.value, -0.5);
  EXPECT_TRUE(list.try_add(deep));
  EXPECT_TRUE(list.try_add(deep));  // the same block again: no duplicate test for it
  ASSERT_EQ(list.candidates.size(), 2u);

  // A block that dominates it by the box test does not evict it.
  const wire_block* wider = add_cuboid(store, box(0.4, -1.5, -1.5, 3.5, 1.5, 1.5));
  const candidate dominator = candidate_for(list, wider);
  ASSERT_TRUE(list.dominate(dominator, deep));
  EXPECT_TRUE(list.try_add(dominator));
  EXPECT_EQ(list.candidates.size(), 3u);
  EXPECT_DOUBLE_EQ(list.bound.value, 2.0 - 0.6);

  // Once bound - eps falls to its distance it goes; an entry just below stays.
  // t = 2 - 2.5 = -0.5 exactly.
  const wire_block* all = add_cuboid(store, box(-9, -9, -9, 9, 9, 9));
  list.add(raw_candidate(all, -0.5 - 2e-10));
  list.add(raw_candidate(all, -2.5));
  EXPECT_EQ(list.bound.value, -0.5);
  list.complete();
  ASSERT_EQ(list.candidates.size(), 3u);
  EXPECT_EQ(list.candidates[0].distance.value, -2.5);
  EXPECT_EQ(list.candidates[1].block, wider);
  EXPECT_EQ(list.candidates[2].distance.value, -0.5 - 2e-10);
}

TEST(CandidateListDominance, BoxTestNeedsTheDominatorTwiceAsCloseWithRatioTwo) {
  circuit_layout store;
  candidate_list list = make_list(spacemgr_all, 10.0);
  const wire_block* target = add_cuboid(store, box(3, -1, -1, 4, 1, 1));     // gap 2
  const wire_block* close = add_cuboid(store, box(1.5, -1, -1, 1.8, 1, 1));  // gap 0.5
  const wire_block* half_way = add_cuboid(store, box(2.5, -1, -1, 2.8, 1, 1));  // gap 1.5
  const candidate b = raw_candidate(target, 2.0);
  EXPECT_TRUE(list.dominate_new_halden(raw_candidate(close, 0.5, true, 1), b));
  EXPECT_TRUE(list.dominate_new_halden(raw_candidate(close, 0.5, true, 2), b));
  EXPECT_TRUE(list.dominate_new_halden(raw_candidate(half_way, 1.5, true, 1), b));
  EXPECT_FALSE(list.dominate_new_halden(raw_candidate(half_way, 1.5, true, 2), b));
  // The dominated block's own ratio plays no part.
  EXPECT_FALSE(list.dominate_new_halden(raw_candidate(half_way, 1.5, true, 2), raw_candidate(target, 2.0, true, 2)));
}

// Whether `a` dominates `b` for the unit cube under the configuration, and
// whether the box test alone says so.
bool claims(const configure& config, const wire_block* a, const wire_block* b) {
  const candidate_list list = make_list(spacemgr_all, 10.0, config);
  return list.dominate(candidate_for(list, a), candidate_for(list, b));
}
bool box_claims(const wire_block* a, const wire_block* b) {
  const candidate_list list = make_list(spacemgr_all, 10.0);
  return list.dominate_new_halden(candidate_for(list, a), candidate_for(list, b));
}

const configure plain = mode_config(false, false), piecewise = mode_config(true, false),
                merged = mode_config(false, true);

// A thin plate just above the unit cube (z 1 to 1.1) whose inner pieces are
// slices across x at the given extents, spanning y -0.9 to 0.9; its inner box
// is the second slice alone. The target lies 0.2 above the cube, over its
// whole plan, so d = 0.2 and gaps of up to 0.4 between slices close.
const wire_block* plate_of_slices(circuit_layout& store, std::initializer_list<std::pair<double, double>> xs) {
  shape_t s = make_cuboid_shape(box(-0.9, -0.9, 1.0, 0.9, 0.9, 1.1));
  s.inner_pieces.clear();
  for (auto [lo, hi] : xs) s.inner_pieces.push_back(box(lo, -0.9, 1.0, hi, 0.9, 1.1));
  s.inner_box = s.inner_pieces[1];
  return add_block(store, s);
}

const cuboid_t above = box(-1, -1, 1.2, 1, 1, 2);  // d = 0.2 over the whole plan

TEST(CandidateListDominance, MergedSlicesAboveTheCubeCloseGapsOfUpToTwiceD) {
  circuit_layout store;
  const wire_block* target = add_cuboid(store, above);
  const wire_block* closed = plate_of_slices(store, {{-0.9, -0.35}, {-0.05, 0.35}, {0.65, 0.9}});
  const wire_block* open = plate_of_slices(store, {{-0.9, -0.35}, {0.15, 0.35}, {0.65, 0.9}});
  ASSERT_DOUBLE_EQ(candidate_for(make_list(spacemgr_all, 10.0), target).distance.value, 0.2);
  ASSERT_FALSE(box_claims(closed, target));
  EXPECT_TRUE(claims(merged, closed, target));
  EXPECT_FALSE(claims(merged, open, target));
  const candidate_list list = make_list(spacemgr_all, 10.0, merged);
  EXPECT_TRUE(list.dominate_group_optimize_impl(closed->inner_pieces, above, 0.2));
  EXPECT_FALSE(list.dominate_group_optimize_impl(open->inner_pieces, above, 0.2));
  EXPECT_TRUE(list.dominate_group_optimize_impl(open->inner_pieces, above, 0.25));  // a larger d closes it
  // Sixty thin slices with gaps of 0.01 chain up; one gap of 0.5 breaks them.
  std::vector<cuboid_t> slices, broken;
  for (int k = 0; k < 60; ++k) {
    const double x0 = -0.95 + k * 0.0316, shift = k >= 30 ? 0.25 : -0.25;
    slices.push_back(box(x0, -0.9, 1.0, x0 + 0.0216, 0.9, 1.1));
    broken.push_back(box(x0 + shift, -0.9, 1.0, x0 + shift + 0.0216, 0.9, 1.1));
  }
  EXPECT_TRUE(list.dominate_group_optimize_impl(slices, above, 0.2));
  EXPECT_FALSE(list.dominate_group_optimize_impl(broken, above, 0.2));
  // No single slice shadows the target, so the other modes say no; the double
  // ratio switches merging off (to piecewise with group dominance, else plain).
  EXPECT_FALSE(claims(piecewise, closed, target));
  EXPECT_FALSE(claims(plain, closed, target));
  EXPECT_FALSE(claims(mode_config(false, true, true), closed, target));
  EXPECT_FALSE(claims(mode_config(true, true, true), closed, target));
}

TEST(CandidateListDominance, AnEmptyGroupShadowsNothing) {
  circuit_layout store;
  EXPECT_FALSE(make_list(spacemgr_all, 10.0, merged).dominate_group_optimize_impl({}, box(1.2, -1, -1, 2, 1, 1), 0.2));
  // A dominator with no inner pieces against a cut target: false, no crash.
  shape_t empty = make_cuboid_shape(box(1.0, -1, -1, 1.1, 1, 1));
  empty.inner_pieces.clear();
  empty.inner_box = box(1.0, -0.1, -0.1, 1.1, 0.1, 0.1);
  const wire_block* a = add_block(store, empty);
  const wire_block* b = add_cuboid(store, box(1.2, -1, -1, 2, 1, 1), 2);
  ASSERT_FALSE(box_claims(a, b));
  EXPECT_FALSE(claims(merged, a, b));
}

// Two halves of a target, each shadowed by its own piece of the dominator,
// while the dominator's inner box (one piece) cannot shadow the whole target.
struct split_pair {
  const wire_block* dominator;
  const wire_block* target;
};
split_pair halves(circuit_layout& store) {
  shape_t a = make_cuboid_shape(box(-1.5, -1, 1.0, 1.5, 1, 1.1));
  a.inner_pieces = {box(-1.5, -1, 1.0, 0, 1, 1.1), box(0, -1, 1.0, 1.5, 1, 1.1)};
  a.inner_box = a.inner_pieces[0];
  // Longer in x, so the cutter halves it across x.
  return {add_block(store, a), add_cuboid(store, box(-1, -0.95, 1.2, 1, 0.95, 2), 2)};
}

TEST(CandidateListDominance, PiecewiseShadowsEachPieceByOnePiece) {
  circuit_layout store;
  const split_pair p = halves(store);
  ASSERT_FALSE(box_claims(p.dominator, p.target));
  EXPECT_TRUE(claims(piecewise, p.dominator, p.target));
  EXPECT_TRUE(claims(merged, p.dominator, p.target));
  EXPECT_FALSE(claims(plain, p.dominator, p.target));
  // The double ratio leaves piecewise alone and turns merged to plain.
  EXPECT_TRUE(claims(mode_config(true, true, true), p.dominator, p.target));
  EXPECT_FALSE(claims(mode_config(false, true, true), p.dominator, p.target));
  // Without the second dominator piece the right half stays unshadowed.
  shape_t one = *p.dominator;
  one.inner_pieces.back() = box(0, -1, 1.0, 0.5, 1, 1.1);
  EXPECT_FALSE(claims(piecewise, add_block(store, one), p.target));
}

TEST(CandidateListDominance, EmptyOuterPiecesCountAsShadowedInGroupModes) {
  circuit_layout store;
  const split_pair p = halves(store);
  // Below the cube: the dominator's single inner box cannot shadow it.
  shape_t hollow = make_cuboid_shape(box(-1, -3, -1, 1, -2, 1));
  hollow.outer_pieces.clear();
  const wire_block* b = add_block(store, hollow);
  ASSERT_FALSE(box_claims(p.dominator, b));
  EXPECT_TRUE(claims(piecewise, p.dominator, b));
  EXPECT_TRUE(claims(merged, p.dominator, b));
}

TEST(CandidateListDominance, MergedModeRefusesADominatorFartherThanAPiece) {
  // The slices themselves would shadow the target, but the solid of the
  // dominator is measured as a whole first: a solid farther than the target's
  // piece cannot dominate it.
  circuit_layout store;
  shape_t a = make_cuboid_shape(box(-0.9, -0.9, 1.3, 0.9, 0.9, 1.4));
  a.inner_pieces = {box(-0.9, -0.9, 1.0, 0.0, 0.9, 1.1), box(0.0, -0.9, 1.0, 0.9, 0.9, 1.1)};
  a.inner_box = a.inner_pieces[0];
  const wire_block* far_solid = add_block(store, a);
  EXPECT_TRUE(make_list(spacemgr_all, 10.0, merged).dominate_group_optimize_impl(far_solid->inner_pieces, above, 0.2));
  EXPECT_FALSE(claims(merged, far_solid, add_cuboid(store, above)));
}

TEST(CandidateListDominance, MergedModeTakesItsXAndYIntervalsFromDifferentBoxes) {
  // Merged dominance as it is defined: for a target above or below the cube the
  // x intervals and the y intervals are merged in two separate lists, and any x
  // interval may pair with any y interval. Two rods of a prism cut along a
  // diagonal, one that covers in x and one that covers in y, thus count as a
  // wall, although from a corner of the cube the target is nearer than the
  // prism. The behaviour is kept; the piecewise mode makes no such claim.
  circuit_layout store;
  shape_t cut = *add_prism(store, {p2(0.4, -3.1), p2(0.6, -3.1), p2(3.6, 0.6), p2(3.4, 0.6)}, -2.0, -1.2);
  cut.inner_pieces = {box(0.4999, -3.0001, -2.0, 0.5001, -2.9999, -1.2), box(3.4999, 0.4999, -2.0, 3.5001, 0.5001, -1.2)};
  cut.outer_pieces = {box(0.4, -3.1, -2.0, 2.0, -1.25, -1.2), box(2.0, -1.25, -2.0, 3.6, 0.6, -1.2)};
  const wire_block* dominator = add_block(store, cut);
  const wire_block* below = add_cuboid(store, box(-1, -1, -3, 1, 1, -2.5));  // 1.5 below the cube

  ASSERT_DOUBLE_EQ(candidate_for(make_list(spacemgr_all, 10.0), below).distance.value, 1.5);
  ASSERT_FALSE(box_claims(dominator, below));
  EXPECT_TRUE(claims(merged, dominator, below));
  EXPECT_FALSE(claims(piecewise, dominator, below));

  const point3 corner = p3(-1, -1, -1);
  EXPECT_DOUBLE_EQ(manhattan_distance(corner, *below).value, 1.5);
  EXPECT_GT(manhattan_distance(corner, *dominator).value, 1.7);
}

}  // namespace
}  // namespace torva
