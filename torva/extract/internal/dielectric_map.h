// The permittivity at every point of the window, and how far a point lies
// from the nearest place where it changes.
//
// Plate media make a stack of horizontal layers: a plate fills the space from
// the top of the plate below it up to its own z_top, the lowest plate reaches
// down without end, and above the highest plate lies vacuum. Dielectric bodies
// (medium blocks) lie over the stack, a later body over an earlier one. A body
// block that spans the whole window in x and y is one more layer of the stack;
// any other block is kept as a box (a block that is no box, as its bounding box).
//
// The boxes are found through a uniform grid: each cell lists the boxes whose
// boundary comes within one cell size of it, and the box that covers the cell
// and its surroundings whole. A query reads one cell; a distance it does not
// see is at least the cell size, which is what it answers then (a smaller
// cube than possible, never one that crosses an interface).
#pragma once

#include <algorithm>
#include <cmath>
#include <cstdint>
#include <limits>
#include <string>
#include <vector>

#include "torva/layout/records.h"

namespace torva {

struct dielectric_box {
  double lo[3], hi[3];  // a face at or beyond a window wall is pushed off to infinity
  double eps;           // relative
};

// The nearest interface: its distance (maximum norm), and the plane it lies in.
struct interface_hit {
  double distance = std::numeric_limits<double>::infinity();
  int axis = 2;
  double plane = 0.0;
};

struct dielectric_map {
  // Layer i spans (planes[i-1], planes[i]]; layer_eps has one more entry than planes.
  std::vector<double> planes;
  std::vector<double> layer_eps{1.0};
  std::vector<dielectric_box> boxes;  // a later box wins where two overlap

  // The grid over the window.
  double origin[3]{}, cell = 1.0;
  int n[3]{0, 0, 0};
  std::vector<std::uint32_t> start;  // per cell: its range in `near`
  std::vector<std::uint32_t> near;   // boxes whose boundary comes within a cell size of the cell
  std::vector<std::int32_t> cover;   // per cell: the last box holding the cell and a cell around it, or -1

  bool uniform() const noexcept { return planes.empty() && boxes.empty(); }

  int cell_of(const point3& p) const noexcept {
    int c[3];
    for (int k = 0; k < 3; ++k) {
      const double t = std::floor((p[k].value - origin[k]) / cell);
      c[k] = t < 0 ? 0 : (t >= n[k] ? n[k] - 1 : int(t));
    }
    return (c[2] * n[1] + c[1]) * n[0] + c[0];
  }

  bool in_grid(const point3& p) const noexcept {
    for (int k = 0; k < 3; ++k)
      if (!(p[k].value >= origin[k] && p[k].value <= origin[k] + n[k] * cell)) return false;
    return true;
  }

  static bool holds(const dielectric_box& b, const point3& p) noexcept {
    for (int k = 0; k < 3; ++k)
      if (!(p[k].value > b.lo[k] && p[k].value <= b.hi[k])) return false;
    return true;
  }

  double layer_permittivity(double z) const noexcept {
    return layer_eps[std::size_t(std::lower_bound(planes.begin(), planes.end(), z) - planes.begin())];
  }

  double permittivity_at(const point3& p) const noexcept {
    if (!boxes.empty()) {
      std::int32_t best = -1;
      if (in_grid(p)) {
        const int c = cell_of(p);
        best = cover[std::size_t(c)];
        for (std::uint32_t i = start[std::size_t(c)]; i < start[std::size_t(c) + 1]; ++i)
          if (std::int32_t(near[i]) > best && holds(boxes[near[i]], p)) best = std::int32_t(near[i]);
      } else {
        for (std::size_t i = boxes.size(); i-- > 0;)
          if (holds(boxes[i], p)) {
            best = std::int32_t(i);
            break;
          }
      }
      if (best >= 0) return boxes[std::size_t(best)].eps;
    }
    return layer_permittivity(p[2].value);
  }

  // The nearest interface to p, leaving out the plane (skip_axis, skip_plane)
  // when skip_axis is 0, 1 or 2. Exact up to one cell size; beyond, the cell size.
  interface_hit nearest_interface(const point3& p, int skip_axis = -1, double skip_plane = 0.0) const noexcept {
    interface_hit hit;
    const double z = p[2].value;
    const std::size_t i = std::size_t(std::lower_bound(planes.begin(), planes.end(), z) - planes.begin());
    for (std::size_t j = i; j < planes.size(); ++j) {
      if (skip_axis == 2 && planes[j] == skip_plane) continue;
      consider(hit, planes[j] - z, 2, planes[j]);
      break;
    }
    for (std::size_t j = i; j-- > 0;) {
      if (skip_axis == 2 && planes[j] == skip_plane) continue;
      consider(hit, z - planes[j], 2, planes[j]);
      break;
    }
    if (boxes.empty()) return hit;
    if (in_grid(p)) {
      const int c = cell_of(p);
      for (std::uint32_t k = start[std::size_t(c)]; k < start[std::size_t(c) + 1]; ++k)
        box_faces(hit, boxes[near[k]], p, skip_axis, skip_plane);
      if (cell < hit.distance) hit.distance = cell;
    } else {
      for (const dielectric_box& b : boxes) box_faces(hit, b, p, skip_axis, skip_plane);
    }
    return hit;
  }

 private:
  static void consider(interface_hit& hit, double d, int axis, double plane) noexcept {
    if (d < hit.distance) {
      hit.distance = d;
      hit.axis = axis;
      hit.plane = plane;
    }
  }

  static double gap(double x, double lo, double hi) noexcept { return x < lo ? lo - x : (x > hi ? x - hi : 0.0); }

  static void box_faces(interface_hit& hit, const dielectric_box& b, const point3& p, int skip_axis,
                        double skip_plane) noexcept {
    for (int k = 0; k < 3; ++k) {
      const int a1 = (k + 1) % 3, a2 = (k + 2) % 3;
      const double across = std::max(gap(p[a1].value, b.lo[a1], b.hi[a1]), gap(p[a2].value, b.lo[a2], b.hi[a2]));
      if (!(across < hit.distance)) continue;
      for (const double plane : {b.lo[k], b.hi[k]}) {
        if (!std::isfinite(plane) || (k == skip_axis && plane == skip_plane)) continue;
        consider(hit, std::max(std::abs(p[k].value - plane), across), k, plane);
      }
    }
  }
};

struct dielectric_settings {
  bool merge_equal = true;  // drop interfaces with the same permittivity on both sides
};

// The map of a layout's plate media and bodies, clipped to its window, and
// the warnings it gives (bodies that are not boxes).
dielectric_map build_dielectric_map(const circuit_layout& layout, const dielectric_settings& settings,
                                    std::vector<std::string>& warnings);

// One line that says what the map holds, for the reports.
std::string describe(const dielectric_map& map);

}  // namespace torva
