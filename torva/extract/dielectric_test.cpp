// The walk through dielectric layers and bodies, checked by physics: plates
// with layers in series and side by side (exact for a field that is linear in
// each medium, so neither the steps across interfaces nor the straddling
// cubes may cost bias there), a cube over a dielectric half-space against its
// image charge, and the two walks against each other on a crossing in three
// layers. Each estimate is held against its own standard error, with a fixed
// seed.
#include <gtest/gtest.h>

#include <cmath>
#include <numbers>
#include <string>

#include "torva/extract/layered_tables.h"
#include "torva_testing/extraction.h"

namespace torva {
namespace {

using testing::eps0;
using testing::expect_agree;
using testing::extraction;

// Options of the table walk, its tables written once for the test program
// (as `torva tables --generate` writes them) and read from their folder.
extract_options with_tables(extract_options o, std::initializer_list<std::pair<double, double>> pairs) {
  static const testing::temp_dir dir;
  o.walk = interface_walk::table;
  o.table_dir = dir.file("tables");
  for (const auto& [below, above] : pairs) {
    bool there = true;
    for (const std::string& f : layered_pair_files(o.table_dir, below, above)) there = there && table_file_reachable(f);
    if (!there) write_layered_pair(o.table_dir, generate_layered_pair(below, above, table_generation{2, true, 2}));
  }
  return o;
}

bool generated_any(const extract_result& r) {
  for (const std::string& w : r.warnings)
    if (w.find("generated for this run") != std::string::npos) return true;
  return false;
}

// Two plates 4 x 4 across a gap of 1, from wall to wall of a Neumann window:
// the walls mirror the field, so the plates are infinite and nothing fringes.
std::string plates(const std::string& media) {
  return "<window> v1(0,0,0) v2(4,4,2) neumann </window>\n" + media +
         testing::block("bottom", 0, 0, 0, 4, 4, 0.5) + testing::block("top", 0, 0, 1.5, 4, 4, 0.5);
}

TEST_F(extraction, layers_between_plates_add_in_series_and_bodies_side_by_side) {
  extract_options o;
  o.self_precision = 0.01;
  o.threads = 2;
  o.seed = 3;
  o.masters = {"bottom"};
  const double area = 16, gap = 1;
  // The homogeneous twin measures what fringes (nothing, here) to take out of the others.
  const extract_result vacuum = run(plates(""), o);
  const double fringe = vacuum.matrix[0][0] - eps0 * area / gap;
  expect_agree(fringe, vacuum.stderr_matrix[0][0], 0.0, 0.0, "fringe of the homogeneous twin");

  // Both walks: steps across the interface, and cubes that straddle it.
  extract_options steps = o;
  steps.walk = interface_walk::step;
  for (const extract_options& w : {steps, with_tables(o, {{2, 8}, {1, 4}, {4, 1}})}) {
    const std::string name = w.walk == interface_walk::step ? " (steps)" : " (tables)";
    const extract_result series = run(plates("<plate_medium> name low z_top 1 diel 2 </plate_medium>\n"
                                             "<plate_medium> name high z_top 2 diel 8 </plate_medium>\n"),
                                      w);
    const double eps_series = 1.0 / (0.5 / 2 + 0.5 / 8);
    EXPECT_EQ(series.dielectric.rfind("layers 2 | z 1 | 8", 0), 0u) << series.dielectric;
    expect_agree(series.matrix[0][0] - eps_series * fringe, series.stderr_matrix[0][0], eps_series * eps0 * area / gap,
                 vacuum.stderr_matrix[0][0] * eps_series, "layers 2 and 8 in series" + name);

    // A body of permittivity 4 fills the gap over half the plates: 4 and 1 side by side.
    const extract_result side = run(plates("<medium> name half diel 4 <block> basepoint(0,0,0.5) v1(2,0,0) "
                                           "v2(0,4,0) hvector(0,0,1) </block> </medium>\n"),
                                    w);
    expect_agree(side.matrix[0][0] - 2.5 * fringe, side.stderr_matrix[0][0], 2.5 * eps0 * area / gap,
                 2.5 * vacuum.stderr_matrix[0][0], "a body of 4 beside vacuum" + name);
    EXPECT_FALSE(generated_any(series) || generated_any(side));
  }
}

// A unit cube, its centre a = 3 above a half-space of permittivity e in a
// grounded window. Its image, of charge -k q with k = (e-1)/(e+1), lowers the
// cube's potential by k q / (4 pi eps0 2a). The grounded window adds a term of
// its own, measured on the homogeneous twin (against the cube's free-space
// value) and scaled by the share of it that the half-space leaves, 1 - k:
//   1/C = 1/C0 - k / (4 pi eps0 2a) + k (1/C_free - 1/C0).
// The cube's charge is no point, and images of images are left out: those
// terms are of the order of the square of the image's share, which the check
// allows on top of three standard errors. A stack of layers that all have
// the permittivity of vacuum, their interfaces kept, gives C0 itself.
TEST_F(extraction, a_cube_over_a_dielectric_half_space_follows_its_image) {
  extract_options o;
  o.self_precision = 0.01;
  o.threads = 2;
  o.seed = 4;
  const double a = 3;
  const std::string cube = "<window> v1(-15,-15,-15) v2(15,15,15) dirichlet </window>\n" +
                           testing::block("cube", -0.5, -0.5, a - 0.5, 1, 1, 1);
  const auto under = [&](double e) {
    return "<plate_medium> name substrate z_top 0 diel " + std::to_string(e) + " </plate_medium>\n" + cube;
  };
  const extract_result c0 = run(cube, o);
  const double C0 = c0.matrix[0][0], s0 = c0.stderr_matrix[0][0];
  const double four_pi_eps0 = 4 * std::numbers::pi * eps0, free = 0.66067815 * four_pi_eps0;

  // Both walks cross the kept interfaces (more hops than in one medium, as
  // cubes are cut to them or to where they fit a table position).
  o.keep_equal_interfaces = true;
  extract_options steps = o;
  steps.walk = interface_walk::step;
  for (const extract_options& w : {steps, with_tables(o, {{1, 1}})}) {
    const extract_result same = run("<plate_medium> name low z_top 0 diel 1 </plate_medium>\n"
                                    "<plate_medium> name mid z_top 2.25 diel 1 </plate_medium>\n" + cube, w);
    expect_agree(same.matrix[0][0], same.stderr_matrix[0][0], C0, s0, "layers all of vacuum");
    EXPECT_GT(same.hops[0], c0.hops[0]) << "the kept interfaces were never crossed";
  }
  o.keep_equal_interfaces = false;
  o = with_tables(o, {{2, 1}, {8, 1}});

  // More permittivity below, more capacitance: in order, and from vacuum to
  // 8 by more than the errors.
  double below = C0;
  for (const double e : {2.0, 8.0}) {
    const extract_result r = run(under(e), o);
    const double C = r.matrix[0][0], s = r.stderr_matrix[0][0];
    const double k = (e - 1) / (e + 1);
    const double estimate = 1.0 / ((1 - k) / C0 - k / (four_pi_eps0 * 2 * a) + k / free);
    const double estimate_error = estimate * estimate * (1 - k) * s0 / (C0 * C0);
    const double share = k * C0 / (four_pi_eps0 * 2 * a);
    EXPECT_LE(std::abs(C - estimate), 3 * std::hypot(s, estimate_error) + share * share * estimate)
        << "e = " << e << ": " << C << " +- " << s << " against the image's " << estimate;
    EXPECT_GT(C, below) << "e = " << e;
    below = C;
    if (e == 8.0) {
      EXPECT_GT(C - C0, 3 * std::hypot(s, s0));
    }
  }
}

// Two wires in the lowest of three layers under two crossing them in the
// middle one, each pair cutting through a plane of the stack, and a body of
// 5 over the lower wires whose bottom and top lie on the planes (a box face a
// straddling cube meets, with a pair of its own). The two walks must agree on
// the self capacitance and the largest coupling. Tables missing from their
// folder are generated for the run, with a warning naming the command that
// writes them, and walk as the files do.
TEST_F(extraction, the_two_walks_agree_on_a_crossing_in_three_layers) {
  const std::string layout =
      "<window> v1(0,0,0) v2(6,6,4) dirichlet </window>\n"
      "<plate_medium> name low z_top 1 diel 3.9 </plate_medium>\n"
      "<plate_medium> name mid z_top 2 diel 2.5 </plate_medium>\n"
      "<plate_medium> name high z_top 4 diel 7 </plate_medium>\n"
      "<medium> name body diel 5 <block> basepoint(0.5,0.5,1) v1(5,0,0) v2(0,1.9,0) hvector(0,0,1) </block> "
      "</medium>\n" +
      testing::block("a1", 0.5, 1.6, 0.7, 5, 0.4, 0.6) + testing::block("a2", 0.5, 3.0, 0.7, 5, 0.4, 0.6) +
      testing::block("b1", 2.0, 0.5, 1.7, 0.4, 5, 0.6) + testing::block("b2", 3.6, 0.5, 1.7, 0.4, 5, 0.6);
  extract_options o;
  o.self_precision = 0.007;
  o.coupling_precision = 0.05;
  o.threads = 2;
  o.seed = 6;
  o.masters = {"a1"};
  o.walk = interface_walk::step;
  const extract_result step = run(layout, o);
  const extract_options t = with_tables(o, {{3.9, 2.5}, {2.5, 7}, {3.9, 5}, {5, 7}});
  const extract_result table = run(layout, t);
  EXPECT_NE(table.dielectric.find("straddling cubes (4 pairs from tables under"), std::string::npos) << table.dielectric;
  for (const std::size_t j : {0, 2}) {  // a1 itself, and b1 over it
    expect_agree(table.matrix[0][j], table.stderr_matrix[0][j], step.matrix[0][j], step.stderr_matrix[0][j],
                 "C(a1, " + step.nets[j] + ")");
  }
  EXPECT_LT(table.hops[0], 0.7 * step.hops[0]);

  extract_options fresh = t;
  fresh.table_dir = dir.file("no_tables");
  fresh.max_walks = 3000;
  extract_options files = t;
  files.max_walks = 3000;
  const extract_result generated = run(layout, fresh), read = run(layout, files);
  EXPECT_EQ(generated.matrix, read.matrix);
  ASSERT_TRUE(generated_any(generated));
  EXPECT_FALSE(generated_any(read));
  const std::string command = "`torva tables --generate --diels 3.9,2.5,7 --pairs 3.9/5,5/7 --dir " + fresh.table_dir;
  bool named = false;
  for (const std::string& w : generated.warnings) named = named || w.find(command) != std::string::npos;
  EXPECT_TRUE(named) << (generated.warnings.empty() ? "" : generated.warnings.back());
}

}  // namespace
}  // namespace torva
