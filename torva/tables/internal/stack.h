// Reading the length of a dielectric stack.
#pragma once

#include "torva/tables/dielectric_layers.h"

namespace torva::internal {

// n, the length of layer_slots (0 without a stack). Throws sea::fatal_error,
// after a line on logger::error, when diels is too short for the interfaces
// that n speaks of.
long stack_size(const dielectric_layers* layers);

}  // namespace torva::internal
