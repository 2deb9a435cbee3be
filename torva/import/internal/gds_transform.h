// The placement of a cell's contents in the top cell: x' = a x + b y + tx,
// y' = c x + d y + ty, composed down the hierarchy in doubles. While every
// entry is a whole number the matrix applies in integers, exactly; otherwise
// each result is rounded to the nearest integer, half away from zero.
#pragma once

#include <cmath>
#include <cstdint>

#include "torva/import/gds_library.h"

namespace torva::internal {

struct gds_transform {
  double a = 1, b = 0, c = 0, d = 1, tx = 0, ty = 0;
  bool whole = true;  // every entry a whole number
  std::int64_t ia = 1, ib = 0, ic = 0, id = 1, itx = 0, ity = 0;

  bool reflects() const { return a * d - b * c < 0; }

  // Called after the doubles change: caches the integer form if there is one.
  void settle() {
    whole = true;
    for (double v : {a, b, c, d, tx, ty})
      if (v != std::floor(v) || !(std::fabs(v) < 0x1p62)) whole = false;
    if (whole) {
      ia = std::int64_t(a), ib = std::int64_t(b), ic = std::int64_t(c), id = std::int64_t(d);
      itx = std::int64_t(tx), ity = std::int64_t(ty);
    }
  }

  gds_point apply(gds_point p) const {
    if (whole) return {ia * p.x + ib * p.y + itx, ic * p.x + id * p.y + ity};
    const double x = double(p.x), y = double(p.y);
    return {std::llround(a * x + b * y + tx), std::llround(c * x + d * y + ty)};
  }

  // This placement followed by the outer one: outer(this(p)).
  gds_transform within(const gds_transform& outer) const {
    gds_transform r;
    r.a = outer.a * a + outer.b * c;
    r.b = outer.a * b + outer.b * d;
    r.c = outer.c * a + outer.d * c;
    r.d = outer.c * b + outer.d * d;
    r.tx = outer.a * tx + outer.b * ty + outer.tx;
    r.ty = outer.c * tx + outer.d * ty + outer.ty;
    r.settle();
    return r;
  }
};

// The matrix of reflection about x, then magnification, then rotation; the
// sine and cosine of multiples of 90 degrees are exact.
inline gds_transform gds_placement(const gds_strans& s, double x, double y) {
  double cosine, sine;
  const double turns = s.angle / 90.0;
  if (turns == std::floor(turns)) {
    const long quarter = long(std::fmod(turns, 4.0) + 4) % 4;
    cosine = quarter == 0 ? 1 : quarter == 2 ? -1 : 0;
    sine = quarter == 1 ? 1 : quarter == 3 ? -1 : 0;
  } else {
    const double radians = s.angle * (3.14159265358979323846 / 180.0);
    cosine = std::cos(radians);
    sine = std::sin(radians);
  }
  const double flip = s.reflect ? -1.0 : 1.0;
  gds_transform t;
  t.a = s.mag * cosine;
  t.b = -s.mag * sine * flip;
  t.c = s.mag * sine;
  t.d = s.mag * cosine * flip;
  t.tx = x;
  t.ty = y;
  t.settle();
  return t;
}

}  // namespace torva::internal
