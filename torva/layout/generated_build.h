// A generated layout (generated_layout.h) built into layout records without
// the reader, exactly as the reader would build them from its text.
#pragma once

#include "torva/layout/generated_layout.h"
#include "torva/layout/records.h"

namespace torva {

// How the reader is asked to read the text, which the in-memory build follows.
struct build_options {
  int incline_slices = 4;     // slices of a conductor block with a side_tan
  bool cuboids_only = false;  // cylinders and polygon pieces of conductors become boxes
};

// Appends to `raw` exactly what reading the text of `layout` would: the same
// records with the same numbers, in the same order.
void build_layout(const generated_layout& layout, circuit_layout::raw& raw, const build_options& options = {});

// build_layout into `circuit.data`, then the fields a client derives: `blocks`
// lists every conductor block, `critical_box` is the window, `cuboid_size` and
// `prism_size` count blocks of shape_kind 0 and of the other kinds. The other
// derived fields (space_margin, crowding_ratio, coarse_grid) keep their values.
void build_circuit(const generated_layout& layout, circuit_layout& circuit, const build_options& options = {});

}  // namespace torva
