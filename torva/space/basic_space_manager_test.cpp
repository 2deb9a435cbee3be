// The pair: which box it searches and which answers the wall, the cache that
// bypasses the box tests, and how the two strategies' answers and reaches
// combine. Answers on random layouts are in nearest_oracle_test.cpp.
#include <gtest/gtest.h>

#include <memory>

#include "torva/foundation/abstract_wrapper.h"
#include "torva/space/basic_space_manager.h"
#include "torva/space/simple_spacemgr.h"
#include "torva/space/unused_spacemgr.h"
#include "torva_testing/log_capture.h"
#include "torva_testing/random_layout.h"

namespace torva {

// A strategy whose one list the test fills by hand.
struct hand_strategy {
  candidate_list list;
  void initialize(const configure&, const cuboid_t&, const circuit_layout&) {}
  candidate_list const* find_list(const point3&) const { return &list; }
};

// A first strategy that stands for the plain grid in the boundary-box rule.
struct boundary_strategy : simple_spacemgr<0> {};
template <>
inline constexpr bool uses_boundary_box<boundary_strategy, unused_spacemgr> = true;

namespace {

using namespace torva::testing;
using holder_t = sea::abstract_wrapper<space_manager_interface>;
using simple_pair = basic_space_manager<simple_spacemgr<3>, simple_spacemgr<1>>;
using simple_none = basic_space_manager<simple_spacemgr<0>, unused_spacemgr>;
using boundary_pair = basic_space_manager<boundary_strategy, unused_spacemgr>;

// Window [0, 100]^3, blocks in [40, 60]^3, critical box [20, 80]^3, margin 0.5.
std::unique_ptr<circuit_layout> centred_layout(int boundary) {
  auto layout = std::make_unique<circuit_layout>();
  layout->data.window = box(0, 0, 0, 100, 100, 100);
  layout->data.critical_box = box(20, 20, 20, 80, 80, 80);
  layout->data.boundary = boundary;
  layout->space_margin = 0.5;
  add_cuboid(*layout, box(40, 40, 40, 45, 45, 45));
  add_cylinder(*layout, 55, 55, 55, 5, 5);
  return layout;
}

template <class Pair>
Pair& build(holder_t& holder, const circuit_layout& layout, bool use_critical_box) {
  configure config;
  config.use_critical_box = use_critical_box;
  Pair& m = holder.construct<Pair>();
  m.initialize(config, layout);
  return m;
}

void expect_box(const cuboid_t& b, double lo, double hi) {
  for (int k = 0; k < 3; ++k) {
    EXPECT_DOUBLE_EQ(b.lower[k].value, lo);
    EXPECT_DOUBLE_EQ(b.upper[k].value, hi);
  }
}

TEST(BasicSpaceManager, TheCriticalBoxServesOnlyADirichletWindowThatAsksForIt) {
  struct row {
    int boundary;
    bool use_critical_box;
    const char* line;
    double space_lo, space_hi, wall_lo, wall_hi;
  } rows[] = {
      {1, false, "Don't use critical box.\n", -0.5, 100.5, 0, 100},
      {2, true, "Don't use critical box.\n", -0.5, 100.5, 0, 100},
      {1, true, "use critical box.\n", 19.5, 80.5, 0, 100},
  };
  for (const row& r : rows) {
    SCOPED_TRACE(r.line);
    testing::log_capture log;
    auto layout = centred_layout(r.boundary);
    holder_t holder;
    const simple_pair& m = build<simple_pair>(holder, *layout, r.use_critical_box);
    EXPECT_EQ(log.info(), r.line);
    EXPECT_EQ(m.use_critical, r.boundary == 1 && r.use_critical_box);
    expect_box(holder->space(), r.space_lo, r.space_hi);
    expect_box(m.wall_box, r.wall_lo, r.wall_hi);
    expect_box(m.critical, m.use_critical ? 20 : 0, m.use_critical ? 80 : 0);
  }
}

TEST(BasicSpaceManager, TheBoundaryBoxPairMeasuresOutwardFromTheCriticalBox) {
  for (int boundary : {1, 2}) {
    SCOPED_TRACE(boundary);
    testing::log_capture log;
    auto layout = centred_layout(boundary);
    layout->data.critical_box = box(35, 35, 35, 65, 65, 65);
    layout->space_margin = 0.25;  // grown by 20 margins: [30, 70]
    holder_t holder;
    const boundary_pair& m = build<boundary_pair>(holder, *layout, false);
    EXPECT_EQ(log.info(), "use boundary box.\n");
    EXPECT_FALSE(m.use_critical);
    expect_box(m.space(), 30, 70);
    expect_box(m.wall_box, 35, 65);
    candidate_list_cache a, b;
    const nearest_result out = m.nearest(p3(20, 50, 50), 1e9, a, b);
    EXPECT_EQ(out.block, nullptr);
    EXPECT_DOUBLE_EQ(out.distance.value, 15.0);
    EXPECT_EQ(a.list, nullptr);  // no lookup happened
    EXPECT_DOUBLE_EQ(m.nearest(p3(20, 50, 50), 4.0, a, b).distance.value, 4.0);
    // Inside the space but outside the critical box: the list answers.
    const nearest_result in = m.nearest(p3(37, 42, 42), 1e9, a, b);
    EXPECT_EQ(in.block, layout->blocks[0]);
    EXPECT_DOUBLE_EQ(in.distance.value, 3.0);  // within the list's scope of 7 there
  }
}

TEST(BasicSpaceManager, AMatchingCacheBypassesTheBoxTests) {
  testing::log_capture log;
  auto layout = centred_layout(1);
  layout->data.critical_box = box(20, 40, 40, 80, 60, 60);  // long in x: its cube reaches past it in y and z
  holder_t holder;
  const simple_none& m = build<simple_none>(holder, *layout, true);
  candidate_list_cache a, b;
  ASSERT_NE(m.nearest(p3(50, 40.5, 50), 1e9, a, b).block, nullptr);
  ASSERT_NE(a.list, nullptr);
  // Outside the critical box but inside the cached list's cube.
  const nearest_result cached = m.nearest(p3(50, 35, 50), 1e9, a, b);
  EXPECT_EQ(cached.block, layout->blocks[0]);
  EXPECT_DOUBLE_EQ(cached.distance.value, 5.0);
  // The same point with fresh caches meets the wall.
  candidate_list_cache c, d;
  const nearest_result fresh = m.nearest(p3(50, 35, 50), 1e9, c, d);
  EXPECT_EQ(fresh.block, nullptr);
  EXPECT_DOUBLE_EQ(fresh.distance.value, 35.0);
}

// Two hand-filled lists about the origin (cube half 1, scope 100), queried at
// the origin: the second is asked with the first answer as its limit, wins only
// when nearer beyond the tolerance, and then brings its own reach.
TEST(BasicSpaceManager, TheSecondAnswerWinsWithItsReachOnlyWhenNearer) {
  testing::log_capture log;
  circuit_layout layout;
  layout.data.window = box(-50, -50, -50, 50, 50, 50);
  holder_t holder;
  auto& m = build<basic_space_manager<hand_strategy, hand_strategy>>(holder, layout, false);
  // A cuboid and a cylinder at distance d from the origin along +x.
  const wire_block* cub[] = {add_cuboid(layout, box(3, -1, -1, 4, 1, 1)), add_cuboid(layout, box(5, -1, -1, 6, 1, 1))};
  const wire_block* cyl[] = {add_cylinder(layout, 3, 0, 0, 1, 1), add_cylinder(layout, 5, 0, 0, 1, 1)};
  auto fill = [](candidate_list& l, std::int64_t kind, const wire_block* b, double d, int ratio) {
    l.cube.half = 1.0;
    l.scope_bound = l.bound = 100.0;
    l.kind = kind;
    l.candidates.clear();
    if (b != nullptr) l.candidates.push_back({b, d - 1.0, b->shape_kind == shape_cuboid, false, ratio});
  };
  struct row {
    const wire_block *first, *second;
    double first_d, second_d, limit;
    int first_ratio, second_ratio;
    const wire_block* block;
    double distance, reach;
  } rows[] = {
      {cub[1], cyl[0], 5, 2, 1e9, 1, 2, cyl[0], 2, 4},  // the nearer second brings its reach 2 * 2
      {cub[0], cyl[1], 3, 4, 1e9, 2, 1, cub[0], 3, 6},  // a farther second leaves the first's reach 2 * 3
      {nullptr, cyl[1], 0, 4, 3, 1, 1, nullptr, 3, 3},  // the first answers the limit, which caps the second
      {nullptr, cyl[1], 0, 4, 10, 1, 1, cyl[1], 4, 4},
      {nullptr, cyl[1], 0, 4, 4 + 5e-11, 1, 1, nullptr, 4 + 5e-11, 4 + 5e-11},  // a tie: the first stands
  };
  for (const row& r : rows) {
    SCOPED_TRACE(r.limit);
    fill(m.first.list, spacemgr_cuboid, r.first, r.first_d, r.first_ratio);
    fill(m.second.list, spacemgr_incline, r.second, r.second_d, r.second_ratio);
    candidate_list_cache a, b;
    const nearest_result got = m.nearest(p3(0, 0, 0), r.limit, a, b);
    EXPECT_EQ(got.block, r.block);
    EXPECT_DOUBLE_EQ(got.distance.value, r.distance);
    EXPECT_DOUBLE_EQ(got.reach.value, r.reach);
  }
}

}  // namespace
}  // namespace torva
