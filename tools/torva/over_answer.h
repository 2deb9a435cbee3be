// Answers of a search pair that claim more room than there is. One pair,
// hybrid-grid (7), may give them by its design: its flat cells measure a
// prism by its box, which can tighten a cell's bound past the prism itself,
// and the cell then answers up to its scope beyond it. index --check and query
// label such answers of that pair instead of reporting a fault; from any
// other pair, and any answer that names a block not at the distance it
// claims, they stay a fault.
#pragma once

#include "space_tools.h"

namespace torva::cli {

// The pair built may answer more than the clearance.
bool may_over_answer(const built_index& index);

// The answer is more than the true clearance, within the limit, and names
// no block, or one at the distance it claims.
bool over_answers(const circuit_layout& layout, const point3& p, const nearest_result& r, double limit);

}  // namespace torva::cli
