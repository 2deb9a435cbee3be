// The lists of the compact index's cells, as base_grid_node<5> cells of the
// plain grid hold them, and how they are packed. The steps of a cell (the
// gate, the halvings, the completion and the sort) repeat those of flat_node
// and candidate_list for a list of kind 5, on a small record instead of a
// candidate, so that the order of equal distances comes out the same;
// compact_index_test holds every answer against the pair.
#pragma once

#include <cstddef>
#include <cstdint>
#include <exception>
#include <thread>
#include <vector>

#include "torva/geometry/cube.h"
#include "torva/space/base_grid.h"
#include "torva/space/compact_index.h"
#include "torva/space/thresholder.h"

namespace torva::compact_build {

// The order in which cells lay out their overflow: bricks of 8 x 8 x 8 cells
// in the grid's flat order, the cells of a brick in Morton order (the bits of
// i, j and k interleaved), so that a walk's neighbouring cells share pages.
// brick_key of a cell ascends in that order.
std::uint64_t brick_key(const base_grid<compact_head>& g, std::uint64_t flat) noexcept;
std::vector<std::uint64_t> cells_in_brick_order(const base_grid<compact_head>& g);

// Runs `body(t)` for t in [0, threads), on threads of its own when more than
// one; the first exception is thrown again here.
template <class F>
void run_parts(int threads, F&& body) {
  if (threads <= 1) {
    body(0);
    return;
  }
  std::vector<std::exception_ptr> failed(static_cast<std::size_t>(threads));
  std::vector<std::thread> pool;
  for (int t = 0; t < threads; ++t)
    pool.emplace_back([&, t] {
      try {
        body(t);
      } catch (...) {
        failed[std::size_t(t)] = std::current_exception();
      }
    });
  for (std::thread& th : pool) th.join();
  for (const std::exception_ptr& e : failed)
    if (e) std::rethrow_exception(e);
}

struct entry {
  double distance;      // the box distance from the cell, as a candidate holds it
  std::uint32_t index;  // into the block table
};

// One cell of the plain grid, as base_grid_node<5> fills it, then packed.
struct cell_packer {
  const compact_index& index;
  thresholder<20, 10> limits;
  bool may_decrease = false;
  double scope = 0.0;
  std::vector<entry> list, old;
  cube_t cube;
  double scope_bound = 0.0, bound = 0.0;
  std::int32_t level = 0;

  const compact_entry& block(const entry& e) const noexcept { return index.blocks[e.index].entry; }
  bool crowded() const noexcept {
    return static_cast<std::int64_t>(list.size()) > static_cast<std::int64_t>(limits.count);
  }

  // The cell's sorted list from the blocks offered to it, in the layout's order.
  void fill(std::uint64_t cell, const std::uint32_t* offered, std::size_t n);
  void decrease();
  // Writes the entries [from, size) of the list as overflow groups at `out`,
  // and the least gap per side of the cell of those entries, each under the
  // side where its box lies farthest out, in side units rounded down (127 for
  // a side with none).
  void pack_overflow(std::size_t from, std::uint8_t* out, std::int8_t side[6]) const;
};

}  // namespace torva::compact_build
