// Flattening the hierarchy under one cell of a gds_library into polygons per
// (layer, datatype) and labels per (layer, texttype): what the import of a
// chip reads.
//
// The top cell is the one named, or else the one cell that no other cell
// references; none or several such cells is an error that lists them.
//
// A reference places its cell by reflection about x, then magnification, then
// rotation, then the move to its point; an array's instance (c, r) is moved
// further by c column vectors and r row vectors (each the array's span over
// its count, so rotated and skewed arrays come out as written). Transforms are
// composed in doubles and applied once to each point of a polygon. Where every
// placement on the way down is a whole-number matrix and offset (rotations by
// multiples of 90 degrees, whole magnifications, array vectors that divide
// evenly) the result is exact in integers; elsewhere each coordinate is
// rounded to the nearest database unit, half away from zero, and repeated
// points that rounding makes are dropped. Polygons stay anticlockwise
// (a reflection reverses their order of points back).
//
// Before anything is allocated the flattener checks the hierarchy for cycles
// (an error that names the cycle, "A -> B -> A"), its depth, and counts what
// the result would hold (instances times shapes, without overflow): a count
// over max_polygons or an estimate over max_bytes is refused with
// sea::fatal_error. Other failures are sea::file_error. Both come after an
// "ERROR: " line on the error channel.
#pragma once

#include <cstdint>
#include <functional>
#include <string>
#include <vector>

#include "torva/import/gds_library.h"
#include "torva/import/gds_reader.h"

namespace torva {

struct gds_flatten_options {
  std::string top;                           // empty: the one cell nobody references
  std::uint64_t max_polygons = 200'000'000;  // polygons of the flattened cell
  std::uint64_t max_bytes = std::uint64_t(8) << 30;  // its estimated memory
  int max_depth = 1000;                      // levels of reference below the top
  // Called about every 2^16 polygons while flattening, and once at the end.
  std::function<void(std::uint64_t done, std::uint64_t total)> progress;
};

// The flattened top cell. Coordinates in database units; um_per_db turns them
// into micrometres.
struct gds_flat_cell {
  std::string library;
  std::string top;
  double um_per_db = 0;
  double user_units_per_db = 0;
  std::vector<gds_polygons> layers;  // sorted by (layer, datatype), none empty
  std::vector<gds_label> labels;     // in the order met, depth first
  std::vector<std::string> warnings; // those of reading the library

  std::size_t polygon_count() const;
  // The polygons of one (layer, datatype), or null if it has none.
  const gds_polygons* find(gds_layer key) const;
};

// What the flattened cell would hold, as counted before it is built.
struct gds_flat_count {
  std::uint64_t polygons = 0;
  std::uint64_t points = 0;
  std::uint64_t labels = 0;
  std::uint64_t bytes = 0;  // estimate of the result's memory
};

// The index of the top cell by the rules above (a file_error if there is none).
std::size_t gds_top_cell(const gds_library& library, const std::string& name = "");

// Counts, checking for cycles and depth on the way (but not the limits).
gds_flat_count gds_count_flat(const gds_library& library, std::size_t top, int max_depth = 1000);

gds_flat_cell flatten_gds(const gds_library& library, const gds_flatten_options& options = {});

// Reads a file and flattens it: what the import of a chip calls.
gds_flat_cell read_gds_flat(const std::string& file, const gds_flatten_options& flatten,
                            const gds_read_options& read);

}  // namespace torva
