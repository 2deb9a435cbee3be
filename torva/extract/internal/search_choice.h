// Which pair of search strategies the extractor builds. A walk's cube must
// never reach a conductor, so only pairs whose answer never exceeds the true
// clearance are chosen; and a walk's cost and variance both grow when the
// answer falls short of the clearance (cubes shrink to a cell's scope; the
// first hop's weight goes as one over its cube), so the pair should answer the
// clearance itself wherever it can. One list (simple-none, 3) does that
// exactly and serves below 50 blocks; above, the plain grid (grid-none-nd, 9)
// answers the clearance in its cells too, builds in seconds at a million
// blocks, and keeps its memory within about 2 GiB per million blocks (0.4 GiB
// at 100k) and no octree that coincident blocks could split without end. The
// hybrid pairs (5, 8) answer up to a few times less: on the polygons example
// they took 7 times the hops and 3 times the walks of 3 or 9 for the same
// error. Hybrid-grid (7) may answer more than the clearance and is refused
// without the unsafe-search option.
#pragma once

#include <cstdint>
#include <string>

#include "torva/extract/internal/refuse.h"
#include "torva/layout/records.h"
#include "torva/space/space_manager.h"

namespace torva::internal {

// Whether the walk asks the compact index in place of the pair: where the
// choice was left to the layout and fell on the plain grid, whose answers the
// index gives bit for bit, with fewer loads from memory per query. A pair
// named by the caller is built as it is.
inline bool compact_search(int requested, std::uint32_t chosen) {
  return (requested < 0 || requested == 10) && chosen == 9;
}

inline std::uint32_t choose_search(const circuit_layout& layout, int requested, bool allow_unsafe) {
  // One list serves small layouts; under a Neumann window it serves up to a
  // few thousand blocks, since the plain grid would hold walkers in its
  // million small cells (and at the box it measures from outside).
  if (requested < 0 || requested == 10) {
    const std::size_t one_list = layout.data.boundary == 1 ? 50 : 2000;
    return layout.blocks.size() < one_list ? 3 : 9;
  }
  if (requested > 10) {
    refuse("search pair " + std::to_string(requested) + " does not exist (0 to 10)");
  }
  if (requested == 7 && !allow_unsafe) {
    refuse("search pair 7 (hybrid-grid) may answer more than the clearance; it needs the unsafe-search option");
  }
  return std::uint32_t(requested);
}

}  // namespace torva::internal
