// The flat grid cell of the non-cuboid family, beside a grid or tree of
// cuboids: cuboid blocks never reach it, not even to tighten its bound.
// incline_node<1> filters its list (tightening and dominance among the
// non-cuboids it holds); incline_node<2> keeps all it is offered.
//
// A crowded cell does not split: it halves the radius it vouches for
// (`decrease`), at most the grid's depth limit times, and drops the candidates
// whose exact solid lies beyond the new radius.
#pragma once

#include <cstdint>

#include "torva/space/flat_node.h"

namespace torva {

template <std::int64_t N>
struct incline_node : space_internal::flat_node<N, true> {};

}  // namespace torva
