// Where a walk leaves a transition cube: drawn from the first table, which
// holds the exit distribution from the cube's centre over the 32 x 32 cells of
// one quarter of one face; the 24 quarters of the surface are alike by
// symmetry, so a draw picks a quarter uniformly, a cell from the table, and a
// point uniformly inside the cell.
#pragma once

#include <algorithm>
#include <cstdint>

#include "torva/extract/internal/random.h"

namespace torva::internal {

// One exit point of the cube [-1,1]^3.
struct cube_exit {
  int axis;       // the axis the exit face is normal to
  int side;       // -1 or +1: which of the two faces
  int cell;       // cell of the table, row (second in-plane axis) * 32 + column (first)
  int sign[2];    // -1 or +1: the sign of the exit point's coordinate along each in-plane axis
  double at[2];   // the exit point along the in-plane axes (axis+1)%3 and (axis+2)%3, in [-1, 1]
};

// The cell of a cumulative table of 1024 ascending values ending on 1 where a
// uniform u falls: the first cell whose value exceeds u, as std::upper_bound
// finds it, but from a guide of where each 1/1024 of [0, 1) begins, so that a
// draw reads one or two values instead of ten in a row of dependent loads.
struct table_guide {
  const double* cdf = nullptr;
  std::uint16_t start[1025];

  void build(const double* table) noexcept {
    cdf = table;
    int e = 0;
    for (int k = 0; k <= 1024; ++k) {
      const double u = k / 1024.0;
      while (e < 1023 && !(cdf[e] > u)) ++e;
      start[k] = std::uint16_t(e);
    }
  }

  int find(double u) const noexcept {
    int e = start[int(u * 1024.0)];
    while (e < 1023 && !(cdf[e] > u)) ++e;
    return e;
  }
};

struct cube_sampler {
  table_guide guide;  // over the first table

  void build(const double* first_table) noexcept { guide.build(first_table); }

  cube_exit sample(walk_random& rng) const noexcept {
    const std::uint64_t r1 = rng.next();
    const double u = rng.uniform();
    const std::uint64_t r3 = rng.next();
    // 24 quarters from the high half of r1: face (6) then quarter (4).
    const std::uint32_t q = std::uint32_t(((r1 >> 32) * 24) >> 32);
    cube_exit e;
    e.axis = int(q >> 3);
    e.side = (q & 4) ? 1 : -1;
    e.sign[0] = (q & 1) ? 1 : -1;
    e.sign[1] = (q & 2) ? 1 : -1;
    const int cell = guide.find(u);
    e.cell = cell;
    constexpr double to_unit = 0x1.0p-32;
    const double fx = double(r3 & 0xFFFFFFFFu) * to_unit;
    const double fy = double(r3 >> 32) * to_unit;
    // The table's quarter is x, y in [-1, 0] (sign -1); sign +1 mirrors it.
    e.at[0] = e.sign[0] * (1.0 - ((cell & 31) + fx) / 32.0);
    e.at[1] = e.sign[1] * (1.0 - ((cell >> 5) + fy) / 32.0);
    return e;
  }
};

}  // namespace torva::internal
