// The exit probabilities of a cube cut by one horizontal dielectric
// interface, computed by a finite-volume solve of the layered cube: the
// numbers behind the two-layer and half-layer tables (cells and rows as in
// layer_cells.h).
//
// The grid has N = n m intervals a side (m even, so that the centre is a
// node), nodes on the cube's faces held at the boundary values and the
// interface on a plane of nodes. Each node's control volume balances the flux
// through its six faces, with the permittivity of the layer between two
// nodes along z and the mean over its volume along x and y: a node on the
// interface weighs (below + above) / 2, which makes the scheme exact for a
// field that is linear on each side with its flux continuous. The operator's
// x and y parts are the same on every plane of nodes but for that weight, so
// a sine transform in x and y leaves one tridiagonal system along z for each
// pair of wave numbers: the discrete system is solved exactly, in O(N^3)
// for a point source.
//
// The probability that a walk from the centre ends on boundary node b is, by
// the symmetry of the operator, the coupling of b to its inner neighbour
// times the solution for a unit source at the centre (one solve for every
// boundary node at once); the derivatives with respect to the start are the
// solutions for the difference stencils of the start (central in x, central
// in z, or one-sided above the interface when the start lies on it). A
// boundary node's share goes to the table cells its control area covers, each
// quarter of it with the permittivity on its side of the interface.
//
// Two grids, m and 2m, combined as (4 fine - coarse) / 3, take out the
// error of order h^2.
#pragma once

#include <vector>

namespace torva::internal {

struct layered_cube_setup {
  int n = 23;          // table cells a face side
  int position = 1;    // the interface at z = -1 + 2 position / n, 0 < position < n
  double below = 1.0;  // relative permittivity under the interface
  double above = 1.0;  // and over it
};

// Per cell, 6 n^2 each, for the cube of half size 1 (signed derivatives).
struct layered_cube_cells {
  std::vector<double> density;
  std::vector<double> dx;
  std::vector<double> dz;
};

// The solve on one grid; m must be even and positive.
layered_cube_cells solve_layered_cube(const layered_cube_setup& setup, int m);

// The cells from grids m and 2m, extrapolated; or from grid m alone when
// `extrapolate` is false. Symmetric in x, y and their exchange exactly (the
// x derivative antisymmetric in x), each row's sums as the physics wants
// them: the probabilities add up to 1 and the derivatives to 0.
layered_cube_cells layered_cube_tables(const layered_cube_setup& setup, int m, bool extrapolate);

}  // namespace torva::internal
