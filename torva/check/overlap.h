// Conductor blocks of two nets that overlap with some volume: the two nets
// would be one conductor. Candidates come from a tree of the blocks' boxes,
// so the search costs about n log n plus the pairs whose boxes meet, never all
// pairs; each candidate is then tested on the solids themselves (boxes,
// convex prisms, cylinders), so blocks that only touch are no overlap.
#pragma once

#include <cstddef>
#include <utility>
#include <vector>

#include "torva/layout/records.h"

namespace torva {

// Whether two solids share a volume thicker than `tolerance` every way.
bool solids_overlap(const shape_t& a, const shape_t& b, double tolerance = 1e-10);

struct overlap_search {
  std::vector<std::pair<const wire_block*, const wire_block*>> pairs;  // at most the number asked for
  std::size_t count = 0;                                               // all pairs found
};

// Pairs of blocks of different nets that overlap, the earlier block of the
// list first. Blocks of one net may overlap freely; blocks that are the same
// solid (coincident_blocks) are left to that check.
overlap_search find_overlaps_across_nets(const std::vector<const wire_block*>& blocks, std::size_t max_pairs = 20);

}  // namespace torva
