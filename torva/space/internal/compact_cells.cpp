#include "torva/space/internal/compact_cells.h"

#include <algorithm>
#include <cmath>
#include <cstring>
#include <limits>

#include "torva/geometry/distance.h"

namespace torva::compact_build {

namespace {

using sea::double_wrapper;
constexpr double eps = double_wrapper::tolerance;

// Bits 0..2 of v spread to every third bit.
constexpr std::uint32_t spread3(std::uint32_t v) noexcept { return (v & 1u) | (v & 2u) << 2 | (v & 4u) << 4; }

// An integer of a cell's units, rounded down (or up) and one more step out,
// clamped to the values a group holds: only sides of a box far beyond the
// cell's reach (never a near side) clamp. A shift makes the truncation a floor.
std::int16_t units_down(double x, double inv) noexcept {
  const double q = x * inv;
  if (!(q > -16000.0)) return -compact_layout::clamp_units;  // also not a number
  if (q >= 16384.0) return compact_layout::clamp_units;
  return static_cast<std::int16_t>(static_cast<std::int32_t>(q + 32768.0) - 32769);
}
std::int16_t units_up(double x, double inv) noexcept {
  const double q = x * inv;
  if (!(q < 16000.0)) return compact_layout::clamp_units;  // also not a number
  if (q <= -16384.0) return -compact_layout::clamp_units;
  return static_cast<std::int16_t>(32769 - static_cast<std::int32_t>(32768.0 - q));
}

}  // namespace

std::uint64_t brick_key(const base_grid<compact_head>& g, std::uint64_t flat) noexcept {
  const std::uint64_t k = flat % g.count_z;
  const std::uint64_t t = flat / g.count_z;
  const std::uint64_t j = t % g.count_y, i = t / g.count_y;
  const std::uint64_t by = (g.count_y + 7) / 8, bz = (g.count_z + 7) / 8;
  const std::uint64_t brick = ((i / 8) * by + j / 8) * bz + k / 8;
  return brick << 9 | spread3(std::uint32_t(i % 8)) << 2 | spread3(std::uint32_t(j % 8)) << 1 | spread3(std::uint32_t(k % 8));
}

std::vector<std::uint64_t> cells_in_brick_order(const base_grid<compact_head>& g) {
  std::vector<std::uint64_t> order;
  order.reserve(g.cell_count);
  std::uint32_t offset[512][3];
  for (std::uint32_t code = 0; code < 512; ++code)
    for (int a = 0; a < 3; ++a) {
      std::uint32_t v = 0;
      for (int bit = 0; bit < 3; ++bit) v |= (code >> (3 * bit + 2 - a) & 1u) << bit;
      offset[code][a] = v;
    }
  for (std::uint64_t i0 = 0; i0 < g.count_x; i0 += 8)
    for (std::uint64_t j0 = 0; j0 < g.count_y; j0 += 8)
      for (std::uint64_t k0 = 0; k0 < g.count_z; k0 += 8)
        for (const auto& o : offset) {
          const std::uint64_t i = i0 + o[0], j = j0 + o[1], k = k0 + o[2];
          if (i < g.count_x && j < g.count_y && k < g.count_z) order.push_back((i * g.count_y + j) * g.count_z + k);
        }
  return order;
}

void cell_packer::fill(std::uint64_t cell, const std::uint32_t* offered, std::size_t n) {
  cube = index.grid.cell_cube(cell);
  scope_bound = bound = scope;
  level = 0;
  list.clear();
  for (std::size_t i = 0; i < n; ++i) {
    const entry e{(distance(index.blocks[offered[i]].entry.box, cube.center) - cube.half).value, offered[i]};
    if (!(bound - eps > e.distance)) continue;
    list.push_back(e);
    if (may_decrease && crowded() && level < limits.depth) {
      ++level;
      decrease();
    }
  }
  // Completion: non-cuboids whose solid lies beyond the bound leave by
  // swapping in the last entry; then the sort, not-a-number last.
  const double limit = cube.half.value + bound;
  for (std::size_t i = 0; i < list.size();) {
    const compact_entry& b = block(list[i]);
    if (b.cuboid() || limit - eps > manhattan_distance(cube.center, *b.block()).value) {
      ++i;
      continue;
    }
    if (i + 1 != list.size()) list[i] = list.back();
    list.pop_back();
  }
  if (!list.empty())
    std::sort(list.begin(), list.end(), [](const entry& a, const entry& b) {
      const double x = a.distance;
      const double y = b.distance;
      if (std::isnan(y)) return !std::isnan(x);
      return x < y;
    });
}

void cell_packer::decrease() {
  old.swap(list);
  list.clear();
  scope_bound = 0.5 * double_wrapper(scope_bound);
  for (const entry& e : old) {
    const double_wrapper g = manhattan_distance(cube.center, *block(e).block()) - cube.half;
    if (!(g.value - eps > scope_bound)) list.push_back(e);
  }
  if (crowded() && level < limits.depth) {
    ++level;
    decrease();
  }
}

void cell_packer::pack_overflow(std::size_t from, std::uint8_t* out, std::int8_t side[6]) const {
  using namespace compact_layout;
  const compact_level& lv = index.levels[std::size_t(level)];
  const double inv = lv.inv_unit;
  const double h = cube.half.value;
  double least[6];
  std::fill(least, least + 6, std::numeric_limits<double>::infinity());
  const std::size_t n = list.size() - from;
  for (std::size_t first = 0; first < n; first += lanes) {
    const std::size_t s = std::min<std::size_t>(lanes, n - first);
    std::uint8_t* base = out + entry_bytes * first;
    auto put = [&](unsigned f, std::size_t lane, std::int16_t v) { std::memcpy(base + 2 * (s * f + lane), &v, 2); };
    for (std::size_t lane = 0; lane < s; ++lane) {
      const entry& e = list[from + first + lane];
      const cuboid_t& box = block(e).box;
      put(0, lane, std::isnan(e.distance) ? open : units_down(e.distance, inv));
      // The side where the box lies farthest out from the cell takes its gap.
      double gap = -std::numeric_limits<double>::infinity();
      int at = 0;
      for (int a = 0; a < 3; ++a) {
        const double low = box.lower[a].value - cube.center[a].value;
        const double high = box.upper[a].value - cube.center[a].value;
        put(1 + 2 * a, lane, units_down(low, inv));
        put(2 + 2 * a, lane, units_up(high, inv));
        if (low - h > gap) gap = low - h, at = a;
        if (-high - h > gap) gap = -high - h, at = a + 3;
      }
      least[at] = std::min(least[at], gap);
      std::memcpy(base + 14 * s + 4 * lane, &e.index, 4);
    }
  }
  const double side_inv = 1.0 / lv.side_unit;
  for (int k = 0; k < 6; ++k) {
    const double q = std::floor(least[k] * side_inv) - 1.0;
    side[k] = !(q > -128.0) ? std::int8_t(-128) : q >= 127.0 ? std::int8_t(127) : std::int8_t(q);
  }
}

}  // namespace torva::compact_build
