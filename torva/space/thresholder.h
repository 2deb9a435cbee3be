// The two run-time limits of a tree or of a flat grid: how many candidates a
// leaf may hold before it splits (or a flat cell before it halves its scope),
// and how deep that may go. The template arguments are only the defaults that
// replace a negative setting.
#pragma once

#include <cstdint>

namespace torva {

template <std::int32_t Count, std::int32_t Depth>
struct thresholder {
  static constexpr std::int32_t default_count = Count;
  static constexpr std::int32_t default_depth = Depth;

  std::int32_t count = Count;  // a leaf with more candidates than this splits
  std::int32_t depth = Depth;  // only a leaf of depth up to this splits

  // Takes the two settings as the run gives them; a negative one selects the default.
  void set(std::int32_t max_candidates, std::int32_t max_depth) noexcept {
    count = max_candidates < 0 ? Count : max_candidates;
    depth = max_depth < 0 ? Depth : max_depth;
  }
};

}  // namespace torva
