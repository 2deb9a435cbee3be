#include "torva/extract/internal/gaussian_surface.h"

#include <algorithm>
#include <array>
#include <cmath>
#include <limits>
#include <string>

#include "torva/extract/internal/refuse.h"
#include "torva/foundation/errors.h"
#include "torva/foundation/logger.h"

namespace torva {
namespace {

// The boxes that cover a block: its cut pieces where it has them, else its box.
const std::vector<cuboid_t>& pieces_of(const wire_block& b, std::vector<cuboid_t>& scratch) {
  if (!b.outer_pieces.empty()) return b.outer_pieces;
  scratch.assign(1, b.outer_box);
  return scratch;
}

// Maximum-norm distance between two boxes; 0 when they touch or overlap.
double box_gap(const cuboid_t& a, const cuboid_t& b) {
  double g = 0.0;
  for (int k = 0; k < 3; ++k) {
    g = std::max(g, b.lower[k].value - a.upper[k].value);
    g = std::max(g, a.lower[k].value - b.upper[k].value);
  }
  return g;
}

using internal::refuse;

// The growth of a face that starts at `from` and moves by `dir`: ratio * limit,
// unless that puts it nearer than a quarter of the growth to an interface;
// then the growth in [limit/4, 3 limit/4] farthest from every interface.
double growth_away(double from, int dir, double limit, double ratio, const std::vector<double>& interfaces) {
  const double wanted = ratio * limit;
  if (interfaces.empty() || !(limit > 0.0)) return wanted;
  auto room = [&](double g) {
    double r = std::numeric_limits<double>::infinity();
    for (double z : interfaces) r = std::min(r, std::abs(from + dir * g - z));
    return r;
  };
  if (room(wanted) >= 0.25 * wanted) return wanted;
  const double lo = 0.25 * limit, hi = 0.75 * limit;
  std::vector<double> candidates{lo, hi};
  std::vector<double> offsets;
  for (double z : interfaces) {
    const double g = (z - from) * dir;
    if (g > lo && g < hi) offsets.push_back(g);
  }
  std::sort(offsets.begin(), offsets.end());
  offsets.insert(offsets.begin(), lo);
  offsets.push_back(hi);
  for (std::size_t i = 1; i < offsets.size(); ++i) candidates.push_back(0.5 * (offsets[i - 1] + offsets[i]));
  double best = wanted, best_room = room(wanted);
  for (double g : candidates)
    if (room(g) > best_room) {
      best = g;
      best_room = room(g);
    }
  return best;
}

}  // namespace

gaussian_point gaussian_surface::sample(internal::walk_random& rng) const noexcept {
  const double u = rng.uniform() * area;
  std::size_t f = std::size_t(std::upper_bound(cumulative.begin(), cumulative.end(), u) - cumulative.begin());
  if (f >= faces.size()) f = faces.size() - 1;
  const gaussian_face& face = faces[f];
  gaussian_point p;
  p.axis = face.axis;
  p.side = face.side;
  p.free = face.free;
  const int a1 = (face.axis + 1) % 3, a2 = (face.axis + 2) % 3;
  p.at[face.axis] = face.plane;
  p.at[a1] = face.lo[0] + (face.hi[0] - face.lo[0]) * rng.uniform();
  p.at[a2] = face.lo[1] + (face.hi[1] - face.lo[1]) * rng.uniform();
  // On the boundary unless another box covers the point on its outward side,
  // or shares the face's plane there and comes first (so a face shared by two
  // boxes counts once).
  const double x = p.at[face.axis].value;
  for (int o : face.others) {
    const cuboid_t& b = boxes[std::size_t(o)];
    const double y = p.at[a1].value, z = p.at[a2].value;
    if (y < b.lower[a1].value || y > b.upper[a1].value || z < b.lower[a2].value || z > b.upper[a2].value) continue;
    const double lo = b.lower[face.axis].value, hi = b.upper[face.axis].value;
    const bool beyond = face.side > 0 ? (x >= lo && x < hi) : (x > lo && x <= hi);
    const bool on_plane = x >= lo && x <= hi;
    if (beyond || (on_plane && o < face.box)) {
      p.on_boundary = false;
      break;
    }
  }
  return p;
}

gaussian_surface build_gaussian_surface(const circuit_layout& layout, const wire_net& master,
                                        const gaussian_settings& settings) {
  const cuboid_t& window = layout.data.window;
  gaussian_surface s;
  std::vector<cuboid_t> scratch, other_scratch;
  // The master's pieces and, for each, the nearest other conductor.
  std::vector<cuboid_t> pieces;
  for (const wire_block* b : master.blocks)
    for (const cuboid_t& c : pieces_of(*b, scratch)) pieces.push_back(c);
  if (pieces.empty()) refuse("net " + master.name + " has no blocks to extract");

  std::vector<double> clearance(pieces.size(), std::numeric_limits<double>::infinity());
  std::vector<const wire_block*> nearest(pieces.size(), nullptr);
  for (const wire_block* b : layout.blocks) {
    if (b->net == &master) continue;
    for (const cuboid_t& c : pieces_of(*b, other_scratch))
      for (std::size_t i = 0; i < pieces.size(); ++i) {
        const double g = box_gap(pieces[i], c);
        if (g < clearance[i]) {
          clearance[i] = g;
          nearest[i] = b;
        }
      }
  }
  s.gap = std::numeric_limits<double>::infinity();
  // Per grown box: its growth on each side, and its clearance to other nets less its largest growth.
  std::vector<std::array<double, 6>> growth;
  std::vector<double> room;
  for (std::size_t i = 0; i < pieces.size(); ++i) {
    const cuboid_t& c = pieces[i];
    if (!(clearance[i] > 0.0)) {
      refuse("net " + master.name + " touches net " + nearest[i]->net->name +
             " (their blocks' boxes meet): no Gaussian surface passes between them");
    }
    // Per side: the clearance, and on that side the wall of the window.
    cuboid_t grown = c;
    std::array<double, 6> g6{};
    for (int k = 0; k < 3; ++k) {
      const double below = c.lower[k].value - window.lower[k].value;
      const double above = window.upper[k].value - c.upper[k].value;
      if (settings.dirichlet && (!(below > 0.0) || !(above > 0.0)))
        refuse("net " + master.name + " reaches the grounded window wall: no Gaussian surface fits");
      // Far from everything, a surface much larger than the conductor only
      // adds variance: no farther than the piece's longest edge.
      double longest = 0.0;
      for (int e = 0; e < 3; ++e) longest = std::max(longest, c.upper[e].value - c.lower[e].value);
      const double reach = std::min(clearance[i], longest);
      static const std::vector<double> none;
      const std::vector<double>& planes = k == 2 ? settings.interfaces : none;
      const double g_below = growth_away(c.lower[k].value, -1, std::min(reach, std::max(below, 0.0)), settings.ratio, planes);
      const double g_above = growth_away(c.upper[k].value, 1, std::min(reach, std::max(above, 0.0)), settings.ratio, planes);
      g6[std::size_t(2 * k)] = g_below;
      g6[std::size_t(2 * k + 1)] = g_above;
      grown.lower[k] = c.lower[k].value - g_below;
      grown.upper[k] = c.upper[k].value + g_above;
      // A face on a Neumann wall carries no flux; below it leaves no gap.
      if (g_below > 0.0) s.gap = std::min(s.gap, g_below);
      if (g_above > 0.0) s.gap = std::min(s.gap, g_above);
    }
    s.boxes.push_back(grown);
    growth.push_back(g6);
    room.push_back(clearance[i] - *std::max_element(g6.begin(), g6.end()));
  }

  // Six faces a box, less those on a Neumann wall (no flux crosses it).
  for (std::size_t i = 0; i < s.boxes.size(); ++i) {
    const cuboid_t& b = s.boxes[i];
    for (int axis = 0; axis < 3; ++axis)
      for (int side : {-1, 1}) {
        gaussian_face f;
        f.box = int(i);
        f.axis = axis;
        f.side = side;
        f.plane = side < 0 ? b.lower[axis].value : b.upper[axis].value;
        if (!settings.dirichlet && (f.plane <= window.lower[axis].value || f.plane >= window.upper[axis].value))
          continue;
        const int a1 = (axis + 1) % 3, a2 = (axis + 2) % 3;
        f.lo[0] = b.lower[a1].value;
        f.hi[0] = b.upper[a1].value;
        f.lo[1] = b.lower[a2].value;
        f.hi[1] = b.upper[a2].value;
        f.area = (f.hi[0] - f.lo[0]) * (f.hi[1] - f.lo[1]);
        // A boundary point of the face lies its side's growth from its own
        // piece, outside every other grown box (so at least the least growth
        // from the master's other pieces), and no nearer the other nets than
        // the piece's clearance less its growth: a cube of this half size
        // about it holds no conductor, whatever the search answers.
        f.free = std::min({growth[i][std::size_t(2 * axis + (side > 0 ? 1 : 0))], s.gap, room[i]});
        if (!(f.area > 0.0)) continue;
        for (std::size_t o = 0; o < s.boxes.size(); ++o) {
          if (o == i) continue;
          const cuboid_t& ob = s.boxes[o];
          if (f.plane < ob.lower[axis].value || f.plane > ob.upper[axis].value) continue;
          if (ob.upper[a1].value < f.lo[0] || ob.lower[a1].value > f.hi[0]) continue;
          if (ob.upper[a2].value < f.lo[1] || ob.lower[a2].value > f.hi[1]) continue;
          f.others.push_back(int(o));
        }
        s.area += f.area;
        s.cumulative.push_back(s.area);
        s.faces.push_back(std::move(f));
      }
  }
  if (s.faces.empty()) refuse("net " + master.name + " has no surface that field lines can cross");
  return s;
}

}  // namespace torva
