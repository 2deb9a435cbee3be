#include "torva/extract/internal/layered_cube.h"

#include <algorithm>
#include <cmath>
#include <numbers>
#include <stdexcept>

#include "torva/extract/internal/layer_cells.h"

namespace torva::internal {
namespace {

// What one right-hand side leaves on the nodes next to the boundary, in the
// sine basis along the in-plane axes: per wave number and plane of nodes.
struct boundary_sums {
  int N;
  std::vector<double> x0, x1;  // [q][k]: the sum over p with sin(p pi i/N) at i = 1, N-1
  std::vector<double> y0, y1;  // [p][k]: the sum over q at j = 1, N-1
  std::vector<double> z0, z1;  // [p][q]: the planes k = 1 and k = N-1

  explicit boundary_sums(int n)
      : N(n), x0(std::size_t(n + 1) * (n + 1)), x1(x0.size()), y0(x0.size()), y1(x0.size()), z0(x0.size()),
        z1(x0.size()) {}

  std::size_t at(int a, int b) const { return std::size_t(a) * std::size_t(N + 1) + std::size_t(b); }
};

struct grid {
  int N, m, c;
  double h;
  std::vector<double> e;   // per interval along z
  std::vector<double> cz;  // per plane of nodes: the mean permittivity of its volumes
  std::vector<double> s;   // s[p (N+1) + i] = sin(p pi i / N)
  std::vector<double> lambda;

  double sine(int p, int i) const { return s[std::size_t(p) * std::size_t(N + 1) + std::size_t(i)]; }
};

// Adds, for the wave numbers (p, q), the solution amp * w(k) to the sums.
void accumulate(const grid& g, boundary_sums& b, int p, int q, double amp, const std::vector<double>& w) {
  const int N = g.N;
  const double sp1 = g.sine(p, 1), spN = g.sine(p, N - 1), sq1 = g.sine(q, 1), sqN = g.sine(q, N - 1);
  for (int k = 1; k < N; ++k) {
    const double v = amp * w[std::size_t(k)];
    b.x0[b.at(q, k)] += sp1 * v;
    b.x1[b.at(q, k)] += spN * v;
    b.y0[b.at(p, k)] += sq1 * v;
    b.y1[b.at(p, k)] += sqN * v;
  }
  b.z0[b.at(p, q)] += amp * w[1];
  b.z1[b.at(p, q)] += amp * w[std::size_t(N - 1)];
}

// Solves the tridiagonal system of the wave numbers with eigenvalue mu for
// each right-hand side given as a list of (plane, value).
void solve_mode(const grid& g, double mu, std::vector<double>& cprime, std::vector<double>& inv,
                std::vector<std::vector<double>>& rhs) {
  const int N = g.N;
  // Forward elimination once, then each right-hand side.
  double denominator = 0.0;
  // Rows k = 1..N-1: -e[k-1] u[k-1] + (e[k-1] + e[k] + cz[k] mu) u[k] - e[k] u[k+1].
  for (int k = 1; k < N; ++k) {
    const double lower = k > 1 ? -g.e[std::size_t(k - 1)] : 0.0;
    const double diag = g.e[std::size_t(k - 1)] + g.e[std::size_t(k)] + g.cz[std::size_t(k)] * mu;
    denominator = diag - (k > 1 ? lower * cprime[std::size_t(k - 1)] : 0.0);
    inv[std::size_t(k)] = 1.0 / denominator;
    cprime[std::size_t(k)] = k < N - 1 ? -g.e[std::size_t(k)] * inv[std::size_t(k)] : 0.0;
  }
  for (std::vector<double>& d : rhs) {
    for (int k = 1; k < N; ++k) {
      const double lower = k > 1 ? -g.e[std::size_t(k - 1)] : 0.0;
      d[std::size_t(k)] = (d[std::size_t(k)] - (k > 1 ? lower * d[std::size_t(k - 1)] : 0.0)) * inv[std::size_t(k)];
    }
    for (int k = N - 2; k >= 1; --k) d[std::size_t(k)] -= cprime[std::size_t(k)] * d[std::size_t(k + 1)];
  }
}

// The wave numbers whose sums are not all zero (a point source at the centre
// leaves half of them or more empty).
std::vector<int> nonzero_rows(const std::vector<double>& a, int N) {
  std::vector<int> out;
  for (int r = 1; r < N; ++r)
    for (int k = 1; k < N; ++k)
      if (a[std::size_t(r) * std::size_t(N + 1) + std::size_t(k)] != 0.0) {
        out.push_back(r);
        break;
      }
  return out;
}

std::vector<int> nonzero_columns(const std::vector<double>& a, int N) {
  std::vector<int> out;
  for (int k = 1; k < N; ++k)
    for (int r = 1; r < N; ++r)
      if (a[std::size_t(r) * std::size_t(N + 1) + std::size_t(k)] != 0.0) {
        out.push_back(k);
        break;
      }
  return out;
}

// The solution on the six planes next to the boundary, from its sums.
struct boundary_values {
  std::vector<double> face[6];  // [t1][t2] over the face's in-plane axes (axis+1)%3, (axis+2)%3, (N+1)^2
};

boundary_values synthesise(const grid& g, const boundary_sums& b) {
  const int N = g.N;
  const std::size_t side = std::size_t(N + 1);
  boundary_values out;
  for (auto& f : out.face) f.assign(side * side, 0.0);
  // x faces: col along y (j), row along z (k): value(j, k) = sum_q sin(q j) x[q][k].
  // y faces: col along z (k), row along x (i): value = sum_p sin(p i) y[p][k].
  for (int a = 0; a < 2; ++a)
    for (int sd = 0; sd < 2; ++sd) {
      const std::vector<double>& src = a == 0 ? (sd ? b.x1 : b.x0) : (sd ? b.y1 : b.y0);
      std::vector<double>& dst = out.face[2 * a + sd];
      const std::vector<int> used = nonzero_rows(src, N);
      for (int t = 1; t < N; ++t)      // j for x faces, i for y faces
        for (int k = 1; k < N; ++k) {
          double v = 0.0;
          for (const int w : used) v += g.sine(w, t) * src[b.at(w, k)];
          // x faces: (col j, row k); y faces: (col k, row i).
          if (a == 0)
            dst[std::size_t(t) * side + std::size_t(k)] = v;
          else
            dst[std::size_t(k) * side + std::size_t(t)] = v;
        }
    }
  // z faces: col along x (i), row along y (j): sum_p sin(p i) sum_q sin(q j) z[p][q].
  std::vector<double> half(side * side);
  for (int sd = 0; sd < 2; ++sd) {
    const std::vector<double>& src = sd ? b.z1 : b.z0;
    const std::vector<int> rows = nonzero_rows(src, N), columns = nonzero_columns(src, N);
    std::fill(half.begin(), half.end(), 0.0);
    for (const int p : rows)
      for (int j = 1; j < N; ++j) {
        double v = 0.0;
        for (const int q : columns) v += g.sine(q, j) * src[b.at(p, q)];
        half[std::size_t(p) * side + std::size_t(j)] = v;
      }
    std::vector<double>& dst = out.face[4 + sd];
    for (int i = 1; i < N; ++i)
      for (int j = 1; j < N; ++j) {
        double v = 0.0;
        for (const int p : rows) v += g.sine(p, i) * half[std::size_t(p) * side + std::size_t(j)];
        dst[std::size_t(i) * side + std::size_t(j)] = v;
      }
  }
  return out;
}

// Spreads each boundary node's share (coupling times the solution next to
// it) over the table cells its control area covers.
std::vector<double> to_cells(const grid& g, int n, const boundary_values& v) {
  const int N = g.N, m = g.m;
  const std::size_t side = std::size_t(N + 1);
  std::vector<double> cells(std::size_t(6 * n * n), 0.0);
  for (int f = 0; f < 6; ++f) {
    const int axis = f >> 1;
    const bool column_along_z = (axis + 1) % 3 == 2;
    face_cell c{axis, (f & 1) ? 1 : -1, 0, 0};
    for (int t1 = 1; t1 < N; ++t1)
      for (int t2 = 1; t2 < N; ++t2) {
        const double value = v.face[f][std::size_t(t1) * side + std::size_t(t2)];
        for (int h1 = 0; h1 < 2; ++h1)
          for (int h2 = 0; h2 < 2; ++h2) {
            // The quarter's permittivity: the layer on its side along z.
            double eps;
            if (axis == 2)
              eps = f == 4 ? g.e.front() : g.e.back();
            else if (column_along_z)
              eps = g.e[std::size_t(h1 ? t1 : t1 - 1)];
            else
              eps = g.e[std::size_t(h2 ? t2 : t2 - 1)];
            c.col = (h1 ? t1 : t1 - 1) / m;
            c.row = (h2 ? t2 : t2 - 1) / m;
            cells[std::size_t(cell_index(c, n))] += 0.25 * eps * value;
          }
      }
  }
  return cells;
}

}  // namespace

layered_cube_cells solve_layered_cube(const layered_cube_setup& setup, int m) {
  if (m <= 0 || m % 2 != 0 || setup.n <= 1 || setup.position <= 0 || setup.position >= setup.n ||
      !(setup.below > 0) || !(setup.above > 0))
    throw std::invalid_argument("a layered cube needs an even refinement, an inner interface and positive permittivities");
  grid g;
  g.m = m;
  g.N = setup.n * m;
  const int N = g.N;
  g.c = N / 2;
  g.h = 2.0 / N;
  const int K = setup.position * m;
  g.e.resize(std::size_t(N));
  for (int l = 0; l < N; ++l) g.e[std::size_t(l)] = l < K ? setup.below : setup.above;
  g.cz.assign(std::size_t(N + 1), 0.0);
  for (int k = 1; k < N; ++k) g.cz[std::size_t(k)] = 0.5 * (g.e[std::size_t(k - 1)] + g.e[std::size_t(k)]);
  const double pi = std::numbers::pi;
  g.s.resize(std::size_t(N + 1) * std::size_t(N + 1));
  g.lambda.resize(std::size_t(N + 1));
  for (int p = 0; p <= N; ++p) {
    const double t = std::sin(p * pi / (2.0 * N));
    g.lambda[std::size_t(p)] = 4 * t * t;
    for (int i = 0; i <= N; ++i) g.s[std::size_t(p) * std::size_t(N + 1) + std::size_t(i)] = std::sin(p * pi * i / N);
  }

  const int c = g.c;
  const bool on_interface = 2 * setup.position == setup.n;
  const double norm = 4.0 / (double(N) * N);
  boundary_sums density(N), dx(N), dz(N);
  std::vector<double> cprime(std::size_t(N + 1)), inv(std::size_t(N + 1));
  std::vector<std::vector<double>> rhs(2, std::vector<double>(std::size_t(N + 1)));
  for (int p = 1; p < N; ++p)
    for (int q = 1; q < N; ++q) {
      // A point source at the centre has only odd wave numbers; its x
      // difference only even p.
      const double sq = g.sine(q, c);
      if (std::abs(sq) < 0.5) continue;
      const double sp = g.sine(p, c);
      const bool odd_p = std::abs(sp) > 0.5;
      rhs.resize(odd_p ? 2 : 1, std::vector<double>(std::size_t(N + 1)));
      for (std::vector<double>& r : rhs) std::fill(r.begin(), r.end(), 0.0);
      rhs[0][std::size_t(c)] = 1.0;
      if (odd_p) {
        std::vector<double>& z = rhs[1];
        if (on_interface) {
          z[std::size_t(c)] = -3.0 / (2 * g.h);
          z[std::size_t(c + 1)] = 4.0 / (2 * g.h);
          z[std::size_t(c + 2)] = -1.0 / (2 * g.h);
        } else {
          z[std::size_t(c + 1)] = 1.0 / (2 * g.h);
          z[std::size_t(c - 1)] = -1.0 / (2 * g.h);
        }
      }
      solve_mode(g, g.lambda[std::size_t(p)] + g.lambda[std::size_t(q)], cprime, inv, rhs);
      if (odd_p) {
        accumulate(g, density, p, q, norm * sp * sq, rhs[0]);
        accumulate(g, dz, p, q, norm * sp * sq, rhs[1]);
      } else {
        const double dsp = (g.sine(p, c + 1) - g.sine(p, c - 1)) / (2 * g.h);
        accumulate(g, dx, p, q, norm * dsp * sq, rhs[0]);
      }
    }
  layered_cube_cells out;
  out.density = to_cells(g, setup.n, synthesise(g, density));
  out.dx = to_cells(g, setup.n, synthesise(g, dx));
  out.dz = to_cells(g, setup.n, synthesise(g, dz));
  return out;
}

namespace {

// Averages f over the symmetries of the square in x and y (mirrors and the
// exchange), each image taken with the sign `odd_x` gives a mirror in x.
void symmetrise(std::vector<double>& f, int n, bool odd_x, bool with_exchange) {
  std::vector<double> out(f.size(), 0.0);
  const int images = with_exchange ? 8 : 4;
  for (std::size_t e = 0; e < f.size(); ++e) {
    const face_cell cell = cell_at(int(e), n);
    int at[3];
    for (int a = 0; a < 3; ++a) at[a] = cell_centre_twice(cell, n, a);
    for (int g = 0; g < images; ++g) {
      int im[3] = {at[0], at[1], at[2]};
      double sign = 1.0;
      if (g & 1) {
        im[0] = -im[0];
        if (odd_x) sign = -sign;
      }
      if (g & 2) im[1] = -im[1];
      if (g & 4) std::swap(im[0], im[1]);
      out[e] += sign * f[std::size_t(cell_from_centre(im, n))];
    }
  }
  for (std::size_t e = 0; e < f.size(); ++e) f[e] = out[e] / images;
}

}  // namespace

layered_cube_cells layered_cube_tables(const layered_cube_setup& setup, int m, bool extrapolate) {
  layered_cube_cells t = solve_layered_cube(setup, m);
  if (extrapolate) {
    const layered_cube_cells fine = solve_layered_cube(setup, 2 * m);
    auto combine = [](std::vector<double>& coarse, const std::vector<double>& f) {
      for (std::size_t e = 0; e < coarse.size(); ++e) coarse[e] = (4.0 * f[e] - coarse[e]) / 3.0;
    };
    combine(t.density, fine.density);
    combine(t.dx, fine.dx);
    combine(t.dz, fine.dz);
  }
  symmetrise(t.density, setup.n, false, true);
  symmetrise(t.dz, setup.n, false, true);
  // d/dx0 is odd in x and even in y; the exchange maps it to d/dy0, not to itself.
  symmetrise(t.dx, setup.n, true, false);
  return t;
}

}  // namespace torva::internal
