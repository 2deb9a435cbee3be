// The two-layer and half-layer tables of a run, ready for walks whose cubes
// straddle a horizontal interface: one entry per pair of permittivities
// (below, above) that such a cube may meet, pointing into the table database
// that owns the groups, with a guide over each probability row. Cells, rows
// and signs are those of layer_cells.h.
#pragma once

#include <algorithm>
#include <array>
#include <cmath>
#include <cstdint>
#include <memory>
#include <string>
#include <utility>
#include <vector>

#include "torva/extract/internal/dielectric_map.h"
#include "torva/extract/internal/layer_cells.h"
#include "torva/extract/internal/random.h"
#include "torva/extract/layered_tables.h"
#include "torva/tables/table_database.h"

namespace torva::internal {

// The cell of a cumulative row (ascending, ending on 1) where a uniform u
// falls, as std::upper_bound finds it, from a guide of where each 1/4096 of
// [0, 1) begins.
struct row_guide {
  static constexpr int buckets = 4096;
  const float* cdf = nullptr;
  int size = 0;
  std::uint16_t start[buckets + 1];

  void build(const float* row, int n) noexcept {
    cdf = row;
    size = n;
    int e = 0;
    for (int k = 0; k <= buckets; ++k) {
      const double u = double(k) / buckets;
      while (e < n - 1 && !(double(cdf[e]) > u)) ++e;
      start[k] = std::uint16_t(e);
    }
  }

  int find(double u) const noexcept {
    int e = start[int(u * buckets)];
    while (e < size - 1 && !(double(cdf[e]) > u)) ++e;
    return e;
  }
};

// The cell of a cumulative row by binary search: for the rows drawn once a walk.
inline int find_cell(const float* cdf, int n, double u) noexcept {
  const float* hit = std::upper_bound(cdf, cdf + n, u, [](double v, float c) { return v < double(c); });
  return std::min(int(hit - cdf), n - 1);
}

// Within a drawn cell the exit is not uniform but follows a density linear
// across the cell, 1 + s (u - 1/2) along each of its two axes, with the slope
// s taken from the masses of its neighbours: the cell keeps its probability,
// and a potential that varies across it is weighed as the true density
// weighs it to second order (a uniform point leaves an error of 1e-4 to 1e-3
// of the potential's change across a cube; this, about 1e-6).
//
// The slopes of cell e of a cumulative row (n cells a face side, the
// interface at cell boundary k along z): per in-plane axis (column, row), the
// change of mass per cell over the cell's own, from the neighbours on the
// same face and the same side of the interface (a neighbour of no mass counts
// as none: the middle column of the x derivative holds zero), kept within
// [-2, 2] so that the density stays positive.
inline void cell_tilt(const float* cdf, int n, int k, int e, float out[2]) noexcept {
  const auto mass = [&](int i) { return double(cdf[i]) - (i > 0 ? double(cdf[i - 1]) : 0.0); };
  const face_cell c = cell_at(e, n);
  const double own = mass(e);
  for (int d = 0; d < 2; ++d) {
    const bool along_z = (c.axis + 1 + d) % 3 == 2;
    const int at = d == 0 ? c.col : c.row, step = d == 0 ? 1 : n;
    const double lo = at > 0 && !(along_z && at == k) ? mass(e - step) : 0.0;
    const double hi = at < n - 1 && !(along_z && at + 1 == k) ? mass(e + step) : 0.0;
    const double slope = lo > 0 && hi > 0 ? 0.5 * (hi - lo) : (hi > 0 ? hi - own : (lo > 0 ? own - lo : 0.0));
    out[d] = own > 0 ? float(std::clamp(slope / own, -2.0, 2.0)) : 0.0f;
  }
}

// A draw in [0, 1) from the density 1 + s (u - 1/2), |s| <= 2, for a uniform r.
inline double linear_draw(double s, double r) noexcept {
  const double b = 1.0 - 0.5 * s;
  const double denominator = b + std::sqrt(std::max(b * b + 2.0 * s * r, 0.0));
  return denominator > 0.0 ? std::min(2.0 * r / denominator, 0x1.fffffffffffffp-1) : 0.0;
}

struct straddle_interface {
  double below = 1.0, above = 1.0;
  const two_layer_cube_group* two = nullptr;
  const half_layer_cube_group* half = nullptr;
  std::array<row_guide, two_layer_positions> guides;  // over the gft rows
  row_guide half_guide;
  std::vector<float> tilts;       // two per cell of each gft row, row after row
  std::vector<float> half_tilts;  // two per cell of the half-layer gft row
};

struct straddle_tables {
  std::unique_ptr<table_database> database;  // owns the groups
  // Every pair a straddling cube may meet: those of the stack's planes, then
  // those of the boxes' horizontal faces.
  std::vector<straddle_interface> pairs;
  std::string source;  // what was loaded and what generated, for the reports
  double generation_seconds = 0.0;

  // The tables of the pair, or null when the run has none for it.
  const straddle_interface* find(double below, double above) const noexcept {
    for (const straddle_interface& t : pairs)
      if (t.below == below && t.above == above) return &t;
    return nullptr;
  }
};

// A point of a cell by its slopes, from one 64-bit draw.
inline void point_in(int e, int n, const float tilt[2], std::uint64_t r, double out[3]) noexcept {
  const double u = double(r & 0xFFFFFFFFu) * 0x1.0p-32, v = double(r >> 32) * 0x1.0p-32;
  cell_point(cell_at(e, n), n, linear_draw(tilt[0], u), linear_draw(tilt[1], v), out);
}

// An exit of the cube of half size 1 with the interface at position k
// (1..22), from its centre.
inline void draw_two_layer(const straddle_interface& t, int k, walk_random& rng, double out[3]) noexcept {
  const double u = rng.uniform();
  const int e = t.guides[std::size_t(k - 1)].find(u);
  const std::size_t at = 2 * (std::size_t(k - 1) * two_layer_gft_table::row_size + std::size_t(e));
  point_in(e, two_layer_cells, &t.tilts[at], rng.next(), out);
}

// An exit of the cube of half size 1 centred on the interface.
inline void draw_half_layer(const straddle_interface& t, walk_random& rng, double out[3]) noexcept {
  const double u = rng.uniform();
  const int e = t.half_guide.find(u);
  point_in(e, half_layer_cells, &t.half_tilts[2 * std::size_t(e)], rng.next(), out);
}

// The first hop's exit for a start moved along side * axis, by the strength
// of the derivative: from the rows of gft_is (three a position, row_size
// cells each, `n` a side, the interface at cell boundary k) and their totals. Returns the weight factor: the
// derivative's sign at the exit times the total, for the cube of half size 1.
// A derivative along the interface is the x row (with x and y exchanged for
// y); one across it is the positive or the negative row.
inline double draw_first(const float* rows, const float* totals, int n, int k, int axis, int side, walk_random& rng,
                         double out[3]) noexcept {
  const int size = 6 * n * n;
  const double u = rng.uniform(), v = rng.uniform();
  const std::uint64_t r = rng.next();
  float tilt[2];
  if (axis == 2) {
    const double up = totals[1], all = totals[1] + totals[2];
    const bool positive = u * all < up;
    const float* row = rows + (positive ? 1 : 2) * size;
    const int e = find_cell(row, size, v);
    cell_tilt(row, n, k, e, tilt);
    point_in(e, n, tilt, r, out);
    return (positive ? side : -side) * all;
  }
  const int e = find_cell(rows, size, v);
  cell_tilt(rows, n, k, e, tilt);
  point_in(e, n, tilt, r, out);
  const int sign = x_derivative_sign(cell_at(e, n), n);
  if (axis == 1) std::swap(out[0], out[1]);
  return side * sign * double(totals[0]);
}

struct straddle_settings {
  std::string dir;              // where the loader looks first (then the home directory's Torva_tables)
  table_generation generation;  // for pairs with no files: generated in memory for the run
};

// The pairs a straddling cube may meet in the map: the stack's adjacent
// layers, bottom first, then the two sides of the boxes' horizontal faces
// (at each face's centre and near its corners), each pair once.
std::vector<std::pair<double, double>> straddle_pairs(const dielectric_map& map);

// The tables of those pairs: the stack's by table_database::load (table mode
// 1) and the boxes' by the loader's reading of a group, when every file is
// there; else the pairs with files are loaded and the others generated in
// memory, with one warning that says how to write them once. An empty result
// for a map without horizontal interfaces.
straddle_tables load_straddle_tables(const dielectric_map& map, const straddle_settings& settings,
                                     std::vector<std::string>& warnings);

}  // namespace torva::internal
