// The flat grid cell of the plain grid: it takes blocks of every shape, each
// measured by its outer box, and (as base_grid_node<5>) keeps all that lie
// within its bound, with no tightening and no dominance.
//
// A crowded cell does not split: it halves the radius it vouches for
// (`decrease`), at most the grid's depth limit times, and drops the candidates
// whose exact solid lies beyond the new radius.
#pragma once

#include <cstdint>

#include "torva/space/flat_node.h"

namespace torva {

template <std::int64_t N>
struct base_grid_node : space_internal::flat_node<N, false> {};

}  // namespace torva
