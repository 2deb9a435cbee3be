// The running sums of one master's walks and the estimates made from them.
#pragma once

#include <algorithm>
#include <cmath>
#include <cstdint>
#include <limits>
#include <vector>

#include "torva/extract/internal/walk.h"

namespace torva::internal {

// The sums of one block of walks. Threads and processes hand over whole
// blocks, and a master's sums add them in block order, so the floating-point
// additions are the same however many threads and processes walked them.
struct block_sums {
  struct column_sums {
    std::uint32_t column = 0;
    double s1 = 0.0, s2 = 0.0;
  };
  std::uint64_t samples = 0, walks = 0, hops = 0, lost = 0;
  double sum_w = 0.0, sum_ww = 0.0;
  std::vector<column_sums> columns;  // only the columns where some walk of the block ended

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
    column_sums* c = nullptr;
    for (column_sums& x : columns)
      if (x.column == std::uint32_t(e.net)) c = &x;
    if (c == nullptr) c = &columns.emplace_back(column_sums{std::uint32_t(e.net), 0.0, 0.0});
    c->s1 += e.weight;
    c->s2 += e.weight * e.weight;
  }

  // As doubles, for a process to send: the block's number first. Counts stay
  // exact (a block's are far below 2^53).
  void write(std::uint64_t block, std::vector<double>& out) const {
    out.insert(out.end(), {double(block), double(samples), double(walks), double(hops), double(lost), sum_w, sum_ww,
                           double(columns.size())});
    for (const column_sums& c : columns) out.insert(out.end(), {double(c.column), c.s1, c.s2});
  }

  // Reads what write wrote from [at, end), moving at past it; the block's
  // number goes to `block`. False on a record that is cut short or names a
  // column beyond `column_count`.
  bool read(const double*& at, const double* end, std::size_t column_count, std::uint64_t& block) {
    if (end - at < 8) return false;
    block = std::uint64_t(at[0]);
    samples = std::uint64_t(at[1]);
    walks = std::uint64_t(at[2]);
    hops = std::uint64_t(at[3]);
    lost = std::uint64_t(at[4]);
    sum_w = at[5];
    sum_ww = at[6];
    const std::uint64_t n = std::uint64_t(at[7]);
    at += 8;
    if (std::uint64_t(end - at) / 3 < n) return false;
    columns.resize(n);
    for (column_sums& c : columns) {
      if (!(at[0] >= 0 && at[0] < double(column_count))) return false;
      c = column_sums{std::uint32_t(at[0]), at[1], at[2]};
      at += 3;
    }
    return true;
  }
};

// Running sums of one master's walks.
struct master_sums {
  std::uint64_t samples = 0;  // walks drawn, including start points inside the surface's union
  std::uint64_t walks = 0;    // walks that started on the surface
  std::uint64_t hops = 0;
  std::uint64_t lost = 0;
  double sum_w = 0.0, sum_ww = 0.0;
  std::vector<double> s1, s2;  // per column: sum of weights and of squares of the walks ending there

  explicit master_sums(std::size_t columns) : s1(columns, 0.0), s2(columns, 0.0) {}

  void add(const block_sums& b) {
    samples += b.samples;
    walks += b.walks;
    hops += b.hops;
    lost += b.lost;
    sum_w += b.sum_w;
    sum_ww += b.sum_ww;
    for (const block_sums::column_sums& c : b.columns) {
      s1[c.column] += c.s1;
      s2[c.column] += c.s2;
    }
  }

  // As doubles, for a process to send, and back (false on a short record).
  void write(std::vector<double>& out) const {
    out.insert(out.end(), {double(samples), double(walks), double(hops), double(lost), sum_w, sum_ww});
    out.insert(out.end(), s1.begin(), s1.end());
    out.insert(out.end(), s2.begin(), s2.end());
  }
  bool read(const double*& at, const double* end) {
    if (std::size_t(end - at) < 6 + 2 * s1.size()) return false;
    samples = std::uint64_t(at[0]);
    walks = std::uint64_t(at[1]);
    hops = std::uint64_t(at[2]);
    lost = std::uint64_t(at[3]);
    sum_w = at[4];
    sum_ww = at[5];
    at += 6;
    std::copy(at, at + s1.size(), s1.begin());
    at += s1.size();
    std::copy(at, at + s2.size(), s2.begin());
    at += s2.size();
    return true;
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
