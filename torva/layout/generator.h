// Synthetic cap3d layouts for tests and benchmarks.
//
// A layout is first generated as a plain description (`generated_layout`):
// metal layers of straight wires, each wire a conductor made of segments that
// abut end to end, on a lattice of integer length units. The description is
// then written as cap3d text, or built directly into a `circuit_layout` the way
// the text reader would build it from that text, so that search structures can
// be tested and measured without the reader. Further writers (a binary one,
// say) work from the same description.
//
// Kinds:
// - bus: every layer runs along x; wires of width 0.2 at pitch 0.4, segments
//   of length 4.
// - crossing: as bus, but layers alternate between x and y.
// - mixed: crossing, with a random width (0.1 to 0.3), spacing (0.15 to 0.3)
//   and segment length (1 to 8) for every wire.
// Each segment becomes, by the shares, a polygon (a wire with a notch, a
// chamfered end or a trapezoid outline), a cylinder standing in the segment, a
// block with a side taper, or else a plain box. Wires of one layer are parallel
// and apart; solids of different layers are apart in z. With `media`, a plate
// medium lies under every layer and over the last, and each layer gets a thin
// cap dielectric over it; one trapezoid dielectric polygon is added.
//
// All lengths are exact multiples of 1/1000, printed with three decimals, so
// that the numbers the reader gets back are the very doubles that the in-memory
// builder uses. The same parameters always give the same layout.
#pragma once

#include "torva/layout/generated_build.h"
#include "torva/layout/generated_layout.h"
#include "torva/layout/generated_text.h"

namespace torva {

// Makes the description. Shares are clamped to [0, 1] and taken in the order
// polygon, cylinder, incline; `layers` below 1 counts as 1.
generated_layout generate_layout(const generator_params& params);

}  // namespace torva
