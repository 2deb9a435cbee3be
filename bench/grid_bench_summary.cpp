#include "grid_bench_summary.h"

#include <algorithm>
#include <cstdio>

#include "grid_bench_pairs.h"

namespace torva::grid_bench {

void collecting_reporter::ReportRuns(const std::vector<Run>& runs) {
  for (const Run& run : runs) {
    const bool aggregate = run.run_type == Run::RT_Aggregate;
    if (aggregate && run.aggregate_name != "median") continue;
    std::string name = run.run_name.function_name;
    result& r = results[name];
    r.time = run.GetAdjustedRealTime();
    r.cpu = run.GetAdjustedCPUTime();
    r.label = run.report_label;
    for (const auto& [key, counter] : run.counters) r.counters[key] = counter.value;
  }
  ConsoleReporter::ReportRuns(runs);
}

void print_summary(const collecting_reporter& reporter) {
  auto find = [&](const std::string& name) -> const result* {
    auto it = reporter.results.find(name);
    return it == reporter.results.end() ? nullptr : &it->second;
  };
  auto counter = [](const result* r, const char* key) {
    if (r == nullptr) return -1.0;
    auto it = r->counters.find(key);
    return it == r->counters.end() ? -1.0 : it->second;
  };
  std::printf("\n==== summary: medians where there are repetitions. Builds: wall ms / CPU ms of the\n"
              "==== process. Queries: ns of wall time and of the thread's CPU time per query.\n");
  std::map<std::string, std::map<std::uint64_t, double>> build2_by_pair;
  for (std::uint64_t size : options.sizes) {
    const std::string n = std::to_string(size);
    std::printf("\n-- %s blocks\n", n.c_str());
    std::printf("%-15s %17s %17s %9s %10s %9s %9s %5s %6s\n", "method", "build 1 thread", "build 2 threads",
                "peak MiB", "wall ns/q", "cpu ns/q", "cand/q", "bad", "radius");
    double best_cpu = 0;
    std::string best_name;
    std::string auto_name;
    double auto_cpu = 0;
    auto row = [&](const std::string& name, const result* b1, const result* b2, const result* q,
                   const char* note) {
      char build1[32] = "-", build2[32] = "-";
      if (b1 != nullptr) std::snprintf(build1, sizeof build1, "%.1f/%.1f", b1->time, counter(b1, "cpu_ms"));
      if (b2 != nullptr) std::snprintf(build2, sizeof build2, "%.1f/%.1f", b2->time, counter(b2, "cpu_ms"));
      const double peak = std::max(counter(b1, "peak_MiB"), counter(b2, "peak_MiB"));
      std::printf("%-15s %17s %17s %9.1f %10.1f %9.1f %9.2f %5.0f %6.3f%s\n", name.c_str(), build1, build2, peak,
                  q != nullptr ? q->time : -1.0, q != nullptr ? q->cpu : -1.0, counter(q, "cand"),
                  counter(q, "bad"), counter(q, "radius"), note);
    };
    for (int index = 0; index <= auto_index; ++index) {
      const std::string name = index == auto_index ? std::string("auto") : pairs[index].name;
      const result* b1 = find("build/" + name + "/" + n + "/threads:1");
      const result* b2 = find("build/" + name + "/" + n + "/threads:2");
      const result* q = find("query/" + name + "/" + n);
      if (b1 == nullptr && b2 == nullptr && q == nullptr) {
        std::printf("%-15s %s\n", name.c_str(),
                    left_out(index, size) ? "(left out: one list over a whole family, quadratic build)" : "(not run)");
        continue;
      }
      const std::string note = index == auto_index && q != nullptr ? "  -> " + q->label : "";
      row(name, b1, b2, q, note.c_str());
      if (q == nullptr) continue;
      if (index == auto_index) {
        auto_name = q->label;
        auto_cpu = q->cpu;
      } else {
        if (best_name.empty() || q->cpu < best_cpu) {
          best_cpu = q->cpu;
          best_name = name;
        }
        if (b2 != nullptr) build2_by_pair[name][size] = b2->time;
      }
    }
    const result* compact_q = find("query/compact/" + n);
    const result* compact_b2 = find("build/compact/" + n + "/threads:2");
    char held[48] = "";
    if (compact_b2 != nullptr) std::snprintf(held, sizeof held, "  (holds %.1f MiB)", counter(compact_b2, "held_MiB"));
    if (compact_q != nullptr || compact_b2 != nullptr)
      row("compact", find("build/compact/" + n + "/threads:1"), compact_b2, compact_q, held);
    const result* embree_q = find("query/embree/" + n);
    row("embree-bvh", find("build/embree/" + n + "/threads:1"), find("build/embree/" + n + "/threads:2"), embree_q,
        "");
    row("brute-force", nullptr, nullptr, find("query/brute/" + n), "");
    if (!best_name.empty()) {
      std::printf("fastest pair by CPU time: %s, %.1f ns/query", best_name.c_str(), best_cpu);
      if (embree_q != nullptr) std::printf(" (Embree / fastest = %.2f)", embree_q->cpu / best_cpu);
      std::printf("\nautomatic choice: %s, %.1f ns/query (%.2f times the fastest)\n", auto_name.c_str(), auto_cpu,
                  auto_cpu / best_cpu);
    }
    if (compact_q != nullptr) {
      const result* plain = find("query/grid-none-nd/" + n);
      std::printf("compact index: %.1f ns/query, %.0f answers of %zu differing from grid-none-nd's", compact_q->cpu,
                  counter(compact_q, "differ"), options.verify);
      if (embree_q != nullptr) std::printf(" (Embree / compact = %.2f)", embree_q->cpu / compact_q->cpu);
      if (plain != nullptr) std::printf(" (grid-none-nd / compact = %.2f)", plain->cpu / compact_q->cpu);
      std::printf("\n");
    }
  }
  if (options.sizes.size() > 1) {
    std::printf("\n-- growth of the two-thread build's wall time from one size to the next\n");
    for (const auto& [name, by_size] : build2_by_pair) {
      std::printf("%-15s", name.c_str());
      double previous = 0;
      for (const auto& [size, ms] : by_size) {
        if (previous > 0) std::printf("  x%.2f", ms / previous);
        previous = ms;
      }
      std::printf("\n");
    }
  }
}

}  // namespace torva::grid_bench
