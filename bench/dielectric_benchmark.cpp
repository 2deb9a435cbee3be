// The two ways a walk crosses the planes of a dielectric stack, on the
// generated crossing with its layers (`torva gen crossing -n 10000 --tasks 1
// --media`: six layers with two 50 nm caps, a trench body whose top and
// bottom lie on planes), the first net as the one master, in one run:
// - the tables: the two-layer and half-layer tables of every pair the walk
//   meets, generated and written as `torva tables --generate` does (seconds,
//   bytes);
// - step and table walks to the self precision (1% by default), the couplings
//   left loose: walks, hops per walk, seconds of walking, and the ratios.
// The table walk reads the tables just written, so no generation is in its time.
//
//   build-rel/bench/dielectric_benchmark [--size=10000] [--precision=0.01] [--threads=1]
//                                        [--repetitions=1] [--refine=2] [--seed=1]
#include <algorithm>
#include <chrono>
#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <filesystem>
#include <string>
#include <vector>

#include "torva/extract/extractor.h"
#include "torva/extract/internal/dielectric_map.h"
#include "torva/extract/internal/straddle.h"
#include "torva/extract/layered_tables.h"
#include "torva/layout/cap3d_parser.h"
#include "torva/layout/generator.h"
#include "torva_testing/log_capture.h"

namespace torva {
namespace {

struct bench_options {
  std::uint64_t size = 10000;
  double precision = 0.01;
  int threads = 1;
  int repetitions = 1;
  int refine = 2;
  std::uint64_t seed = 1;
} options;

using clock_type = std::chrono::steady_clock;
double since(clock_type::time_point t) { return std::chrono::duration<double>(clock_type::now() - t).count(); }

double median(std::vector<double> v) {
  std::sort(v.begin(), v.end());
  const std::size_t n = v.size();
  return n == 0 ? 0.0 : n % 2 ? v[n / 2] : 0.5 * (v[n / 2 - 1] + v[n / 2]);
}

void read_layout(const std::string& path, circuit_layout& layout) {
  Cap3dParser parser(layout.data, 4, false, false);
  if (!parser.parse(path, "")) {
    std::fprintf(stderr, "cannot read %s\n", path.c_str());
    std::exit(2);
  }
}

struct run_figures {
  double walks = 0, hops = 0, walking = 0, setup = 0, value = 0, error = 0;
};

run_figures run_once(const std::string& path, interface_walk walk, const std::string& tables,
                     testing::log_capture& logs) {
  circuit_layout layout;
  read_layout(path, layout);
  extract_options o;
  o.masters = {layout.data.wire_nets.front().name};
  o.threads = options.threads;
  o.seed = options.seed;
  o.self_precision = options.precision;
  o.coupling_precision = 1.0;  // only the self error decides
  o.walk = walk;
  o.table_dir = tables;
  const extract_result r = extract(layout, o);
  logs.clear();
  run_figures f;
  f.walks = double(r.walks.at(0));
  f.hops = r.hops.at(0);
  f.walking = r.seconds;
  f.setup = r.setup_seconds;
  f.value = r.matrix.at(0).at(std::size_t(std::find(r.nets.begin(), r.nets.end(), o.masters[0]) - r.nets.begin()));
  f.error = r.stderr_matrix.at(0).at(std::size_t(std::find(r.nets.begin(), r.nets.end(), o.masters[0]) - r.nets.begin()));
  return f;
}

run_figures measure(const std::string& path, interface_walk walk, const std::string& tables,
                    testing::log_capture& logs) {
  std::vector<run_figures> runs;
  const char* name = walk == interface_walk::step ? "step" : "table";
  for (int k = 0; k < options.repetitions; ++k) {
    const run_figures& f = runs.emplace_back(run_once(path, walk, tables, logs));
    std::printf("  %-5s rep %d: C = %.6g +- %.3g fF, %.0f walks, %.1f hops/walk, walking %.2f s, setup %.2f s\n", name,
                k + 1, f.value, f.error, f.walks, f.hops, f.walking, f.setup);
    std::fflush(stdout);
  }
  run_figures m;
  for (double run_figures::*field : {&run_figures::walks, &run_figures::hops, &run_figures::walking, &run_figures::setup,
                                     &run_figures::value, &run_figures::error}) {
    std::vector<double> v;
    for (const run_figures& f : runs) v.push_back(f.*field);
    m.*field = median(v);
  }
  return m;
}

void run(testing::log_capture& logs) {
  testing::temp_dir folder;
  const std::string path = folder.file("crossing.cap3d");
  write_text_file(generate_layout(generator_params{.kind = layout_kind::crossing, .blocks = options.size,
                                                   .media = true, .tasks = 1}),
                  path);

  // The pairs the table walk meets, generated and written once.
  std::vector<std::pair<double, double>> pairs;
  {
    circuit_layout layout;
    read_layout(path, layout);
    std::vector<std::string> warnings;
    pairs = internal::straddle_pairs(build_dielectric_map(layout, dielectric_settings{}, warnings));
    std::printf("%s: %zu nets, master %s, %zu pairs of permittivities\n", path.c_str(), layout.data.wire_nets.size(),
                layout.data.wire_nets.front().name.c_str(), pairs.size());
  }
  const std::string tables = folder.file("tables");
  const table_generation settings{options.refine, true, options.threads};
  double cpu_start = double(std::clock()) / CLOCKS_PER_SEC;
  const auto t0 = clock_type::now();
  for (const auto& [below, above] : pairs) write_layered_pair(tables, generate_layered_pair(below, above, settings));
  const double seconds = since(t0), cpu = double(std::clock()) / CLOCKS_PER_SEC - cpu_start;
  double bytes = 0;
  for (const auto& entry : std::filesystem::recursive_directory_iterator(tables))
    if (entry.is_regular_file()) bytes += double(entry.file_size());
  std::printf("tables: %zu pairs (refinement %d, %d threads) in %.2f s (%.2f s of processor), %.2f MiB, %.2f s and "
              "%.2f MiB a pair\n",
              pairs.size(), options.refine, options.threads, seconds, cpu, bytes / 1048576, seconds / double(pairs.size()),
              bytes / 1048576 / double(pairs.size()));

  const run_figures step = measure(path, interface_walk::step, tables, logs);
  const run_figures table = measure(path, interface_walk::table, tables, logs);
  std::printf("medians to %.3g%% self precision, %d thread(s):\n", 100 * options.precision, options.threads);
  for (const auto& [name, f] : {std::pair{"step", step}, std::pair{"table", table}})
    std::printf("  %-5s C = %.6g +- %.3g fF, %.0f walks, %.1f hops/walk, walking %.2f s, setup %.2f s\n", name, f.value,
                f.error, f.walks, f.hops, f.walking, f.setup);
  std::printf("  step over table: %.2fx the walks, %.2fx the hops per walk, %.2fx the walking time; the two values "
              "differ by %.2f standard errors\n",
              step.walks / table.walks, step.hops / table.hops, step.walking / table.walking,
              std::abs(step.value - table.value) / std::hypot(step.error, table.error));
}

void parse_flags(int argc, char** argv) {
  for (int i = 1; i < argc; ++i) {
    const char* a = argv[i];
    auto value = [a](const char* name) -> const char* {
      const std::size_t n = std::strlen(name);
      return std::strncmp(a, name, n) == 0 ? a + n : nullptr;
    };
    if (const char* v = value("--size=")) {
      options.size = std::max<std::uint64_t>(1, std::strtoull(v, nullptr, 10));
    } else if (const char* v = value("--precision=")) {
      options.precision = std::atof(v);
    } else if (const char* v = value("--threads=")) {
      options.threads = std::max(1, std::atoi(v));
    } else if (const char* v = value("--repetitions=")) {
      options.repetitions = std::max(1, std::atoi(v));
    } else if (const char* v = value("--refine=")) {
      options.refine = std::atoi(v);
    } else if (const char* v = value("--seed=")) {
      options.seed = std::strtoull(v, nullptr, 10);
    } else {
      std::fprintf(stderr, "unknown flag %s\n", a);
      std::exit(1);
    }
  }
  if (!(options.precision > 0) || options.refine < 2 || options.refine % 2) {
    std::fprintf(stderr, "--precision must be positive and --refine even, at least 2\n");
    std::exit(1);
  }
}

}  // namespace
}  // namespace torva

int main(int argc, char** argv) {
  torva::parse_flags(argc, argv);
  torva::testing::log_capture logs;  // the reader and the extractor report on the logger's channels
  torva::run(logs);
  return 0;
}
