// Shared by the reader and the validator of process stacks.
#pragma once

#include <string>

#include "torva/import/process_stack.h"

namespace torva::stack_detail {

// Throws sea::file_error "stack ORIGIN: FIELD: WHAT" (no field: "stack ORIGIN: WHAT").
[[noreturn]] void fail(const std::string& origin, const std::string& field, const std::string& what);
// A number as a person would write it: 0.1, -0.1, 4.0211, 1e-05.
std::string num(double v);
std::string pair_text(gds_pair p);

// The checks between fields: heights, joins, the tiling of the planar layers,
// GDS pairs claimed twice. Fields are named as in the file.
void check_stack(const process_stack& stack, const std::string& origin);

}  // namespace torva::stack_detail
