// Writes a layout record as cap3d text that the text reader reads back to the
// same record: every field the text form can carry, the window's boundary
// among them, and every number in the shortest form that reads back to the
// same double (std::to_chars). This is what a binary layout is converted to;
// the reader's own dump of a binary file prints "%.6f" and no boundary, and
// stays as it is.
//
// How the record maps onto the text, where the two do not match one to one:
// - A block is written as its base point and edge vectors; an edge is chosen
//   so that base + edge gives the upper corner to the last bit (the plain
//   difference, nudged by an ulp where rounding needs it).
// - A prism is a <poly> with absolute vertices under a base point of (0, 0,
//   bottom); the reader's decomposition leaves a convex anticlockwise piece
//   as it is. A cylinder is a <block> with radius and twice its half height.
// - Block names come back whole and layers as they are, since every block
//   carries its "layer"; parameters are written where they differ from 0.
// - Layers: one <layer> for each (id, name) with the type of that name, one
//   for each typed name without an id, and the wmins on these in order (a
//   further one repeats the first layer's name and type, which adds only its
//   wmin).
// - A dielectric triangle comes back as the text reader makes one, closed on
//   its first vertex: the same solid under four vertices.
// - Plate media: a medium net with no blocks whose name and permittivity match
//   the next plate medium is written as that <plate_medium> (which makes both).
//
// What the text form cannot carry is written as near as it can and named in
// the summary, one line per kind with the count and the first case: a name
// that is empty where the reader would not leave it so, or that holds a
// separator, a comment opening or (for a block) an "@"; a block layer of -1;
// a wmin of -1 before another wmin; a layer id or wmin with no typed name to
// carry it; a dielectric cylinder or prism of other than 3 or 4 vertices; a
// conductor prism of more than 4 vertices; a spice value other than 0 or 1;
// an edge no double offset reproduces; a window without a boundary; a plate
// medium without its net.
#pragma once

#include <cstdint>
#include <string>
#include <vector>

#include "torva/foundation/writer.h"
#include "torva/layout/records.h"

namespace torva {

struct text_write_summary {
  std::uint64_t bytes = 0;
  std::vector<std::string> losses;  // empty when the text reads back to the same record
};

// Writes the text on `out`, after `comment` (if any) as "// " lines before
// <cap3d>, where a tool says where the layout came from.
text_write_summary write_text(const circuit_layout::raw& layout, sea::writer& out, const std::string& comment = "");

// The text as a string.
std::string to_text(const circuit_layout::raw& layout, text_write_summary* summary = nullptr);

// Writes the text at `path` (replacing it). A file that cannot be opened, or a
// short write, is reported on logger::error and thrown as sea::file_error.
text_write_summary write_text_file(const circuit_layout::raw& layout, const std::string& path,
                                   const std::string& comment = "");

}  // namespace torva
