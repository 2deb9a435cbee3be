// Reading a GDSII stream file into a gds_library.
//
// The reader is the project's own. Debian's libgdsii was tried first and set
// aside: its flattened output keeps only the layer (datatypes, which the
// PDKs use to tell drawing from pin and label shapes, are merged), gives
// floating-point micrometres instead of database units, ignores the
// reflection of a reference, outlines a bent PATH wrongly, dies on
// std::bad_alloc for a corrupt record length, and flattens a cell that
// references itself to nothing without a word.
//
// Records read: HEADER, BGNLIB, LIBNAME, UNITS, BGNSTR, STRNAME, ENDSTR,
// BOUNDARY, BOX, PATH, SREF, AREF, TEXT, NODE, LAYER, DATATYPE, TEXTTYPE,
// BOXTYPE, WIDTH, PATHTYPE, BGNEXTN, ENDEXTN, XY, ENDEL, SNAME, STRANS, MAG,
// ANGLE, COLROW, STRING, ENDLIB. NODE elements, properties, PRESENTATION and
// the library's bookkeeping records are read over; a record of a type the
// reader does not know is skipped with a warning. Bytes after ENDLIB (block
// padding) are ignored.
//
// Shapes: BOUNDARY and BOX become polygons as they are; PATH becomes its
// outline (see gds_path.h). A polygon loses its closing point and repeated
// points and is turned anticlockwise. Warnings (counted, said once per kind,
// on the warning channel and in gds_library::warnings): a PATH of zero width
// (skipped), a shape with too few points (skipped), a negative (absolute)
// path width (taken as relative), a PATHTYPE other than 0, 1, 2 or 4 (read as
// 0), a reference to a cell the file does not define (skipped when
// flattening), an unknown record (skipped).
//
// Failures: sea::file_error after an "ERROR: " line, naming the file, the
// byte offset and the record: a stream cut short, a record length below 4,
// odd or past the end, a record of the wrong data type or too short for its
// values, a record out of place, a missing or non-positive UNITS, two cells
// of one name, an AREF whose COLROW is not positive or whose lattice is
// degenerate (a zero column or row vector with more than one column or row,
// or parallel vectors with more than one of both), a MAG that is not positive
// or an ANGLE that is not finite. Negative array vectors are accepted: that is
// how a stream writes an array running left or down.
#pragma once

#include <cstdint>
#include <functional>
#include <span>
#include <string>

#include "torva/import/gds_library.h"

namespace torva {

struct gds_read_options {
  // Segments of each semicircular end of a round-ended PATH (type 1).
  int round_end_segments = 16;
  // A file larger than this is refused before it is read (bytes).
  std::uint64_t max_file_bytes = std::uint64_t(4) << 30;
  // Called now and then while reading: bytes read and the file's size.
  std::function<void(std::uint64_t done, std::uint64_t total)> progress;
};

gds_library read_gds(const std::string& file, const gds_read_options& options = {});
// The same from bytes in memory; name stands for the file in messages.
gds_library read_gds_bytes(std::span<const std::uint8_t> bytes, const std::string& name,
                           const gds_read_options& options = {});

}  // namespace torva
