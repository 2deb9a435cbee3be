// The outline of a GDSII PATH: a centre line of a width, with ends of one of
// four kinds. The outline is computed in doubles and each vertex rounded to
// the nearest database unit (half away from zero), with two rules that keep
// octilinear paths octilinear: the half-width offset of an axis-parallel
// segment is exact (for an even width), and that of a 45-degree segment is
// rounded to equal whole steps in x and y, as is the extension of its end.
// An octilinear path of even width therefore comes out with edges at exactly
// 0, 45 and 90 degrees, slightly narrower or wider on its diagonals (by less
// than one database unit).
//
// Joins are mitred. A turn sharper than 120 degrees (where the mitre would
// reach more than twice the half width out), or one whose inner corner would
// cut back past half of a neighbouring segment, is not mitred: the path is
// split there into two paths with flush ends at the vertex, and the wedge
// outside the turn is filled by a triangle (a bevel). Their union is the
// path; the pieces overlap.
//
// Ends: flush (type 0) stop at the end points; round (type 1) add a half disc
// of the half width, as a half polygon of round_end_segments segments whose
// vertices lie on the circle; extended (type 2) go on by half the width;
// custom (type 4) go on by their own extensions, which may be negative.
#pragma once

#include <cstdint>
#include <span>
#include <vector>

#include "torva/import/gds_library.h"

namespace torva {

enum class gds_path_ends { flush = 0, round = 1, extended = 2, custom = 4 };

struct gds_path_style {
  std::int64_t width = 0;  // > 0
  gds_path_ends ends = gds_path_ends::flush;
  std::int64_t begin_extension = 0;  // type 4 only
  std::int64_t end_extension = 0;
  int round_end_segments = 16;  // held to [2, 1024]
};

// Appends the path's polygons (one, or more where it was split; each
// anticlockwise, without a closing point) to out. A centre line of fewer
// than two distinct points or a width not above zero adds nothing and
// returns false.
bool gds_path_outline(std::span<const gds_point> centre, const gds_path_style& style,
                      std::vector<std::vector<gds_point>>& out);

// The signed area of a ring (positive when anticlockwise), summed exactly
// and rounded once to a double.
double gds_area(std::span<const gds_point> ring);

// Drops repeated consecutive points and a closing repeat of the first, and
// turns the ring anticlockwise; false if fewer than three points remain.
bool gds_normalize_ring(std::vector<gds_point>& ring);

}  // namespace torva
