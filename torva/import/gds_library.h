// What a GDSII stream holds, as the reader keeps it: the library's units and
// its cells, each with polygons grouped by (layer, datatype), text labels and
// references to other cells. Coordinates stay the stream's integers
// (database units); the reader turns BOX and PATH elements into polygons as it
// goes, so a cell holds only polygons, labels and references.
#pragma once

#include <compare>
#include <cstddef>
#include <cstdint>
#include <span>
#include <string>
#include <vector>

namespace torva {

// A point in database units.
struct gds_point {
  std::int64_t x = 0;
  std::int64_t y = 0;
  friend bool operator==(const gds_point&, const gds_point&) = default;
};

// A GDS layer and its datatype (for polygons) or texttype (for labels).
struct gds_layer {
  int layer = 0;
  int datatype = 0;
  friend auto operator<=>(const gds_layer&, const gds_layer&) = default;
};

// The polygons of one (layer, datatype), stored end to end: polygon i has
// the points [starts[i], starts[i + 1]). Every polygon has at least three
// points, no closing repeat of the first, and runs anticlockwise (a positive
// area) unless it has no area at all.
struct gds_polygons {
  gds_layer key;
  std::vector<gds_point> points;
  std::vector<std::size_t> starts{0};

  std::size_t size() const { return starts.size() - 1; }
  std::span<const gds_point> polygon(std::size_t i) const {
    return {points.data() + starts[i], starts[i + 1] - starts[i]};
  }
  void add(std::span<const gds_point> outline) {
    points.insert(points.end(), outline.begin(), outline.end());
    starts.push_back(points.size());
  }
};

// A TEXT element: its string at a point, on (layer, texttype).
struct gds_label {
  gds_layer key;
  gds_point at;
  std::string text;
};

// How a reference places its cell: reflection about the x axis first, then
// magnification, then rotation anticlockwise by angle degrees, then the move
// to the reference point.
struct gds_strans {
  bool reflect = false;
  double mag = 1.0;
  double angle = 0.0;
  bool absolute_mag = false;    // read, then treated as relative (with a warning)
  bool absolute_angle = false;  // likewise
};

// An SREF (columns = rows = 1) or an AREF. For an array, instance (c, r) sits
// at origin + c (column_end - origin) / columns + r (row_end - origin) / rows.
struct gds_reference {
  static constexpr std::size_t undefined = std::size_t(-1);
  std::string name;                 // the SNAME as written
  std::size_t cell = undefined;     // index into gds_library::cells, or undefined
  gds_strans transform;
  bool array = false;
  int columns = 1;
  int rows = 1;
  gds_point origin;
  gds_point column_end;
  gds_point row_end;
  std::uint64_t offset = 0;         // byte offset of the element in the stream
};

struct gds_cell {
  std::string name;
  std::vector<gds_polygons> shapes;  // one entry per (layer, datatype) used
  std::vector<gds_label> labels;
  std::vector<gds_reference> references;
  std::uint64_t offset = 0;          // byte offset of its BGNSTR

  gds_polygons& shapes_of(gds_layer key);
  std::size_t polygon_count() const;
};

struct gds_library {
  std::string name;
  double user_units_per_db = 0;   // UNITS, first value
  double metres_per_db = 0;       // UNITS, second value
  std::vector<gds_cell> cells;
  std::vector<std::string> warnings;  // also printed on the warning channel

  double um_per_db() const { return metres_per_db * 1e6; }
  // The index of the cell of that name, or gds_reference::undefined.
  std::size_t find(const std::string& cell) const;
};

}  // namespace torva
