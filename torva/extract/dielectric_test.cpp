// The walk through dielectric layers and bodies, checked by physics: plates
// with layers in series and side by side (exact for a field that is linear in
// each medium, so the steps across interfaces must cost no bias there), and a
// cube over a dielectric half-space against its image charge. Each estimate is
// held against its own standard error, with a fixed seed.
#include <gtest/gtest.h>

#include <cmath>
#include <numbers>
#include <string>

#include "torva_testing/extraction.h"

namespace torva {
namespace {

using testing::eps0;
using testing::expect_agree;
using testing::extraction;

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

  const extract_result series = run(plates("<plate_medium> name low z_top 1 diel 2 </plate_medium>\n"
                                           "<plate_medium> name high z_top 2 diel 8 </plate_medium>\n"),
                                    o);
  const double eps_series = 1.0 / (0.5 / 2 + 0.5 / 8);
  EXPECT_EQ(series.dielectric.rfind("layers 2 | z 1 | 8", 0), 0u) << series.dielectric;
  expect_agree(series.matrix[0][0] - eps_series * fringe, series.stderr_matrix[0][0], eps_series * eps0 * area / gap,
               vacuum.stderr_matrix[0][0] * eps_series, "layers 2 and 8 in series");

  // A body of permittivity 4 fills the gap over half the plates: 4 and 1 side by side.
  const extract_result side = run(plates("<medium> name half diel 4 <block> basepoint(0,0,0.5) v1(2,0,0) v2(0,4,0) "
                                         "hvector(0,0,1) </block> </medium>\n"),
                                  o);
  expect_agree(side.matrix[0][0] - 2.5 * fringe, side.stderr_matrix[0][0], 2.5 * eps0 * area / gap,
               2.5 * vacuum.stderr_matrix[0][0], "a body of 4 beside vacuum");
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

  o.keep_equal_interfaces = true;
  const extract_result same =
      run("<plate_medium> name low z_top 0 diel 1 </plate_medium>\n"
          "<plate_medium> name mid z_top 2.25 diel 1 </plate_medium>\n" + cube, o);
  expect_agree(same.matrix[0][0], same.stderr_matrix[0][0], C0, s0, "layers all of vacuum");
  EXPECT_GT(same.hops[0], c0.hops[0]) << "the kept interfaces were never stepped across";
  o.keep_equal_interfaces = false;

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
    if (e == 8.0) EXPECT_GT(C - C0, 3 * std::hypot(s, s0));
  }
}

}  // namespace
}  // namespace torva
