// What index, query and bench share: a layout made ready for search, a built
// space manager with the figures of its building, brute force for checking,
// and points to ask about.
#pragma once

#include <cstdint>
#include <memory>
#include <random>
#include <string>
#include <vector>

#include <CLI/CLI.hpp>

#include "cli_common.h"
#include "torva/foundation/configure.h"
#include "torva/layout/records.h"
#include "torva/space/space_manager.h"

namespace torva::cli {

// Strategy value 10 lets the library choose a pair by the layout's size.
inline constexpr unsigned strategy_auto = 10;

// The settings of the search structures that the subcommands offer.
struct index_options {
  unsigned strategy = strategy_auto;
  int threads = 0;              // grid build threads; 0: the layout's thread-num, at least 1
  int max_candidates = -1;      // negative: the library's defaults
  int max_depth = -1;
  bool critical_box = false;    // answer by the window wall outside the box that holds the blocks
  bool group_dominance = false;
  bool group_optimize = false;
  bool double_incline_ratio = false;
  bool decrease = false;
  read_options read;
};

// Adds the options above to a subcommand; `with_strategy` adds --strategy.
void add_index_options(CLI::App& sub, index_options& o, bool with_strategy);

// A layout read and with its derived fields, ready to be indexed.
struct ready_layout {
  loaded_layout in;
  double derive_seconds = 0.0;
  const circuit_layout& layout() const { return *in.layout; }
};
ready_layout prepare_layout(const std::string& path, const index_options& o);

// The configure of a pair of search strategies under these settings.
configure configure_for(const index_options& o, unsigned strategy);

// A built space manager; the configure lives beside it, as the manager keeps a
// pointer to it. Not movable once built: held by unique_ptr.
struct built_index {
  configure config;
  space_manager manager;
  double seconds = 0.0;
  std::uint64_t heap_bytes = 0;  // heap in use after the build, less before
  std::string log;               // the library's info lines of the build
  std::string pair;              // e.g. "simple-none", from the log
};
// Throws input_error for a strategy the library did not build.
std::unique_ptr<built_index> build_index(const circuit_layout& layout, const index_options& o, unsigned strategy,
                                         bool show_progress);

// Heap bytes in use by the process (glibc's count, small and large blocks).
std::uint64_t heap_in_use();

// The nearest block by measuring every block.
struct brute_answer {
  double distance = 1e300;
  wire_block const* block = nullptr;
};
brute_answer brute_nearest(const circuit_layout& layout, const point3& p);

// How one answer of the manager compares with brute force:
// exact:  the distance is the true one (0 on a conductor), and a named block is at it;
// reach:  no block is named and the distance is the reach of the lists asked
//         (`reach`, the smaller scope of the two caches) or the distance to the
//         window's wall, with no block nearer: the structures answer so by design;
// short:  any other answer below the truth: safe for a walker, which steps less far;
// wrong:  the answer claims more room than there is, or names a block that is
//         not at the distance it claims.
enum class verdict { exact, reach, short_of, wrong };
verdict judge(const circuit_layout& layout, const point3& p, const nearest_result& r, double limit, double reach);

// The reach of the lists the caches hold for the point they last served.
double reach_of(const candidate_list_cache& first, const candidate_list_cache& second);

// A point drawn uniformly from the window (the blocks' box when the window is empty).
point3 random_point(const circuit_layout& layout, std::mt19937_64& rng);
cuboid_t sampling_box(const circuit_layout& layout);

// "(x, y, z)" with %g.
std::string point_text(const point3& p);

// The net and block names of a block, "net/block".
std::string block_text(const wire_block* b);

}  // namespace torva::cli
