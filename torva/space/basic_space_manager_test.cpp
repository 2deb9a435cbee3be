// The pair: its boxes, the critical-box and boundary-box answers, the cache
// that bypasses them, and how the two strategies' answers combine.
#include <gtest/gtest.h>

#include <memory>

#include "torva/foundation/abstract_wrapper.h"
#include "torva/space/basic_space_manager.h"
#include "torva/space/octree_spacemgr.h"
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

using testing::box;
using simple_pair = basic_space_manager<simple_spacemgr<3>, simple_spacemgr<1>>;
using simple_none = basic_space_manager<simple_spacemgr<0>, unused_spacemgr>;

// Window [0, 100]^3, blocks in [40, 60]^3, critical box [20, 80]^3, margin 0.5.
std::unique_ptr<circuit_layout> centred_layout(int boundary) {
  auto layout = std::make_unique<circuit_layout>();
  layout->data.window = box(0, 0, 0, 100, 100, 100);
  layout->data.critical_box = box(20, 20, 20, 80, 80, 80);
  layout->data.boundary = boundary;
  layout->space_margin = 0.5;
  testing::add_block(*layout, testing::cuboid_shape(box(40, 40, 40, 45, 45, 45)));
  testing::add_block(*layout, testing::cylinder_shape(55, 55, 55, 5, 5));
  for (const wire_block& b : layout->data.wire_blocks) layout->blocks.push_back(&b);
  return layout;
}

void expect_box(const cuboid_t& b, double lo, double hi) {
  for (int k = 0; k < 3; ++k) {
    EXPECT_DOUBLE_EQ(b.lower[k].value, lo);
    EXPECT_DOUBLE_EQ(b.upper[k].value, hi);
  }
}

TEST(BasicSpaceManager, WithoutTheCriticalBoxTheSpaceIsTheWindowGrownByTheMargin) {
  testing::log_capture log;
  auto layout = centred_layout(1);
  configure config;
  sea::abstract_wrapper<space_manager_interface> holder;
  simple_pair& m = holder.construct<simple_pair>();
  m.initialize(config, *layout);
  EXPECT_EQ(log.info(), "Don't use critical box.\n");
  EXPECT_FALSE(m.use_critical);
  EXPECT_TRUE(m.dirichlet);
  expect_box(m.space(), -0.5, 100.5);
  expect_box(holder->space(), -0.5, 100.5);
  expect_box(m.wall_box, 0, 100);
  expect_box(m.critical, 0, 0);
  EXPECT_EQ(m.first.kind, spacemgr_cuboid);
  EXPECT_EQ(m.second.kind, spacemgr_incline);
}

TEST(BasicSpaceManager, UnderANeumannWindowTheCriticalBoxIsNotUsed) {
  testing::log_capture log;
  auto layout = centred_layout(2);
  testing::add_block(*layout, testing::cuboid_shape(box(5, 45, 45, 6, 55, 55)));
  layout->blocks.push_back(&layout->data.wire_blocks.back());
  configure config;
  config.use_critical_box = true;
  sea::abstract_wrapper<space_manager_interface> holder;
  simple_pair& m = holder.construct<simple_pair>();
  m.initialize(config, *layout);
  EXPECT_EQ(log.info(), "Don't use critical box.\n");
  EXPECT_FALSE(m.use_critical);
  EXPECT_FALSE(m.dirichlet);
  // A point outside the critical box is answered by the lists, not the wall.
  candidate_list_cache a, b;
  const nearest_result r = m.nearest(point3{{10, 50, 50}}, 1e9, a, b);
  EXPECT_EQ(r.block, &layout->data.wire_blocks.back());
  EXPECT_DOUBLE_EQ(r.distance.value, 4.0);
}

TEST(BasicSpaceManager, OutsideTheCriticalBoxTheNearestWallAnswersCutAtTheLimit) {
  testing::log_capture log;
  auto layout = centred_layout(1);
  configure config;
  config.use_critical_box = true;
  sea::abstract_wrapper<space_manager_interface> holder;
  simple_pair& m = holder.construct<simple_pair>();
  m.initialize(config, *layout);
  EXPECT_EQ(log.info(), "use critical box.\n");
  EXPECT_TRUE(m.use_critical);
  expect_box(m.space(), 19.5, 80.5);
  expect_box(m.wall_box, 0, 100);
  expect_box(m.critical, 20, 80);
  {
    candidate_list_cache a, b;
    const nearest_result r = m.nearest(point3{{10, 50, 93}}, 1e9, a, b);
    EXPECT_EQ(r.block, nullptr);
    EXPECT_DOUBLE_EQ(r.distance.value, 7.0);
    EXPECT_DOUBLE_EQ(r.reach.value, 7.0);
    EXPECT_EQ(a.list, nullptr);  // no lookup happened
  }
  {
    candidate_list_cache a, b;
    const nearest_result r = m.nearest(point3{{10, 50, 93}}, 2.5, a, b);
    EXPECT_EQ(r.block, nullptr);
    EXPECT_DOUBLE_EQ(r.distance.value, 2.5);
    EXPECT_DOUBLE_EQ(r.reach.value, 2.5);
  }
  {
    // Inside the critical box the lists answer.
    candidate_list_cache a, b;
    const nearest_result r = m.nearest(point3{{30, 42, 42}}, 1e9, a, b);
    EXPECT_EQ(r.block, &layout->data.wire_blocks[0]);
    EXPECT_DOUBLE_EQ(r.distance.value, 10.0);
  }
}

TEST(BasicSpaceManager, AMatchingCacheBypassesTheBoxTests) {
  testing::log_capture log;
  auto layout = centred_layout(1);
  layout->data.critical_box = box(20, 40, 40, 80, 60, 60);  // long in x: its cube reaches past it in y and z
  configure config;
  config.use_critical_box = true;
  sea::abstract_wrapper<space_manager_interface> holder;
  simple_none& m = holder.construct<simple_none>();
  m.initialize(config, *layout);
  candidate_list_cache a, b;
  const nearest_result inside = m.nearest(point3{{50, 40.5, 50}}, 1e9, a, b);
  ASSERT_NE(a.list, nullptr);
  // Outside the critical box but inside the cached list's cube.
  const nearest_result cached = m.nearest(point3{{50, 35, 50}}, 1e9, a, b);
  EXPECT_NE(inside.block, nullptr);
  EXPECT_EQ(cached.block, &layout->data.wire_blocks[0]);
  EXPECT_DOUBLE_EQ(cached.distance.value, 5.0);
  // The same point with fresh caches meets the wall.
  candidate_list_cache c, d;
  const nearest_result fresh = m.nearest(point3{{50, 35, 50}}, 1e9, c, d);
  EXPECT_EQ(fresh.block, nullptr);
  EXPECT_DOUBLE_EQ(fresh.distance.value, 35.0);
}

TEST(BasicSpaceManager, TheBoundaryBoxPairMeasuresOutwardFromTheCriticalBox) {
  using boundary_pair = basic_space_manager<boundary_strategy, unused_spacemgr>;
  for (int boundary : {1, 2}) {
    testing::log_capture log;
    auto layout = centred_layout(boundary);
    layout->data.critical_box = box(35, 35, 35, 65, 65, 65);
    layout->space_margin = 0.25;  // grown by 20 margins: [30, 70]
    configure config;
    sea::abstract_wrapper<space_manager_interface> holder;
    boundary_pair& m = holder.construct<boundary_pair>();
    m.initialize(config, *layout);
    EXPECT_EQ(log.info(), "use boundary box.\n");
    EXPECT_FALSE(m.use_critical);
    expect_box(m.space(), 30, 70);
    expect_box(m.wall_box, 35, 65);
    expect_box(m.critical, 0, 0);
    candidate_list_cache a, b;
    const nearest_result out = m.nearest(point3{{20, 50, 50}}, 1e9, a, b);
    EXPECT_EQ(out.block, nullptr);
    EXPECT_DOUBLE_EQ(out.distance.value, 15.0);
    EXPECT_EQ(a.list, nullptr);
    const nearest_result cut = m.nearest(point3{{20, 50, 50}}, 4.0, a, b);
    EXPECT_DOUBLE_EQ(cut.distance.value, 4.0);
    // Inside the space but outside the critical box: the list answers.
    const nearest_result in = m.nearest(point3{{37, 42, 42}}, 1e9, a, b);
    EXPECT_EQ(in.block, &layout->data.wire_blocks[0]);
    EXPECT_DOUBLE_EQ(in.distance.value, 3.0);  // within the list's scope of 7 there
  }
}

TEST(BasicSpaceManager, TheUnusedSecondNeverChangesTheFirstAnswer) {
  testing::log_capture log;
  auto layout = centred_layout(1);
  configure config;
  config.double_incline_ratio = true;
  sea::abstract_wrapper<space_manager_interface> holder;
  auto& m = holder.construct<basic_space_manager<octree_spacemgr<0>, unused_spacemgr>>();
  m.initialize(config, *layout);
  for (const point3& p : {point3{{50, 52, 55}}, point3{{10, 10, 10}}, point3{{70, 55, 55}}}) {
    candidate_list_cache a, b, c;
    const nearest_result both = m.nearest(p, 1e9, a, b);
    const nearest_result first = m._nearest(p, 1e9, c, false);
    EXPECT_EQ(both.block, first.block);
    EXPECT_EQ(both.distance.value, first.distance.value);
    EXPECT_EQ(both.reach.value, first.reach.value);
  }
}

// Two hand-filled lists about the origin (cube half 1, scope 100), queried at the origin.
struct hand_pair_fixture : ::testing::Test {
  using pair = basic_space_manager<hand_strategy, hand_strategy>;
  circuit_layout layout;
  sea::abstract_wrapper<space_manager_interface> holder;
  pair* m = nullptr;
  testing::log_capture log;

  void SetUp() override {
    layout.data.window = box(-50, -50, -50, 50, 50, 50);
    m = &holder.construct<pair>();
    configure config;
    m->initialize(config, layout);
    for (candidate_list* l : {&m->first.list, &m->second.list}) {
      l->cube.half = 1.0;
      l->scope_bound = 100.0;
      l->bound = 100.0;
    }
    m->first.list.kind = spacemgr_cuboid;
    m->second.list.kind = spacemgr_incline;
  }
  // A block at distance d from the origin along +x.
  const wire_block* cuboid_at(double d) {
    return &testing::add_block(layout, testing::cuboid_shape(box(d, -1, -1, d + 1, 1, 1)));
  }
  const wire_block* cylinder_at(double d) {
    return &testing::add_block(layout, testing::cylinder_shape(d + 1, 0, 0, 1, 1));
  }
  static void put(candidate_list& l, const wire_block* b, double d, int ratio) {
    candidate_list::candidate c;
    c.block = b;
    c.distance = d - 1.0;
    c.is_cuboid = b->shape_kind == shape_cuboid;
    c.ratio = ratio;
    l.candidates.push_back(c);
  }
  nearest_result ask(double limit = 1e9) {
    candidate_list_cache a, b;
    return m->nearest(point3{{0, 0, 0}}, limit, a, b);
  }
};

TEST_F(hand_pair_fixture, ANearerSecondGivesItsBlockDistanceAndReach) {
  const wire_block* cub = cuboid_at(5);
  const wire_block* cyl = cylinder_at(2);
  put(m->first.list, cub, 5, 1);
  put(m->second.list, cyl, 2, 2);  // reach 2 * 2 = 4, below the first's 5
  const nearest_result r = ask();
  EXPECT_EQ(r.block, cyl);
  EXPECT_DOUBLE_EQ(r.distance.value, 2.0);
  EXPECT_DOUBLE_EQ(r.reach.value, 4.0);
}

TEST_F(hand_pair_fixture, ASecondThatIsNotNearerLeavesTheFirstReachAlone) {
  const wire_block* cub = cuboid_at(3);
  const wire_block* cyl = cylinder_at(4);
  put(m->first.list, cub, 3, 2);  // a ratio 2 entry: reach 6
  put(m->second.list, cyl, 4, 1);
  const nearest_result r = ask();
  EXPECT_EQ(r.block, cub);
  EXPECT_DOUBLE_EQ(r.distance.value, 3.0);
  EXPECT_DOUBLE_EQ(r.reach.value, 6.0);
}

TEST_F(hand_pair_fixture, TheFirstAnswerIsTheLimitOfTheSecond) {
  const wire_block* cyl = cylinder_at(4);
  put(m->second.list, cyl, 4, 1);
  // The first list is empty: its answer is the limit, which caps the second.
  const nearest_result capped = ask(3.0);
  EXPECT_EQ(capped.block, nullptr);
  EXPECT_DOUBLE_EQ(capped.distance.value, 3.0);
  const nearest_result found = ask(10.0);
  EXPECT_EQ(found.block, cyl);
  EXPECT_DOUBLE_EQ(found.distance.value, 4.0);
  // Within the tolerance the first stands.
  const nearest_result tie = ask(4.0 + 5e-11);
  EXPECT_EQ(tie.block, nullptr);
  EXPECT_DOUBLE_EQ(tie.distance.value, 4.0 + 5e-11);
}

}  // namespace
}  // namespace torva
