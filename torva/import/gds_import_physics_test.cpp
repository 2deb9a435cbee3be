// Capacitance through the sky130A stack, from GDS cells to the extractor:
// square plates of 25, 50 and 100 um give the parallel-plate value of the
// dielectrics between them (the series formula over the stack's planar
// layers) plus a fringe that grows with the perimeter, so that its share
// shrinks as the plate grows. Every check is against the estimates' own
// standard errors, with fixed seeds and walk counts.
#include <gtest/gtest.h>

#include <cmath>
#include <cstdio>

#include "torva/extract/extractor.h"
#include "torva/import/gds_import.h"
#include "torva_testing/gds_writer.h"
#include "torva_testing/log_capture.h"

namespace torva {
namespace {

constexpr double eps0 = 8.8541878128e-3;  // fF/um

const process_stack& sky130() {
  static const process_stack s = load_stack("sky130A");
  return s;
}

// 1 / sum of thickness / permittivity of the planar layers between two heights.
double series_per_area(double z0, double z1) {
  double sum = 0;
  for (const dielectric_layer& d : sky130().dielectrics) {
    if (d.kind != dielectric_kind::planar) continue;
    const double lo = std::max(z0, d.z_bottom), hi = std::min(z1, d.z_top);
    if (hi > lo) sum += (hi - lo) / d.permittivity;
  }
  return eps0 / sum;
}

struct estimate {
  double c = 0, se = 0;  // fF
};

// A square plate of side L um on `layer` named "plate", over a larger square
// (2 um more on each side) on `under` when it is not 0; the plate's
// capacitance to the net `to`.
estimate plate(int side, int layer, int under, const char* to, std::uint64_t walks) {
  testing::gds_writer w;
  w.begin_library().begin_cell("TOP");
  w.rectangle(layer, 20, 0, 0, side * 1000, side * 1000).text(layer, 5, {500, 500}, "plate");
  if (under != 0) w.rectangle(under, 20, -2000, -2000, side * 1000 + 2000, side * 1000 + 2000);
  w.end_cell().end_library();
  gds_flatten_options f;
  const import_result r = import_cell(flatten_gds(read_gds_bytes(w.bytes, "plate.gds"), f), sky130());
  extract_options o;
  o.masters = {"plate"};
  o.max_walks = walks;
  o.self_precision = 1e-6;  // the walk count decides
  o.threads = 2;
  o.seed = 11;
  const extract_result x = extract(*r.layout, o);
  for (std::size_t j = 0; j < x.nets.size(); ++j)
    if (x.nets[j] == to) return {-x.matrix[0][j], x.stderr_matrix[0][j]};
  ADD_FAILURE() << "no column " << to;
  return {};
}

// The checks of both tests: C(L) = per_area L^2 + 4 L b + (corners).
void expect_area_plus_fringe(const int (&sides)[3], const estimate (&c)[3], double per_area) {
  double b[3], sb[3], share[3], sshare[3];
  for (int k = 0; k < 3; ++k) {
    const double area = per_area * sides[k] * sides[k];
    b[k] = (c[k].c - area) / (4.0 * sides[k]);
    sb[k] = c[k].se / (4.0 * sides[k]);
    share[k] = (c[k].c - area) / area;
    sshare[k] = c[k].se / area;
    std::printf("  %3d um: C %.2f +- %.2f fF, parallel plate %.2f fF, fringe %.4f +- %.4f fF/um, share %.3f\n",
                sides[k], c[k].c, c[k].se, area, b[k], sb[k], share[k]);
  }
  // A fringe there is, on the smallest plate beyond doubt.
  EXPECT_GT(b[0], 3 * sb[0]);
  // It grows with the perimeter: its share shrinks from the smallest plate to the largest.
  EXPECT_GT(share[0] - share[2], 3 * std::hypot(sshare[0], sshare[2]));
  // The 50 and 100 um plates are the parallel plate plus the fringe per length of the 25 um plate.
  for (int k = 1; k < 3; ++k) {
    const double predicted = per_area * sides[k] * sides[k] + 4.0 * sides[k] * b[0];
    EXPECT_LE(std::abs(c[k].c - predicted), 3 * std::hypot(c[k].se, 4.0 * sides[k] * sb[0]))
        << sides[k] << " um: " << c[k].c << " against " << predicted;
  }
}

TEST(ImportPhysics, PlateOnTheLowestMetalOverTheSubstrate) {
  testing::log_capture log;
  const auto& s = sky130();
  const double per_area = series_per_area(s.substrate.z_top, s.conductors[s.conductor_index("li1")].z);
  const int sides[3] = {25, 50, 100};
  const estimate c[3] = {plate(25, 67, 0, "VSUBS", 24000), plate(50, 67, 0, "VSUBS", 24000),
                         plate(100, 67, 0, "VSUBS", 40000)};
  expect_area_plus_fringe(sides, c, per_area);
}

TEST(ImportPhysics, OverlappingPlatesOnAdjacentMetals) {
  testing::log_capture log;
  const auto& s = sky130();
  const double per_area = series_per_area(s.conductors[s.conductor_index("met1")].top(),
                                          s.conductors[s.conductor_index("met2")].z);
  const int sides[3] = {25, 50, 100};
  // met2 plates over larger met1 plates; the coupling of the two.
  const char* lower = "met1_-2_-2";
  const estimate c[3] = {plate(25, 69, 68, lower, 80000), plate(50, 69, 68, lower, 80000),
                         plate(100, 69, 68, lower, 80000)};
  expect_area_plus_fringe(sides, c, per_area);
}

}  // namespace
}  // namespace torva
