// Whether a closed polygon outline crosses itself: two of its edges that are
// not neighbours cross at a point inside both (a figure eight, a spiral drawn
// over itself). Edges that only touch, or run along one another (the cut of
// a keyhole outline), do not count. Repeated vertices are passed over.
//
// The edges are swept in order of their least x, each tested against the
// edges still open across it, so an ordinary outline costs about n log n. A
// sweep that would exceed `max_tests` edge pairs stops and says so.
#pragma once

#include <cstddef>
#include <cstdint>
#include <vector>

#include "torva/foundation/point.h"

namespace torva {

struct polygon_crossing {
  bool found = false;
  bool unchecked = false;     // the sweep passed max_tests
  std::size_t edge_a = 0;     // an edge from vertex edge_a to the next
  std::size_t edge_b = 0;
  double x = 0.0, y = 0.0;    // where they cross
};

polygon_crossing find_self_crossing(const std::vector<point2>& outline, std::uint64_t max_tests = 50000000);

}  // namespace torva
