// GDS cells through the sky130A stack to the extractor: the permittivity the
// walk's map sees around imported metal, and capacitance:
// square plates of 25, 50 and 100 um give the parallel-plate value of the
// dielectrics between them (the series formula over the stack's planar
// layers) plus a fringe that grows with the perimeter, so that its share
// shrinks as the plate grows. Every check is against the estimates' own
// standard errors, with fixed seeds and walk counts.
#include <gtest/gtest.h>

#include <cmath>
#include <cstdio>

#include "torva/extract/extractor.h"
#include "torva/extract/internal/dielectric_map.h"
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

TEST(ImportPhysics, CoatsAndRingsGiveTheStacksPermittivityAroundTheMetal) {
  enum : int { li1 = 67, met1 = 68, met5 = 72, drawing = 20 };  // sky130A's GDS pairs
  testing::gds_writer w;
  w.begin_library().begin_cell("TOP");
  w.rectangle(li1, drawing, 0, 0, 2000, 2000);
  w.rectangle(met1, drawing, 0, 0, 2000, 2000);
  w.rectangle(met5, drawing, 0, 0, 10000, 10000);
  w.end_cell().end_library();
  gds_flatten_options f;
  const import_result r = import_cell(flatten_gds(read_gds_bytes(w.bytes, "cell.gds"), f), sky130());
  std::vector<std::string> warnings;
  const dielectric_map map = build_dielectric_map(*r.layout, {}, warnings);
  auto eps_at = [&](double x, double y, double z) { return map.permittivity_at(point3{{x, y, z}}); };
  const auto& s = sky130();
  const auto& m1 = s.conductors[s.conductor_index("met1")];
  const auto& m5 = s.conductors[s.conductor_index("met5")];
  const auto& l1 = s.conductors[s.conductor_index("li1")];
  EXPECT_DOUBLE_EQ(eps_at(2.01, 1, m1.z + 0.1), 3.5);     // nild3c, the ring around met1
  EXPECT_DOUBLE_EQ(eps_at(2.05, 1, m1.z + 0.1), 4.5);     // nild3 beyond it
  EXPECT_DOUBLE_EQ(eps_at(1, 1, m1.top() + 0.01), 4.5);   // over met1: the ring is flush with its top
  EXPECT_DOUBLE_EQ(eps_at(2.05, 1, l1.top() + 0.05), 7.3);  // lint over li1's side
  EXPECT_DOUBLE_EQ(eps_at(5, 5, l1.z + 0.05), 7.3);        // lint's film elsewhere
  EXPECT_DOUBLE_EQ(eps_at(5, 5, l1.z + 0.1), 4.05);        // nild2 over the film
  EXPECT_DOUBLE_EQ(eps_at(10.05, 5, m5.z + 0.1), 3.9);     // topox, the ring around met5
  EXPECT_DOUBLE_EQ(eps_at(10.2, 5, m5.z + 0.1), 7.5);      // topnit on the ring's side
  EXPECT_DOUBLE_EQ(eps_at(5, 5, m5.top() + 0.05), 3.9);    // topox over met5
  EXPECT_DOUBLE_EQ(eps_at(5, 5, m5.top() + 0.5), 7.5);     // topnit over it
  EXPECT_DOUBLE_EQ(eps_at(16, 16, m5.z + 0.3), 7.5);       // topnit's film
  EXPECT_DOUBLE_EQ(eps_at(16, 16, m5.z + 0.5), 1.0);       // air over the film
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
