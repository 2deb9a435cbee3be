// The walks of a run once it is set up: for each master, rounds of blocks of
// walks taken by the threads until its precision, walk count or time is
// reached; shared with the other processes of a team, by whole masters or by
// the blocks of each round; each master's row then goes into the result.
#pragma once

#include <cstddef>
#include <vector>

#include "torva/extract/extractor.h"
#include "torva/extract/internal/dielectric_map.h"
#include "torva/extract/internal/gaussian_surface.h"
#include "torva/extract/internal/layered_walk.h"
#include "torva/extract/internal/walk.h"

namespace torva::internal {

// Fills the rows of `result` (on member 0 of a team; the others keep none),
// its walking time and what stopped it. `columns` counts the nets and the
// grounded window; `surfaces` are the masters' Gaussian surfaces, in order.
void run_masters(const extract_options& options, const walk_setup& setup, const std::vector<const wire_net*>& masters,
                 const std::vector<gaussian_surface>& surfaces, const dielectric_map& media,
                 const homogeneous_medium& uniform, const layered_medium& layered, std::size_t columns, int threads,
                 extract_result& result);

}  // namespace torva::internal
