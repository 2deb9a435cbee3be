// A scan of a binary layout for what the records show before the reader cuts
// them: polygon outlines that cross themselves, each with its record (its
// number and byte offset) and the conductor or medium it belongs to. The
// reader cuts every polygon into convex pieces, and the pieces of an outline
// that crosses itself overlap.
#pragma once

#include <string_view>
#include <vector>

#include "torva/check/findings.h"

namespace torva {

std::vector<finding> scan_layout_binary(std::string_view bytes, std::size_t limit = 20);

}  // namespace torva
