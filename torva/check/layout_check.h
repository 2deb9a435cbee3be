// The checks of a layout record as the reader left it: conductors with one
// name, tasks that name no conductor, no window or one of no size, numbers
// that are not finite, conductors without a solid, solids of no extent,
// blocks in the same place, conductors of two nets that overlap, floating
// conductors, blocks beyond the window, permittivities that are not positive.
// Each finding names the conductor and block (and, with the places a text
// scan found, the line of the conductor).
#pragma once

#include <cstddef>
#include <vector>

#include "torva/check/findings.h"
#include "torva/check/text_scan.h"
#include "torva/layout/records.h"

namespace torva {

struct layout_check_options {
  std::size_t limit = 20;  // findings listed of each kind
};

std::vector<finding> check_layout(const circuit_layout::raw& layout, const layout_places* places = nullptr,
                                  const layout_check_options& options = {});

}  // namespace torva
