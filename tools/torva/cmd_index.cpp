// torva index LAYOUT: reads a layout, derives its fields, builds the search
// structure as a solver would, shows what the building cost and what lists it
// made, and checks answers at random points against brute force.
//
// The lengths of candidate lists are those of the lists that sample points
// reach (each distinct list counted once): the structures keep their lists to
// themselves, and the lists a walk meets are the ones that matter to it.
#include <algorithm>
#include <atomic>
#include <cstdio>
#include <map>
#include <memory>
#include <random>
#include <set>
#include <thread>
#include <vector>

#include "commands.h"
#include "over_answer.h"
#include "space_tools.h"

namespace torva::cli {

namespace {

struct index_args {
  std::string path;
  index_options o;
  std::uint64_t samples = 20000;
  std::uint64_t checks = 2000;
  std::uint64_t seed = 1;
};

void print_log(const std::string& log) {
  std::size_t pos = 0;
  bool first = true;
  while (pos < log.size()) {
    std::size_t end = log.find('\n', pos);
    if (end == std::string::npos) end = log.size();
    std::printf("%s| %s\n", first ? "log          " : "             ", log.substr(pos, end - pos).c_str());
    first = false;
    pos = end + 1;
  }
}

// Lengths of the distinct lists `points` reach, by strategy of the pair.
struct list_census {
  std::vector<std::size_t> lengths[2];
};

list_census census(const space_manager& m, const std::vector<point3>& points) {
  std::set<const candidate_list*> seen[2];
  list_census c;
  for (const point3& p : points) {
    candidate_list_cache first, second;  // fresh: every point does its own lookup
    m->nearest(p, 1e9, first, second);
    const candidate_list_cache* caches[2] = {&first, &second};
    for (int s = 0; s < 2; ++s) {
      const candidate_list* l = caches[s]->list;
      if (l == nullptr || l->kind == spacemgr_none) continue;
      if (seen[s].insert(l).second) c.lengths[s].push_back(l->candidates.size());
    }
  }
  return c;
}

void print_lengths(const char* which, std::vector<std::size_t> v) {
  if (v.empty()) return;
  std::sort(v.begin(), v.end());
  double sum = 0;
  for (std::size_t n : v) sum += double(n);
  std::printf("             %s: %zu distinct lists; length min %zu, median %zu, mean %.1f, p90 %zu, max %zu\n", which,
              v.size(), v.front(), v[v.size() / 2], sum / double(v.size()), v[(v.size() * 9) / 10], v.back());
  // Buckets 0, 1, 2-3, 4-7, ...
  std::map<std::size_t, std::size_t> buckets;
  for (std::size_t n : v) {
    std::size_t lo = 0;
    if (n > 0) {
      lo = 1;
      while (lo * 2 <= n) lo *= 2;
    }
    ++buckets[lo];
  }
  std::string line;
  for (const auto& [lo, count] : buckets) {
    char b[64];
    if (lo <= 1)
      std::snprintf(b, sizeof b, "%s%zu: %zu", line.empty() ? "" : ", ", lo, count);
    else
      std::snprintf(b, sizeof b, "%s%zu-%zu: %zu", line.empty() ? "" : ", ", lo, lo * 2 - 1, count);
    line += b;
  }
  std::printf("               lengths %s\n", line.c_str());
}

int run_index(const index_args& a) {
  const ready_layout ready = prepare_layout(a.path, a.o);
  const circuit_layout& layout = ready.layout();
  std::printf("layout       %s (%s), read in %s\n", a.path.c_str(), ready.in.binary ? "binary" : "text",
              format_seconds(ready.in.read_seconds).c_str());
  std::printf("blocks       %zu conductor blocks: %d cuboid, %d other\n", layout.blocks.size(), int(layout.cuboid_size),
              int(layout.prism_size));
  std::printf("fields       derived in %s: space margin %g, crowding ratio %.4f, coarse grid %s\n",
              format_seconds(ready.derive_seconds).c_str(), layout.space_margin, layout.crowding_ratio,
              layout.coarse_grid ? "yes" : "no");
  std::printf("             critical box %s to %s\n", point_text(layout.data.critical_box.lower).c_str(),
              point_text(layout.data.critical_box.upper).c_str());

  const auto index = build_index(layout, a.o, a.o.strategy, true);
  const space_manager& m = index->manager;
  std::printf("strategy     %u%s: %s\n", a.o.strategy, a.o.strategy == strategy_auto ? " (chosen by size)" : "",
              index->pair.c_str());
  print_log(index->log);
  const int threads = a.o.threads > 0 ? a.o.threads : std::max(1, layout.data.thread_num);
  std::printf("built in     %s (up to %d build threads), heap %s, peak resident %s\n",
              format_seconds(index->seconds).c_str(), threads, format_bytes(double(index->heap_bytes)).c_str(),
              format_bytes(double(peak_resident_bytes())).c_str());
  std::printf("space        %s to %s\n", point_text(m->space().lower).c_str(), point_text(m->space().upper).c_str());

  std::mt19937_64 rng(a.seed);
  std::vector<point3> samples(a.samples);
  for (point3& p : samples) p = random_point(layout, rng);
  const list_census c = census(m, samples);
  std::printf("lists        reached by %zu sample points\n", samples.size());
  print_lengths("first ", c.lengths[0]);
  print_lengths("second", c.lengths[1]);
  if (c.lengths[0].empty() && c.lengths[1].empty()) std::printf("             none (every point answered by the wall)\n");

  // Brute force costs one distance per block: keep the check to about 2e8 of them.
  const std::uint64_t affordable = std::max<std::uint64_t>(100, 200000000ull / layout.blocks.size());
  const std::uint64_t n = std::min(a.checks, affordable);
  std::vector<point3> points(n);
  for (point3& p : points) p = random_point(layout, rng);
  // Queries from several threads at once, each with its own caches kept from
  // point to point, as walkers do; the verdicts are taken afterwards.
  const int workers = static_cast<int>(std::max<std::uint64_t>(1, std::min<std::uint64_t>(threads, n)));
  std::vector<nearest_result> answers(n);
  std::vector<double> reaches(n);
  std::vector<std::thread> pool;
  for (int w = 0; w < workers; ++w) {
    pool.emplace_back([&, w] {
      candidate_list_cache first, second;
      for (std::size_t i = w; i < n; i += workers) {
        answers[i] = m->nearest(points[i], 1e9, first, second);
        reaches[i] = reach_of(first, second);
      }
    });
  }
  for (auto& t : pool) t.join();
  // Hybrid-grid may answer more than the clearance by its design: those
  // answers are counted and labelled apart, not taken for a fault.
  const bool may_over = may_over_answer(*index);
  std::uint64_t exact = 0, reach = 0, short_of = 0, wrong = 0, over = 0;
  std::size_t first_wrong = n;
  for (std::size_t i = 0; i < n; ++i) {
    switch (judge(layout, points[i], answers[i], 1e9, reaches[i])) {
      case verdict::exact: ++exact; break;
      case verdict::reach: ++reach; break;
      case verdict::short_of: ++short_of; break;
      case verdict::wrong:
        if (may_over && over_answers(layout, points[i], answers[i], 1e9)) {
          ++over;
          break;
        }
        ++wrong;
        if (first_wrong == n) first_wrong = i;
        break;
    }
  }
  std::printf("check        %llu random points on %d threads against brute force: %llu of %llu agree\n",
              (unsigned long long)n, workers, (unsigned long long)(exact + reach), (unsigned long long)n);
  std::printf("             %llu name the nearest block, %llu answer by the reach of their list or by a wall of the search",
              (unsigned long long)exact, (unsigned long long)reach);
  if (short_of != 0) std::printf(", %llu answer short of both (safe, not exact)", (unsigned long long)short_of);
  std::printf(", %llu disagree", (unsigned long long)wrong);
  if (over != 0)
    std::printf(", %llu answer more than the clearance, which %s (%u) is allowed to do", (unsigned long long)over,
                index->pair.c_str(), index->config.spacemgr_type);
  std::printf("\n");
  if (wrong != 0) {
    const point3& p = points[first_wrong];
    const brute_answer truth = brute_nearest(layout, p);
    throw input_error("the index disagrees with brute force at " + std::to_string(wrong) + " points, first at " +
                      point_text(p) + ": " + block_text(answers[first_wrong].block) + " at " +
                      std::to_string(answers[first_wrong].distance.value) + ", truth " + block_text(truth.block) +
                      " at " + std::to_string(truth.distance));
  }
  return exit_ok;
}

}  // namespace

command add_index(CLI::App& app) {
  auto* sub = app.add_subcommand("index", "Build the search structure of a layout and check it against brute force");
  auto a = std::make_shared<index_args>();
  sub->add_option("LAYOUT", a->path, "A cap3d layout file, text or binary")->required();
  add_index_options(*sub, a->o, true);
  sub->add_option("--samples", a->samples, "Points whose lists are counted")->capture_default_str();
  sub->add_option("--check", a->checks, "Random points checked against brute force")->capture_default_str();
  sub->add_option("--seed", a->seed, "Seed of the random points")->capture_default_str();
  return {sub, [a] { return run_index(*a); }, false,
          [a] { return run_files{{{"layout file", a->path}}, {}}; }};
}

}  // namespace torva::cli
