// Embree 3's BVH point query over the conductor blocks of a layout: the
// baseline that the search structures are measured against. A callback
// measures each block that the BVH offers with the library's signed
// maximum-norm distance, so the answer is the exact nearest distance.
// Used by the benchmarks and the torva program only; the library never links
// Embree.
#pragma once

#include <embree3/rtcore.h>

#include <cstddef>
#include <vector>

#include "torva/foundation/point.h"
#include "torva/layout/records.h"

namespace torva {

struct embree_index {
  RTCDevice device = nullptr;
  RTCScene scene = nullptr;
  const std::vector<wire_block const*>* blocks = nullptr;

  embree_index() = default;
  embree_index(const embree_index&) = delete;
  embree_index& operator=(const embree_index&) = delete;
  ~embree_index() { release(); }

  void release();
  // Builds the BVH over the blocks' outer boxes (rounded outwards to float) on
  // one or more threads. `all` must outlive the index.
  void build(const std::vector<wire_block const*>& all, int threads);
  // The exact nearest distance from p, no more than limit; `visited`, when
  // given, grows by the number of blocks measured.
  double nearest(const point3& p, double limit, std::size_t* visited = nullptr) const;
};

}  // namespace torva
