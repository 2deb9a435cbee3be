#include "torva/space/space_manager.h"

#include <algorithm>
#include <cstdint>

#include "torva/foundation/logger.h"

namespace torva {

namespace {

template <class Pair>
void build(space_manager& holder, const char* line, const configure& config, const circuit_layout& layout) {
  sea::writer& info = *logger::instance().info;
  info.print(line);
  info.flush();
  holder.construct<Pair>().initialize(config, layout);
}

// 32-bit arithmetic that wraps instead of overflowing.
std::int32_t wrap32(std::int64_t v) { return static_cast<std::int32_t>(static_cast<std::uint32_t>(v)); }

}  // namespace

std::uint32_t automatic_spacemgr_type(const circuit_layout& layout) {
  const std::int32_t c = layout.cuboid_size;
  const std::int32_t p = layout.prism_size;
  const std::uint64_t n = layout.blocks.size();
  if (wrap32(std::int64_t(c) + p) < 50) return 3;
  if (p > std::min(wrap32(80 * (std::int64_t(c) + 10)), 50000)) return 9;
  if (n > 10000) return 9;
  if (layout.crowding_ratio - 1e-10 > 0.5) return 9;
  if (layout.coarse_grid) return 9;
  if (p > std::min(wrap32(std::int64_t(c) + 10), 10000)) return 7;
  if (n > 199) return 5;
  const cuboid_t& box = layout.data.critical_box;
  const sea::double_wrapper ex = box.upper[0] - box.lower[0];
  const sea::double_wrapper ey = box.upper[1] - box.lower[1];
  const sea::double_wrapper ez = box.upper[2] - box.lower[2];
  const sea::double_wrapper longest = std::max(std::max(ex, ey), ez);
  const sea::double_wrapper shortest = std::min(std::min(ex, ey), ez);
  // A long, thin critical box with few blocks: one list serves best.
  if (longest.value - 1e-10 > static_cast<double>(n) * shortest.value) return 3;
  return 5;
}

void space_manager::initialize(const configure& config, const circuit_layout& layout) {
  std::uint32_t type = config.spacemgr_type;
  if (type == 10) {
    sea::writer& info = *logger::instance().info;
    info("prism size: %d, cuboid size: %d\n", layout.prism_size, layout.cuboid_size);
    info.flush();
    type = automatic_spacemgr_type(layout);
  }
  switch (type) {
    case 0: return build<simple_simple_manager>(*this, "using simple-simple space manager\n", config, layout);
    case 1: return build<octree_octree_manager>(*this, "using octree-octree space manager\n", config, layout);
    case 2: return build<hybrid_hybrid_manager>(*this, "using hybrid-hybrid space manager\n", config, layout);
    case 3: return build<simple_none_manager>(*this, "using simple-none space manager\n", config, layout);
    case 4: return build<octree_none_manager>(*this, "using octree-none space manager\n", config, layout);
    case 5: return build<hybrid_none_manager>(*this, "using hybrid-none space manager\n", config, layout);
    case 6: return build<hybrid_simple_manager>(*this, "using hybrid-simple space manager\n", config, layout);
    case 7: return build<hybrid_grid_manager>(*this, "using hybrid-grid space manager\n", config, layout);
    case 8: return build<hybrid_grid_nd_manager>(*this, "using hybrid-grid-nd space manager\n", config, layout);
    case 9: return build<grid_none_nd_manager>(*this, "using grid-none-nd space manager\n", config, layout);
    default: return;  // above 10: nothing at all
  }
}

}  // namespace torva
