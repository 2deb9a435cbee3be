#include <gtest/gtest.h>

#include <cmath>

#include "torva/extract/internal/cube_kernel.h"
#include "torva/extract/internal/first_weights.h"
#include "torva/tables/internal/first_table.h"

namespace torva::internal {
namespace {

constexpr double area = 1.0 / 1024;

// The probability with which the walk draws cell e anywhere on the cube.
double drawn(int e) { return (first_table_values[e] - (e == 0 ? 0.0 : first_table_values[e - 1])) / 24; }
double centre_x(int e) { return -1 + (e % 32 + 0.5) / 32; }
double centre_y(int e) { return -1 + (e / 32 + 0.5) / 32; }

// Central differences of the kernel in the start point, at the cube's centre.
// Their error is h^2/6 times the third derivative, which for these densities
// stays within a few times the first (the lowest modes have k near 2): with
// h = 1e-3 that is a few 1e-6 relative, and rounding adds about 1e-13.
constexpr double h = 1e-3;
constexpr double fd_tolerance = 1e-5;
struct gradient { double x, y, z; };
gradient finite_difference(double x, double y) {
  return {(cube_exit_density(h, 0, 0, x, y) - cube_exit_density(-h, 0, 0, x, y)) / (2 * h),
          (cube_exit_density(0, h, 0, x, y) - cube_exit_density(0, -h, 0, x, y)) / (2 * h),
          (cube_exit_density(0, 0, h, x, y) - cube_exit_density(0, 0, -h, x, y)) / (2 * h)};
}

// A corner cell, two on the edges of the quarter, one by the face centre and
// two inside off the diagonal, so that x and y cannot be mixed up unseen.
constexpr int sample_cells[] = {0, 31, 992, 1023, 3 * 32 + 20, 25 * 32 + 6};

TEST(FirstWeights, CentreDerivativesMatchFiniteDifferencesOfTheKernel) {
  for (int e : sample_cells) {
    const double x = centre_x(e), y = centre_y(e);
    const gradient fd = finite_difference(x, y);
    EXPECT_NEAR(centre_exit_density_dz(x, y) / fd.z, 1.0, fd_tolerance) << e;
    EXPECT_NEAR(centre_exit_density_dx(x, y) / fd.x, 1.0, fd_tolerance) << e;
    EXPECT_NEAR(cube_exit_density(0, 0, 0, x, y) / centre_exit_density(x, y), 1.0, 1e-12) << e;
  }
}

TEST(FirstWeights, AreTheDerivativeOverTheProbabilityTheWalkDraws) {
  for (int e : sample_cells) {
    const gradient fd = finite_difference(centre_x(e), centre_y(e));
    EXPECT_LT(first_normal_weights[e], 0.0);
    EXPECT_LT(first_tangent_weights[e], 0.0);
    EXPECT_NEAR(first_normal_weights[e] * drawn(e) / area / fd.z, 1.0, fd_tolerance) << e;
    EXPECT_NEAR(first_tangent_weights[e] * drawn(e) / area / fd.x, 1.0, fd_tolerance) << e;
    EXPECT_NEAR(first_tangent_y_weights[e] * drawn(e) / area / fd.y, 1.0, fd_tolerance) << e;
  }
  // Every cell, against the series the samples above were checked with.
  for (int e = 0; e < 1024; ++e) {
    const double x = centre_x(e), y = centre_y(e);
    ASSERT_NEAR(first_normal_weights[e] * drawn(e) / area / centre_exit_density_dz(x, y), 1.0, 1e-12) << e;
    ASSERT_NEAR(first_tangent_weights[e] * drawn(e) / area / centre_exit_density_dx(x, y), 1.0, 1e-12) << e;
    ASSERT_NEAR(first_tangent_y_weights[e] * drawn(e) / area / centre_exit_density_dx(y, x), 1.0, 1e-12) << e;
  }
}

// The chance of leaving through the part x < -1 + a of the face z = -1 from
// (x0, 0, z0), by integrating the kernel's sines over the part term by term.
double part_probability(double a, double x0, double z0) {
  const double pi = std::acos(-1.0);
  double sum = 0.0;
  for (int m = 1; m <= 99; ++m) {
    const double sm = std::sin(m * pi * (x0 + 1) / 2) * 2 / (m * pi) * (1 - std::cos(m * pi * a / 2));
    for (int n = 1; n <= 99; n += 2) {
      const double sn = std::sin(n * pi / 2) * 4 / (n * pi);
      const double k = pi / 2 * std::sqrt(double(m * m + n * n));
      sum += sm * sn * sinh_ratio(k * (1 - z0), 2 * k);
    }
  }
  return sum;
}

TEST(FirstWeights, AverageToTheDerivativeOfTheFaceProbability) {
  // From the centre each of the six faces takes a sixth.
  ASSERT_NEAR(part_probability(2, 0, 0), 1.0 / 6, 1e-12);
  // The mean first-hop weight over the four quarters of a face is the
  // derivative of the face's probability; over the two quarters x < 0, that
  // of the half face's. The weights make a midpoint sum of the integral over
  // 32 x 32 cells a quarter, which errs by the order of 1/32^2.
  double normal = 0.0, tangent = 0.0;
  for (int e = 0; e < 1024; ++e) {
    normal += drawn(e) * first_normal_weights[e];
    tangent += drawn(e) * first_tangent_weights[e];
  }
  const double face_dz = (part_probability(2, 0, h) - part_probability(2, 0, -h)) / (2 * h);
  const double half_dx = (part_probability(1, h, 0) - part_probability(1, -h, 0)) / (2 * h);
  EXPECT_NEAR(4 * normal / face_dz, 1.0, 1e-3);
  EXPECT_NEAR(2 * tangent / half_dx, 1.0, 1e-3);
}

}  // namespace
}  // namespace torva::internal
