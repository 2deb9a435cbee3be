// The two-layer tables: the finite-volume solve against the exact series of
// the homogeneous cube, the physics it must keep across an interface, and
// the files against the loader that reads them.
#include <gtest/gtest.h>

#include <algorithm>
#include <cmath>
#include <memory>
#include <numbers>
#include <vector>

#include "torva/extract/internal/layer_cells.h"
#include "torva/extract/internal/layered_cube.h"
#include "torva/extract/internal/straddle.h"
#include "torva/extract/layered_tables.h"
#include "torva/foundation/configure.h"
#include "torva/tables/internal/table_reading.h"
#include "torva/tables/table_database.h"
#include "torva_testing/log_capture.h"

namespace torva::internal {
namespace {

// The homogeneous cube's cells from its series (cube_kernel.h), each term
// integrated over the cell exactly: kind 0 the probability, 1 d/dx0, 2 d/dz0.
// On a face normal to the derivative the normal series serves (its sign by
// the side), on a face along it the tangential one, along the cell's column
// or its row.
std::vector<double> series_cells(int n, int kind) {
  const double pi = std::numbers::pi;
  constexpr int last = 199;
  std::vector<double> integral(std::size_t((last + 1) * n));  // [m][cell]
  for (int m = 1; m <= last; ++m)
    for (int cell = 0; cell < n; ++cell) {
      const double a = -1 + 2.0 * cell / n, b = a + 2.0 / n;
      integral[std::size_t(m * n + cell)] =
          2.0 / (m * pi) * (std::cos(m * pi * (a + 1) / 2) - std::cos(m * pi * (b + 1) / 2));
    }
  const auto I = [&](int m, int cell) { return integral[std::size_t(m * n + cell)]; };
  // The terms' weights at the centre, [m][k]: normal (the probability or d/dn) and tangential.
  std::vector<double> normal(std::size_t((last + 1) * (last + 1))), tangential(normal.size());
  for (int m = 1; m <= last; ++m)
    for (int k = 1; k <= last; k += 2) {
      const double q = pi / 2 * std::hypot(m, k);
      if (q > 300) continue;  // beyond e^-300 of the first term
      const double s = (k % 4 == 1 ? 1 : -1);
      const std::size_t at = std::size_t(m * (last + 1) + k);
      if (m % 2) normal[at] = (m % 4 == 1 ? 1 : -1) * s * (kind == 0 ? 1 / (2 * std::cosh(q)) : q / (2 * std::sinh(q)));
      else tangential[at] = (m % 4 == 0 ? 1 : -1) * s * (m * pi / 2) / (2 * std::cosh(q));
    }
  const auto W = [&](const std::vector<double>& w, int m, int k) { return w[std::size_t(m * (last + 1) + k)]; };
  std::vector<double> out(std::size_t(6 * n * n));
  for (int e = 0; e < 6 * n * n; ++e) {
    const face_cell c = cell_at(e, n);
    const int along = kind == 1 ? 0 : 2;
    double sum = 0;
    if (kind == 0 || c.axis == along) {
      for (int m = 1; m <= last; m += 2)
        for (int k = 1; k <= last; k += 2) sum += W(normal, m, k) * I(m, c.col) * I(k, c.row);
      if (kind != 0) sum *= c.side;
    } else {
      const bool on_column = along == (c.axis + 1) % 3;
      for (int m = 2; m <= last; m += 2)
        for (int k = 1; k <= last; k += 2)
          sum += W(tangential, m, k) * (on_column ? I(m, c.col) * I(k, c.row) : I(m, c.row) * I(k, c.col));
    }
    out[std::size_t(e)] = sum;
  }
  return out;
}

double largest(const std::vector<double>& v) {
  double m = 0;
  for (double x : v) m = std::max(m, std::abs(x));
  return m;
}

// With one permittivity the generated cells are the series' within the
// discretisation left after the extrapolation: measured 3.1e-6 of the largest
// cell for the probabilities and 2.0e-5 for the derivatives (refinement 2;
// 0.3% and 0.8% on the coarse grid alone).
TEST(LayeredCube, OnePermittivityGivesTheHomogeneousSeries) {
  const layered_cube_cells t = layered_cube_tables({two_layer_cells, 7, 3.9, 3.9}, 2, true);
  const std::vector<double>* got[3] = {&t.density, &t.dx, &t.dz};
  const double tolerance[3] = {1e-5, 5e-5, 5e-5};
  for (int kind = 0; kind < 3; ++kind) {
    const std::vector<double> exact = series_cells(two_layer_cells, kind);
    const double scale = largest(exact);
    double worst = 0;
    for (std::size_t e = 0; e < exact.size(); ++e) worst = std::max(worst, std::abs((*got[kind])[e] - exact[e]));
    EXPECT_LT(worst, tolerance[kind] * scale) << "kind " << kind;
  }
}

// A field linear on each side of the interface, its flux continuous, is
// reproduced exactly by the scheme; so the cells must give its value and its
// derivative at the centre to rounding. The mirror in z swaps the pair and
// the position; the x derivative has the sign its cell's side says.
TEST(LayeredCube, KeepsTheFluxAcrossTheInterfaceAndItsMirror) {
  constexpr int n = two_layer_cells;
  const double a = 2, b = 8;
  for (const int k : {1, 11, 12, 22}) {
    const layered_cube_cells t = layered_cube_tables({n, k, a, b}, 2, true);
    const layered_cube_cells mirror = layered_cube_tables({n, n - k, b, a}, 2, true);
    const double zk = interface_height(k, n);
    const auto phi = [&](double z) { return z < zk ? (z - zk) / a : (z - zk) / b; };
    double sum = 0, value = 0, slope = 0, along = 0, worst_mirror = 0;
    for (int e = 0; e < 6 * n * n; ++e) {
      const face_cell c = cell_at(e, n);
      double lo[3], hi[3];
      cell_point(c, n, 0, 0, lo);
      cell_point(c, n, 1, 1, hi);
      const double mean = 0.5 * (phi(lo[2]) + phi(hi[2]));  // no cell straddles the interface
      sum += t.density[std::size_t(e)];
      value += t.density[std::size_t(e)] * mean;
      slope += t.dz[std::size_t(e)] * mean;
      along += t.dx[std::size_t(e)] * 0.5 * (lo[0] + hi[0]);
      const int sign = x_derivative_sign(c, n);
      EXPECT_TRUE(sign * t.dx[std::size_t(e)] > 0 || (sign == 0 && t.dx[std::size_t(e)] == 0)) << k << " " << e;
      int twice[3];
      for (int axis = 0; axis < 3; ++axis) twice[axis] = cell_centre_twice(c, n, axis);
      twice[2] = -twice[2];
      const std::size_t m = std::size_t(cell_from_centre(twice, n));
      worst_mirror = std::max({worst_mirror, std::abs(t.density[std::size_t(e)] - mirror.density[m]),
                               std::abs(t.dz[std::size_t(e)] + mirror.dz[m])});
    }
    EXPECT_NEAR(sum, 1.0, 1e-12) << k;
    EXPECT_NEAR(value, phi(0), 1e-12) << k;
    EXPECT_NEAR(slope, zk > 0 ? 1 / a : 1 / b, 1e-11) << k;
    EXPECT_NEAR(along, 1.0, 1e-11) << k;
    EXPECT_LT(worst_mirror, 1e-14) << k;
  }
}

// The discretisation error across an interface, as the grid halves: within
// 1e-5 of the largest cell between refinements 2 and 4.
TEST(LayeredCube, ConvergesAcrossAnInterface) {
  const layered_cube_cells coarse = layered_cube_tables({two_layer_cells, 11, 2, 8}, 2, true);
  const layered_cube_cells fine = layered_cube_tables({two_layer_cells, 11, 2, 8}, 4, true);
  double worst = 0;
  for (std::size_t e = 0; e < coarse.density.size(); ++e)
    worst = std::max(worst, std::abs(coarse.density[e] - fine.density[e]));
  EXPECT_LT(worst, 1e-5 * largest(fine.density));
}

// A walk's exit from a straddling cube: the cell from the table's row (as
// loaded, cumulative in single precision), the point within it by the slopes
// of its neighbours. Its mean over a potential curved on the cube's scale,
// cos(x) g(z) with g bent at the interface so that the flux goes on, must be
// the potential at the centre: within 1e-5 here (a uniform point in the cell
// misses by 1.6e-4).
TEST(StraddleDraw, WeighsACurvedPotentialAsTheTrueDensity) {
  constexpr int n = two_layer_cells, k = 11;
  const double a = 2, b = 8;
  const layered_cube_cells t = layered_cube_tables({n, k, a, b}, 2, true);
  std::vector<float> row(t.density.begin(), t.density.end());
  make_cumulative(row.data(), row.size());
  const double zk = interface_height(k, n), below = 0.3, above = a * below / b;
  const auto phi = [&](const double* x) {
    const double s = x[2] - zk;
    return std::cos(x[0]) * (std::cosh(s) + (x[2] < zk ? below : above) * std::sinh(s));
  };
  // Gauss-Legendre nodes on [0, 1] for the two uniform numbers of the draw.
  const double node[4] = {0.0694318442029737, 0.3300094782075719, 0.6699905217924281, 0.9305681557970263};
  const double weight[4] = {0.1739274225687269, 0.3260725774312731, 0.3260725774312731, 0.1739274225687269};
  double mean = 0;
  for (int e = 0; e < 6 * n * n; ++e) {
    const double mass = double(row[std::size_t(e)]) - (e > 0 ? double(row[std::size_t(e - 1)]) : 0.0);
    float tilt[2];
    cell_tilt(row.data(), n, k, e, tilt);
    for (int i = 0; i < 4; ++i)
      for (int j = 0; j < 4; ++j) {
        double x[3];
        cell_point(cell_at(e, n), n, linear_draw(tilt[0], node[i]), linear_draw(tilt[1], node[j]), x);
        mean += mass * weight[i] * weight[j] * phi(x);
      }
  }
  const double centre[3] = {0, 0, 0};
  EXPECT_NEAR(mean, phi(centre), 1e-5);
}

// The first hop's draw from the importance rows, weighed by its factor (the
// derivative's sign times the row's total), estimates the derivative of a
// potential at the start along the moved axis: sin(x) g(z), sin(y) g(z) and
// cos(x) g(z) with g bent at the interface so that the flux goes on, for a
// start off the interface (two-layer row) and on it (half-layer, along it).
// Each mean against the exact derivative within four of its standard errors.
TEST(StraddleDraw, FirstHopEstimatesTheFieldAtTheStart) {
  const double a = 2, b = 8;
  const layered_pair_tables pair = generate_layered_pair(a, b, table_generation{2, true, 2});
  auto two = std::make_unique<two_layer_cube_group>();
  auto half = std::make_unique<half_layer_cube_group>();
  fill_layered_groups(pair, *two, *half);
  constexpr int k = 8;  // the interface at z = -7/23, under the start
  walk_random rng(11, 0, 0);
  for (const bool on_interface : {false, true}) {
    const double zk = on_interface ? 0.0 : interface_height(k, two_layer_cells), below = 0.4, above = a * below / b;
    const auto g = [&](double z) { return std::cosh(z - zk) + (z < zk ? below : above) * std::sinh(z - zk); };
    const auto g1 = [&](double z) { return std::sinh(z - zk) + (z < zk ? below : above) * std::cosh(z - zk); };
    for (int axis = 0; axis < (on_interface ? 2 : 3); ++axis)
      for (const int side : {-1, 1}) {
        constexpr int draws = 400000;
        double sum = 0, squares = 0;
        for (int i = 0; i < draws; ++i) {
          double x[3];
          const double factor =
              on_interface ? draw_first(half->gft_is.values, half->wvt_is.values, half_layer_cells, half_layer_cells / 2,
                                        axis, side, rng, x)
                           : draw_first(two->gft_is.row(3 * (k - 1)), two->wvt_is.row(k - 1), two_layer_cells, k, axis,
                                        side, rng, x);
          const double phi = axis == 2 ? std::cos(x[0]) * g(x[2]) : std::sin(x[axis]) * g(x[2]);
          sum += factor * phi;
          squares += factor * phi * factor * phi;
        }
        const double mean = sum / draws, error = std::sqrt((squares / draws - mean * mean) / draws);
        const double exact = side * (axis == 2 ? g1(0) : g(0));
        EXPECT_NEAR(mean, exact, 4 * error) << "axis " << axis << ", side " << side << ", on the interface " << on_interface;
      }
  }
}

// The files are read by the library's own loader into exactly the groups
// that a run fills in memory; a stack that names a pair with no files fails
// the way the loader fails.
TEST(LayeredTables, FilesLoadAsTheGroupsARunFillsInMemory) {
  testing::log_capture log;
  testing::temp_dir dir;
  const layered_pair_tables t = generate_layered_pair(2.5, 7, table_generation{2, true, 2});
  write_layered_pair(dir.file("tables"), t);
  for (const std::string& f : layered_pair_files(dir.file("tables"), 2.5, 7)) EXPECT_TRUE(table_file_reachable(f)) << f;

  configure config;
  config.table_mode = 1;
  config.table_dir_two = dir.file("tables");
  dielectric_layers layers;
  layers.diels = {1, 1, 1, 1, 1, 2.5, 7, 1, 1, 1, 1, 1, 1};
  layers.layer_slots.assign(layers.diels.size(), 0.0);
  auto db = std::make_unique<table_database>();
  db->load(config, layers, false);
  ASSERT_EQ(db->two_layer.order.size(), 1u);
  auto two = std::make_unique<two_layer_cube_group>();
  auto half = std::make_unique<half_layer_cube_group>();
  fill_layered_groups(t, *two, *half);
  const auto same = [](const auto& x, const auto& y) { return std::equal(x.begin(), x.end(), y.begin()); };
  EXPECT_TRUE(same(db->two_layer.order[0]->gft, two->gft));
  EXPECT_TRUE(same(db->two_layer.order[0]->gft_is, two->gft_is));
  EXPECT_TRUE(same(db->two_layer.order[0]->wvt_is, two->wvt_is));
  EXPECT_TRUE(same(db->half_layer.order[0]->gft, half->gft));
  EXPECT_TRUE(same(db->half_layer.order[0]->gft_is, half->gft_is));
  EXPECT_TRUE(same(db->half_layer.order[0]->wvt_is, half->wvt_is));
  // Each row a distribution, each position's totals those of its rows.
  EXPECT_EQ(two->gft.row(21)[3173], 1.0f);
  EXPECT_GT(two->wvt_is[0], 0.0f);

  layers.diels[6] = 5;
  auto other = std::make_unique<table_database>();
  EXPECT_THROW(other->load(config, layers, false), sea::file_error);
  EXPECT_FALSE(table_file_reachable(dir.file("tables/Multiple/GFT/NumGFT2.5_5_23.db")));
  EXPECT_THROW(generate_layered_pair(0, 7, {}), std::invalid_argument);
  EXPECT_THROW(generate_layered_pair(2, 7, table_generation{3, true, 1}), std::invalid_argument);
}

}  // namespace
}  // namespace torva::internal
