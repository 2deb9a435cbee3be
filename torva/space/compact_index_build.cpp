// Building the compact index: the plain grid's geometry and boxes, a table of
// the blocks, every cell's list as a cell of that grid would hold it
// (internal/compact_cells), then the slots and the overflow.
#include <algorithm>
#include <cmath>
#include <exception>
#include <limits>
#include <new>
#include <stdexcept>
#include <thread>
#include <utility>

#include "torva/space/base_grid_node.h"
#include "torva/space/basic_grid_spacemgr.h"
#include "torva/space/candidate_list.h"
#include "torva/space/compact_index.h"
#include "torva/space/internal/compact_cells.h"
#include "torva/space/thresholder.h"

namespace torva {

using namespace compact_build;

// ---------------------------------------------------------------- arena

compact_arena::compact_arena(std::size_t bytes) : size(bytes) {
  void* p = ::mmap(nullptr, bytes, PROT_READ | PROT_WRITE, MAP_PRIVATE | MAP_ANONYMOUS, -1, 0);
  if (p == MAP_FAILED) throw std::bad_alloc();
  ::madvise(p, bytes, MADV_HUGEPAGE);  // advice only
  data = static_cast<std::uint8_t*>(p);
}

compact_arena& compact_arena::operator=(compact_arena&& o) noexcept {
  if (this != &o) {
    if (data != nullptr) ::munmap(data, size);
    data = o.data;
    size = o.size;
    o.data = nullptr;
    o.size = 0;
  }
  return *this;
}

compact_arena::~compact_arena() {
  if (data != nullptr) ::munmap(data, size);
}

std::uint64_t compact_index::bytes() const noexcept {
  return slots.size + overflow.size + block_count * sizeof(compact_block) + solid_count * sizeof(compact_solid) +
         levels.size() * sizeof(compact_level);
}


namespace {

using sea::double_wrapper;
constexpr double eps = double_wrapper::tolerance;

cuboid_t grown(const cuboid_t& box, double by) noexcept {
  cuboid_t g;
  for (int axis = 0; axis < 3; ++axis) {
    g.lower[axis] = box.lower[axis] - by;
    g.upper[axis] = box.upper[axis] + by;
  }
  return g;
}

}  // namespace

compact_index build_compact_index(const configure& config, const circuit_layout& layout, int in_slot) {
  using namespace compact_layout;
  compact_index x;
  base_grid<compact_head>& g = x.grid;

  // The pair's boxes: the plain grid's pair takes the boundary box unless the
  // critical box is asked for under a Dirichlet window.
  const double m = layout.space_margin;
  const circuit_layout::raw& raw = layout.data;
  if (config.use_critical_box && raw.boundary == 1) {
    x.use_critical = true;
    x.search_space = grown(raw.critical_box, m);
    x.wall_box = raw.window;
    x.critical = raw.critical_box;
  } else {
    x.use_critical = false;
    x.search_space = grown(raw.critical_box, 20 * m);
    x.wall_box = raw.critical_box;
    x.critical = cuboid_t{};
  }

  // The plain grid over the search space: about a million cells, no smaller than the margin allows.
  const cuboid_t& space = x.search_space;
  const double_wrapper ex = space.upper[0] - space.lower[0];
  const double_wrapper ey = space.upper[1] - space.lower[1];
  const double_wrapper ez = space.upper[2] - space.lower[2];
  const grid_internal::grid_measure measured = grid_internal::measure<base_grid_node<5>>(config, 0, space, layout);
  const sea::double_wrapper length = measured.length;
  const sea::double_wrapper scope = measured.scope;
  g.length = length;
  g.count_x = grid_internal::cells_along(ex, length);
  g.count_y = grid_internal::cells_along(ey, length);
  g.count_z = grid_internal::cells_along(ez, length);
  g.cell_count = g.count_x * g.count_y * g.count_z;
  const double_wrapper edges[3] = {ex, ey, ez};
  for (int a = 0; a < 3; ++a) {
    const double_wrapper pad = (static_cast<double>(g.count(a)) * length - edges[a]) * 0.5;
    g.bounds.lower[a] = space.lower[a] - pad;
    g.bounds.upper[a] = space.upper[a] + pad;
  }

  thresholder<20, 10> limits;
  limits.set(config.max_candidates, config.max_depth);
  int threads = config.thread_count;
  if (threads < 1) threads = std::max(layout.data.thread_num, 1);
  threads = int(std::min<std::uint64_t>(std::uint64_t(threads), std::max<std::uint64_t>(1, g.cell_count / 4096)));

  // Scopes and units by halvings; the units cover the reach of a cell's list
  // from any point of it, twice over, so far sides of long blocks clamp.
  const double half = 0.5 * length.value;
  {
    double_wrapper sb = scope;
    const int most = config.decrease_enabled ? std::max(0, std::min<int>(limits.depth, 255)) : 0;
    for (int level = 0; level <= most; ++level) {
      compact_level lv;
      lv.scope_bound = sb.value;
      lv.range = sb.value + 2 * half;
      lv.unit = lv.range / reach_units;
      lv.inv_unit = 1.0 / lv.unit;
      lv.side_unit = lv.range / 127.0;
      x.levels.push_back(lv);
      sb = 0.5 * sb;
    }
  }
  // What rounding may take from the exact measure below the box bound: the
  // tolerance of its comparisons, and the last bits of coordinates as large
  // as the grid's (a cylinder's box is its centre plus its radius, rounded).
  double extent = 0.0;
  for (int a = 0; a < 3; ++a)
    extent = std::max({extent, std::fabs(g.bounds.lower[a].value), std::fabs(g.bounds.upper[a].value)});
  x.margin = 8 * eps + std::ldexp(extent + x.levels.front().range, -40);

  // The block table, in brick order of the blocks' centres.
  const std::vector<wire_block const*>& blocks = layout.blocks;
  const std::size_t nb = blocks.size();
  if (nb >= 0xffffffffull) throw std::length_error("compact index: too many blocks");
  std::vector<std::uint32_t> place(nb);
  {
    std::vector<std::pair<std::uint64_t, std::uint32_t>> keys(nb);
    for (std::size_t i = 0; i < nb; ++i) {
      const cuboid_t& b = blocks[i]->outer_box;
      point3 mid;
      for (int a = 0; a < 3; ++a) mid[a] = 0.5 * (b.lower[a].value + b.upper[a].value);
      keys[i] = {brick_key(g, g.cell_of(mid)), std::uint32_t(i)};
    }
    std::sort(keys.begin(), keys.end());
    x.blocks = make_cell_array<compact_block>(nb);
    x.block_count = nb;
    for (wire_block const* b : blocks) x.solid_count += b->shape_kind != shape_cuboid;
    x.solids = make_cell_array<compact_solid>(x.solid_count);
    std::size_t solid = 0;
    for (std::size_t r = 0; r < nb; ++r) {
      const wire_block& b = *blocks[keys[r].second];
      compact_entry& e = x.blocks[r].entry;
      e.box = b.outer_box;
      e.ref = reinterpret_cast<std::uintptr_t>(&b);
      if (b.shape_kind != shape_cuboid) {
        compact_solid& copy = x.solids[solid++];
        copy.shape.shape_kind = b.shape_kind;
        copy.shape.outer_box = b.outer_box;
        copy.block = &b;
        if (b.shape_kind == shape_cylinder)
          copy.shape.solid = ::new (static_cast<void*>(copy.copy)) cylinder_t(b.cylinder());
        else if (b.shape_kind == shape_prism)
          copy.shape.solid = ::new (static_cast<void*>(copy.copy)) nprism_t(b.prism());
        e.ref = reinterpret_cast<std::uintptr_t>(&copy) | 1u | (config.double_incline_ratio ? 2u : 0u);
      }
      place[keys[r].second] = std::uint32_t(r);
    }
  }

  // The blocks offered to each cell, in the layout's order: every cell within
  // the scope of a block's box on each axis, as the grid's build offers them.
  // Each thread fills the cells of its own range of flat indices.
  const std::uint64_t cells = g.cell_count;
  std::vector<std::uint64_t> first_offer(cells + 1, 0);
  auto offer_range = [&](int part, auto&& visit) {
    const std::uint64_t chunk = cells / std::uint64_t(threads);
    const std::uint64_t lo = std::uint64_t(part) * chunk;
    const std::uint64_t hi = part + 1 < threads ? lo + chunk : cells;
    const std::uint64_t cy = g.count_y, cz = g.count_z;
    for (std::size_t bi = 0; bi < nb; ++bi) {
      const cuboid_t& box = blocks[bi]->outer_box;
      const auto from = g.lower_bound(box.lower, scope);
      const auto to = g.upper_bound(box.upper, scope);
      for (std::uint64_t i = from[0]; i < to[0]; ++i) {
        if (i * cy * cz >= hi || (i + 1) * cy * cz <= lo) continue;
        for (std::uint64_t j = from[1]; j < to[1]; ++j) {
          const std::uint64_t row = (i * cy + j) * cz;
          if (row >= hi || row + cz <= lo) continue;
          for (std::uint64_t k = from[2]; k < to[2]; ++k)
            if (row + k >= lo && row + k < hi) visit(row + k, bi);
        }
      }
    }
  };
  run_parts(threads, [&](int part) { offer_range(part, [&](std::uint64_t c, std::size_t) { ++first_offer[c + 1]; }); });
  for (std::uint64_t c = 0; c < cells; ++c) first_offer[c + 1] += first_offer[c];
  std::vector<std::uint32_t> offers(first_offer[cells]);
  {
    std::vector<std::uint64_t> next(first_offer.begin(), first_offer.end() - 1);
    run_parts(threads, [&](int part) {
      offer_range(part, [&](std::uint64_t c, std::size_t bi) { offers[next[c]++] = place[bi]; });
    });
  }
  std::vector<std::uint32_t>().swap(place);

  // Cells in brick order, shared among the threads by the number of offers.
  const std::vector<std::uint64_t> order = cells_in_brick_order(g);
  std::vector<std::uint64_t> part_cell(std::size_t(threads) + 1, cells);
  {
    const std::uint64_t total = first_offer[cells];
    std::uint64_t seen = 0;
    std::size_t p = 1;
    part_cell[0] = 0;
    for (std::uint64_t r = 0; r < cells && p < std::size_t(threads); ++r) {
      for (; p < std::size_t(threads) && seen >= total * p / std::uint64_t(threads); ++p) part_cell[p] = r;
      seen += first_offer[order[r] + 1] - first_offer[order[r]];
    }
  }
  auto cells_of = [&](int part, auto&& visit) {
    for (std::uint64_t r = part_cell[std::size_t(part)]; r < part_cell[std::size_t(part) + 1]; ++r) visit(order[r]);
  };

  // Every cell's list, sorted, in place of its offers.
  std::vector<std::uint32_t> count_level(cells);
  run_parts(threads, [&](int part) {
    cell_packer packer{x, limits, config.decrease_enabled, scope.value, {}, {}, {}, 0.0, 0.0, 0};
    cells_of(part, [&](std::uint64_t c) {
      std::uint32_t* offered = offers.data() + first_offer[c];
      packer.fill(c, offered, first_offer[c + 1] - first_offer[c]);
      if (packer.list.size() > 0xffffff || packer.level > 255)
        throw std::length_error("compact index: a cell holds more than 16777215 entries or 255 halvings");
      if (std::size_t(packer.level) >= x.levels.size())
        throw std::logic_error("compact index: a cell halved more often than its limits allow");
      for (std::size_t i = 0; i < packer.list.size(); ++i) offered[i] = packer.list[i].index;
      count_level[c] = std::uint32_t(packer.list.size()) | std::uint32_t(packer.level) << 24;
    });
  });

  // As many entries in a slot as keep the index within the pair's cells and lists.
  {
    std::uint64_t beyond[5] = {};  // entries past the first k of every cell, k = 0..4
    for (std::uint64_t c = 0; c < cells; ++c) {
      const std::uint64_t n = count_level[c] & 0xffffffu;
      for (std::uint64_t k = 0; k < 5; ++k) beyond[k] += n > k ? n - k : 0;
    }
    // The pair's cells, and its lists as the allocator holds them (a header
    // of 8 bytes, 16-byte steps, 32 at least).
    std::uint64_t pair = cells * sizeof(base_grid_node<5>);
    for (std::uint64_t c = 0; c < cells; ++c) {
      const std::uint64_t n = count_level[c] & 0xffffffu;
      if (n > 0) pair += std::max<std::uint64_t>(32, (n * sizeof(candidate_list::candidate) + 8 + 15) / 16 * 16);
    }
    auto slot_bytes = [](std::uint32_t k) { return k == 0 ? head_bytes : (head_bytes + k * inline_bytes + 63) / 64 * 64; };
    x.in_slot = 0;
    if (in_slot >= 0 && in_slot <= 4) {
      x.in_slot = std::uint32_t(in_slot);
    } else {
      for (std::uint32_t k : {4u, 3u, 2u}) {
        const std::uint64_t held = cells * slot_bytes(k) + beyond[k] * entry_bytes + nb * sizeof(compact_block) +
                                   x.solid_count * sizeof(compact_solid);
        if (held <= pair) {
          x.in_slot = k;
          break;
        }
      }
    }
    x.slot_bytes = slot_bytes(x.in_slot);
    if (beyond[x.in_slot] * entry_bytes / 2 > 0xffffffffull)
      throw std::length_error("compact index: the overflow would exceed 8 GiB");
    x.slots = compact_arena(std::max<std::uint64_t>(1, cells * x.slot_bytes));
    x.overflow = compact_arena(beyond[x.in_slot] * entry_bytes + tail_bytes);
  }

  // Slots and overflow; each part's overflow starts where the earlier parts' ends.
  std::vector<std::uint64_t> part_start(std::size_t(threads), 0);
  for (int part = 0; part + 1 < threads; ++part) {
    std::uint64_t bytes = 0;
    cells_of(part, [&](std::uint64_t c) {
      const std::uint64_t n = count_level[c] & 0xffffffu;
      bytes += n > x.in_slot ? (n - x.in_slot) * entry_bytes : 0;
    });
    part_start[std::size_t(part) + 1] = part_start[std::size_t(part)] + bytes;
  }
  run_parts(threads, [&](int part) {
    cell_packer packer{x, limits, config.decrease_enabled, scope.value, {}, {}, {}, 0.0, 0.0, 0};
    std::uint64_t at = part_start[std::size_t(part)];
    cells_of(part, [&](std::uint64_t c) {
      const std::uint32_t n = count_level[c] & 0xffffffu;
      packer.cube = x.grid.cell_cube(c);
      packer.level = std::int32_t(count_level[c] >> 24);
      packer.list.clear();
      for (std::uint32_t i = 0; i < n; ++i) {
        const std::uint32_t b = offers[first_offer[c] + i];
        packer.list.push_back(entry{(distance(x.blocks[b].entry.box, packer.cube.center) - packer.cube.half).value, b});
      }
      std::uint8_t* slot = x.slots.data + c * x.slot_bytes;
      compact_head head;
      head.count_level = count_level[c];
      head.overflow = std::uint32_t(at / 2);
      const std::uint32_t held = std::min(n, x.in_slot);
      for (std::uint32_t i = 0; i < held; ++i) {
        const compact_entry& e = x.blocks[packer.list[i].index].entry;
        std::memcpy(slot + head_bytes + i * inline_bytes, &e, sizeof e);
      }
      if (n > held) {
        packer.pack_overflow(held, x.overflow.data + at, head.side);
        at += std::uint64_t(n - held) * entry_bytes;
      }
      std::memcpy(slot, &head, sizeof head);
    });
  });
  return x;
}

}  // namespace torva
