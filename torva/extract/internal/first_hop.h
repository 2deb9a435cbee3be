// The first hop of a walk, drawn by the field's strength.
//
// A walk starts on the Gaussian surface and must carry the normal derivative
// of the potential there: its first exit point e weighs dP/dn(e) / q(e), where
// q is the density e was drawn from. Drawn from the cube's exit density (the
// first table) the weight swings with the derivative; drawn from q = |dP/dn| / K
// it is +K or -K, its sign that of the derivative, which lowers the variance of
// every entry at no cost per hop. The per-cell masses |dP/dn| come from the
// first-hop weights times the first table's cell probabilities, so the two
// draws have the same mean exactly, cell by cell.
#pragma once

#include <algorithm>
#include <cstdint>

#include "torva/extract/internal/cube_sampler.h"
#include "torva/extract/internal/first_weights.h"
#include "torva/extract/internal/random.h"

namespace torva::internal {

struct first_hop_sampler {
  // Cumulative masses over the quarter's cells, each ending on 1.
  double normal_cdf[1024];     // |d/dn| on the faces normal to the derivative
  double tangent_x_cdf[1024];  // |d/dx| on a face whose column runs along the derivative
  double tangent_y_cdf[1024];  // |d/dy| on a face whose row runs along it
  double normal_mass = 0.0;    // of one whole face normal to the derivative
  double tangent_mass = 0.0;   // of one whole face along it
  double total = 0.0;          // K: of the whole surface
  table_guide normal_guide, tangent_x_guide, tangent_y_guide;

  explicit first_hop_sampler(const double* first_table) noexcept {
    double nx = 0, tx = 0, ty = 0, before = 0;
    for (int e = 0; e < 1024; ++e) {
      const double p = (first_table[e] - before) / 24.0;
      before = first_table[e];
      nx += p * -first_normal_weights[e];
      tx += p * -first_tangent_weights[e];
      ty += p * -first_tangent_y_weights[e];
      normal_cdf[e] = nx;
      tangent_x_cdf[e] = tx;
      tangent_y_cdf[e] = ty;
    }
    for (int e = 0; e < 1024; ++e) {
      normal_cdf[e] /= nx;
      tangent_x_cdf[e] /= tx;
      tangent_y_cdf[e] /= ty;
    }
    normal_cdf[1023] = tangent_x_cdf[1023] = tangent_y_cdf[1023] = 1.0;
    normal_mass = 4 * nx;
    // The x and y masses of a face are equal by symmetry; their mean evens out the table's rounding.
    tangent_mass = 2 * (tx + ty);
    total = 2 * normal_mass + 4 * tangent_mass;
    normal_guide.build(normal_cdf);
    tangent_x_guide.build(tangent_x_cdf);
    tangent_y_guide.build(tangent_y_cdf);
  }

  // Not copied: the guides point into this object's own tables.
  first_hop_sampler(const first_hop_sampler&) = delete;
  first_hop_sampler& operator=(const first_hop_sampler&) = delete;

  // An exit of the cube [-1,1]^3 for a start moved along `side` * `axis`, and
  // the derivative's sign there (the weight is sign * total).
  cube_exit sample(int axis, int side, walk_random& rng, int& sign) const noexcept {
    const double u = rng.uniform() * total;
    const std::uint64_t r2 = rng.next();
    const double v = rng.uniform();
    cube_exit e;
    e.sign[0] = (r2 & 1) ? 1 : -1;
    e.sign[1] = (r2 & 2) ? 1 : -1;
    const table_guide* guide;
    if (u < 2 * normal_mass) {
      e.axis = axis;
      e.side = u < normal_mass ? side : -side;  // the face ahead of the move gains
      sign = e.side == side ? 1 : -1;
      guide = &normal_guide;
    } else {
      const int k = std::min(3, int((u - 2 * normal_mass) / tangent_mass));
      e.axis = (axis + 1 + (k >> 1)) % 3;
      e.side = (k & 1) ? 1 : -1;
      // Along the move the density gains where the coordinate is positive.
      if (axis == (e.axis + 1) % 3) {
        sign = side * e.sign[0];
        guide = &tangent_x_guide;
      } else {
        sign = side * e.sign[1];
        guide = &tangent_y_guide;
      }
    }
    e.cell = guide->find(v);
    constexpr double to_unit = 0x1.0p-32;
    const double fx = double((r2 >> 2) & 0xFFFFFFFFu) * to_unit;
    const double fy = double(r2 >> 34) * 0x1.0p-30;
    e.at[0] = e.sign[0] * (1.0 - ((e.cell & 31) + fx) / 32.0);
    e.at[1] = e.sign[1] * (1.0 - ((e.cell >> 5) + fy) / 32.0);
    return e;
  }
};

}  // namespace torva::internal
