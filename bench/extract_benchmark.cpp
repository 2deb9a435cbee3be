// The extractor's speed on the generated crossings that the grid benchmark
// uses (four layers, 5% polygons, 5% cylinders, seed 7), with the middle net
// as the one master, on 1 and on 2 walking threads:
// - walks: a fixed number of walks (the precision too tight to stop them
//   first), for walks and hops per second per walking thread;
// - 1%: the self capacitance to 1% relative error, the couplings left loose,
//   for the time from the layout text to the answer: reading, setup (deriving,
//   search structure, Gaussian surface) and walking.
// The layout text goes to a temporary folder and is read back each time, as
// `torva extract` would. Figures are medians over the repetitions.
// --strategies lists the search pairs to run, each in turn on the same
// layout: auto (the extractor's choice: the compact index where it falls on
// the plain grid) and pair numbers, e.g. auto,9 for the compact index beside
// the plain grid it copies.
//
//   build-rel/bench/extract_benchmark [--sizes=10000,100000] [--repetitions=3]
//                                     [--walks=200000] [--precision=0.01]
//                                     [--only=walks|precision] [--threads=1,2]
//                                     [--strategies=auto,9]
#include <sys/resource.h>
#include <unistd.h>

#include <algorithm>
#include <chrono>
#include <cstdint>
#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <string>
#include <thread>
#include <vector>

#include "torva/extract/extractor.h"
#include "torva/layout/cap3d_parser.h"
#include "torva/layout/generator.h"
#include "torva_testing/log_capture.h"

namespace torva {
namespace {

struct bench_options {
  std::vector<std::uint64_t> sizes{10000, 100000};
  std::vector<std::uint64_t> threads{1, 2};
  int repetitions = 3;
  std::uint64_t walks = 200000;
  double precision = 0.01;
  bool fixed = true;      // run the fixed-walk measurement
  bool to_goal = true;    // run the 1% measurement
  std::vector<int> strategies{-1};  // search pairs; -1: the extractor's choice
};
bench_options options;

using clock_type = std::chrono::steady_clock;
double since(clock_type::time_point t) { return std::chrono::duration<double>(clock_type::now() - t).count(); }

double median(std::vector<double> v) {
  std::sort(v.begin(), v.end());
  const std::size_t n = v.size();
  return n == 0 ? 0.0 : n % 2 ? v[n / 2] : 0.5 * (v[n / 2 - 1] + v[n / 2]);
}

// Busy CPU seconds of the whole machine and of this process.
struct cpu_seconds {
  double machine = 0, own = 0;
  static cpu_seconds now() {
    cpu_seconds t;
    unsigned long long v[8] = {};
    if (FILE* f = std::fopen("/proc/stat", "r")) {
      if (std::fscanf(f, "cpu %llu %llu %llu %llu %llu %llu %llu %llu", &v[0], &v[1], &v[2], &v[3], &v[4], &v[5],
                      &v[6], &v[7]) == 8)
        t.machine = double(v[0] + v[1] + v[2] + v[5] + v[6] + v[7]) / double(sysconf(_SC_CLK_TCK));
      std::fclose(f);
    }
    rusage u{};
    getrusage(RUSAGE_SELF, &u);
    t.own = double(u.ru_utime.tv_sec + u.ru_stime.tv_sec) + 1e-6 * double(u.ru_utime.tv_usec + u.ru_stime.tv_usec);
    return t;
  }
};

// The share of the cores that other processes kept busy since `t`: on two
// cores, anything else running skews the two-thread figures first.
double others_share(const cpu_seconds& t, double seconds) {
  const cpu_seconds u = cpu_seconds::now();
  const double cores = std::max(1u, std::thread::hardware_concurrency());
  return seconds > 0 ? std::max(0.0, (u.machine - t.machine) - (u.own - t.own)) / (seconds * cores) : 0.0;
}

// The grid benchmark's layout of `size` blocks, written as text.
void write_layout(std::uint64_t size, const std::string& path) {
  write_text_file(generate_layout(generator_params{.kind = layout_kind::crossing, .blocks = size, .layers = 4,
                                                   .polygon_share = 0.05, .cylinder_share = 0.05, .seed = 7}),
                  path);
}

// Reads the text as `torva extract` does (four incline slices, no floating
// conductors, solids kept as they are).
double read_layout(const std::string& path, circuit_layout& layout) {
  const auto t0 = clock_type::now();
  Cap3dParser parser(layout.data, 4, false, false);
  if (!parser.parse(path, "")) {
    std::fprintf(stderr, "cannot read %s\n", path.c_str());
    std::exit(2);
  }
  return since(t0);
}

struct run_figures {
  double read = 0, setup = 0, walking = 0, total = 0;  // seconds; total from the file to the result
  double walks = 0, hops = 0;                          // walks that started on the surface, hops of them all
  double self_error = 0;
  double others = 0;  // share of the cores that other processes used meanwhile
  std::string stopped_by;
};

int strategy = -1;  // the search pair of the runs under way; -1: the extractor's choice

std::string strategy_name(int s) { return s < 0 ? "auto" : "pair " + std::to_string(s); }

run_figures run_once(const std::string& path, const std::string& master, int threads, bool fixed,
                     testing::log_capture& logs) {
  run_figures f;
  const cpu_seconds cpu = cpu_seconds::now();
  const auto t0 = clock_type::now();
  circuit_layout layout;
  f.read = read_layout(path, layout);
  extract_options o;
  o.masters = {master};
  o.threads = threads;
  o.spacemgr_type = strategy;
  o.max_walks = fixed ? options.walks : 0;
  o.self_precision = fixed ? 1e-9 : options.precision;  // a fixed count: too tight to stop the walks first
  o.coupling_precision = 1.0;                            // only the self error decides
  const extract_result r = extract(layout, o);
  f.total = since(t0);
  f.others = others_share(cpu, f.total);
  f.setup = r.setup_seconds;
  f.walking = r.seconds;
  f.walks = double(r.walks.at(0));
  f.hops = f.walks * r.hops.at(0);
  f.self_error = r.self_error.at(0);
  f.stopped_by = r.master_stopped_by.at(0);
  logs.clear();  // the extractor's lines would pile up over the runs
  return f;
}

// Medians of the runs' figures, and the most that other processes used of the cores meanwhile.
struct summary : run_figures {};

summary measure(const std::string& path, const std::string& master, int threads, bool fixed,
                testing::log_capture& logs) {
  std::vector<run_figures> runs;
  for (int k = 0; k < options.repetitions; ++k) {
    const run_figures& f = runs.emplace_back(run_once(path, master, threads, fixed, logs));
    std::printf("  %s, %-9s t=%d rep %d: read %.3f s, setup %.3f s, walking %.3f s, total %.3f s, %.0f walks, "
                "%.2f hops/walk, self error %.4f (%s), others used %.0f%% of the cores\n",
                strategy_name(strategy).c_str(), fixed ? "walks" : "precision", threads, k + 1, f.read, f.setup, f.walking, f.total, f.walks,
                f.walks > 0 ? f.hops / f.walks : 0.0, f.self_error, f.stopped_by.c_str(), 100 * f.others);
    std::fflush(stdout);
  }
  auto middle = [&](double run_figures::*m) {
    std::vector<double> v;
    for (const run_figures& f : runs) v.push_back(f.*m);
    return median(v);
  };
  summary s;
  for (double run_figures::*m : {&run_figures::read, &run_figures::setup, &run_figures::walking, &run_figures::total,
                                 &run_figures::walks, &run_figures::hops, &run_figures::self_error})
    s.*m = middle(m);
  for (const run_figures& f : runs) s.others = std::max(s.others, f.others);
  s.stopped_by = runs.back().stopped_by;
  return s;
}

std::string busy_note(const summary& s) {
  if (s.others < 0.05) return "";
  char text[64];
  std::snprintf(text, sizeof text, "  (busy: others up to %.0f%% of the cores)", 100 * s.others);
  return text;
}

void bench_strategy(const std::string& path, const std::string& master, std::uint64_t size,
                    testing::log_capture& logs);

void bench_size(std::uint64_t size, testing::log_capture& logs) {
  testing::temp_dir folder;
  const std::string path = folder.file("crossing.cap3d");
  write_layout(size, path);
  // The middle net, as the grid benchmark's net start picks it.
  std::string master;
  {
    circuit_layout layout;
    read_layout(path, layout);
    const auto& nets = layout.data.wire_nets;
    master = nets[nets.size() / 2].name;
    std::printf("\n-- %llu blocks: %zu nets, master %s\n", (unsigned long long)size, nets.size(), master.c_str());
  }
  for (int s : options.strategies) {
    strategy = s;
    bench_strategy(path, master, size, logs);
  }
}

void bench_strategy(const std::string& path, const std::string& master, std::uint64_t size,
                    testing::log_capture& logs) {
  std::vector<summary> fixed, to_goal;
  for (std::uint64_t t : options.threads) {
    if (options.fixed) fixed.push_back(measure(path, master, int(t), true, logs));
    if (options.to_goal) to_goal.push_back(measure(path, master, int(t), false, logs));
  }
  std::printf("medians, %llu blocks, search %s:\n", (unsigned long long)size, strategy_name(strategy).c_str());
  for (std::size_t i = 0; i < fixed.size(); ++i) {
    const summary& s = fixed[i];
    const double t = double(options.threads[i]);
    std::printf("  walks     t=%.0f: %.0f walks in %.3f s, %.2f hops/walk: %.0f walks/s/thread, %.3g hops/s/thread%s\n",
                t, s.walks, s.walking, s.walks > 0 ? s.hops / s.walks : 0.0, s.walks / s.walking / t,
                s.hops / s.walking / t, busy_note(s).c_str());
  }
  for (std::size_t i = 0; i < to_goal.size(); ++i) {
    const summary& s = to_goal[i];
    std::printf("  precision t=%llu: read %.3f + setup %.3f + walking %.3f s = %.3f s (file to result %.3f s), "
                "%.0f walks, self error %.4f, stopped by %s%s%s\n",
                (unsigned long long)options.threads[i], s.read, s.setup, s.walking, s.read + s.setup + s.walking,
                s.total, s.walks, s.self_error, s.stopped_by.c_str(),
                options.threads[i] == 2 ? (s.total < 2.0 ? "  [under 2 s: met]" : "  [under 2 s: missed]") : "",
                busy_note(s).c_str());
  }
  // The walking's speed-up from the rates, as the walk counts of two runs differ a little.
  auto speedup = [](const std::vector<summary>& v) { return (v[1].walks / v[1].walking) / (v[0].walks / v[0].walking); };
  const bool pair = options.threads.size() == 2 && options.threads[0] == 1 && options.threads[1] == 2;
  if (pair && fixed.size() == 2)
    std::printf("  speed-up of the walking, 2 over 1 thread, fixed walks: %.2fx%s\n", speedup(fixed),
                speedup(fixed) >= 1.9 ? "  [at least 1.9x: met]" : "  [at least 1.9x: missed]");
  if (pair && to_goal.size() == 2)
    std::printf("  speed-up of the walking, 2 over 1 thread, to %.0f%%: %.2fx\n", 100 * options.precision,
                speedup(to_goal));
}

std::vector<std::uint64_t> parse_list(const char* s) {
  std::vector<std::uint64_t> values;
  for (char* end = nullptr;; s = end + 1) {
    const unsigned long long v = std::strtoull(s, &end, 10);
    if (end != s && v > 0) values.push_back(v);
    if (*end != ',') return values;
  }
}

void parse_flags(int argc, char** argv) {
  for (int i = 1; i < argc; ++i) {
    const char* a = argv[i];
    auto value = [a](const char* name) -> const char* {
      const std::size_t n = std::strlen(name);
      return std::strncmp(a, name, n) == 0 ? a + n : nullptr;
    };
    if (const char* v = value("--sizes=")) {
      options.sizes = parse_list(v);
    } else if (const char* v = value("--threads=")) {
      options.threads = parse_list(v);
    } else if (const char* v = value("--repetitions=")) {
      options.repetitions = std::max(1, std::atoi(v));
    } else if (const char* v = value("--walks=")) {
      options.walks = std::max<std::uint64_t>(1, std::strtoull(v, nullptr, 10));
    } else if (const char* v = value("--precision=")) {
      options.precision = std::atof(v);
    } else if (const char* v = value("--strategies=")) {
      options.strategies.clear();
      for (const char* at = v; *at != '\0';) {
        const char* comma = std::strchr(at, ',');
        const std::string item(at, comma != nullptr ? comma : at + std::strlen(at));
        options.strategies.push_back(item == "auto" ? -1 : std::atoi(item.c_str()));
        at = comma != nullptr ? comma + 1 : at + item.size();
      }
    } else if (const char* v = value("--only=")) {
      options.fixed = std::strcmp(v, "walks") == 0;
      options.to_goal = std::strcmp(v, "precision") == 0;
      if (!options.fixed && !options.to_goal) {
        std::fprintf(stderr, "--only takes walks or precision, not %s\n", v);
        std::exit(1);
      }
    } else {
      std::fprintf(stderr, "unknown flag %s\n", a);
      std::exit(1);
    }
  }
}

}  // namespace
}  // namespace torva

int main(int argc, char** argv) {
  torva::parse_flags(argc, argv);
  torva::testing::log_capture logs;  // the reader and the extractor report on the logger's channels
  std::printf("extract benchmark: %d repetitions, %llu fixed walks, %.3g self precision\n",
              torva::options.repetitions, (unsigned long long)torva::options.walks, torva::options.precision);
  for (std::uint64_t size : torva::options.sizes) torva::bench_size(size, logs);
  return 0;
}
