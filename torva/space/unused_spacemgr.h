// The second strategy of a pair that holds all blocks in its first: an empty
// list of kind spacemgr_none, whose fixed answer (no block, 1e9) never wins.
#pragma once

#include "torva/foundation/configure.h"
#include "torva/foundation/point.h"
#include "torva/layout/records.h"
#include "torva/space/candidate_list.h"

namespace torva {

struct unused_spacemgr {
  candidate_list list;

  void initialize(const configure&, const cuboid_t&, const circuit_layout&) noexcept { list.kind = spacemgr_none; }

  candidate_list const* find_list(const point3&) const noexcept { return &list; }
};

}  // namespace torva
