// How much memory a pair of search strategies will take for a layout, told
// before it is built, so that a program can pick another pair or stop with a
// message instead of running out of memory.
//
// Trees are what can run away: a leaf with more candidates than its limit
// splits, and where many blocks crowd a small place (copies of one block, the
// pieces of a round pad cut into slivers that meet at a point, the pieces of a
// polygon that crosses itself) every leaf there keeps too many down to the
// depth limit, and their number doubles or more with each level.
//
// The estimate counts the pair's structures as they would be built: the
// grids' cells as the library sizes them, and each tree node by node, its
// blocks offered in the build's order, each tightening the node's bound (to
// twice the half size plus its distance, as a list's does), and a leaf
// splitting as soon as it holds more than its limit, as the build's leaves do
// (a leaf crowded before a near block tightens it has split all the same). It
// leaves out the dominance tests that thin a real list, so it counts at least
// as many candidates, and so at least as many splits, as the build makes: in
// all but rare layouts it errs high. A leaf counts the capacity its list grew
// to (the largest it held, to the next power of two), not what it keeps: the
// build trims its lists only at the end, so that is the heap at its fullest,
// and the allocator keeps it resident after the trim. Flat cells count every
// block their scope reaches. Counting stops as soon as the total
// passes the budget, so an estimate costs no more than the budget lets it.
#pragma once

#include <cstdint>
#include <string>

#include "torva/foundation/configure.h"
#include "torva/layout/records.h"

namespace torva {

struct search_memory_estimate {
  std::uint64_t bytes = 0;  // the structures' heap at its fullest, counted up to where it stopped
  bool over_budget = false; // stopped because `bytes` passed the budget
};

// `config.spacemgr_type` 0 to 9 (10: the automatic choice is settled first).
// The layout's derived fields (layout_fields.h) must be in place.
search_memory_estimate estimate_search_memory(const circuit_layout& layout, const configure& config,
                                              std::uint64_t budget);

}  // namespace torva
