// The running sums of one master's walks and the estimates made from them.
#pragma once

#include <algorithm>
#include <cmath>
#include <cstdint>
#include <limits>
#include <vector>

#include "torva/extract/internal/walk.h"

namespace torva::internal {

// Running sums of one master's walks.
struct master_sums {
  std::uint64_t samples = 0;  // walks drawn, including start points inside the surface's union
  std::uint64_t walks = 0;    // walks that started on the surface
  std::uint64_t hops = 0;
  std::uint64_t lost = 0;
  double sum_w = 0.0, sum_ww = 0.0;
  std::vector<double> s1, s2;  // per column: sum of weights and of squares of the walks ending there

  explicit master_sums(std::size_t columns) : s1(columns, 0.0), s2(columns, 0.0) {}

  void add(const walk_end& e) {
    ++samples;
    if (e.hops == 0 && e.weight == 0.0) return;
    ++walks;
    hops += e.hops;
    sum_w += e.weight;
    sum_ww += e.weight * e.weight;
    if (e.net < 0) {
      ++lost;
      return;
    }
    s1[std::size_t(e.net)] += e.weight;
    s2[std::size_t(e.net)] += e.weight * e.weight;
  }

  // Entry j and its standard error. The mean weight of all walks is zero by
  // the symmetry of the cube, so it serves as a control variate: each entry
  // subtracts its share of the sample's mean weight, which lowers the variance
  // and makes every row sum to zero.
  void estimate(std::size_t j, double& value, double& error) const {
    const double n = double(samples);
    if (samples < 2 || sum_ww <= 0.0) {
      value = samples ? s1[j] / n : 0.0;
      error = std::numeric_limits<double>::infinity();
      return;
    }
    const double a_j = s2[j] / n, a = sum_ww / n;
    const double beta = a_j / a;
    value = s1[j] / n - beta * (sum_w / n);
    const double var = std::max(0.0, a_j - a_j * a_j / a - value * value);
    error = std::sqrt(var / (n - 1));
  }
};

// Relative errors of a master's row against the goals: the self entry's, and
// the worst among the couplings that together make 95% of the self entry.
inline void row_errors(const master_sums& sums, std::size_t self, double& self_rel, double& coupling_rel) {
  const std::size_t columns = sums.s1.size();
  std::vector<double> value(columns), error(columns);
  for (std::size_t j = 0; j < columns; ++j) sums.estimate(j, value[j], error[j]);
  self_rel = value[self] > 0 ? error[self] / value[self] : std::numeric_limits<double>::infinity();
  std::vector<std::size_t> order;
  for (std::size_t j = 0; j < columns; ++j)
    if (j != self) order.push_back(j);
  std::sort(order.begin(), order.end(), [&](std::size_t a, std::size_t b) { return std::abs(value[a]) > std::abs(value[b]); });
  coupling_rel = 0.0;
  double covered = 0.0;
  for (std::size_t j : order) {
    if (covered > 0.95 * value[self]) break;
    if (value[j] == 0.0) {
      coupling_rel = std::numeric_limits<double>::infinity();
      break;
    }
    coupling_rel = std::max(coupling_rel, error[j] / std::abs(value[j]));
    covered += std::abs(value[j]);
  }
}


}  // namespace torva::internal
