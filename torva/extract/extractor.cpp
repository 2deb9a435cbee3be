#include "torva/extract/extractor.h"

#include <algorithm>
#include <atomic>
#include <chrono>
#include <cmath>
#include <memory>
#include <stdexcept>
#include <string>
#include <thread>
#include <unordered_map>
#include <unordered_set>

#include "torva/check/coincident.h"
#include "torva/extract/internal/dielectric_map.h"
#include "torva/extract/internal/gaussian_surface.h"
#include "torva/extract/internal/layered_walk.h"
#include "torva/extract/internal/straddle.h"
#include "torva/extract/internal/row_statistics.h"
#include "torva/extract/internal/search_choice.h"
#include "torva/extract/internal/walk.h"
#include "torva/extract/internal/refuse.h"
#include "torva/foundation/errors.h"
#include "torva/foundation/logger.h"
#include "torva/space/compact_index.h"
#include "torva/space/layout_fields.h"
#include "torva/space/space_manager.h"
#include "torva/tables/table_database.h"

namespace torva {
namespace {

using clock_type = std::chrono::steady_clock;

// Walks are run in blocks with a random stream each; a block is the unit a
// thread takes, and the sums are added in block order, so the matrix does not
// depend on the number of threads.
constexpr std::uint64_t block_walks = 256;
constexpr std::uint64_t first_round_blocks = 16;
// No error is trusted from fewer walks than this.
constexpr std::uint64_t min_walks_for_test = 2000;

using internal::refuse;

struct block_out {
  std::vector<walk_end> ends;
  bool done = false;
};

void warn(extract_result& result, const std::string& message) {
  sea::writer& w = *logger::instance().warning;
  w.print(("WARNING: " + message + "\n").c_str());
  w.flush();
  result.warnings.push_back(message);
}

void info(const std::string& message) {
  sea::writer& w = *logger::instance().info;
  w.print((message + "\n").c_str());
  w.flush();
}

// Blocks that repeat another of their net are dropped from the search (they
// add nothing but depth to a tree); blocks of two nets that coincide short
// the nets, and the layout is refused.
void merge_duplicates(circuit_layout& layout, extract_result& result) {
  coincident_blocks found = find_coincident_blocks(layout.blocks);
  if (!found.across.empty()) {
    const auto& [a, b] = found.across.front();
    refuse("nets " + a->net->name + " and " + b->net->name + " have coincident blocks: they would be one conductor");
  }
  if (found.repeats == 0) return;
  layout.blocks = std::move(found.kept);
  warn(result, std::to_string(found.repeats) + " blocks repeat another block of their net and were merged into it");
}

}  // namespace

extract_options extract_options_from_layout(const circuit_layout& layout) {
  extract_options o;
  const auto& d = layout.data;
  if (d.self_precision > 0) o.self_precision = d.self_precision;
  if (d.coupling_precision > 0) o.coupling_precision = d.coupling_precision;
  if (d.thread_num > 0) o.threads = d.thread_num;
  if (d.seed != 0) o.seed = std::uint64_t(std::int64_t(d.seed));
  if (d.c_ratio > 0 && d.c_ratio < 1) o.gauss_ratio = d.c_ratio;
  return o;
}

extract_result extract(circuit_layout& layout, const extract_options& options) {
  const auto setup_start = clock_type::now();
  extract_result result;
  const auto& data = layout.data;
  derive_layout_fields(layout);

  if (!(options.self_precision > 0) || !(options.coupling_precision > 0))
    refuse("the precisions must be positive");
  if (!(options.gauss_ratio > 0 && options.gauss_ratio < 1)) refuse("the Gaussian surface ratio must lie in (0, 1)");
  if (!(options.stop_ratio > 0 && options.stop_ratio < 1)) refuse("the stop ratio must lie in (0, 1)");
  if (data.wire_nets.empty() || layout.blocks.empty()) refuse("the layout has no conductors");
  merge_duplicates(layout, result);
  for (const wire_net& n : data.wire_nets)
    if (n.floating)
      refuse("net " + n.name + " is floating: the extractor does not model floating conductors yet");

  // Columns: every net in the layout's order, then the grounded window.
  const bool dirichlet = data.boundary == 1;
  walk_setup setup;
  for (const wire_net& n : data.wire_nets) {
    setup.net_index.emplace(&n, int(result.nets.size()));
    result.nets.push_back(n.name);
  }
  result.has_ground = dirichlet;
  if (dirichlet) {
    setup.ground = int(result.nets.size());
    // A net may be called GROUND itself; the window's column must not share its name.
    std::string ground = "GROUND";
    while (std::find(result.nets.begin(), result.nets.end(), ground) != result.nets.end()) ground += "_WINDOW";
    if (ground != "GROUND") warn(result, "a net is named GROUND: the grounded window's column is " + ground);
    result.nets.push_back(ground);
  }
  const std::size_t columns = result.nets.size();

  // Masters: as asked, else the layout's tasks (in the layout's order), else every net.
  std::vector<const wire_net*> masters;
  std::unordered_map<std::string, const wire_net*> by_name;
  for (const wire_net& n : data.wire_nets) by_name.emplace(n.name, &n);
  if (!options.masters.empty()) {
    for (const std::string& name : options.masters) {
      auto it = by_name.find(name);
      if (it == by_name.end()) refuse("no net named " + name + " in the layout");
      masters.push_back(it->second);
    }
  } else {
    for (const wire_net& n : data.wire_nets)
      if (data.capacitance_tasks.empty() || data.capacitance_tasks.count(n.name)) masters.push_back(&n);
    if (masters.empty()) refuse("none of the layout's tasks names a net of the layout");
  }

  std::vector<std::string> media_warnings;
  dielectric_map media =
      build_dielectric_map(layout, dielectric_settings{!options.keep_equal_interfaces}, media_warnings);
  if (options.uniform_permittivity > 0)
    media = dielectric_map{{}, {options.uniform_permittivity}};
  else
    for (const std::string& w : media_warnings) warn(result, w);
  result.dielectric = describe(media);
  result.permittivity = media.uniform() ? media.layer_eps.front() : 0.0;
  if (!(options.interface_step > 0 && options.interface_step < 1)) refuse("the interface step must lie in (0, 1)");
  if (options.table_refine < 2 || options.table_refine > 64 || options.table_refine % 2 != 0)
    refuse("the refinement of generated tables must be even, from 2 to 64");
  double smallest_edge = std::numeric_limits<double>::infinity();
  for (const wire_block* b : layout.blocks)
    for (int k = 0; k < 3; ++k)
      smallest_edge = std::min(smallest_edge, b->outer_box.upper[k].value - b->outer_box.lower[k].value);
  result.stop_distance = options.stop_ratio * smallest_edge;
  if (!(result.stop_distance > 0)) refuse("a conductor block has no extent");

  // The search structure: a pair that never answers more than the clearance.
  configure config;
  config.use_critical_box = dirichlet;
  config.thread_count = options.threads > 0 ? options.threads : int(std::max(1u, std::thread::hardware_concurrency()));
  config.group_dominance = options.group_dominance;
  config.group_optimize = options.group_optimize;
  config.double_incline_ratio = options.double_incline_ratio;
  config.spacemgr_type = internal::choose_search(layout, options.spacemgr_type, options.allow_unsafe_search ||
                                                     options.group_dominance || options.group_optimize ||
                                                     options.double_incline_ratio);
  if ((options.group_dominance || options.group_optimize || options.double_incline_ratio) && !options.allow_unsafe_search)
    refuse("the dominance and ratio settings may over-answer the clearance; they need the unsafe-search option");
  result.spacemgr_type = config.spacemgr_type;
  // One list answers no farther than the edge of the search space. Under a
  // Neumann window a walker is folded back at the walls and its cube may
  // reach past them, so a space that ended at the walls would hold walkers by
  // the wall for thousands of hops: there the list's space reaches a tenth of
  // the window beyond it. (The grids size their cells by this margin and keep it.)
  if (!dirichlet && config.spacemgr_type == 3) {
    double longest = 0.0;
    for (int k = 0; k < 3; ++k) longest = std::max(longest, data.window.upper[k].value - data.window.lower[k].value);
    layout.space_margin = std::max(layout.space_margin, 0.1 * longest);
  }
  space_manager space;
  std::unique_ptr<compact_index> compact;
  if (internal::compact_search(options.spacemgr_type, config.spacemgr_type)) {
    try {
      compact = std::make_unique<compact_index>(build_compact_index(config, layout));
      info("search: the compact index of grid-none-nd");
    } catch (const std::length_error&) {
      compact.reset();  // a cell or the overflow too large for it: the pair itself
    }
  }
  if (!compact) space.initialize(config, layout);

  table_database::single_oct_face_group first;
  first.fill_first_table();
  setup.space = space.get();
  setup.compact = compact.get();
  setup.window = data.window;
  setup.dirichlet = dirichlet;
  setup.critical = data.critical_box;
  setup.stop = result.stop_distance;
  setup.sampler.build(first.first_table);
  const auto importance = std::make_unique<internal::first_hop_sampler>(first.first_table);
  if (options.importance_first_hop) setup.first_hop = importance.get();
  const homogeneous_medium uniform{result.permittivity};
  // Cubes that straddle a plane need the two-layer tables of each pair of the stack.
  std::unique_ptr<internal::straddle_tables> straddle;
  if (options.walk == interface_walk::table && !media.uniform()) {
    std::vector<std::string> table_warnings;
    const internal::straddle_settings found{options.table_dir, table_generation{options.table_refine, true, config.thread_count}};
    straddle = std::make_unique<internal::straddle_tables>(internal::load_straddle_tables(media, found, table_warnings));
    for (const std::string& w : table_warnings) warn(result, w);
    result.dielectric += "; horizontal interfaces crossed by straddling cubes (" + straddle->source + ")";
  }
  const layered_medium layered{&media, 0.5 * result.stop_distance, options.interface_step, straddle.get()};

  std::vector<gaussian_surface> surfaces;
  for (const wire_net* m : masters)
    surfaces.push_back(build_gaussian_surface(layout, *m, gaussian_settings{options.gauss_ratio, dirichlet, media.planes}));
  result.setup_seconds = std::chrono::duration<double>(clock_type::now() - setup_start).count();

  const int threads = config.thread_count;
  result.threads = threads;
  result.seed = options.seed;
  result.self_precision = options.self_precision;
  result.coupling_precision = options.coupling_precision;

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
  return result;
}

}  // namespace torva
