#include "torva/extract/internal/master_runs.h"

#include <algorithm>
#include <atomic>
#include <chrono>
#include <cmath>
#include <limits>
#include <memory>
#include <string>
#include <thread>

#include "torva/extract/internal/random.h"
#include "torva/extract/internal/refuse.h"
#include "torva/extract/internal/row_statistics.h"
#include "torva/extract/internal/run_messages.h"
#include "torva/extract/team.h"

namespace torva::internal {
namespace {

using clock_type = std::chrono::steady_clock;

// Walks are run in blocks with a random stream each; a block is the unit a
// thread takes, and the sums are added in block order, so the matrix does not
// depend on the number of threads.
constexpr std::uint64_t block_walks = 256;
constexpr std::uint64_t first_round_blocks = 16;
// No error is trusted from fewer walks than this.
constexpr std::uint64_t min_walks_for_test = 2000;

struct block_out {
  std::vector<walk_end> ends;
  bool done = false;
};

}  // namespace

void run_masters(const extract_options& options, const walk_setup& setup, const std::vector<const wire_net*>& masters,
                 const std::vector<gaussian_surface>& surfaces, const dielectric_map& media,
                 const homogeneous_medium& uniform, const layered_medium& layered, std::size_t columns, int threads,
                 extract_result& result) {
  // A team shares the run once every member has set up: whole masters when
  // there are many, else the blocks of each round of each master.
  extract_team* const team = options.team != nullptr && options.team->size() > 1 ? options.team : nullptr;
  const int members = team ? team->size() : 1, me = team ? team->rank() : 0;
  const bool leader = me == 0;
  if (team) {
    const int failed = team->first_failed(true);
    if (failed < members) refuse("process " + std::to_string(failed) + " of the run could not set up");
  }
  const bool share_masters =
      team && (options.split == team_split::masters ||
               (options.split == team_split::automatic &&
                masters.size() >= std::size_t(team_masters_per_member) * std::size_t(members)));
  const bool share_blocks = team && !share_masters;
  result.ranks = members;
  if (team) result.split = share_masters ? "masters" : "blocks";

  const auto run_start = clock_type::now();
  const bool timed = options.time_limit > 0;
  const auto deadline = run_start + std::chrono::duration_cast<clock_type::duration>(
                                        std::chrono::duration<double>(timed ? options.time_limit : 0.0));
  bool out_of_time = false;

  // How each master ended, kept by the member that decided it.
  const char* const endings[] = {"precision", "walks", "time"};
  struct finished_master {
    internal::master_sums sums;
    int ending = 0;  // into endings
  };
  std::vector<std::unique_ptr<finished_master>> finished(masters.size());
  // A master's row into the result, in the masters' order.
  const auto report = [&](std::size_t mi) {
    const wire_net& master = *masters[mi];
    const internal::master_sums& sums = finished[mi]->sums;
    const std::string stopped_by = endings[finished[mi]->ending];
    double self_rel = 0.0, coupling_rel = 0.0;
    internal::row_errors(sums, std::size_t(setup.net_index.at(&master)), self_rel, coupling_rel);
    std::vector<double> row(columns), err(columns);
    for (std::size_t j = 0; j < columns; ++j) sums.estimate(j, row[j], err[j]);
    result.masters.push_back(master.name);
    result.matrix.push_back(std::move(row));
    result.stderr_matrix.push_back(std::move(err));
    result.walks.push_back(sums.walks);
    result.hops.push_back(sums.walks ? double(sums.hops) / double(sums.walks) : 0.0);
    result.self_error.push_back(self_rel);
    result.master_stopped_by.push_back(stopped_by);
    if (sums.lost > 0)
      warn(result, std::to_string(sums.lost) + " walks from " + master.name + " were cut off after " +
                       std::to_string(setup.max_hops) + " hops and count for no conductor");
    info("master " + master.name + ": " + std::to_string(sums.walks) + " walks, relative error " +
         std::to_string(self_rel) + ", stopped by " + stopped_by);
  };

  for (std::size_t mi = 0; mi < masters.size(); ++mi) {
    if (share_masters && int(mi % std::size_t(members)) != me) continue;
    const wire_net& master = *masters[mi];
    const gaussian_surface& surface = surfaces[mi];
    const std::size_t self = std::size_t(setup.net_index.at(&master));
    // The member that decides: this process alone, or the team's member 0 from the sums of every member's blocks.
    const bool decides = !share_blocks || leader;
    internal::master_sums sums(columns);
    std::uint64_t next_block = 0;
    std::uint64_t round = first_round_blocks;
    int ending = -1;
    bool precise = false;
    double self_rel = std::numeric_limits<double>::infinity(), coupling_rel = self_rel;
    for (;;) {
      // The next round's blocks, or the reason to stop. Under shared blocks
      // member 0 decides and tells the others, so that all stop at once.
      std::uint64_t plan = 0;
      if (decides) {
        if (precise) {
          ending = 0;
        } else if (out_of_time) {
          ending = 2;
        } else if (options.max_walks > 0) {
          const std::uint64_t left = options.max_walks > sums.samples ? options.max_walks - sums.samples : 0;
          if (left == 0) ending = 1;
          else plan = std::min(round, (left + block_walks - 1) / block_walks);
        } else {
          plan = round;
        }
      }
      if (share_blocks) {
        std::vector<double> told{double(plan), double(ending)};
        team->broadcast(told);
        plan = std::uint64_t(told[0]);
        ending = int(told[1]);
      }
      if (plan == 0) break;
      round = plan;

      // One round: blocks [next_block, next_block + round), this member's
      // share of them (all of them alone) taken by the threads in turn.
      struct block_out {
        internal::block_sums sums;
        bool done = false;
      };
      std::vector<block_out> blocks(round);
      std::vector<std::uint64_t> mine;
      for (std::uint64_t k = 0; k < round; ++k)
        if (!share_blocks || int((next_block + k) % std::uint64_t(members)) == me) mine.push_back(k);
      std::atomic<std::uint64_t> take{0}, walked{0};
      const std::uint64_t base = next_block;
      const std::uint64_t cap = options.max_walks;
      const std::uint64_t before = sums.samples;
      auto last_report = clock_type::now();
      auto work = [&](bool caller) {
        walker_state state;
        for (;;) {
          if (caller && options.progress && clock_type::now() - last_report > std::chrono::milliseconds(100)) {
            last_report = clock_type::now();
            extract_progress p;
            p.master = mi;
            p.master_count = masters.size();
            // Under shared blocks the others' walks of this round are not known yet: as many as this member's.
            p.walks = before + walked.load(std::memory_order_relaxed) * std::uint64_t(share_blocks ? members : 1);
            p.self_error = self_rel;
            p.goal = options.self_precision;
            p.seconds = std::chrono::duration<double>(last_report - run_start).count();
            options.progress(p);
          }
          const std::uint64_t taken = take.fetch_add(1);
          if (taken >= mine.size()) break;
          if (timed && clock_type::now() >= deadline) break;
          const std::uint64_t k = mine[taken];
          const std::uint64_t first_walk = (base + k) * block_walks;
          std::uint64_t count = block_walks;
          if (cap > 0 && first_walk + count > cap) count = cap > first_walk ? cap - first_walk : 0;
          internal::walk_random rng(options.seed, mi, base + k);
          block_out& out = blocks[k];
          if (media.uniform())
            for (std::uint64_t i = 0; i < count; ++i) out.sums.add(walk_once(setup, uniform, surface, rng, state));
          else
            for (std::uint64_t i = 0; i < count; ++i) out.sums.add(walk_once(setup, layered, surface, rng, state));
          out.done = true;
          walked.fetch_add(count, std::memory_order_relaxed);
        }
      };
      // The calling thread walks too, and reports progress between its blocks.
      std::vector<std::thread> pool;
      for (int t = 1; t < threads; ++t) pool.emplace_back(work, false);
      work(true);
      for (std::thread& t : pool) t.join();
      next_block += round;

      if (share_blocks) {
        // The blocks this member walked go to member 0, which puts every
        // member's in their places; a block that no member finished in time is missing.
        std::vector<double> out;
        for (std::uint64_t k : mine)
          if (blocks[k].done) blocks[k].sums.write(base + k, out);
        const std::vector<double> all = team->gather(out);
        if (leader) {
          const double* at = all.data();
          const double* const end = at + all.size();
          while (at < end) {
            internal::block_sums b;
            std::uint64_t number = 0;
            if (!b.read(at, end, columns, number) || number < base || number >= base + round)
              refuse("a process of the run sent block sums that do not fit the round");
            blocks[number - base] = block_out{std::move(b), true};
          }
        }
      }
      if (!decides) continue;
      for (const block_out& b : blocks) sums.add(b.sums);
      const bool all_done = std::all_of(blocks.begin(), blocks.end(), [](const block_out& b) { return b.done; });
      if (!all_done) out_of_time = true;

      internal::row_errors(sums, self, self_rel, coupling_rel);
      precise = sums.walks >= min_walks_for_test && self_rel <= options.self_precision &&
                coupling_rel <= options.coupling_precision;
      if (precise) continue;
      // The walks still needed, from the error's fall as one over the root of the count.
      const double ratio = std::max(self_rel / options.self_precision, coupling_rel / options.coupling_precision);
      std::uint64_t need = sums.samples;
      if (std::isfinite(ratio) && sums.walks >= min_walks_for_test)
        need = std::uint64_t(double(sums.samples) * (ratio * ratio * 1.05 - 1.0)) + 1;
      round = std::clamp<std::uint64_t>((need + block_walks - 1) / block_walks, first_round_blocks,
                                        std::max<std::uint64_t>(first_round_blocks, 4 * next_block));
    }

    if (!decides) continue;
    finished[mi] = std::make_unique<finished_master>(finished_master{std::move(sums), ending});
    if (!share_masters) report(mi);
  }

  if (share_masters) {
    // Every member's masters go to member 0, which reports them in order.
    std::vector<double> out;
    for (std::size_t mi = 0; mi < masters.size(); ++mi)
      if (finished[mi]) {
        out.insert(out.end(), {double(mi), double(finished[mi]->ending)});
        finished[mi]->sums.write(out);
      }
    const std::vector<double> all = team->gather(out);
    if (leader) {
      const double* at = all.data();
      const double* const end = at + all.size();
      while (at < end) {
        if (end - at < 2) refuse("a process of the run sent a master's sums cut short");
        const std::size_t mi = std::size_t(at[0]);
        const int ending = int(at[1]);
        at += 2;
        internal::master_sums sums(columns);
        if (mi >= masters.size() || ending < 0 || ending > 2 || !sums.read(at, end))
          refuse("a process of the run sent a master's sums that do not fit the run");
        finished[mi] = std::make_unique<finished_master>(finished_master{std::move(sums), ending});
      }
      for (std::size_t mi = 0; mi < masters.size(); ++mi) {
        if (!finished[mi]) refuse("no process of the run sent master " + masters[mi]->name);
        report(mi);
      }
    }
  }
  result.seconds = std::chrono::duration<double>(clock_type::now() - run_start).count();
  result.stopped_by = "precision";
  for (const std::string& s : result.master_stopped_by)
    if (s == "walks" && result.stopped_by == "precision") result.stopped_by = "walks";
  for (const std::string& s : result.master_stopped_by)
    if (s == "time") result.stopped_by = "time";
}

}  // namespace torva::internal
