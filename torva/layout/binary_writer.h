// Writes a layout record as a binary cap3d file, so that a text layout can be
// converted (read it with Cap3dParser, write the record here) and tests can
// make binary files of any shape.
//
// What the file holds, in this order:
//   the 12 bytes "CAP3D_BINARY" and the byte-order flag (0, or 1 with
//   `swapped`: 16- and 32-bit integers byte-swapped, floats and doubles never);
//   a record of type 0 with `note`, if one is given (readers skip it);
//   the window (type 3), if the record has one (see below);
//   the layers (type 2);
//   the parameters (type 4), unless `parameters` is off;
//   the dielectrics in the order of `medium_nets`: a plate medium record
//   (type 1) where a net stands for a plate medium, else a medium (types 6,
//   10/11, 7);
//   the conductors in the order of `wire_nets` (types 8, 10/11, 9);
//   the capacitance tasks (type 5), sorted by name.
// Every record stays below 32768 bytes, every name below 1024 bytes.
//
// How the record maps onto the format, where the two do not match one to one:
// - Nets. With `begin_records` (the default) each net is a begin record, its
//   solids and an end record; reading it gives the net even with no solid.
//   Without, the solids come first and the end record alone makes the net:
//   a net with no solid then vanishes.
// - Solids. A cuboid is a block record, a prism a polygon record of its
//   vertices (the reader decomposes it again, which leaves a convex
//   anticlockwise piece as it is; a dielectric polygon that the text reader
//   took as it stood, such as a triangle closed on its first vertex or a
//   clockwise outline, comes back repaired). The binary form holds no cylinder: one is
//   written as the block of the square of equal area about its axis, over its
//   height, exactly what a reader makes of a cylinder when only cuboids are
//   wanted. The count is in the summary and one line on logger::warning says so.
// - Dielectric blocks lose their side tan (the format has no field for it) and
//   are written with no name and layer -1.
// - Plate media. A text read adds a medium_net for each plate medium; a net
//   with no blocks whose name and permittivity match the next plate medium is
//   written as that plate medium's record and not again as a medium. Plate
//   media that no net matches are written after the dielectrics.
// - Window. The text reader sets `boundary` to 1 or 2 whenever it reads a
//   window; a record whose `boundary` is neither has no window and none is
//   written (a window record would set the boundary).
// - Layers. A layer record always stores its (id, name) and its wmin, while the
//   record keeps names, types and wmins in three unlinked stores. One record is
//   written for each (id, name) with the type of that name; then one for each
//   typed name not yet written, under the smallest id already written (which
//   the reader keeps on its first name); the wmins are given to these records
//   in order, and further wmins get records of their own under that id with no
//   type. Records beyond the wmins carry -1, which a reader stores: a layout
//   with fewer wmins than layer names reads back with -1 values added. With no
//   id at all the id used is -1, which a reader stores as a layer name. Type
//   words other than "dielectric", "interconnect", "via" and "substrate" are
//   dropped.
// - Parameters are floats (c-ratio and the other ratios and precisions,
//   outmincap), so they come back in single precision; `thread_num` is cut to
//   16 bits, `spice` and `walk_type` to a signed byte. Every parameter is
//   written, so a reader ends with the record's values whatever it held, but
//   for an empty log-file or out-file name, which is left out.
// - Permittivities and plate heights: permittivities are floats, heights doubles.
// - Lengths are written as the low corner and the edge lengths (upper - lower),
//   and a prism as its bottom and height (top - bottom); a reader adds them
//   back, which may differ from the original in the last bit.
//
// A name of 1024 bytes or more, or a log-file or out-file name above 127 bytes,
// can't be written: the line "ERROR: (Binary) name too long for a binary cap3d
// file: <first 64 bytes>" goes to logger::error and sea::fatal_error "BINARY
// WRITE ERROR.\n" is thrown, with nothing written for that record on.
#pragma once

#include <cstdint>
#include <string>

#include "torva/foundation/writer.h"
#include "torva/layout/generator.h"
#include "torva/layout/records.h"

namespace torva {

struct binary_write_options {
  bool begin_records = true;  // nets as begin record, solids, end record
  bool swapped = false;       // flag 1: integers byte-swapped
  bool parameters = true;     // write the parameter record
  std::string note;           // if not empty, a leading record of type 0 with this text
};

struct binary_write_summary {
  std::uint64_t records = 0;
  std::uint64_t bytes = 0;                 // the whole file, header included
  std::uint64_t cylinders_as_cuboids = 0;  // cylinders written as equal-area blocks
};

// Writes the file on `out`.
binary_write_summary write_binary(const circuit_layout::raw& layout, sea::writer& out,
                                  const binary_write_options& options = {});

// The file as a string of bytes.
std::string to_binary(const circuit_layout::raw& layout, const binary_write_options& options = {});

// Writes the file at `path` (replacing it). A file that cannot be opened, or a
// short write, is reported on logger::error and thrown as sea::file_error.
binary_write_summary write_binary_file(const circuit_layout::raw& layout, const std::string& path,
                                       const binary_write_options& options = {});

// A generated layout as a binary file: built into a record exactly as the text
// reader would read its text with `build` (build_layout), then written. Its
// cylinders, if any, become blocks of equal area (see above).
binary_write_summary write_binary_file(const generated_layout& layout, const std::string& path,
                                       const build_options& build = {}, const binary_write_options& options = {});

// Reads the text layout at `text_path` and writes it as a binary file at
// `binary_path`. The text is read as a client would, with `incline_slices`
// slices and cylinders kept; false if the text can't be read (the reader has
// said why on logger::error), and nothing is written then.
bool convert_text_to_binary(const std::string& text_path, const std::string& binary_path,
                            const binary_write_options& options = {}, int incline_slices = 4);

}  // namespace torva
