// <block> and <poly> sections of the text form. They only add shapes to the
// pending vectors; the closing of the conductor or medium files them.
#include <algorithm>
#include <cmath>
#include <vector>

#include "torva/foundation/logger.h"
#include "torva/geometry/convex_decomposition.h"
#include "torva/layout/cap3d_parser.h"
#include "torva/layout/internal/shapes.h"
#include "torva/layout/internal/words.h"

namespace torva {

using internal::same;

bool Cap3dParser::parseBlock(unsigned int& i) {
  std::string name;
  point3 base;
  double xlen = 0.0;
  double ylen = 0.0;
  double zlen = 0.0;
  double side_tan = 0.0;
  short layer = -1;
  double radius = -1.0;       // -1: no radius given, the block is a box
  double half_height = -1.0;

  for (;; ++i) {
    if (i >= words.size()) return endOfWords();
    const std::string_view w = words[i];
    if (same(w, "</block>")) break;
    if (same(w, "name")) {
      if (!haveValues(i, 1)) return endOfWords();
      name = parseString(words[++i]);
    } else if (same(w, "basepoint")) {
      if (!haveValues(i, 3)) return endOfWords();
      for (int c = 0; c < 3; ++c) base[c] = parseDouble(words[++i]);
    } else if (same(w, "v1") || same(w, "v2") || same(w, "hvector")) {
      // Only the diagonal of the three edge vectors counts: a block is
      // always axis-aligned.
      if (!haveValues(i, 3)) return endOfWords();
      const int axis = w[0] == 'h' ? 2 : w[1] - '1';
      double& length = axis == 0 ? xlen : axis == 1 ? ylen : zlen;
      for (int c = 0; c < 3; ++c) {
        const double value = parseDouble(words[++i]);
        if (c == axis) length = value;
      }
    } else if (same(w, "side_tan")) {
      if (!haveValues(i, 1)) return endOfWords();
      side_tan = parseDouble(words[++i]);
    } else if (same(w, "rho") || same(w, "radius") || same(w, "height")) {
      if (!(state & in_conductor)) return syntaxError(words[i]);
      if (!haveValues(i, 1)) return endOfWords();
      const char* value = words[++i];
      if (w[0] == 'r' && w[1] == 'a') radius = parseDouble(value);
      else if (w[0] == 'h') half_height = parseDouble(value) * 0.5;
      // the resistivity is not used
    } else if (same(w, "layer")) {
      if (!haveValues(i, 1)) return endOfWords();
      layer = static_cast<short>(parseInt(words[++i]));
    } else {
      return syntaxError(words[i]);
    }
  }

  const point3 far{base[0] + xlen, base[1] + ylen, base[2] + zlen};
  if (state & in_medium) {
    // A dielectric block keeps its side tan and is never sliced.
    addPending(make_cuboid_shape(cuboid_t{base, far}), side_tan, name, layer);
    return true;
  }
  if (!(state & in_conductor)) return syntaxError(words[i]);

  if (std::fabs(1.0 + radius) >= 1e-10) {
    // A cylinder about the vertical axis through the base point, which is
    // also its middle in z. Its side tan is dropped.
    if (cuboids_only) {
      addPending(internal::make_equal_area_cuboid_shape(base, radius, half_height), 0.0, name, layer);
    } else {
      addPending(internal::make_cylinder_shape(cylinder_t{base, radius, half_height}), 0.0, name, layer);
    }
    return true;
  }

  if (side_tan == 0.0) {
    addPending(make_cuboid_shape(cuboid_t{base, far}), 0.0, name, layer);
    return true;
  }

  // A leaning block: horizontal slices, bottom first, each centred on the
  // block's vertical axis, growing by side_tan with height.
  // Counts are carried as doubles (exact for any int) so that no product of
  // them can overflow.
  const int slices = incline_slices;
  const double n = slices;
  const double h = zlen;
  const double t = side_tan;
  for (int slice = 1; slice <= slices; ++slice) {
    const double k = slice;
    const double d = (1 + (n - 2 * k)) * h * t / (2 * n);
    const double e = (2 * k - 1 - n) * h * t / n;
    const point3 low{base[0] + d, base[1] + d, base[2] + (k - 1) * h / n};
    const point3 high{low[0] + xlen + e, low[1] + ylen + e, low[2] + h / n};
    addPending(make_cuboid_shape(cuboid_t{low, high}), 0.0, name, layer);
  }
  return true;
}

bool Cap3dParser::parsePoly(unsigned int& i) {
  std::string name;
  point3 base;
  double zlen = 0.0;
  double side_tan = 0.0;
  short layer = -1;
  std::vector<double> coords;

  for (;; ++i) {
    if (i >= words.size()) return endOfWords();
    const std::string_view w = words[i];
    if (same(w, "</poly>")) break;
    if (same(w, "name")) {
      if (!haveValues(i, 1)) return endOfWords();
      name = parseString(words[++i]);
    } else if (same(w, "basepoint")) {
      if (!haveValues(i, 3)) return endOfWords();
      for (int c = 0; c < 3; ++c) base[c] = parseDouble(words[++i]);
    } else if (same(w, "v1") || same(w, "v2")) {
      // The outline comes from <coord>; the edge vectors say nothing here.
      if (!haveValues(i, 3)) return endOfWords();
      i += 3;
    } else if (same(w, "hvector")) {
      if (!haveValues(i, 3)) return endOfWords();
      i += 2;
      zlen = parseDouble(words[++i]);
    } else if (same(w, "side_tan")) {
      if (!haveValues(i, 1)) return endOfWords();
      side_tan = parseDouble(words[++i]);
    } else if (same(w, "<coord>")) {
      for (;;) {
        if (!haveValues(i, 1)) return endOfWords();
        const char* value = words[++i];
        if (same(value, "</coord>")) break;
        coords.push_back(parseDouble(value));
      }
      if (coords.size() % 2 != 0) return syntaxError(words[i]);
    } else if (same(w, "rho")) {
      if (!(state & in_conductor)) return syntaxError(words[i]);
      if (!haveValues(i, 1)) return endOfWords();
      ++i;  // the resistivity is not used
    } else if (same(w, "layer")) {
      if (!haveValues(i, 1)) return endOfWords();
      layer = static_cast<short>(parseInt(words[++i]));
    } else {
      return syntaxError(words[i]);
    }
  }

  // Outside a conductor and a medium a polygon is ignored, unlike a block.
  if (state & in_conductor) {
    nprism_large_t poly;
    poly.points.reserve(coords.size() / 2);
    for (std::size_t j = 0; j + 1 < coords.size(); j += 2)
      poly.points.push_back(point2{base[0] + coords[j], base[1] + coords[j + 1]});
    poly.size = poly.points.size();
    poly.bottom = base[2];
    poly.top = base[2] + zlen;

    std::vector<nprism_large_t> pieces;
    convex_decomposition(poly, pieces);
    for (const nprism_large_t& piece : pieces) {
      if (const char* complaint = internal::bad_piece_complaint(piece)) {
        logger::instance().error->print(complaint);
        internal::throw_bad_piece(piece);
      }
      addPending(cuboids_only ? internal::make_bounding_cuboid_shape(piece) : internal::make_prism_shape(piece),
                 side_tan, name, layer);
    }
  } else if (state & in_medium) {
    // A dielectric polygon is a quadrilateral or a triangle, taken as it
    // stands: no repair, no test of its sense of rotation.
    nprism_large_t quad;
    quad.points.assign(4, point2{});
    quad.size = 4;
    quad.bottom = base[2];
    quad.top = base[2] + zlen;
    const std::size_t used = std::min<std::size_t>(coords.size(), 8);
    for (std::size_t j = 0; j + 1 < used; j += 2)
      quad.points[j / 2] = point2{base[0] + coords[j], base[1] + coords[j + 1]};
    if (coords.size() == 6) {
      // Closes a triangle on its first vertex when the base point is zero;
      // otherwise the base point counts twice, as files written for this
      // reader expect.
      quad.points[3] = point2{base[0] + quad.points[0][0], base[1] + quad.points[0][1]};
    }
    addPending(internal::make_prism_shape(quad), side_tan, name, layer);
  }
  return true;
}

}  // namespace torva
