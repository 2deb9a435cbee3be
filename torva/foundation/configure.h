// The run's settings as the library reads them. The client fills it (from the
// layout's parameters and its own command line) and keeps it alive as long as
// any space manager built from it. The plain constructor gives negative limits
// (the library's defaults), false flags and empty strings.
#pragma once

#include <cstdint>
#include <string>

namespace torva {

struct configure {
  std::uint32_t spacemgr_type = 0;        // strategy value 0..10 (10: automatic)
  std::int32_t max_candidates = -1;        // leaf/cell candidate limit; negative: 20
  std::int32_t max_depth = -1;             // tree depth / halvings; negative: per strategy
  std::int32_t incline_max_candidates = -1;
  std::int32_t incline_max_depth = -1;
  bool group_dominance = false;            // dominance piece by piece
  bool group_optimize = false;             // dominance by merged intervals
  bool double_incline_ratio = false;       // non-cuboid candidates get ratio 2
  double octree_scope_ratio = 0.5;         // child scope share of its parent's (depth < 6); must be positive
  bool decrease_enabled = false;           // crowded flat cells halve their scope
  std::int32_t thread_count = -1;          // grid build threads; below 1: the layout's thread_num
  bool use_critical_box = false;
  std::uint32_t walk_scheme = 0;           // above 2: no tables beyond the first
  std::uint32_t table_mode = 0;
  std::string table_dir;
  std::string table_dir_two;
  std::string table_dir_multi;
  std::string table_dir_equal;

  configure() = default;
};

}  // namespace torva
