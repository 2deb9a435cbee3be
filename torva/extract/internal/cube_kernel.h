// The exit density of a walk in the cube [-1,1]^3 on its face z = -1, and its
// derivatives with respect to the start point at the centre.
//
// With u = x + 1, v = y + 1, w = z + 1 in [0, 2] and k = (pi/2) sqrt(m^2 + n^2),
// a walk started at (x0, y0, z0) leaves through the point (x, y) of the face
// z = -1 with the density
//   P = sum over m, n >= 1 of sin(m pi u0/2) sin(n pi v0/2) sin(m pi u/2) sin(n pi v/2)
//       sinh(k (2 - w0)) / sinh(2k),
// which integrates to 1 over the six faces. At the centre only odd m, n are
// left and sinh(k)/sinh(2k) = 1/(2 cosh k); differentiating with respect to
// the start before setting it to the centre gives
//   dP/dz0 = - sum over odd m, n of s_m s_n sin(m pi u/2) sin(n pi v/2) k / (2 sinh k)
//   dP/dx0 =   sum over even m, odd n of (m pi/2) cos(m pi/2) s_n
//              sin(m pi u/2) sin(n pi v/2) / (2 cosh k)
// with s_j = sin(j pi/2). dP/dz0 is negative (a start moved up leaves the
// bottom less often) and dP/dx0 is odd in x, even in y.
//
// The sums run over m, n up to last_term; at the centre 99 leaves the terms
// past it near e^-150 of the first, and the first table was made that way.
#pragma once

#include <cmath>

namespace torva::internal {

// sinh(a) / sinh(b) for 0 <= a <= b, b > 0, without overflowing for large b.
inline double sinh_ratio(double a, double b) {
  return std::exp(a - b) * (std::expm1(-2 * a) / std::expm1(-2 * b));
}

// Density on the face z = -1 at (x, y) for a start anywhere inside the cube.
// Away from the centre the sum converges more slowly the closer the start is
// to the face; a start on it makes the density a point mass the sum cannot hold.
inline double cube_exit_density(double x0, double y0, double z0, double x, double y, int last_term = 99) {
  const double pi = std::acos(-1.0);
  double sum = 0.0;
  for (int m = 1; m <= last_term; ++m) {
    const double sm = std::sin(m * pi * (x0 + 1) / 2) * std::sin(m * pi * (x + 1) / 2);
    for (int n = 1; n <= last_term; ++n) {
      const double sn = std::sin(n * pi * (y0 + 1) / 2) * std::sin(n * pi * (y + 1) / 2);
      const double k = pi / 2 * std::sqrt(double(m * m + n * n));
      sum += sm * sn * sinh_ratio(k * (1 - z0), 2 * k);
    }
  }
  return sum;
}

// Density on the face z = -1 for a start at the centre. The first table is
// the running sum of this over its cells, so the arithmetic here stays as the
// table was generated with.
inline double centre_exit_density(double x, double y, int last_term = 99) {
  const double pi = std::acos(-1.0);
  double sum = 0.0;
  for (int m = 1; m <= last_term; m += 2) {
    const double sm = std::sin(m * pi / 2) * std::sin(m * pi * (x + 1) / 2);
    for (int n = 1; n <= last_term; n += 2) {
      const double sn = std::sin(n * pi / 2) * std::sin(n * pi * (y + 1) / 2);
      sum += sm * sn / (2 * std::cosh(pi / 2 * std::sqrt(double(m * m + n * n))));
    }
  }
  return sum;
}

// d/dz0 of the density on the face z = -1, the start at the centre.
inline double centre_exit_density_dz(double x, double y, int last_term = 99) {
  const double pi = std::acos(-1.0);
  double sum = 0.0;
  for (int m = 1; m <= last_term; m += 2) {
    const double sm = (m % 4 == 1 ? 1.0 : -1.0) * std::sin(m * pi * (x + 1) / 2);
    for (int n = 1; n <= last_term; n += 2) {
      const double sn = (n % 4 == 1 ? 1.0 : -1.0) * std::sin(n * pi * (y + 1) / 2);
      const double k = pi / 2 * std::sqrt(double(m * m + n * n));
      sum += sm * sn * k / (2 * std::sinh(k));
    }
  }
  return -sum;
}

// d/dx0 of the density on the face z = -1, the start at the centre; d/dy0 is
// this with x and y swapped.
inline double centre_exit_density_dx(double x, double y, int last_term = 99) {
  const double pi = std::acos(-1.0);
  double sum = 0.0;
  for (int m = 2; m <= last_term; m += 2) {
    const double sm = (m % 4 == 0 ? 1.0 : -1.0) * (m * pi / 2) * std::sin(m * pi * (x + 1) / 2);
    for (int n = 1; n <= last_term; n += 2) {
      const double sn = (n % 4 == 1 ? 1.0 : -1.0) * std::sin(n * pi * (y + 1) / 2);
      sum += sm * sn / (2 * std::cosh(pi / 2 * std::sqrt(double(m * m + n * n))));
    }
  }
  return sum;
}

}  // namespace torva::internal
