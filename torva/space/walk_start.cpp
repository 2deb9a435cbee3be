#include "torva/space/walk_start.h"

#include <algorithm>

namespace torva {

cuboid_t surface_about(const circuit_layout& layout, const wire_net& net) {
  cuboid_t box = net.blocks.front()->outer_box;
  for (const wire_block* b : net.blocks)
    for (int k = 0; k < 3; ++k) {
      box.lower[k] = std::min(box.lower[k].value, b->outer_box.lower[k].value);
      box.upper[k] = std::max(box.upper[k].value, b->outer_box.upper[k].value);
    }
  double gap = 1e300;
  for (const wire_block* b : layout.blocks) {
    if (b->net == &net) continue;
    double g = -1e300;
    for (int k = 0; k < 3; ++k)
      g = std::max({g, b->outer_box.lower[k].value - box.upper[k].value, box.lower[k].value - b->outer_box.upper[k].value});
    if (g > 0) gap = std::min(gap, g);
  }
  const double grow = gap < 1e300 ? 0.5 * gap : 0.01;
  for (int k = 0; k < 3; ++k) {
    box.lower[k] = box.lower[k].value - grow;
    box.upper[k] = box.upper[k].value + grow;
  }
  return box;
}

point3 on_surface(const cuboid_t& box, std::mt19937_64& rng) {
  std::uniform_real_distribution<double> unit(0.0, 1.0);
  double area[3];
  for (int k = 0; k < 3; ++k) {
    const int a = (k + 1) % 3, c = (k + 2) % 3;
    area[k] = (box.upper[a].value - box.lower[a].value) * (box.upper[c].value - box.lower[c].value);
  }
  double pick = unit(rng) * (area[0] + area[1] + area[2]);
  int axis = 0;
  while (axis < 2 && pick > area[axis]) pick -= area[axis++];
  point3 p;
  for (int k = 0; k < 3; ++k) p[k] = box.lower[k].value + (box.upper[k].value - box.lower[k].value) * unit(rng);
  p[axis] = unit(rng) < 0.5 ? box.lower[axis] : box.upper[axis];
  return p;
}

}  // namespace torva
