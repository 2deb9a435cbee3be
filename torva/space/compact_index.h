// A read-only, compact copy of the plain grid (grid-none-nd) for the walk's
// hot path. It answers `nearest` bit for bit as that pair does, from the same
// cells, the same lists in the same order and the same arithmetic, with fewer
// dependent loads from memory per query:
//
// - every cell has a slot of fixed size, found from the cell's indices alone
//   (no pointer to follow): its entry count, where the rest of its list lies,
//   and its first entries inline with their exact outer boxes and blocks.
//   Most answers come from those first entries: the list is sorted by distance
//   from the cell;
// - the rest of a list lies in an overflow arena, cells in Morton order within
//   bricks of 8^3 so that a walk's neighbouring cells share pages, as groups of up to 8
//   entries, each group a structure of arrays of 16-bit integers (the entry's
//   distance from the cell and its outer box, in about an 8191th of the cell's
//   reach, rounded outwards) and 32-bit block numbers. One SSE2 pass over a
//   group bounds all 8 entries' distances from the point at once; only the
//   entries that the bound cannot rule out are measured exactly, from a table
//   of blocks with their double boxes;
// - every exact measure is the step of candidate_list_cache::nearest, and the
//   bounds never leave out an entry that scan would measure: so the answer,
//   its block and its reach are those of the pair.
//
// The index is immutable once built; any number of threads may query it, each
// with its own compact_cache. A query takes no lock and allocates nothing.
// Built by build_compact_index (compact_index_build.cpp) from a configure and
// a layout, as space_manager::initialize builds grid-none-nd from them.
#pragma once

#include <sys/mman.h>

#include <algorithm>
#include <cmath>
#include <cstddef>
#include <cstdint>
#include <cstring>
#include <vector>


#include "torva/foundation/configure.h"
#include "torva/foundation/double_wrapper.h"
#include "torva/foundation/point.h"
#include "torva/geometry/distance.h"
#include "torva/layout/records.h"
#include "torva/space/base_grid.h"
#include "torva/space/candidate_list_cache.h"
#include "torva/space/cell_array.h"
#include "torva/space/compact_groups.h"

namespace torva {

// The start of every cell's slot.
struct compact_head {
  std::uint32_t count_level = 0;  // entries in the low 24 bits, halvings of the cell's scope in the high 8
  std::uint32_t overflow = 0;     // where the entries past the slot's lie, in 2-byte units of the overflow arena
  // Per side of the cell (+x, +y, +z, -x, -y, -z), in units of a 127th of the
  // cell's reach and rounded down: the least gap between that face and an
  // overflow entry that lies beyond it. Every overflow entry counts under one
  // side; from a point p of the cell it lies no nearer than its side's gap
  // plus the point's distance from that face.
  std::int8_t side[6] = {};
  std::uint16_t spare = 0;

  std::uint32_t count() const noexcept { return count_level & 0xffffffu; }
  std::uint32_t level() const noexcept { return count_level >> 24; }
};

// A non-cuboid's shape beside a copy of its solid, so that its exact measure
// reads one place: the shape's kind and outer box are the block's, its solid
// is the copy.
struct compact_solid {
  shape_t shape;
  wire_block const* block = nullptr;
  alignas(nprism_t) unsigned char copy[sizeof(nprism_t) > sizeof(cylinder_t) ? sizeof(nprism_t) : sizeof(cylinder_t)];
};

// An entry as the exact measure reads it: held in a slot, or in the block
// table for the overflow.
struct compact_entry {
  cuboid_t box;           // the block's outer box
  std::uintptr_t ref = 0; // a cuboid's wire_block, or (bit 0 set) a non-cuboid's compact_solid; bit 1: ratio 2

  bool cuboid() const noexcept { return (ref & 1u) == 0; }
  const void* address() const noexcept { return reinterpret_cast<const void*>(ref & ~std::uintptr_t(3)); }
  wire_block const* block() const noexcept {
    return cuboid() ? static_cast<wire_block const*>(address()) : static_cast<const compact_solid*>(address())->block;
  }
};

// The block table: one cache line per block.
struct alignas(64) compact_block {
  compact_entry entry;
};

// The scope and the integer unit of the cells that halved their scope `level` times.
struct compact_level {
  double scope_bound = 0.0;  // what the cell vouches for, from its surface
  double unit = 0.0;         // one integer step of its groups: (scope_bound + 2 half) / 8191
  double inv_unit = 0.0;
  double range = 0.0;        // 8191 units: below minus this much the integer bounds say nothing
  double side_unit = 0.0;    // a unit of the side gaps: range / 127
};

// Anonymous memory of a fixed size, zero-filled, offered for huge pages.
struct compact_arena {
  std::uint8_t* data = nullptr;
  std::size_t size = 0;

  compact_arena() = default;
  explicit compact_arena(std::size_t bytes);
  compact_arena(compact_arena&& o) noexcept : data(o.data), size(o.size) { o.data = nullptr, o.size = 0; }
  compact_arena& operator=(compact_arena&& o) noexcept;
  compact_arena(const compact_arena&) = delete;
  compact_arena& operator=(const compact_arena&) = delete;
  ~compact_arena();
};

// No overflow entry's box lies nearer to p than this (to within the rounding
// the margin covers): its side's gap plus the point's depth from that face.
inline double overflow_floor(const compact_head& head, const point3& p, const point3& center, double half,
                             double side_unit) noexcept {
  double low = 1e300;
  for (int a = 0; a < 3; ++a) {
    const double from_centre = p[a].value - center[a].value;
    const double beyond_high = double(head.side[a]) * side_unit - from_centre;
    const double beyond_low = double(head.side[a + 3]) * side_unit + from_centre;
    low = std::min(low, std::min(beyond_high, beyond_low));
  }
  return low + half;
}

namespace compact_layout {
inline constexpr std::size_t head_bytes = sizeof(compact_head);
inline constexpr std::size_t inline_bytes = sizeof(compact_entry);
}  // namespace compact_layout

// A walker's memory of the cell it used last: the counterpart of a
// candidate_list_cache, with the same match and scope.
struct compact_cache {
  const compact_head* slot = nullptr;  // null before the first query
  point3 center;
  sea::double_wrapper half;
  sea::double_wrapper scope_bound;
  sea::double_wrapper scope;           // at the last point
  double inv_unit = 0.0;
  double range = 0.0;
  double side_unit = 0.0;

  sea::double_wrapper get_scope(const point3& p) noexcept {
    constexpr double eps = sea::double_wrapper::tolerance;
    const double mx = tolerant_abs(center[0] - p[0]).value;
    const double my = tolerant_abs(center[1] - p[1]).value;
    const double mz = tolerant_abs(center[2] - p[2]).value;
    double far = mx;
    if (my - eps > far) far = my;
    if (mz - eps > far) far = mz;
    scope = scope_bound.value - (far - half.value);
    return scope;
  }

  bool match(const point3& p) noexcept {
    if (slot == nullptr) return false;
    const double s = get_scope(p).value;
    return !(scope_bound.value - sea::double_wrapper::tolerance > s);
  }
};

namespace compact_detail {
// Where a scan stands: the answer so far.
struct scan_state {
  double best;
  double reach;
  wire_block const* hit;
};
}  // namespace compact_detail

struct compact_index {
  base_grid<compact_head> grid;  // the plain grid's geometry; its cell array stays empty
  compact_arena slots;           // one per cell, in the grid's flat order
  std::size_t slot_bytes = 0;    // head_bytes + in_slot * inline_bytes, rounded up to a cache line
  std::uint32_t in_slot = 0;     // entries held in a slot
  compact_arena overflow;
  cell_array<compact_block> blocks;
  std::uint64_t block_count = 0;
  cell_array<compact_solid> solids;  // the non-cuboids'
  std::uint64_t solid_count = 0;
  std::vector<compact_level> levels;
  cuboid_t search_space;  // the pair's boxes, as basic_space_manager sets them
  cuboid_t wall_box;
  cuboid_t critical;
  bool use_critical = false;
  double margin = 0.0;    // what the integer bound keeps above the exact measure's rounding

  // As space_manager_interface::nearest of grid-none-nd, with one cache.
  nearest_result nearest(const point3& p, sea::double_wrapper limit, compact_cache& cache) const noexcept;

  // Bytes held: slots, overflow, block table, solids.
  std::uint64_t bytes() const noexcept;

 private:
  void enter(compact_cache& cache, const point3& p) const noexcept;
  nearest_result scan(const compact_cache& cache, const point3& p, double limit) const noexcept;
  nearest_result scan_overflow(const compact_cache& c, const point3& p, std::uint32_t n,
                               compact_detail::scan_state st) const noexcept;
};

// Builds the index that grid-none-nd would be for this configure and layout
// (its boxes, cells, limits and thread count). The layout must outlive it.
// A slot holds as many entries (4, 3, 2 or none) as keep the index within the
// memory of that pair's cells and lists, or `in_slot` when that is 0 to 4.
// Throws std::length_error for a cell of more than 2^24 - 1 entries or 255
// halvings, or an overflow beyond 8 GiB.
compact_index build_compact_index(const configure& config, const circuit_layout& layout, int in_slot = -1);

// ---------------------------------------------------------------- query

inline void compact_index::enter(compact_cache& cache, const point3& p) const noexcept {
  // The cell of base_grid::cell_of, by the same arithmetic: a negative index
  // (or not a number) lands in the last cell of its axis. Truncation is the
  // floor for the non-negative quotients that are kept.
  std::uint64_t idx[3];
  for (int a = 0; a < 3; ++a) {
    const double q = ((p[a] - grid.bounds.lower[a]) / grid.length).value;
    const std::uint64_t last = grid.count(a) - 1;
    idx[a] = !(q >= 0.0) || q >= static_cast<double>(last) ? last : static_cast<std::uint64_t>(q);
  }
  const std::uint64_t flat = (idx[0] * grid.count_y + idx[1]) * grid.count_z + idx[2];
  const compact_head* slot = reinterpret_cast<const compact_head*>(slots.data + flat * slot_bytes);
  const compact_level& lv = levels[slot->level()];
  cache.slot = slot;
  // The cube of base_grid::cell_cube.
  for (int a = 0; a < 3; ++a)
    cache.center[a] = grid.bounds.lower[a] + static_cast<double>(idx[a]) * grid.length + 0.5 * grid.length;
  cache.half = 0.5 * grid.length;
  cache.scope_bound = lv.scope_bound;
  cache.inv_unit = lv.inv_unit;
  cache.range = lv.range;
  cache.side_unit = lv.side_unit;
  // The slot's other lines, and the overflow that a scan may reach next.
  for (std::size_t line = 64; line < slot_bytes; line += 64)
    __builtin_prefetch(reinterpret_cast<const std::uint8_t*>(slot) + line);
  if (slot->count() > in_slot) __builtin_prefetch(overflow.data + 2 * std::size_t(slot->overflow));
}

inline nearest_result compact_index::nearest(const point3& p, sea::double_wrapper limit,
                                             compact_cache& cache) const noexcept {
  constexpr double eps = sea::double_wrapper::tolerance;
  if (!cache.match(p)) {
    if (use_critical && !contains(critical, p)) {
      const double d = -distance(wall_box, p).value;
      const double r = d < limit.value - eps ? d : limit.value;
      return nearest_result{nullptr, r, r};
    }
    if (!contains(search_space, p)) {
      const double d = distance(wall_box, p).value;
      const double r = d < limit.value - eps ? d : limit.value;
      return nearest_result{nullptr, r, r};
    }
    enter(cache, p);
    cache.get_scope(p);
  }
  return scan(cache, p, limit.value);
}

namespace compact_detail {

// One step of candidate_list_cache::nearest on an entry the scan has not
// stopped before (its distance from the cell lies below reach - eps). False
// when the point lies on the conductor: then `state` holds the answer.
inline bool measure(const compact_entry& e, const point3& p, const point2& plan, scan_state& state) noexcept {
  constexpr double eps = sea::double_wrapper::tolerance;
  const double b = state.reach - eps;
  const double above = p[2].value - e.box.upper[2].value;
  const double below = e.box.lower[2].value - p[2].value;
  const double dz = above - eps > below ? above : below;
  if (!(b > dz)) return true;
  const double dh = (e.cuboid() ? horizontal_manhattan_distance(plan, e.box)
                                : horizontal_manhattan_distance(plan, static_cast<const compact_solid*>(e.address())->shape))
                        .value;
  if (!(b > dh)) return true;
  const double d = dh < dz - eps ? dz : dh;
  if (0.0001 - 1e-10 > d) {
    state = scan_state{0.0, 0.0, e.block()};
    return false;
  }
  if (state.best - eps > d) {
    state.hit = e.block();
    const double widened = (e.ref & 2u) != 0 ? d * 2 : d;
    state.reach = widened < state.best - eps ? widened : state.best;
    state.best = d;
  } else {
    state.reach = d;
  }
  return true;
}

}  // namespace compact_detail

inline nearest_result compact_index::scan(const compact_cache& c, const point3& p, double limit) const noexcept {
  constexpr double eps = sea::double_wrapper::tolerance;
  const double start = limit >= c.scope.value - eps ? c.scope.value : limit;
  compact_detail::scan_state st{start, start, nullptr};
  const std::uint32_t n = c.slot->count();
  const std::uint32_t held = n < in_slot ? n : in_slot;
  const auto* entries = reinterpret_cast<const compact_entry*>(reinterpret_cast<const std::uint8_t*>(c.slot) +
                                                               compact_layout::head_bytes);
  const point2 plan{{p[0], p[1]}};
  for (std::uint32_t k = 0; k < held; ++k) {
    const compact_entry& e = entries[k];
    if (!(st.reach - eps > (distance(e.box, c.center) - c.half).value)) return nearest_result{st.hit, st.best, st.reach};
    if (!compact_detail::measure(e, p, plan, st)) return nearest_result{st.hit, st.best, st.reach};
  }
  if (n == held) return nearest_result{st.hit, st.best, st.reach};
  // Where no overflow entry can lie within the reach the scan would measure none.
  if (!(st.reach - eps > overflow_floor(*c.slot, p, c.center, c.half.value, c.side_unit) - margin))
    return nearest_result{st.hit, st.best, st.reach};
  return scan_overflow(c, p, n, st);
}

// The same over the overflow, with the entries that the scan would pass over
// (or stop before) left out by integer bounds.
inline nearest_result compact_index::scan_overflow(const compact_cache& c, const point3& p, std::uint32_t n,
                                                   compact_detail::scan_state st) const noexcept {
  using namespace compact_layout;
  using compact_detail::units_above;
  using compact_detail::units_surely_below;
  constexpr double eps = sea::double_wrapper::tolerance;
  const std::uint8_t* run = overflow.data + 2 * std::size_t(c.slot->overflow);
  n -= in_slot;

  // The point in the cell's units, rounded outwards.
  std::int16_t up[3], down[3];
  bool near = true;
  for (int a = 0; a < 3; ++a)
    near = compact_detail::point_units((p[a].value - c.center[a].value) * c.inv_unit, up[a], down[a]) && near;
  // stop: a stored distance at or above it is at or above reach - eps.
  // sure: a stored distance below it is below reach - eps.
  // keep: a lower bound below it may be measured below reach - eps.
  std::int16_t stop = 0, sure = 0, keep = 0;
  auto thresholds = [&] {
    const double b = st.reach - eps;
    stop = units_above(b, c.inv_unit, c.range);
    sure = units_surely_below(b, c.inv_unit, c.range);
    keep = near ? units_above(b + margin, c.inv_unit, c.range) : open;
  };
  thresholds();

  const point2 plan{{p[0], p[1]}};
  for (std::uint32_t first = 0; first < n; first += lanes) {
    const unsigned s = n - first < lanes ? n - first : lanes;
    const std::uint8_t* base = run + std::size_t(entry_bytes) * first;
    const compact_detail::group_bounds g(base, s, up, down);
    const unsigned valid = (1u << s) - 1;
    // The list is sorted: the lanes before the first that stops.
    unsigned go = g.dist_below(stop) & valid;
    go = (~go & (go + 1)) - 1;
    unsigned todo = go & g.low_below(keep);
    unsigned certain = g.dist_below(sure);
    for (unsigned t = todo; t != 0; t &= t - 1)
      __builtin_prefetch(&blocks[block_number(base, s, unsigned(__builtin_ctz(t)))]);
    while (todo != 0) {
      const unsigned lane = unsigned(__builtin_ctz(todo));
      todo &= todo - 1;
      const compact_entry& e = blocks[block_number(base, s, lane)].entry;
      if (!(certain >> lane & 1u) && !(st.reach - eps > (distance(e.box, c.center) - c.half).value))
        return nearest_result{st.hit, st.best, st.reach};
      const double before = st.reach;
      if (!compact_detail::measure(e, p, plan, st)) return nearest_result{st.hit, st.best, st.reach};
      if (st.reach == before) continue;
      thresholds();
      const unsigned now = g.dist_below(stop) & valid;
      go &= (~now & (now + 1)) - 1;
      todo &= go & g.low_below(keep);
      certain &= g.dist_below(sure);
    }
    if (go != valid) break;  // an entry at or beyond the reach: nothing later comes closer
  }
  return nearest_result{st.hit, st.best, st.reach};
}

}  // namespace torva
