// One walk of the floating random walk, from a point of a master's Gaussian
// surface to the conductor (or the grounded window) where it ends.
//
// The medium is a template argument: it tells the walk the permittivity at
// the start and how far from a point the cube may reach before it would cross
// a dielectric interface. `homogeneous_medium` has no interface; a layered
// medium plugs in here without touching the walk.
#pragma once

#include <cmath>
#include <cstdint>
#include <limits>
#include <unordered_map>

#include "torva/extract/internal/gaussian_surface.h"
#include "torva/extract/internal/cube_sampler.h"
#include "torva/extract/internal/first_hop.h"
#include "torva/extract/internal/first_weights.h"
#include "torva/extract/internal/random.h"
#include "torva/geometry/distance.h"
#include "torva/layout/records.h"
#include "torva/space/compact_index.h"
#include "torva/space/space_manager_interface.h"

namespace torva {

// Vacuum permittivity in fF/um.
inline constexpr double vacuum_permittivity = 8.8541878128e-3;

struct homogeneous_medium {
  double permittivity = 1.0;  // relative

  double permittivity_at(const point3&) const noexcept { return permittivity; }
  // How far a cube centred at the point may reach without crossing an interface.
  double interface_distance(const point3&) const noexcept { return std::numeric_limits<double>::infinity(); }
};

// Where a walk ended: a net's index, `ground`, or `nowhere` for a start point
// that is no part of the surface (weight zero) or a walk cut off at the hop limit.
struct walk_end {
  int net = -1;
  std::uint32_t hops = 0;
  double weight = 0.0;
};

struct walk_setup {
  const space_manager_interface* space = nullptr;
  const compact_index* compact = nullptr;  // when set, answers in place of `space`: the plain grid's answers, faster
  cuboid_t window;
  bool dirichlet = true;
  double stop = 1e-4;                 // a walker this near a conductor or a grounded wall ends there
  std::uint32_t max_hops = 1000000;   // a walk longer than this is cut off and counted as lost
  cuboid_t critical;                  // under a Dirichlet window: outside it the nearest wall is nearer than any block
  internal::cube_sampler sampler;
  const internal::first_hop_sampler* first_hop = nullptr;  // draws the first exit by the field's strength
  std::unordered_map<const wire_net*, int> net_index;
  int ground = -1;                    // index of the window's column
  static constexpr int nowhere = -1;
};

// A walker thread's own state: the caches of the search.
struct walker_state {
  candidate_list_cache first, second;
  compact_cache compact;
};

namespace internal {

// The first hop's weight factor for a start moved along +axis*side (the
// surface's outward normal) and the exit `e`: the derivative of the exit
// density with respect to the start, over the density the exit was drawn from,
// for the cube of half size 1.
inline double first_hop_factor(int axis, int side, const cube_exit& e) noexcept {
  if (e.axis == axis) return -side * e.side * first_normal_weights[e.cell];
  if (axis == (e.axis + 1) % 3) return -side * e.sign[0] * first_tangent_weights[e.cell];
  return -side * e.sign[1] * first_tangent_y_weights[e.cell];
}

// Folds a coordinate into [lo, hi] by mirroring at the walls, as the field
// does at a Neumann wall.
inline double fold(double x, double lo, double hi) noexcept {
  if (x >= lo && x <= hi) return x;
  const double span = hi - lo;
  double t = std::fmod(x - lo, 2 * span);
  if (t < 0) t += 2 * span;
  return lo + (t <= span ? t : 2 * span - t);
}

}  // namespace internal

// How far a cube about p may reach before a grounded wall or an interface.
template <class Medium>
inline double bound_by_walls(const walk_setup& s, const Medium& medium, const point3& p) noexcept {
  double limit = medium.interface_distance(p);
  if (s.dirichlet)
    for (int k = 0; k < 3; ++k) {
      limit = std::min(limit, p[k].value - s.window.lower[k].value);
      limit = std::min(limit, s.window.upper[k].value - p[k].value);
    }
  return limit;
}

// The largest conductor-free cube about p (its half size), and the end of the
// walk when p lies within the stop distance of a conductor or a grounded wall.
template <class Medium>
inline double free_half_size(const walk_setup& s, const Medium& medium, const point3& p, walker_state& w,
                             int& ended) noexcept {
  double limit = medium.interface_distance(p);
  if (s.dirichlet) {
    double wall = std::numeric_limits<double>::infinity();
    for (int k = 0; k < 3; ++k) {
      wall = std::min(wall, p[k].value - s.window.lower[k].value);
      wall = std::min(wall, s.window.upper[k].value - p[k].value);
    }
    if (wall <= s.stop) {
      ended = s.ground;
      return 0.0;
    }
    // Outside the critical box no block comes nearer than the wall, and the
    // search structures' lists may not reach there.
    if (!contains(s.critical, p)) {
      ended = walk_setup::nowhere;
      return std::min(limit, wall);
    }
    limit = std::min(limit, wall);
  }
  if (!(limit < 1e300)) limit = 1e300;
  const nearest_result r =
      s.compact != nullptr ? s.compact->nearest(p, limit, w.compact) : s.space->nearest(p, limit, w.first, w.second);
  const double d = r.distance.value;
  if (r.block != nullptr && d <= s.stop) {
    ended = s.net_index.find(r.block->net)->second;
    return 0.0;
  }
  ended = walk_setup::nowhere;
  return d;
}

// One walk from a point drawn on the surface. `flux` is the permittivity
// (absolute, fF/um) times the surface's area: the weight is its share of the
// charge on the master.
template <class Medium>
inline walk_end walk_once(const walk_setup& s, const Medium& medium, const gaussian_surface& surface,
                          internal::walk_random& rng, walker_state& w) noexcept {
  walk_end out;
  const gaussian_point start = surface.sample(rng);
  if (!start.on_boundary) return out;
  point3 p = start.at;
  int ended = walk_setup::nowhere;
  double d = free_half_size(s, medium, p, w, ended);
  // The search may answer less than the surface's own bound near the edge of
  // a list's scope; the first hop's weight goes as one over the cube's size,
  // so the larger of the two sure sizes is taken (walls and interfaces still cap it).
  if (ended == walk_setup::nowhere && start.free > d) d = std::min(start.free, bound_by_walls(s, medium, p));
  if (ended != walk_setup::nowhere || !(d > 0.0)) {
    // The surface lies farther than the stop distance from everything, so
    // this happens only where the surface could not be placed well.
    out.net = ended;
    return out;
  }
  const double flux = vacuum_permittivity * medium.permittivity_at(p) * surface.area;
  internal::cube_exit e;
  if (s.first_hop != nullptr) {
    int sign = 0;
    e = s.first_hop->sample(start.axis, start.side, rng, sign);
    out.weight = -flux * sign * s.first_hop->total / d;
  } else {
    e = s.sampler.sample(rng);
    out.weight = -flux * internal::first_hop_factor(start.axis, start.side, e) / d;
  }
  for (;;) {
    const int a1 = (e.axis + 1) % 3, a2 = (e.axis + 2) % 3;
    p[e.axis] = p[e.axis].value + e.side * d;
    p[a1] = p[a1].value + e.at[0] * d;
    p[a2] = p[a2].value + e.at[1] * d;
    if (!s.dirichlet)
      for (int k = 0; k < 3; ++k) p[k] = internal::fold(p[k].value, s.window.lower[k].value, s.window.upper[k].value);
    ++out.hops;
    d = free_half_size(s, medium, p, w, ended);
    if (ended != walk_setup::nowhere) {
      out.net = ended;
      return out;
    }
    // A cube of no size cannot move the walker: it is lost, not looped on.
    if (!(d > 0.0) || out.hops >= s.max_hops) {
      out.net = walk_setup::nowhere;
      return out;
    }
    e = s.sampler.sample(rng);
  }
}

}  // namespace torva
