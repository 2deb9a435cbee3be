// The walk through a stack of dielectrics, with the interfaces crossed by
// finite-difference steps.
//
// A transition cube never crosses an interface: its half size is the smaller
// of the conductor-free size and the distance to the nearest interface, so
// that one face of it may touch the interface and a walker that leaves by that
// face lands on it. A walker within the snap distance of an interface is put
// on it and takes one step of length h to one of the six neighbours, each
// with the probability of the permittivity on that face of the small cube
// about it (the discrete balance of flux; on a plane the four neighbours
// along it have the mean of the two, the two across it their own). The step
// is exact for a field that is linear on each side, and its error for a
// curved one falls with h, which is `step_ratio` times the distance to the
// nearest conductor.
//
// The first hop carries the flux through the Gaussian surface. Where the
// interface is no nearer than an eighth of the conductor-free size, the cube
// is cut down to the interface and the flux is that of its centre's
// permittivity. Nearer, a cube so small would make the weight's variance
// grow without bound; the flux is then the central difference of the
// potential over two points at a quarter of that size on either side of the
// surface, with the permittivity's harmonic mean along the segment between
// them (exact across a plane parallel to the surface for a field that is
// linear on each side, and the plain permittivity where the segment lies in
// one medium).
#pragma once

#include "torva/extract/internal/dielectric_map.h"
#include "torva/extract/internal/walk.h"

namespace torva {

struct layered_medium {
  const dielectric_map* map = nullptr;
  double snap = 1e-4;        // a walker this near an interface steps across it; below half the stop distance
  double step_ratio = 0.2;   // the step across, as a share of the distance to the nearest conductor
};

namespace internal {

// The mean over 4 points of the permittivity on the face of the cube of half
// size h/2 about q that faces +dir*axis.
inline double face_permittivity(const dielectric_map& m, const point3& q, int axis, int dir, double h) noexcept {
  const int a1 = (axis + 1) % 3, a2 = (axis + 2) % 3;
  double sum = 0.0;
  for (int i = 0; i < 4; ++i) {
    point3 x = q;
    x[axis] = q[axis].value + dir * 0.5 * h;
    x[a1] = q[a1].value + ((i & 1) ? 0.25 : -0.25) * h;
    x[a2] = q[a2].value + ((i & 2) ? 0.25 : -0.25) * h;
    sum += m.permittivity_at(x);
  }
  return 0.25 * sum;
}

// 2h over the integral of 1/eps along p + t*axis, t in [-h, h]: sampled at 17
// points, each change of medium found by bisection.
inline double harmonic_permittivity(const dielectric_map& m, const point3& p, int axis, double h) noexcept {
  constexpr int parts = 16;
  const double step = 2 * h / parts;
  auto eps_at = [&](double t) {
    point3 x = p;
    x[axis] = p[axis].value + t;
    return m.permittivity_at(x);
  };
  double integral = 0.0, t0 = -h, e0 = eps_at(t0);
  for (int i = 1; i <= parts; ++i) {
    const double t1 = -h + i * step, e1 = eps_at(t1);
    if (e1 == e0) {
      integral += step / e0;
    } else {
      double a = t0, b = t1;
      for (int it = 0; it < 48 && b - a > 1e-12 * h; ++it) {
        const double mid = 0.5 * (a + b);
        (eps_at(mid) == e0 ? a : b) = mid;
      }
      integral += (a - t0) / e0 + (t1 - a) / e1;
    }
    t0 = t1;
    e0 = e1;
  }
  return 2 * h / integral;
}

}  // namespace internal

// One walk from a point drawn on the surface, through the dielectric map.
inline walk_end walk_once(const walk_setup& s, const layered_medium& medium, const gaussian_surface& surface,
                          internal::walk_random& rng, walker_state& w) noexcept {
  const dielectric_map& map = *medium.map;
  const homogeneous_medium open{};  // conductors and walls only: interfaces are handled here
  walk_end out;
  const gaussian_point start = surface.sample(rng);
  if (!start.on_boundary) return out;
  point3 p = start.at;
  int ended = walk_setup::nowhere;
  double d = free_half_size(s, open, p, w, ended);
  if (ended == walk_setup::nowhere && start.free > d) d = std::min(start.free, bound_by_walls(s, open, p));
  if (ended != walk_setup::nowhere || !(d > 0.0)) {
    out.net = ended;
    return out;
  }

  // The first hop.
  const double to_interface = map.nearest_interface(p).distance;
  internal::cube_exit e;
  if (to_interface >= 0.125 * d) {
    d = std::min(d, to_interface);
    const double flux = vacuum_permittivity * map.permittivity_at(p) * surface.area;
    if (s.first_hop != nullptr) {
      int sign = 0;
      e = s.first_hop->sample(start.axis, start.side, rng, sign);
      out.weight = -flux * sign * s.first_hop->total / d;
    } else {
      e = s.sampler.sample(rng);
      out.weight = -flux * internal::first_hop_factor(start.axis, start.side, e) / d;
    }
    const int a1 = (e.axis + 1) % 3, a2 = (e.axis + 2) % 3;
    p[e.axis] = p[e.axis].value + e.side * d;
    p[a1] = p[a1].value + e.at[0] * d;
    p[a2] = p[a2].value + e.at[1] * d;
  } else {
    const double h = 0.25 * d;
    const double flux = vacuum_permittivity * internal::harmonic_permittivity(map, p, start.axis, h) * surface.area;
    const int ahead = (rng.next() >> 63) ? 1 : -1;
    out.weight = -flux * ahead / h;
    p[start.axis] = p[start.axis].value + ahead * start.side * h;
  }

  for (;;) {
    if (!s.dirichlet)
      for (int k = 0; k < 3; ++k) p[k] = internal::fold(p[k].value, s.window.lower[k].value, s.window.upper[k].value);
    ++out.hops;
    d = free_half_size(s, open, p, w, ended);
    if (ended != walk_setup::nowhere) {
      out.net = ended;
      return out;
    }
    if (!(d > 0.0) || out.hops >= s.max_hops) {
      out.net = walk_setup::nowhere;
      return out;
    }
    const interface_hit hit = map.nearest_interface(p);
    if (hit.distance > medium.snap) {
      d = std::min(d, hit.distance);
      e = s.sampler.sample(rng);
      const int a1 = (e.axis + 1) % 3, a2 = (e.axis + 2) % 3;
      p[e.axis] = p[e.axis].value + e.side * d;
      p[a1] = p[a1].value + e.at[0] * d;
      p[a2] = p[a2].value + e.at[1] * d;
      continue;
    }
    // On the interface: one step of the flux balance. Near an edge of a box
    // the step is not let shrink below an eighth of its length, and crosses
    // the other face with the face's mean permittivity.
    p[hit.axis] = hit.plane;
    const double room = std::max(d - medium.snap, 0.0);
    double h = medium.step_ratio * room;
    const double other = map.nearest_interface(p, hit.axis, hit.plane).distance;
    h = std::max(std::min(h, other), 0.125 * h);
    if (!(h > 0.0)) {
      out.net = walk_setup::nowhere;
      return out;
    }
    double weight[6], total = 0.0;
    for (int k = 0; k < 6; ++k) {
      weight[k] = internal::face_permittivity(map, p, k >> 1, (k & 1) ? 1 : -1, h);
      total += weight[k];
    }
    double u = rng.uniform() * total;
    int k = 0;
    while (k < 5 && u >= weight[k]) u -= weight[k++];
    p[k >> 1] = p[k >> 1].value + ((k & 1) ? h : -h);
  }
}

}  // namespace torva
