#include "torva/check/coincident.h"

#include <cstdint>
#include <functional>
#include <unordered_map>

namespace torva {

bool same_solid(const wire_block& a, const wire_block& b) {
  if (a.shape_kind != b.shape_kind) return false;
  for (int k = 0; k < 3; ++k)
    if (a.outer_box.lower[k].value != b.outer_box.lower[k].value ||
        a.outer_box.upper[k].value != b.outer_box.upper[k].value)
      return false;
  if (a.shape_kind == shape_cuboid) return true;
  if (a.shape_kind == shape_cylinder)
    return a.cylinder().radius.value == b.cylinder().radius.value &&
           a.cylinder().half_height.value == b.cylinder().half_height.value;
  if (a.shape_kind != shape_prism) return false;
  const nprism_t &p = a.prism(), &q = b.prism();
  if (p.size != q.size) return false;
  for (std::uint64_t i = 0; i < p.size && i < 8; ++i)
    if (p.points[i][0].value != q.points[i][0].value || p.points[i][1].value != q.points[i][1].value) return false;
  return true;
}

coincident_blocks find_coincident_blocks(const std::vector<const wire_block*>& blocks, std::size_t max_pairs) {
  coincident_blocks out;
  out.kept.reserve(blocks.size());
  // Blocks by a hash of their kind and box; a bucket holds the kept ones.
  std::unordered_map<std::uint64_t, std::vector<const wire_block*>> seen;
  for (const wire_block* b : blocks) {
    std::uint64_t h = b->shape_kind;
    for (int k = 0; k < 3; ++k) {
      h = h * 1000003u ^ std::hash<double>{}(b->outer_box.lower[k].value);
      h = h * 1000003u ^ std::hash<double>{}(b->outer_box.upper[k].value);
    }
    bool repeat = false;
    std::vector<const wire_block*>& bucket = seen[h];
    for (const wire_block* o : bucket) {
      if (!same_solid(*o, *b)) continue;
      if (o->net == b->net) {
        repeat = true;
        break;
      }
      if (out.across_count++ < max_pairs) out.across.emplace_back(o, b);
    }
    if (repeat) {
      ++out.repeats;
      continue;
    }
    bucket.push_back(b);
    out.kept.push_back(b);
  }
  return out;
}

}  // namespace torva
