// Writes a layout record as cap3d text, so that an imported cell can be kept
// in the readable form (the binary form has its own writer,
// torva/layout/binary_writer.h). Reading the text back gives the same nets,
// blocks, media, window, layers and tasks; a box comes back as its low
// corner plus its edges, which may differ from its high corner in the last
// bit.
//
// What is written, in this order: an optional comment, <window> (when the
// record's boundary is 1 or 2), one <layer> per layer id with the type of its
// name, <parameter> with the values that are set (not zero or empty), the
// plate media, the dielectric bodies that have blocks, the conductors, and
// <task>. Numbers are the shortest decimals that read back to the same
// double. A conductor block keeps its name and layer; a dielectric block has
// neither. Prisms are <poly> sections over their vertices (a dielectric prism
// has at most four, which the reader takes as they are); cylinders of
// conductors are <block> with radius and height.
#pragma once

#include <string>

#include "torva/foundation/writer.h"
#include "torva/layout/records.h"

namespace torva {

void write_cap3d_text(const circuit_layout::raw& layout, sea::writer& out, const std::string& comment = "");

// The same into a file (replacing it). A file that cannot be opened or
// written is reported on logger::error and thrown as sea::file_error.
void write_cap3d_text_file(const circuit_layout::raw& layout, const std::string& path, const std::string& comment = "");

}  // namespace torva
