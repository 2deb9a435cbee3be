#include "torva/check/search_memory.h"

#include <algorithm>
#include <bit>
#include <cmath>
#include <memory>
#include <vector>

#include "torva/geometry/cube.h"
#include "torva/geometry/distance.h"
#include "torva/space/cell_array.h"
#include "torva/space/space_manager.h"

namespace torva {

namespace {

constexpr double eps = sea::double_wrapper::tolerance;
constexpr std::uint64_t allocation = 16;  // the allocator's own bytes per block of memory
constexpr std::uint64_t entry = sizeof(candidate_list::candidate);

struct tally {
  std::uint64_t bytes = 0;
  std::uint64_t budget;
  bool over() const { return bytes > budget; }
};

// Which blocks a list keeps: all, the cuboids, or the others.
enum class family { all, cuboids, others };
bool keeps(family f, const wire_block* b) {
  return f == family::all || (f == family::cuboids) == (b->shape_kind == shape_cuboid);
}

cuboid_t grown(const cuboid_t& box, double by) {
  cuboid_t g;
  for (int k = 0; k < 3; ++k) {
    g.lower[k] = box.lower[k].value - by;
    g.upper[k] = box.upper[k].value + by;
  }
  return g;
}

// One tree, node by node, as octree_node builds it but for the dominance
// tests: each node takes its blocks in the order the build offers them, a
// block passing the node's bound tightens it to (2h + distance) times its
// ratio and evicts what lies beyond, and a leaf splits as soon as an offered
// block leaves it holding more than the limit (not on what it finally keeps:
// later blocks may tighten a crowded leaf, but the build has split it by
// then). A split hands each child the leaf's candidates (which cannot split
// it), then every later block that passes the leaf's bound as it stood.
// Without dominance a list holds at least the build's candidates, so the tree
// splits at least where the build's does. A leaf counts the capacity its list
// grew to, which the build holds until it trims every list at the end.
void count_tree(std::uint64_t node_bytes, const cube_t& root, double scope, std::vector<const wire_block*> offered,
                family f, std::int64_t count_limit, std::int32_t depth_limit, const configure& config, tally& t) {
  using blocks = std::vector<const wire_block*>;
  struct frame {
    cube_t cube;
    double scope;
    std::int32_t depth;
    std::shared_ptr<const blocks> initial;  // the parent's candidates at its split
    std::shared_ptr<const blocks> later;    // then these, in order
  };
  const auto ratio = [&](const wire_block* b) {
    return config.double_incline_ratio && b->shape_kind != shape_cuboid ? 2.0 : 1.0;
  };
  std::vector<frame> stack;
  stack.push_back(frame{root, scope, 0, std::make_shared<const blocks>(), std::make_shared<const blocks>(std::move(offered))});
  // A leaf's candidates as a heap with the farthest on top: a tightened bound
  // evicts from the top, so that a crowded leaf costs no scan of its list per
  // block. (The build's list holds them in another order; what a list ends up
  // with, and so what a child is handed, does not depend on it.)
  std::vector<std::pair<double, const wire_block*>> list;
  const auto farther = [](const auto& a, const auto& b) { return a.first < b.first; };
  while (!stack.empty() && !t.over()) {
    const frame node = std::move(stack.back());
    stack.pop_back();
    const double h = node.cube.half.value;
    double bound = node.scope;
    list.clear();
    std::size_t longest = 0;  // the list's capacity never shrinks while the tree is built
    // candidate_list::try_add without the dominance tests.
    auto add = [&](const wire_block* b, double d) {
      if (!(bound - eps > d)) return false;
      const double tight = (2.0 * h + d) * ratio(b);
      if (bound - eps > tight) {
        bound = tight;
        while (!list.empty() && !(bound - eps > list.front().first)) {
          std::pop_heap(list.begin(), list.end(), farther);
          list.pop_back();
        }
      }
      if (keeps(f, b)) {
        list.emplace_back(d, b);
        std::push_heap(list.begin(), list.end(), farther);
        longest = std::max(longest, list.size());
      }
      return true;
    };
    auto distance_of = [&](const wire_block* b) { return manhattan_distance(node.cube.center, *b).value - h; };
    for (const wire_block* b : *node.initial) add(b, distance_of(b));
    const blocks& later = *node.later;
    bool split = false;
    for (std::size_t i = 0; i < later.size() && !split; ++i) {
      const double d = distance_of(later[i]);
      if (!(bound - eps > d)) continue;  // the node's gate in octree_node::try_insert
      if (!add(later[i], d) || std::int64_t(list.size()) <= count_limit || node.depth > depth_limit) continue;
      split = true;
      t.bytes += 8 * node_bytes + 8 + allocation;
      auto held = std::make_shared<blocks>();
      for (const auto& e : list) held->push_back(e.second);
      auto rest = std::make_shared<blocks>();
      for (std::size_t j = i + 1; j < later.size(); ++j)
        if (bound - eps > distance_of(later[j])) rest->push_back(later[j]);
      const double q = 0.5 * h, child_half = h - q;
      const double child_scope = node.depth < 6 ? node.scope * config.octree_scope_ratio : node.scope * 0.5;
      for (int c = 0; c < 8; ++c) {
        cube_t cube;
        for (int k = 0; k < 3; ++k) cube.center[k] = node.cube.center[k].value + ((c >> k) & 1 ? q : -q);
        cube.half = child_half;
        stack.push_back(frame{cube, child_scope, node.depth + 1, held, rest});
      }
    }
    if (!split && longest > 0) t.bytes += std::bit_ceil(std::uint64_t(longest)) * entry + allocation;
  }
}

// A grid's cells as basic_grid_spacemgr lays them out over `space`.
struct grid_shape {
  double length = 0, scope = 0;
  std::uint64_t count[3] = {1, 1, 1};
  double lower[3] = {0, 0, 0};
  // Saturates at 2^40 cells, terabytes of cells past any budget, so that the
  // product of three huge counts cannot wrap around to a small one.
  std::uint64_t cells() const {
    constexpr std::uint64_t most = std::uint64_t(1) << 40;
    std::uint64_t n = 1;
    for (std::uint64_t c : count)
      if (__builtin_mul_overflow(n, c, &n) || n > most) return most;
    return n;
  }
  // The cells [lo, hi) along each axis that a block's box, grown by the scope, reaches.
  void range(const cuboid_t& box, std::uint64_t lo[3], std::uint64_t hi[3]) const {
    for (int k = 0; k < 3; ++k) {
      const double a = std::floor((box.lower[k].value - scope - lower[k]) / length);
      const double b = std::ceil((scope + box.upper[k].value - lower[k]) / length);
      lo[k] = !(a > 0) ? 0 : a >= double(count[k]) ? count[k] : std::uint64_t(a);
      hi[k] = !(b > 0) ? 0 : b >= double(count[k]) ? count[k] : std::uint64_t(b);
      // A box turned inside out (its upper corner below its lower) reaches no
      // cell, rather than an extent that wraps around.
      if (hi[k] < lo[k]) hi[k] = lo[k];
    }
  }
  // Calls f with the index of every cell that a block's box, grown by the scope, reaches.
  template <class F>
  void each_cell(const cuboid_t& box, F&& f) const {
    std::uint64_t lo[3], hi[3];
    range(box, lo, hi);
    for (std::uint64_t i = lo[0]; i < hi[0]; ++i)
      for (std::uint64_t j = lo[1]; j < hi[1]; ++j)
        for (std::uint64_t k = lo[2]; k < hi[2]; ++k) f((i * count[1] + j) * count[2] + k);
  }
};

// The grid the build lays out, from the same measure and the same cell counts.
template <class Node>
grid_shape lay_out(const configure& config, std::int32_t depth, const cuboid_t& space,
                   const circuit_layout& layout) {
  const grid_internal::grid_measure m = grid_internal::measure<Node>(config, depth, space, layout);
  grid_shape g;
  g.length = m.length.value;
  g.scope = m.scope.value;
  for (int k = 0; k < 3; ++k) {
    const sea::double_wrapper edge = space.upper[k] - space.lower[k];
    // Past 1e15 cells along an axis the budget is long gone; the cap keeps the product finite.
    g.count[k] = std::min<std::uint64_t>(grid_internal::cells_along(edge, m.length), 1000000000000000ull);
    g.lower[k] = space.lower[k].value - (double(g.count[k]) * g.length - edge.value) * 0.5;
  }
  return g;
}

// A grid's cell array as make_cell_array takes it: past 2 MiB, whole huge pages.
std::uint64_t cell_array_bytes(std::uint64_t cells, std::uint64_t cell_bytes) {
  const std::uint64_t bytes = cells * cell_bytes;  // at most 2^40 cells of a few hundred bytes
  return bytes < huge_page_bytes ? bytes : (bytes + huge_page_bytes - 1) / huge_page_bytes * huge_page_bytes;
}

// A grid of flat cells: every block its scope reaches, in every cell, each
// cell's list counted at the capacity it grows to (trimmed only at the end).
void count_flat_grid(std::uint64_t cell_bytes, const grid_shape& g, const circuit_layout& layout, family f, tally& t) {
  t.bytes += cell_array_bytes(g.cells(), cell_bytes);
  if (t.over()) return;  // so that the counts below take no more than the budget
  std::vector<std::uint32_t> held(g.cells(), 0);
  for (const wire_block* b : layout.blocks) {
    if (t.over()) return;
    if (!keeps(f, b)) continue;
    g.each_cell(b->outer_box, [&](std::uint64_t c) {
      // A vector doubles when it is full: from n to 2n entries, or to 1.
      std::uint32_t& n = held[c];
      if (n == 0) t.bytes += entry + allocation;
      else if (std::has_single_bit(n)) t.bytes += std::uint64_t(n) * entry;
      ++n;
    });
  }
}

// A grid of trees: each cell a tree offered the blocks its scope reaches.
void count_tree_grid(std::uint64_t node_bytes, const grid_shape& g, const circuit_layout& layout, family f,
                     const configure& config, std::int32_t depth_limit, tally& t) {
  t.bytes += cell_array_bytes(g.cells(), node_bytes);
  if (t.over()) return;
  // The blocks of each cell, in the layout's order (offsets, then entries).
  std::vector<std::uint64_t> first(g.cells() + 1, 0);
  std::uint64_t total = 0;
  for (const wire_block* b : layout.blocks) {
    std::uint64_t lo[3], hi[3];
    g.range(b->outer_box, lo, hi);
    total += (hi[0] - lo[0]) * (hi[1] - lo[1]) * (hi[2] - lo[2]);
  }
  if (total * sizeof(const wire_block*) > t.budget) {
    t.bytes += total * sizeof(const wire_block*);  // the estimate could not hold them, nor the build its visits
    return;
  }
  for (const wire_block* b : layout.blocks) g.each_cell(b->outer_box, [&](std::uint64_t c) { ++first[c + 1]; });
  for (std::uint64_t c = 0; c < g.cells(); ++c) first[c + 1] += first[c];
  std::vector<const wire_block*> entries(total);
  std::vector<std::uint64_t> fill(first.begin(), first.end() - 1);
  for (const wire_block* b : layout.blocks) g.each_cell(b->outer_box, [&](std::uint64_t c) { entries[fill[c]++] = b; });
  const std::int64_t count_limit = config.max_candidates < 0 ? 20 : config.max_candidates;
  for (std::uint64_t c = 0; c < g.cells() && !t.over(); ++c) {
    if (first[c] == first[c + 1]) continue;
    const std::uint64_t k = c % g.count[2], row = c / g.count[2], j = row % g.count[1], i = row / g.count[1];
    const double index[3] = {double(i), double(j), double(k)};
    cube_t cube;
    for (int a = 0; a < 3; ++a) cube.center[a] = g.lower[a] + index[a] * g.length + 0.5 * g.length;
    cube.half = 0.5 * g.length;
    count_tree(node_bytes, cube, g.scope,
               std::vector<const wire_block*>(entries.begin() + long(first[c]), entries.begin() + long(first[c + 1])),
               f, count_limit, depth_limit, config, t);
  }
}

void count_octree(const cuboid_t& space, const circuit_layout& layout, family f, const configure& config, tally& t) {
  const std::int32_t depth = config.max_depth < 0 ? 12 : config.max_depth;
  const std::int64_t count_limit = config.max_candidates < 0 ? 20 : config.max_candidates;
  cube_t cube;
  cube.half = size_of(space) * 0.5;
  for (int k = 0; k < 3; ++k) cube.center[k] = 0.5 * (space.lower[k].value + space.upper[k].value);
  const std::int32_t s = depth / 2 - 1;
  const auto power = static_cast<std::int32_t>(1u << (static_cast<std::uint32_t>(s) & 31u));
  count_tree(sizeof(octree_node<0>), cube, cube.half.value / double(power), layout.blocks, f, count_limit, depth,
             config, t);
}

void count_hybrid(const cuboid_t& space, const circuit_layout& layout, family f, const configure& config, tally& t) {
  const std::int32_t depth = config.max_depth < 0 ? 16 : config.max_depth;
  count_tree_grid(sizeof(octree_node<0>), lay_out<octree_node<0>>(config, depth, space, layout), layout, f, config,
                  depth, t);
}

void count_incline_grid(const cuboid_t& space, const circuit_layout& layout, const configure& config, tally& t) {
  count_flat_grid(sizeof(incline_node<1>), lay_out<incline_node<1>>(config, 0, space, layout), layout,
                  family::others, t);
}

void count_plain_grid(const cuboid_t& space, const circuit_layout& layout, const configure& config, tally& t) {
  count_flat_grid(sizeof(base_grid_node<5>), lay_out<base_grid_node<5>>(config, 0, space, layout), layout,
                  family::all, t);
}

}  // namespace

search_memory_estimate estimate_search_memory(const circuit_layout& layout, const configure& config,
                                              std::uint64_t budget) {
  std::uint32_t type = config.spacemgr_type;
  if (type == 10) type = automatic_spacemgr_type(layout);
  tally t{0, budget};
  const double m = layout.space_margin;
  const bool critical = config.use_critical_box && layout.data.boundary == 1;
  const cuboid_t space = critical ? grown(layout.data.critical_box, m) : grown(layout.data.window, m);
  const std::uint64_t list = layout.blocks.size() * entry + allocation;
  switch (type) {
    case 0: t.bytes += 2 * list; break;
    case 1:
      count_octree(space, layout, family::cuboids, config, t);
      count_octree(space, layout, family::others, config, t);
      break;
    case 2:
      count_hybrid(space, layout, family::cuboids, config, t);
      count_hybrid(space, layout, family::others, config, t);
      break;
    case 3: t.bytes += list; break;
    case 4: count_octree(space, layout, family::all, config, t); break;
    case 5: count_hybrid(space, layout, family::all, config, t); break;
    case 6:
      count_hybrid(space, layout, family::cuboids, config, t);
      t.bytes += list;
      break;
    case 7:
    case 8:
      count_hybrid(space, layout, family::cuboids, config, t);
      count_incline_grid(space, layout, config, t);
      break;
    case 9:
      count_plain_grid(critical ? space : grown(layout.data.critical_box, 20 * m), layout, config, t);
      break;
    default: break;
  }
  return {t.bytes, t.over()};
}

}  // namespace torva
