// The walk through a stack of dielectrics. Two ways to cross an interface:
// finite-difference steps (below, the "step" walk), and cubes that straddle
// a plane of the stack, drawn from the two-layer tables (the "table" walk,
// described after the step walk).
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
//
// The table walk lets a cube straddle a horizontal interface when that is
// the nearest interface and the only one within the cube: a plane of the
// stack, or a box's top or bottom face over or under the walker (far enough
// from the box's sides). The cube's half size is L = d / |1 - 2k/23| for the
// walker's distance d to the plane, with the position k that makes L largest
// within the room (the conductor-free size, the next interface, and under a
// Neumann window the horizontal walls, whose mirror would add a plane); the
// exit is drawn from the table row of that position, of the pair of
// permittivities under and over the plane, and placed uniformly in its cell.
// A walker within the snap distance of a plane is put on it and takes the
// cube centred there (the half-layer table). Near a box's side the walk
// steps as above. The first hop straddles too, with the importance rows:
// where the plane is nearer than 1/46 of the room to a start on a face
// across the layers, the start is put on the plane (the flux's error is of
// second order: the field along the plane is continuous, and the jump of its
// derivative across it balances between the two sides); a cube smaller than
// an eighth of the conductor-free size is left to the step walk's first hop.
#pragma once

#include "torva/extract/internal/dielectric_map.h"
#include "torva/extract/internal/straddle.h"
#include "torva/extract/internal/walk.h"

namespace torva {

struct layered_medium {
  const dielectric_map* map = nullptr;
  double snap = 1e-4;        // a walker this near an interface steps across it; below half the stop distance
  double step_ratio = 0.2;   // the step across, as a share of the distance to the nearest conductor
  const internal::straddle_tables* tables = nullptr;  // the table walk when set, else the step walk
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

// Moves p to the exit `at` (a point of the cube [-1,1]^3) of the cube of half size L about it.
inline void move_to(point3& p, const double at[3], double L) noexcept {
  for (int k = 0; k < 3; ++k) p[k] = p[k].value + at[k] * L;
}

// Moves p to an exit of the homogeneous cube of half size L about it.
inline void hop(point3& p, const cube_exit& e, double L) noexcept {
  const int a1 = (e.axis + 1) % 3, a2 = (e.axis + 2) % 3;
  p[e.axis] = p[e.axis].value + e.side * L;
  p[a1] = p[a1].value + e.at[0] * L;
  p[a2] = p[a2].value + e.at[1] * L;
}

// The step walk's first hop from the start p with conductor-free size d: the
// weight, and p moved to where the walk goes on.
inline double step_first_hop(const walk_setup& s, const dielectric_map& map, const gaussian_surface& surface,
                             const gaussian_point& start, point3& p, double d, walk_random& rng) noexcept {
  const double to_interface = map.nearest_interface(p).distance;
  if (to_interface >= 0.125 * d) {
    d = std::min(d, to_interface);
    const double flux = vacuum_permittivity * map.permittivity_at(p) * surface.area;
    cube_exit e;
    double weight;
    if (s.first_hop != nullptr) {
      int sign = 0;
      e = s.first_hop->sample(start.axis, start.side, rng, sign);
      weight = -flux * sign * s.first_hop->total / d;
    } else {
      e = s.sampler.sample(rng);
      weight = -flux * first_hop_factor(start.axis, start.side, e) / d;
    }
    hop(p, e, d);
    return weight;
  }
  const double h = 0.25 * d;
  const double flux = vacuum_permittivity * harmonic_permittivity(map, p, start.axis, h) * surface.area;
  const int ahead = (rng.next() >> 63) ? 1 : -1;
  p[start.axis] = p[start.axis].value + ahead * start.side * h;
  return -flux * ahead / h;
}

// One step of the flux balance from p, within `snap` of an interface, with
// conductor-free size d. False when the step has no length (the walk is lost).
// Near an edge of a box the step is not let shrink below an eighth of its
// length, and crosses the other face with the face's mean permittivity.
inline bool interface_step(const layered_medium& medium, point3& p, double d, walk_random& rng) noexcept {
  const dielectric_map& map = *medium.map;
  const interface_hit hit = map.nearest_interface(p);
  p[hit.axis] = hit.plane;
  const double room = std::max(d - medium.snap, 0.0);
  double h = medium.step_ratio * room;
  const double other = map.nearest_interface(p, hit.axis, hit.plane).distance;
  h = std::max(std::min(h, other), 0.125 * h);
  if (!(h > 0.0)) return false;
  double weight[6], total = 0.0;
  for (int k = 0; k < 6; ++k) {
    weight[k] = face_permittivity(map, p, k >> 1, (k & 1) ? 1 : -1, h);
    total += weight[k];
  }
  double u = rng.uniform() * total;
  int k = 0;
  while (k < 5 && u >= weight[k]) u -= weight[k++];
  p[k >> 1] = p[k >> 1].value + ((k & 1) ? h : -h);
  return true;
}

// The smallest odd number at least x (x > 0).
inline int odd_at_least(double x) noexcept {
  const int j = std::max(1, int(std::ceil(x)));
  return j % 2 ? j : j + 1;
}

// Under a Neumann window the distance to the nearer horizontal wall, else infinity.
inline double horizontal_wall_room(const walk_setup& s, const point3& p) noexcept {
  if (s.dirichlet) return std::numeric_limits<double>::infinity();
  return std::min(p[2].value - s.window.lower[2].value, s.window.upper[2].value - p[2].value);
}

// Whether the nearest interface is a horizontal plane straight above or
// below p (a layer's plane, or a box's face over or under p), at hit.distance.
inline bool horizontal(const interface_hit& hit, const point3& p) noexcept {
  return hit.axis == 2 && std::abs(p[2].value - hit.plane) == hit.distance;
}

// The tables of the plane z = `plane` at the column of p: the pair of
// permittivities just under and just over it (a point on the plane belongs
// to the medium under it).
inline const straddle_interface* tables_at(const layered_medium& medium, const point3& p, double plane) noexcept {
  point3 q = p;
  q[2] = plane;
  const double below = medium.map->permittivity_at(q);
  q[2] = std::nextafter(plane, std::numeric_limits<double>::infinity());
  return medium.tables->find(below, medium.map->permittivity_at(q));
}

// How far a cube about p may reach that cuts the plane of `hit`: to the
// nearest other interface, the conductor-free size d, and the horizontal
// Neumann walls (whose mirror would add a plane).
inline double straddle_room(const walk_setup& s, const layered_medium& medium, const point3& p, const interface_hit& hit,
                            double d) noexcept {
  return std::min({d, medium.map->nearest_interface(p, 2, hit.plane).distance, horizontal_wall_room(s, p)});
}

// Where the interface of a cube straddling a plane may sit: the position k
// (1..22) and the half size, for the distance `to_plane` to the plane and
// the room the cube may fill; k = 0 when no position fits (the plane too near
// the room's edge).
struct straddle_fit {
  int k = 0;
  double half_size = 0.0;
};

inline straddle_fit fit_straddle(double to_plane, double room, bool above_plane) noexcept {
  straddle_fit f;
  const int j = odd_at_least(two_layer_cells * to_plane / room);
  if (j > two_layer_cells - 2) return f;
  f.half_size = two_layer_cells * to_plane / j;
  f.k = above_plane ? (two_layer_cells - j) / 2 : (two_layer_cells + j) / 2;
  return f;
}

// The table walk's first hop: true with the weight and p moved when a cube
// straddling a plane serves, false to leave it to the step walk's.
inline bool straddle_first_hop(const walk_setup& s, const layered_medium& medium, const gaussian_surface& surface,
                               const gaussian_point& start, point3& p, double d, walk_random& rng,
                               double& weight) noexcept {
  const dielectric_map& map = *medium.map;
  const interface_hit hit = map.nearest_interface(p);
  if (!horizontal(hit, p) || !(hit.distance < d) || !(hit.distance > medium.snap)) return false;
  const double room = straddle_room(s, medium, p, hit, d);
  if (!(hit.distance < room)) return false;
  const double flux = vacuum_permittivity * map.permittivity_at(p) * surface.area;
  double at[3];
  if (start.axis != 2 && hit.distance < room / (2 * two_layer_cells)) {
    const double L = room - hit.distance;
    const straddle_interface* t = tables_at(medium, p, hit.plane);
    if (t == nullptr || !(L >= 0.125 * d)) return false;
    p[2] = hit.plane;
    const double factor = draw_first(t->half->gft_is.values, t->half->wvt_is.values, half_layer_cells,
                                     half_layer_cells / 2, start.axis, start.side, rng, at);
    weight = -flux * factor / L;
    move_to(p, at, L);
    return true;
  }
  const straddle_fit f = fit_straddle(hit.distance, room, p[2].value > hit.plane);
  if (f.k == 0 || !(f.half_size >= 0.125 * d)) return false;
  const straddle_interface* t = tables_at(medium, p, hit.plane);
  if (t == nullptr) return false;
  const double factor = draw_first(t->two->gft_is.row(std::size_t(3 * (f.k - 1))), t->two->wvt_is.row(std::size_t(f.k - 1)),
                                   two_layer_cells, f.k, start.axis, start.side, rng, at);
  weight = -flux * factor / f.half_size;
  move_to(p, at, f.half_size);
  return true;
}

// One hop of the table walk from p with conductor-free size d (walls
// included): false when the walk is lost.
inline bool straddle_hop(const walk_setup& s, const layered_medium& medium, point3& p, double d,
                         walk_random& rng) noexcept {
  const dielectric_map& map = *medium.map;
  const interface_hit hit = map.nearest_interface(p);
  double at[3];
  if (hit.distance <= medium.snap) {
    // On a plane: the cube centred there, else a step across.
    if (horizontal(hit, p)) {
      point3 q = p;
      q[2] = hit.plane;
      const double L = std::min(d - hit.distance, straddle_room(s, medium, q, hit, d));
      const straddle_interface* t = tables_at(medium, q, hit.plane);
      if (t != nullptr && L > 0.0) {
        p = q;
        draw_half_layer(*t, rng, at);
        move_to(p, at, L);
        return true;
      }
    }
    return interface_step(medium, p, d, rng);
  }
  if (horizontal(hit, p) && hit.distance < d) {
    const double room = straddle_room(s, medium, p, hit, d);
    if (hit.distance < room) {
      const straddle_fit f = fit_straddle(hit.distance, room, p[2].value > hit.plane);
      const straddle_interface* t = f.k > 0 ? tables_at(medium, p, hit.plane) : nullptr;
      if (t != nullptr) {
        draw_two_layer(*t, f.k, rng, at);
        move_to(p, at, f.half_size);
        return true;
      }
    }
  }
  // A cube up to the nearest interface, as the step walk takes it.
  hop(p, s.sampler.sample(rng), std::min(d, hit.distance));
  return true;
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
  const bool tables = medium.tables != nullptr;
  if (!tables || !internal::straddle_first_hop(s, medium, surface, start, p, d, rng, out.weight))
    out.weight = internal::step_first_hop(s, map, surface, start, p, d, rng);

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
    bool moved;
    if (tables) {
      moved = internal::straddle_hop(s, medium, p, d, rng);
    } else {
      const interface_hit hit = map.nearest_interface(p);
      if (hit.distance > medium.snap) {
        internal::hop(p, s.sampler.sample(rng), std::min(d, hit.distance));
        continue;
      }
      moved = internal::interface_step(medium, p, d, rng);
    }
    if (!moved) {
      out.net = walk_setup::nowhere;
      return out;
    }
  }
}

}  // namespace torva
