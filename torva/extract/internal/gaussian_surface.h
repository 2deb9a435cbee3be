// The Gaussian surface around a master conductor: the boundary of the union
// of its pieces' boxes, each grown by a share of its clearance to every other
// conductor (and to a Dirichlet window, which is ground). Walks start on it,
// uniformly by area: a point drawn on one box's face that lies inside the
// union is no part of the boundary and carries weight zero, which keeps the
// estimate unbiased without knowing the boundary's area in advance.
#pragma once

#include <cstddef>
#include <string>
#include <vector>

#include "torva/extract/internal/random.h"
#include "torva/layout/records.h"

namespace torva {

struct gaussian_face {
  int box = 0;              // the grown box it belongs to
  int axis = 0;             // normal axis
  int side = 1;             // -1 or +1: outward normal along the axis
  double plane = 0.0;       // its coordinate along the axis
  double lo[2]{}, hi[2]{};  // extent along (axis+1)%3 and (axis+2)%3
  double area = 0.0;
  double free = 0.0;        // no conductor lies nearer than this to any boundary point of the face
  std::vector<int> others;  // boxes of the union that touch the face
};

struct gaussian_point {
  point3 at;
  int axis = 0;
  int side = 1;
  bool on_boundary = true;  // false: inside the union, weight zero
  double free = 0.0;        // a lower bound of the clearance there (walls aside)
};

struct gaussian_surface {
  std::vector<cuboid_t> boxes;
  std::vector<gaussian_face> faces;
  std::vector<double> cumulative;  // running sum of the faces' areas
  double area = 0.0;               // of all faces, boundary or not
  double gap = 0.0;                // the smallest distance from the conductor to the surface

  gaussian_point sample(internal::walk_random& rng) const noexcept;
};

struct gaussian_settings {
  double ratio = 0.5;     // share of the clearance, 0 < ratio < 1
  bool dirichlet = true;  // the window is ground
  // Heights of horizontal dielectric interfaces, ascending: a face parallel
  // to one and close to it would start its walks with small, heavy first
  // hops, so its growth is moved (between a quarter and three quarters of the
  // clearance) to keep it away.
  std::vector<double> interfaces;
};

// Throws sea::fatal_error (after a line on logger::error) when no surface can
// pass between the master and another conductor or a grounded wall.
gaussian_surface build_gaussian_surface(const circuit_layout& layout, const wire_net& master,
                                        const gaussian_settings& settings);

}  // namespace torva
