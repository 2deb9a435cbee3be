// A pair of search strategies behind space_manager_interface. The first
// strategy of a two-strategy pair holds the cuboid blocks, the second the
// others (cylinders and prisms); a pair whose second is unused_spacemgr holds
// everything in its first.
//
// A strategy S offers:
//   void initialize(const configure&, const cuboid_t& space, const circuit_layout&);
//   candidate_list const* find_list(const point3&) const;   // the list for a point
//
// The manager must be value-initialised (zero-filled) when it is made, as
// sea::abstract_wrapper::construct does: the multithread counters of the grid
// strategies rely on it. It keeps pointers to the configure and to the blocks
// of the layout, which must outlive it.
#pragma once

#include "torva/foundation/configure.h"
#include "torva/foundation/double_wrapper.h"
#include "torva/foundation/logger.h"
#include "torva/foundation/point.h"
#include "torva/geometry/distance.h"
#include "torva/layout/records.h"
#include "torva/space/candidate_list_cache.h"
#include "torva/space/space_manager_interface.h"

namespace torva {

// True for the one pair that answers outside its search space by the distance
// to a box that holds every block (the plain grid with no second strategy):
// it grows its space from the critical box by twenty margins and measures
// from there, even under a Neumann boundary. Specialised by that pair.
template <class First, class Second>
inline constexpr bool uses_boundary_box = false;

template <class First, class Second>
struct basic_space_manager : space_manager_interface {
  using first_type = First;
  using second_type = Second;

  cuboid_t search_space;  // what space() returns
  cuboid_t wall_box;      // answers a point outside the critical box
  cuboid_t critical;      // the layout's critical box, zero when not in use
  bool use_critical;
  bool dirichlet;         // recorded for the client; nothing here reads it
  First first;
  Second second;

  void initialize(const configure& config, const circuit_layout& layout) {
    const double m = layout.space_margin;
    sea::writer& info = *logger::instance().info;
    dirichlet = layout.data.boundary == 1;
    if (config.use_critical_box && dirichlet) {
      use_critical = true;
      info.print("use critical box.\n");
      info.flush();
      search_space = grown(layout.data.critical_box, m);
      wall_box = layout.data.window;
      critical = layout.data.critical_box;
    } else if constexpr (!uses_boundary_box<First, Second>) {
      use_critical = false;
      info.print("Don't use critical box.\n");
      info.flush();
      search_space = grown(layout.data.window, m);
      wall_box = layout.data.window;
      critical = cuboid_t{};
    } else {
      use_critical = false;
      info.print("use boundary box.\n");
      info.flush();
      search_space = grown(layout.data.critical_box, 20 * m);
      wall_box = layout.data.critical_box;
      critical = cuboid_t{};
    }
    first.initialize(config, search_space, layout);
    second.initialize(config, search_space, layout);
  }

  // The query of one strategy of the pair. A cache whose list still serves the
  // point skips the box tests and the lookup.
  nearest_result _nearest(const point3& point, sea::double_wrapper limit, candidate_list_cache& cache,
                          bool use_second) const noexcept {
    constexpr double eps = sea::double_wrapper::tolerance;
    if (!cache.match(point)) {
      if (use_critical && !contains(critical, point)) {
        // Outside the critical box the nearest window wall stands in for the
        // nearest conductor; no block is named.
        const double d = -distance(wall_box, point).value;
        const double r = d < limit.value - eps ? d : limit.value;
        return nearest_result{nullptr, r, r};
      }
      if constexpr (uses_boundary_box<First, Second>) {
        if (!contains(search_space, point)) {
          // Outward from a box that holds every block.
          const double d = distance(wall_box, point).value;
          const double r = d < limit.value - eps ? d : limit.value;
          return nearest_result{nullptr, r, r};
        }
      }
      cache.list = use_second ? second.find_list(point) : first.find_list(point);
      cache.get_scope(point);
    }
    return cache.nearest(point, limit);
  }

  // The second strategy is asked with the first answer as its limit, so its
  // list stops early; the nearer of the two answers is returned.
  nearest_result nearest(const point3& point, sea::double_wrapper limit, candidate_list_cache& first_cache,
                         candidate_list_cache& second_cache) const override {
    constexpr double eps = sea::double_wrapper::tolerance;
    nearest_result r1 = _nearest(point, limit, first_cache, false);
    const nearest_result r2 = _nearest(point, r1.distance, second_cache, true);
    if (r1.distance.value - eps > r2.distance.value) {
      const double old = r1.distance.value;
      r1.block = r2.block;
      r1.distance = r2.distance;
      r1.reach = r2.reach.value < old - eps ? r2.reach.value : old;
    }
    return r1;
  }

  const cuboid_t& space() const override { return search_space; }

 private:
  static cuboid_t grown(const cuboid_t& box, double by) noexcept {
    cuboid_t g;
    for (int axis = 0; axis < 3; ++axis) {
      g.lower[axis] = box.lower[axis] - by;
      g.upper[axis] = box.upper[axis] + by;
    }
    return g;
  }
};

}  // namespace torva
