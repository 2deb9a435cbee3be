// The cells, rows and signs of the two-layer and half-layer tables: one
// place that fixes them for the generator, the files and the walk.
//
// A table describes the cube [-1,1]^3 with a walker at its centre and one
// horizontal interface z = z_k, permittivity `below` under it and `above`
// over it; the group's key is (below, above). Each face is cut into n x n
// cells (n = 23 for the two-layer group, 24 for the half-layer group):
//   - faces in the order x-, x+, y-, y+, z-, z+ (face f: axis f / 2, side
//     -1 for even f and +1 for odd f);
//   - within a face, cell = row * n + col, where col runs along the axis
//     (axis + 1) % 3 and row along (axis + 2) % 3, both from -1 upwards: on
//     the x faces col is y and row is z, on the y faces col is z and row is x,
//     on the z faces col is x and row is y (the axes of a cube_exit);
//   - the row of a whole table is the 6 n^2 cells in that order.
// Two-layer group: position k = 1..22 puts the interface at z = -1 + 2k/23,
// a cell boundary; table row k - 1 of `gft`, rows 3(k-1) .. 3(k-1)+2 of
// `gft_is` and entry k - 1 of `wvt_is` belong to it. Half-layer group: the
// interface through the centre, z = 0 (rows 0 .. 2 of `gft_is`).
//
// What the rows hold, per cell, for the cube of half size 1:
//   gft        the probability that a walk from the centre leaves through
//              the cell (the discrete harmonic measure; the row sums to 1).
//   gft_is +0  |dP/dx0|: the derivative of that probability with respect to
//              the start moved along x. Its sign is known without storing
//              it: the derivative is odd in x and, by the maximum principle,
//              positive where the cell lies at x > 0 (on the face x+ and on
//              the half x > 0 of the other faces), negative where x < 0, and
//              zero on the middle column of a two-layer table, whose cells
//              straddle x = 0. d/dy0 is this row with x and y exchanged
//              (the permittivity depends on z alone).
//   gft_is +1  max(dP/dz0, 0) and
//   gft_is +2  max(-dP/dz0, 0): d/dz0 changes sign at heights that depend
//              on the interface, so its two signs are kept as two rows.
//              In the half-layer table the start lies on the interface and
//              dP/dz0 is the derivative just above it (the flux over `above`).
//   wvt_is     the totals of the three gft_is rows, in that order.
// The table loader turns each gft and gft_is row into a cumulative
// distribution and keeps the totals' absolute values, so these definitions
// survive loading: a draw takes a row's cell with the probability of its
// share, and the weight of a first hop is the sign times the row's total.
#pragma once

namespace torva::internal {

inline constexpr int two_layer_cells = 23;      // cells along a face side
inline constexpr int two_layer_positions = 22;  // interface positions k = 1..22
inline constexpr int half_layer_cells = 24;

// Height of the interface of position k in a table with n cells a side.
inline constexpr double interface_height(int k, int n) noexcept { return -1.0 + 2.0 * k / n; }

// One cell of a face, by its face's normal and its column and row.
struct face_cell {
  int axis;  // normal of the face
  int side;  // -1 or +1
  int col;   // along (axis + 1) % 3
  int row;   // along (axis + 2) % 3
};

inline face_cell cell_at(int e, int n) noexcept {
  const int per_face = n * n, f = e / per_face, r = e % per_face;
  return face_cell{f >> 1, (f & 1) ? 1 : -1, r % n, r / n};
}

inline int cell_index(const face_cell& c, int n) noexcept {
  return ((2 * c.axis + (c.side > 0 ? 1 : 0)) * n + c.row) * n + c.col;
}

// A point of the cell, u and v in [0, 1) across its column and its row.
inline void cell_point(const face_cell& c, int n, double u, double v, double out[3]) noexcept {
  out[c.axis] = c.side;
  out[(c.axis + 1) % 3] = -1.0 + 2.0 * (c.col + u) / n;
  out[(c.axis + 2) % 3] = -1.0 + 2.0 * (c.row + v) / n;
}

// Twice n times the coordinate of the cell's centre along `axis`: an integer,
// odd or even with n, so that symmetries are exact.
inline int cell_centre_twice(const face_cell& c, int n, int axis) noexcept {
  if (axis == c.axis) return c.side * n;
  const int along = axis == (c.axis + 1) % 3 ? c.col : c.row;
  return 2 * along + 1 - n;
}

// The cell whose centre is at the given doubled coordinates (as above).
inline int cell_from_centre(const int twice[3], int n) noexcept {
  face_cell c{};
  for (int a = 0; a < 3; ++a)
    if (twice[a] == n || twice[a] == -n) {
      c.axis = a;
      c.side = twice[a] > 0 ? 1 : -1;
    }
  c.col = (twice[(c.axis + 1) % 3] + n - 1) / 2;
  c.row = (twice[(c.axis + 2) % 3] + n - 1) / 2;
  return cell_index(c, n);
}

// The sign of dP/dx0 in the cell: +1, -1, or 0 on a column that straddles x = 0.
inline int x_derivative_sign(const face_cell& c, int n) noexcept {
  const int x = cell_centre_twice(c, n, 0);
  return x > 0 ? 1 : (x < 0 ? -1 : 0);
}

}  // namespace torva::internal
