// The table the grid benchmark prints after its runs: per layout size, every
// pair, the compact index, Embree and brute force, with the ratios that count.
#pragma once

#include <benchmark/benchmark.h>

#include <map>
#include <string>
#include <vector>

namespace torva::grid_bench {

struct result {
  double time = 0;  // real time per iteration, in the benchmark's unit
  double cpu = 0;   // CPU time of the benchmark's thread per iteration
  std::map<std::string, double> counters;
  std::string label;
};

// Keeps the median (or the only run) of every benchmark by name, and prints
// the console's lines as they come.
class collecting_reporter : public benchmark::ConsoleReporter {
 public:
  std::map<std::string, result> results;
  void ReportRuns(const std::vector<Run>& runs) override;
};

void print_summary(const collecting_reporter& reporter);

}  // namespace torva::grid_bench
