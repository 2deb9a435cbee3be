#include "torva/extract/internal/dielectric_map.h"

#include <algorithm>
#include <cmath>
#include <cstdio>
#include <limits>

namespace torva {
namespace {

constexpr double unbounded = std::numeric_limits<double>::infinity();
// Heights closer than this are one height, as the library compares lengths: a
// box's face computed as 0.8 + 0.05 lies on the plane at 0.85, not a last
// place above it, which would leave a layer of no thickness between them.
constexpr double same_height = 1e-10;

// Gives the stack a break at z (splitting the layer there) and returns its index.
std::size_t break_at(dielectric_map& m, double z) {
  std::size_t i = std::size_t(std::lower_bound(m.planes.begin(), m.planes.end(), z - same_height) - m.planes.begin());
  if (i < m.planes.size() && std::abs(m.planes[i] - z) <= same_height) return i;
  i = std::size_t(std::lower_bound(m.planes.begin(), m.planes.end(), z) - m.planes.begin());
  m.planes.insert(m.planes.begin() + std::ptrdiff_t(i), z);
  m.layer_eps.insert(m.layer_eps.begin() + std::ptrdiff_t(i), m.layer_eps[i]);
  return i;
}

// Fills (lo, hi] of the stack with eps.
void fill_layers(dielectric_map& m, double lo, double hi, double eps) {
  const std::size_t a = break_at(m, lo);
  const std::size_t b = break_at(m, hi);
  for (std::size_t i = a + 1; i <= b; ++i) m.layer_eps[i] = eps;
}

// Keeps the breaks strictly inside the window's height, and (when asked) only
// those where the permittivity changes.
void tidy_stack(dielectric_map& m, double z_lo, double z_hi, bool merge_equal) {
  std::vector<double> planes;
  std::vector<double> eps{m.layer_eps.front()};
  for (std::size_t i = 0; i < m.planes.size(); ++i) {
    const double z = m.planes[i], above = m.layer_eps[i + 1];
    if (z <= z_lo) {
      eps.back() = above;  // the layer below the window does not matter
      continue;
    }
    if (z >= z_hi) break;
    if (merge_equal && above == eps.back()) continue;
    planes.push_back(z);
    eps.push_back(above);
  }
  m.planes = std::move(planes);
  m.layer_eps = std::move(eps);
}

bool overlaps(const dielectric_box& a, const dielectric_box& b) {
  for (int k = 0; k < 3; ++k)
    if (!(a.lo[k] < b.hi[k] && b.lo[k] < a.hi[k])) return false;
  return true;
}

void build_grid(dielectric_map& m, const cuboid_t& window) {
  double extent[3], volume = 1.0;
  for (int k = 0; k < 3; ++k) {
    extent[k] = window.upper[k].value - window.lower[k].value;
    volume *= extent[k];
  }
  // About eight cells a box, at most two million.
  const double target = std::clamp(8.0 * double(m.boxes.size()), 8.0, double(1 << 21));
  double cell = std::cbrt(volume / target);
  for (;;) {
    std::uint64_t cells = 1;
    for (int k = 0; k < 3; ++k) cells *= std::uint64_t(std::max(1.0, std::ceil(extent[k] / cell)));
    if (cells <= (1u << 21)) break;
    cell *= 1.25;
  }
  m.cell = cell;
  for (int k = 0; k < 3; ++k) {
    m.origin[k] = window.lower[k].value;
    m.n[k] = int(std::max(1.0, std::ceil(extent[k] / cell)));
  }
  const std::size_t cells = std::size_t(m.n[0]) * std::size_t(m.n[1]) * std::size_t(m.n[2]);
  std::vector<std::vector<std::uint32_t>> lists(cells);
  m.cover.assign(cells, -1);
  for (std::size_t bi = 0; bi < m.boxes.size(); ++bi) {
    const dielectric_box& b = m.boxes[bi];
    int from[3], to[3];
    for (int k = 0; k < 3; ++k) {
      const double lo = std::max(b.lo[k] - cell, m.origin[k]), hi = std::min(b.hi[k] + cell, m.origin[k] + m.n[k] * cell);
      from[k] = std::clamp(int(std::floor((lo - m.origin[k]) / cell)), 0, m.n[k] - 1);
      to[k] = std::clamp(int(std::floor((hi - m.origin[k]) / cell)), 0, m.n[k] - 1);
    }
    for (int z = from[2]; z <= to[2]; ++z)
      for (int y = from[1]; y <= to[1]; ++y)
        for (int x = from[0]; x <= to[0]; ++x) {
          const int c[3] = {x, y, z};
          // The cell grown by one cell size: inside the box whole, or touched by its boundary.
          bool inside = true, apart = false;
          for (int k = 0; k < 3; ++k) {
            const double lo = m.origin[k] + (c[k] - 1) * cell, hi = m.origin[k] + (c[k] + 2) * cell;
            if (!(b.lo[k] < lo && hi < b.hi[k])) inside = false;
            if (hi < b.lo[k] || lo > b.hi[k]) apart = true;
          }
          if (apart) continue;
          const std::size_t at = (std::size_t(z) * std::size_t(m.n[1]) + std::size_t(y)) * std::size_t(m.n[0]) + std::size_t(x);
          if (inside)
            m.cover[at] = std::int32_t(bi);
          else
            lists[at].push_back(std::uint32_t(bi));
        }
  }
  m.start.assign(cells + 1, 0);
  m.near.clear();
  for (std::size_t c = 0; c < cells; ++c) {
    m.start[c] = std::uint32_t(m.near.size());
    // A box listed as near but under a later cover never decides the cell.
    for (std::uint32_t b : lists[c])
      if (std::int32_t(b) > m.cover[c]) m.near.push_back(b);
  }
  m.start[cells] = std::uint32_t(m.near.size());
}

}  // namespace

dielectric_map build_dielectric_map(const circuit_layout& layout, const dielectric_settings& settings,
                                    std::vector<std::string>& warnings) {
  dielectric_map m;
  const cuboid_t& window = layout.data.window;
  const auto& data = layout.data;

  // The plates' stack, lowest first; a plate on another's z_top has no height.
  std::vector<circuit_layout::plate_medium> plates = data.plate_mediums;
  std::stable_sort(plates.begin(), plates.end(), [](const auto& a, const auto& b) { return a.z_top.value < b.z_top.value; });
  if (!plates.empty()) {
    m.planes.clear();
    m.layer_eps.clear();
    for (const auto& p : plates) {
      if (!m.planes.empty() && m.planes.back() == p.z_top.value) continue;
      m.planes.push_back(p.z_top.value);
      m.layer_eps.push_back(p.diel.value);
    }
    m.layer_eps.push_back(1.0);  // above the highest plate: vacuum
  }

  // Bodies, in file order; blocks clipped to the window, faces on or beyond a wall pushed off.
  std::vector<std::string> not_boxes;
  for (const medium_net& body : data.medium_nets) {
    if (body.blocks.empty()) continue;
    bool warned = false;
    for (const medium_block* blk : body.blocks) {
      if (blk->shape_kind != shape_cuboid && !warned) {
        not_boxes.push_back(body.name);
        warned = true;
      }
      dielectric_box b;
      b.eps = body.diel.value;
      bool empty = false, spans = true;
      for (int k = 0; k < 3; ++k) {
        b.lo[k] = blk->outer_box.lower[k].value;
        b.hi[k] = blk->outer_box.upper[k].value;
        if (!(b.lo[k] < window.upper[k].value && b.hi[k] > window.lower[k].value && b.lo[k] < b.hi[k])) empty = true;
        if (b.lo[k] <= window.lower[k].value) b.lo[k] = -unbounded;
        if (b.hi[k] >= window.upper[k].value) b.hi[k] = unbounded;
        if (k < 2 && (std::isfinite(b.lo[k]) || std::isfinite(b.hi[k]))) spans = false;
      }
      if (empty) continue;
      // A block across the whole window is a layer, unless an earlier box
      // it should lie over would then lie over it.
      if (spans && std::none_of(m.boxes.begin(), m.boxes.end(), [&](const dielectric_box& o) { return overlaps(o, b); })) {
        const double lo = std::isfinite(b.lo[2]) ? b.lo[2] : -std::numeric_limits<double>::max();
        const double hi = std::isfinite(b.hi[2]) ? b.hi[2] : std::numeric_limits<double>::max();
        fill_layers(m, lo, hi, b.eps);
        continue;
      }
      m.boxes.push_back(b);
    }
  }
  tidy_stack(m, window.lower[2].value, window.upper[2].value, settings.merge_equal);
  // A box's top or bottom on a plane of the stack lies exactly on it.
  for (dielectric_box& b : m.boxes)
    for (double* z : {&b.lo[2], &b.hi[2]})
      for (const double plane : m.planes)
        if (std::abs(*z - plane) <= same_height) *z = plane;
  if (!not_boxes.empty()) {
    std::string names;
    for (const std::string& n : not_boxes) names += (names.empty() ? "" : ", ") + n;
    warnings.push_back("dielectric bodies with blocks that are not boxes are taken as their blocks' bounding boxes: " +
                       names);
  }
  // A box with the permittivity of every layer it lies in, and under no other box, changes nothing.
  // The test looks at every earlier box, so a map of very many boxes (an imported chip's coats) keeps them all.
  if (settings.merge_equal && m.boxes.size() <= 20000) {
    std::vector<dielectric_box> kept;
    for (std::size_t i = 0; i < m.boxes.size(); ++i) {
      const dielectric_box& b = m.boxes[i];
      bool same = true;
      for (std::size_t j = 0; j < i && same; ++j)
        if (overlaps(m.boxes[j], b)) same = false;
      const double lo = std::max(b.lo[2], window.lower[2].value), hi = std::min(b.hi[2], window.upper[2].value);
      if (same && m.layer_permittivity(std::nextafter(lo, hi)) != b.eps) same = false;
      for (double z : m.planes)
        if (same && z > lo && z < hi && m.layer_permittivity(std::nextafter(z, hi)) != b.eps) same = false;
      if (!same) kept.push_back(b);
    }
    m.boxes = std::move(kept);
  }
  if (!m.boxes.empty()) build_grid(m, window);
  return m;
}

std::string describe(const dielectric_map& m) {
  char buf[64];
  if (m.uniform()) {
    std::snprintf(buf, sizeof buf, "uniform %.6g", m.layer_eps.front());
    return buf;
  }
  // The stack from the bottom: each permittivity, then the height where the next begins.
  std::string s = "layers";
  for (std::size_t i = 0; i < m.layer_eps.size(); ++i) {
    std::snprintf(buf, sizeof buf, " %.6g", m.layer_eps[i]);
    s += buf;
    if (i < m.planes.size()) {
      std::snprintf(buf, sizeof buf, " | z %.6g |", m.planes[i]);
      s += buf;
    }
  }
  std::snprintf(buf, sizeof buf, "; %zu dielectric boxes", m.boxes.size());
  return s + buf;
}

}  // namespace torva
