// A uniform grid of cubic cells over the search space. A query reaches its
// cell by three divisions, not by a search. The cell type decides the rest:
// octree_node cells grow a tree each (the hybrid strategies), incline_node and
// base_grid_node cells stay flat and only thin their list.
//
// Build: above 5000 blocks and with more than one thread, the cells are split
// into contiguous ranges, one per thread; each thread walks all blocks and
// writes only into its own cells, so no lock is taken while filling. The only
// shared written value is `next_part`, under the one-byte spin lock
// `claim_lock`.
//
// Choices of this implementation:
// - `initialize` may be called again; it starts the range counter afresh, so a
//   second threaded build hands out the same ranges as the first.
// - A cell count of zero along an axis (a space with an edge of zero, or a
//   length that is not a number) is raised to one cell, so that queries never
//   index an empty array.
#pragma once

#include <algorithm>
#include <atomic>
#include <cmath>
#include <cstdint>
#include <functional>
#include <memory>
#include <vector>

#include "torva/foundation/configure.h"
#include "torva/foundation/double_wrapper.h"
#include "torva/foundation/logger.h"
#include "torva/foundation/point.h"
#include "torva/foundation/thread_pool.h"
#include "torva/geometry/cube.h"
#include "torva/layout/records.h"
#include "torva/space/base_grid.h"
#include "torva/space/base_grid_node.h"
#include "torva/space/basic_space_manager.h"
#include "torva/space/candidate_list.h"
#include "torva/space/incline_node.h"
#include "torva/space/thresholder.h"
#include "torva/space/unused_spacemgr.h"

namespace torva {

namespace grid_internal {

// The spacemgr_t value of a cell type's template argument.
template <class Node>
struct node_kind;
template <template <auto> class Node, auto N>
struct node_kind<Node<N>> {
  static constexpr std::int64_t value = static_cast<std::int64_t>(N);
};

// Cells that grow a tree (octree_node) have children; flat cells do not.
template <class Node>
concept tree_cell = requires(Node& n) {
  n.children;
  n.depth;
  n.config;
};

template <class Node>
inline constexpr bool is_incline_node = false;
template <std::int64_t N>
inline constexpr bool is_incline_node<incline_node<N>> = true;

template <class Node>
inline constexpr bool is_base_grid_node = false;
template <std::int64_t N>
inline constexpr bool is_base_grid_node<base_grid_node<N>> = true;

// The shortest edge; of nearly equal edges the earlier axis stands.
inline sea::double_wrapper shortest_edge(const cuboid_t& c) noexcept {
  const sea::double_wrapper x = c.upper[0] - c.lower[0];
  const sea::double_wrapper y = c.upper[1] - c.lower[1];
  const sea::double_wrapper z = c.upper[2] - c.lower[2];
  return std::min(std::min(x, y), z);
}

inline std::uint64_t cells_along(sea::double_wrapper edge, sea::double_wrapper length) noexcept {
  const double n = std::ceil((edge / length).value);
  if (!(n >= 1.0)) return 1;  // zero edge, or not a number
  if (n >= 18446744073709551615.0) return 18446744073709551615ull;
  return static_cast<std::uint64_t>(n);
}

// A grid's cell length and the scope each cell is offered. The memory
// estimate sizes its grids with this same code: the tolerant comparisons
// below make every length within 1e-10 of another equal, so on a space that
// small plain arithmetic would lay out a different grid.
struct grid_measure {
  sea::double_wrapper length;
  sea::double_wrapper scope;
};

template <class Node>
grid_measure measure(const configure& config, std::int32_t depth, const cuboid_t& space,
                     const circuit_layout& layout) noexcept {
  using sea::double_wrapper;
  const double m = layout.space_margin;
  double_wrapper length;
  double_wrapper scope;
  if constexpr (tree_cell<Node>) {
    // At most two layers of cells along the shortest edge, whatever the depth.
    double p =
        static_cast<double>(static_cast<std::int32_t>(1u << ((static_cast<std::uint32_t>(depth) >> 1) & 31u)));
    if (config.max_depth < 0) p = 256.0;
    const double_wrapper l = size_of(space) / p;
    length = std::max(l, 0.51 * shortest_edge(space));
    scope = l;
  } else if constexpr (is_incline_node<Node>) {
    length = std::max(size_of(space) * 0.03125, shortest_edge(space) * 0.031251);
    scope = length;
  } else {
    // About a million cells, but no smaller than the margin allows.
    const double_wrapper ex = space.upper[0] - space.lower[0];
    const double_wrapper ey = space.upper[1] - space.lower[1];
    const double_wrapper ez = space.upper[2] - space.lower[2];
    const double_wrapper l = std::pow(((ex * ey * ez) / 1e6).value, 0.3333333333333333);
    length = std::max(l, double_wrapper(20 * m));
    scope = length / (1 + layout.crowding_ratio);
  }
  if (layout.coarse_grid) {
    length = std::max(length, double_wrapper(20 * m));
    scope = std::max(scope, double_wrapper(8 * m));
  }
  return {length, scope};
}

}  // namespace grid_internal

template <class Node, int Count, int Depth>
struct basic_grid_spacemgr : base_grid<Node> {
  thresholder<Count, Depth> threshold;
  std::atomic<unsigned char> claim_lock{0};  // 0 when free
  std::int32_t next_part = 0;                // next range index handed out by multhread

  // Sizes the grid over `space`, then fills and completes every cell.
  void initialize(const configure& config, const cuboid_t& space, const circuit_layout& layout) {
    using sea::double_wrapper;
    set_threshold(config);

    const double_wrapper ex = space.upper[0] - space.lower[0];
    const double_wrapper ey = space.upper[1] - space.lower[1];
    const double_wrapper ez = space.upper[2] - space.lower[2];
    // Named copies, not structured bindings: older compilers cannot capture those in a lambda.
    const grid_internal::grid_measure measured = grid_internal::measure<Node>(config, threshold.depth, space, layout);
    const sea::double_wrapper length = measured.length;
    const sea::double_wrapper scope = measured.scope;

    sea::writer& info = *logger::instance().info;
    info("spacemgr space: ");
    space.write_to(info);
    info("\n");
    info.flush();
    info("grid length: %.12f\n", double(length));
    info.flush();
    info("grid scope: %.12f\n", double(scope));
    info.flush();

    this->length = length;
    this->count_x = grid_internal::cells_along(ex, length);
    this->count_y = grid_internal::cells_along(ey, length);
    this->count_z = grid_internal::cells_along(ez, length);
    this->cell_count = this->count_x * this->count_y * this->count_z;
    const double_wrapper edges[3] = {ex, ey, ez};
    for (int a = 0; a < 3; ++a) {
      // The grid is centred on the space.
      const double_wrapper pad = (static_cast<double>(this->count(a)) * length - edges[a]) * 0.5;
      this->bounds.lower[a] = space.lower[a] - pad;
      this->bounds.upper[a] = space.upper[a] + pad;
    }
    this->nodes.reset();
    this->nodes = make_cell_array<Node>(this->cell_count);  // value-initialised: zeroed cells
    info("grid size: %lu\n", static_cast<unsigned long>(this->cell_count));
    info.flush();

    int threads = config.thread_count;
    if (threads < 1) threads = std::max(layout.data.thread_num, 1);
    const std::vector<wire_block const*>& blocks = layout.blocks;
    if (blocks.size() > 5000 && threads != 1) {
      info("multhread space management starts.\n");
      info.flush();
      next_part = 0;
      claim_lock.store(0, std::memory_order_release);
      std::function<void(int)> body = [this, &config, &blocks, scope, threads](int) {
        multhread(config, blocks, scope, threads);
      };
      sea::thread_pool::temporary_run(threads, body);
    } else {
      info("single thread space management starts.\n");
      info.flush();
      build_range(config, blocks, scope, 0, this->cell_count);
    }
  }

  // The body each building thread runs: claim a range of cells, set them up,
  // offer them every block that reaches them, complete them.
  void multhread(const configure& config, const std::vector<wire_block const*>& blocks,
                 sea::double_wrapper scope, int threads) {
    while (claim_lock.exchange(1, std::memory_order_acquire) != 0) {
    }
    const std::int32_t part = next_part;
    next_part = part + 1;
    claim_lock.store(0, std::memory_order_release);

    const std::uint64_t n = this->cell_count;
    const std::uint64_t chunk = n / static_cast<std::uint64_t>(threads);
    const std::uint64_t first = std::min<std::uint64_t>(static_cast<std::uint64_t>(part) * chunk, n);
    const std::uint64_t last = part < threads - 1 ? std::min(first + chunk, n) : n;
    build_range(config, blocks, scope, first, last);
  }

  // The list for a point.
  candidate_list const* find_list(const point3& p) const noexcept { return this->locate_cell(p); }

 private:
  void set_threshold(const configure& config) {
    if constexpr (grid_internal::is_incline_node<Node>) {
      threshold.count = config.incline_max_candidates < 0 ? Count : config.incline_max_candidates;
      threshold.depth = config.incline_max_depth < 0 ? Depth : config.incline_max_depth;
    } else {
      threshold.count = config.max_candidates < 0 ? Count : config.max_candidates;
      threshold.depth = config.max_depth < 0 ? Depth : config.max_depth;
    }
  }

  void setup_cell(const configure& config, std::uint64_t c, sea::double_wrapper scope) {
    Node& node = this->nodes[c];
    const cube_t cube = this->cell_cube(c);
    if constexpr (grid_internal::tree_cell<Node>) {
      node.list.initialize(config, cube, scope);
      node.config = &config;
      node.depth = 0;
      node.list.kind = grid_internal::node_kind<Node>::value;
    } else {
      node.setup(config, cube, scope);
    }
  }

  // Sets up the cells of [first, last), offers them every block in order,
  // (cells z fastest), and completes them. The whole grid is the range
  // [0, cell_count) of the single-thread build.
  void build_range(const configure& config, const std::vector<wire_block const*>& blocks,
                   sea::double_wrapper scope, std::uint64_t first, std::uint64_t last) {
    for (std::uint64_t c = first; c < last; ++c) setup_cell(config, c, scope);
    const std::uint64_t cy = this->count_y;
    const std::uint64_t cz = this->count_z;
    for (wire_block const* block : blocks) {
      const cuboid_t& box = block->outer_box;
      const auto lo = this->lower_bound(box.lower, scope);
      const auto hi = this->upper_bound(box.upper, scope);
      for (std::uint64_t i = lo[0]; i < hi[0]; ++i) {
        const std::uint64_t slab = i * cy * cz;
        // Whole slabs and rows outside the range are passed over at once; the
        // cells offered are exactly those whose index lies in [first, last).
        if (slab >= last || slab + cy * cz <= first) continue;
        for (std::uint64_t j = lo[1]; j < hi[1]; ++j) {
          const std::uint64_t row = (i * cy + j) * cz;
          if (row >= last || row + cz <= first) continue;
          for (std::uint64_t k = lo[2]; k < hi[2]; ++k) {
            const std::uint64_t c = row + k;
            if (c < first || c >= last) continue;
            this->nodes[c].try_insert(block, threshold);
          }
        }
      }
    }
    for (std::uint64_t c = first; c < last; ++c) this->nodes[c].complete();
  }
};

// The plain grid alone takes the boundary box: its space is the critical box
// grown by twenty margins, and points outside it are answered by that box.
// Declared beside the grid so that every pair of that type sees it.
template <>
inline constexpr bool uses_boundary_box<basic_grid_spacemgr<base_grid_node<5>, 20, 10>, unused_spacemgr> = true;

}  // namespace torva
