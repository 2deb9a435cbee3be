// The layout checks: each kind of finding with its place, from one text that
// holds them all, and the edges of the geometric tests (touching is not
// overlapping, a keyhole is not a crossing).
#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <atomic>
#include <cmath>
#include <cstdlib>
#include <string>
#include <new>
#include <vector>

#include <malloc.h>

#include "torva/check/check.h"
#include "torva/layout/cap3d_parser.h"
#include "torva/layout/generator.h"
#include "torva/space/layout_fields.h"
#include "torva/space/space_manager.h"
#include "torva/layout/internal/parse_fixture.h"

// The sanitizers bring their own operator new, linked whole: there the test
// measures the heap a build keeps, and plain builds measure it at its fullest.
#if defined(__SANITIZE_ADDRESS__) || defined(__SANITIZE_THREAD__)
#define TORVA_SANITIZED_HEAP 1
#elif defined(__has_feature)
#if __has_feature(address_sanitizer) || __has_feature(thread_sanitizer)
#define TORVA_SANITIZED_HEAP 1
#endif
#endif
#ifdef TORVA_SANITIZED_HEAP
extern "C" std::size_t __sanitizer_get_current_allocated_bytes();
#else
// The heap this test binary holds, now and at its fullest: every operator new
// of the process (the library's too) comes through here, so that a build's
// peak, which the memory estimate must cover, can be measured. The standard
// library's other forms (arrays, nothrow) call these.
namespace heap_count {
std::atomic<long long> live{0}, peak{0};
void* noted(void* p) {
  if (!p) throw std::bad_alloc();
  const long long now = live += static_cast<long long>(malloc_usable_size(p));
  long long was = peak.load();
  while (now > was && !peak.compare_exchange_weak(was, now)) {
  }
  return p;
}
void release(void* p) noexcept {
  if (p) live -= static_cast<long long>(malloc_usable_size(p));
  std::free(p);
}
}  // namespace heap_count

void* operator new(std::size_t n) { return heap_count::noted(std::malloc(n ? n : 1)); }
void* operator new(std::size_t n, std::align_val_t a) {
  const std::size_t align = static_cast<std::size_t>(a);
  return heap_count::noted(std::aligned_alloc(align, (n + align - 1) / align * align));
}
void operator delete(void* p) noexcept { heap_count::release(p); }
void operator delete(void* p, std::align_val_t) noexcept { heap_count::release(p); }
void operator delete(void* p, std::size_t) noexcept { heap_count::release(p); }
void operator delete(void* p, std::size_t, std::align_val_t) noexcept { heap_count::release(p); }
#endif

namespace torva {
namespace {

using ::testing::HasSubstr;

// "kind@where" of each finding, for compact comparisons.
std::vector<std::string> places(const std::vector<finding>& findings, finding_kind kind) {
  std::vector<std::string> out;
  for (const finding& f : findings)
    if (f.kind == kind) out.push_back(f.where);
  return out;
}

const char* const flawed = R"(<cap3d>
<window> v1(0,0,0) v2(10,10,0) dirichlet </window>
<conductor> name a
  <block> basepoint(1,1,1abc) v1(1,0,0) v2(0,1,0) hvector(0,0,1) layer 2.5 </block>
  <conductor> name b
  <block> basepoint(1,1,1) v1(1,0,0) v2(0,1,0) </block>
</conductor>
</conductor>
<conductor> name c
  <poly> basepoint(5,5,0) hvector(0,0,1) <coord> 0,0 2,2 2,0 0,2 </coord> </poly>
  <block> basepoint(2.5,1,1) v1(1,0,0) v2(0,1,0) hvector(0,0,1) </block>
</conductor>
<conductor> name d <poly> hvector(0,0,1) <coord> 0,0 1,1 </coord> </poly> </conductor>
<conductor> name e <block> basepoint(2,1.5,1.5) v1(1,0,0) v2(0,1,0) hvector(0,0,1) </block> </conductor>
<task> <capacitance> c </capacitance> <capacitance> zz </capacitance> </task>
</cap3d>
)";

TEST(layout_checks, find_each_kind_with_its_line_or_conductor) {
  const text_scan_result scan = scan_layout_text(flawed);
  EXPECT_EQ(places(scan.findings, finding_kind::loose_number), (std::vector<std::string>{"line 4", "line 4"}));
  EXPECT_THAT(scan.findings.front().what, HasSubstr("\"1abc\" is not wholly a number: read as 1"));
  EXPECT_EQ(scan.findings.front().severity, severity::warning);
  EXPECT_EQ(places(scan.findings, finding_kind::nested_section), (std::vector<std::string>{"line 5"}));
  EXPECT_EQ(places(scan.findings, finding_kind::stray_closing), (std::vector<std::string>{"line 8"}));
  EXPECT_EQ(places(scan.findings, finding_kind::missing_field), (std::vector<std::string>{"line 6"}));
  EXPECT_EQ(places(scan.findings, finding_kind::self_crossing), (std::vector<std::string>{"line 10"}));
  EXPECT_EQ(places(scan.findings, finding_kind::short_polygon), (std::vector<std::string>{"line 13"}));
  // The reader makes a net at each closing tag: b twice (the second by the
  // stray closing tag), c, d, e.
  EXPECT_EQ(scan.places.conductor_lines, (std::vector<std::uint32_t>{5, 8, 9, 13, 14}));
  EXPECT_EQ(scan_layout_text(flawed, {true}).findings.front().severity, severity::error);

  internal::parse_fixture read;
  ASSERT_TRUE(read.parse(flawed));
  const std::vector<finding> found = check_layout(read.raw, &scan.places);
  EXPECT_EQ(places(found, finding_kind::bad_window), (std::vector<std::string>{"the window"}));
  EXPECT_EQ(places(found, finding_kind::duplicate_name), (std::vector<std::string>{"conductor b (line 8)"}));
  EXPECT_EQ(places(found, finding_kind::empty_conductor), (std::vector<std::string>{"conductor d (line 13)"}));
  EXPECT_EQ(places(found, finding_kind::unknown_task), (std::vector<std::string>{"the tasks"}));
  // b's block has no height, twice over; c's block overlaps e's.
  EXPECT_EQ(places(found, finding_kind::degenerate_block).size(), 2u);
  EXPECT_EQ(places(found, finding_kind::overlap), (std::vector<std::string>{"conductor e (line 14), block #1"}));
  EXPECT_EQ(count_errors(found), found.size());
}

TEST(layout_checks, solids_that_touch_do_not_overlap_and_coincident_ones_are_told_apart) {
  internal::parse_fixture read;
  ASSERT_TRUE(read.parse(R"(<cap3d>
<window> v1(0,0,0) v2(10,10,10) neumann </window>
<conductor> name a <block> basepoint(0,0,0) v1(1,0,0) v2(0,1,0) hvector(0,0,1) </block>
  <block> basepoint(0,0,0) v1(1,0,0) v2(0,1,0) hvector(0,0,1) </block> </conductor>
<conductor> name b <block> basepoint(1,0,0) v1(1,0,0) v2(0,1,0) hvector(0,0,1) </block>
  <block> basepoint(1.5,0.5,0.5) radius 0.5 height 1 </block> </conductor>
<conductor> name c <poly> basepoint(2,0,0) hvector(0,0,1) <coord> 0,0 1,0 0,1 </coord> </poly>
  <block> basepoint(1,0,0) v1(1,0,0) v2(0,1,0) hvector(0,0,1) </block> </conductor>
<conductor> name d <block> basepoint(2.5,0.6,0) v1(1,0,0) v2(0,1,0) hvector(0,0,1) </block> </conductor>
</cap3d>
)"));
  const std::vector<finding> found = check_layout(read.raw);
  EXPECT_EQ(places(found, finding_kind::repeated_block), (std::vector<std::string>{"the conductors"}));
  EXPECT_EQ(places(found, finding_kind::coincident_blocks), (std::vector<std::string>{"conductor c, block #2"}));
  // c's triangle touches b's cube along x = 2, and d's cube meets the
  // triangle's box but stays beyond its slanted side; b's cylinder lies in
  // c's copy of b's cube.
  EXPECT_EQ(places(found, finding_kind::overlap), (std::vector<std::string>{"conductor c, block #2"}));
}

TEST(layout_checks, a_crossing_is_two_edges_through_each_other_not_a_touch) {
  auto outline = [](std::vector<std::pair<double, double>> xy) {
    std::vector<point2> p;
    for (auto [x, y] : xy) p.push_back(point2{x, y});
    return p;
  };
  EXPECT_FALSE(find_self_crossing(outline({{0, 0}, {2, 0}, {2, 2}, {0, 2}})).found);
  // A keyhole: the cut runs in and out along the same line.
  EXPECT_FALSE(find_self_crossing(outline({{0, 0}, {4, 0}, {4, 4}, {2, 4}, {2, 1}, {2, 4}, {0, 4}})).found);
  const polygon_crossing eight = find_self_crossing(outline({{0, 0}, {2, 2}, {2, 0}, {0, 2}}));
  ASSERT_TRUE(eight.found);
  EXPECT_EQ(eight.x, 1.0);
  EXPECT_EQ(eight.y, 1.0);
  // A spiral of 400 points that winds over itself.
  std::vector<std::pair<double, double>> spiral;
  for (int k = 0; k < 400; ++k) spiral.push_back({std::cos(0.1 * k) * (1 + 0.01 * k), std::sin(0.1 * k) * (1 + 0.01 * k)});
  EXPECT_TRUE(find_self_crossing(outline(spiral)).found);
  EXPECT_TRUE(find_self_crossing(outline(spiral), 10).unchecked);
}

// The estimate covers the heap the library's own build takes at its fullest
// (the lists' spare capacity before they are trimmed, which glibc keeps
// resident), and stays near it: the same grids, and trees that split at least
// where the build's do (it has no dominance to thin them).
void expect_estimates_near_the_build(const circuit_layout& layout, std::initializer_list<std::uint32_t> pairs,
                                     std::int32_t max_depth = -1) {
  testing::log_capture quiet;
  for (std::uint32_t pair : pairs) {
    configure config;
    config.spacemgr_type = pair;
    config.max_depth = max_depth;
    config.thread_count = 1;
    const search_memory_estimate e = estimate_search_memory(layout, config, std::uint64_t(1) << 40);
#ifdef TORVA_SANITIZED_HEAP
    const double before = double(__sanitizer_get_current_allocated_bytes());
    space_manager built;
    built.initialize(config, layout);
    const double kept = double(__sanitizer_get_current_allocated_bytes()) - before;
    EXPECT_GT(double(e.bytes), 0.9 * kept) << "pair " << pair;
    EXPECT_LT(double(e.bytes), 6.0 * kept) << "pair " << pair;
#else
    const long long before = heap_count::live.load();
    heap_count::peak = before;
    space_manager built;
    built.initialize(config, layout);
    const double peak = double(heap_count::peak.load() - before);
    EXPECT_GT(double(e.bytes), 0.9 * peak) << "pair " << pair;
    EXPECT_LT(double(e.bytes), 4.0 * peak) << "pair " << pair;
#endif
    EXPECT_FALSE(e.over_budget);
    EXPECT_TRUE(estimate_search_memory(layout, config, e.bytes / 2).over_budget) << "pair " << pair;
  }
}

TEST(search_memory, estimates_stay_near_the_heap_the_build_takes) {
  generator_params params;
  params.kind = layout_kind::mixed;
  params.blocks = 1500;
  params.polygon_share = 0.3;
  params.cylinder_share = 0.1;
  circuit_layout layout;
  build_circuit(generate_layout(params), layout);
  derive_layout_fields(layout);
  expect_estimates_near_the_build(layout, {1u, 2u, 4u, 5u, 7u, 9u});
}

// A spiral that crosses itself, found by the check harness: a hybrid tree
// took 74 MiB where an estimate that split on what a leaf finally keeps
// counted 0.4 MiB, since the build splits as soon as a leaf holds too many.
TEST(search_memory, a_leaf_crowded_before_it_tightens_splits_in_the_estimate_too) {
  const char* root = std::getenv("TORVA_SOURCE_DIR");
  ASSERT_NE(root, nullptr);
  testing::log_capture quiet;
  circuit_layout layout;
  Cap3dParser parser(layout.data, 4, true, false);
  ASSERT_TRUE(parser.parse(std::string(root) + "/fuzz/regressions/check/crossing-spiral-splits-past-the-estimate.cap3d", ""));
  derive_layout_fields(layout);
  layout.blocks = find_coincident_blocks(layout.blocks).kept;
  expect_estimates_near_the_build(layout, {2u, 5u});
}

// Found by the check harness: a layout a few 1e-15 um across. The build sizes
// its grid with tolerant comparisons, to which every length there is equal,
// and laid out 256^3 cells (1.8 GB) where plain arithmetic counted 2^3. At
// depth 8 the same fault is 16^3 cells against 2^3.
TEST(search_memory, a_space_smaller_than_the_tolerance_is_laid_out_as_the_build_does) {
  const std::string text =
      "<cap3d>\n<conductor>\nname a\n<block> basepoint(0,0,0) v1(1e-12,0,0) v2(0,1e-12,0) hvector(0,0,1e-11) "
      "</block>\n</conductor>\n</cap3d>\n";
  testing::log_capture quiet;
  circuit_layout layout;
  Cap3dParser parser(layout.data, 4, true, false);
  ASSERT_TRUE(parser.parseBytes(text.data(), text.size(), ""));
  derive_layout_fields(layout);
  expect_estimates_near_the_build(layout, {2u, 5u}, 8);
}

}  // namespace
}  // namespace torva
