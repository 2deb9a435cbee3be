#include "torva/extract/extractor.h"

#include <algorithm>
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
#include "torva/extract/internal/search_choice.h"
#include "torva/extract/internal/walk.h"
#include "torva/extract/internal/master_runs.h"
#include "torva/extract/internal/run_messages.h"
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

using internal::info;
using internal::refuse;
using internal::warn;

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

  internal::run_masters(options, setup, masters, surfaces, media, uniform, layered, columns, threads, result);
  return result;
}

}  // namespace torva
