// Nearest-conductor queries for a batch of points, split across threads that
// each keep their own pair of candidate-list caches, as walkers do. Shared by
// the Python module and the benchmark that measures it against plain C++.
#pragma once

#include <omp.h>

#include <atomic>
#include <cstdint>
#include <limits>
#include <vector>

#include "torva/space/space_manager.h"

namespace torva::python {

// Maps a block's address to its position in the file's order: one probe into
// a flat table, cheap beside the query it follows.
class block_ids {
 public:
  explicit block_ids(const circuit_layout::raw& layout) {
    std::size_t capacity = 16;
    while (capacity < 2 * layout.wire_blocks.size()) capacity *= 2;
    mask_ = capacity - 1;
    slots_.assign(capacity, {nullptr, -1});
    std::int64_t id = 0;
    for (const wire_block& b : layout.wire_blocks) {
      std::size_t s = slot_of(&b);
      while (slots_[s].first != nullptr) s = (s + 1) & mask_;
      slots_[s] = {&b, id++};
    }
  }
  std::int64_t operator()(const wire_block* b) const noexcept {
    if (b == nullptr) return -1;
    for (std::size_t s = slot_of(b);; s = (s + 1) & mask_) {
      if (slots_[s].first == b) return slots_[s].second;
      if (slots_[s].first == nullptr) return -1;
    }
  }

 private:
  std::size_t slot_of(const wire_block* b) const noexcept {
    return std::size_t((std::uintptr_t(b) >> 4) * 0x9E3779B97F4A7C15ull >> 20) & mask_;
  }
  std::vector<std::pair<const wire_block*, std::int64_t>> slots_;
  std::size_t mask_ = 0;
};

// Answers points[i] (x, y, z in a row) into distance[i], reach[i] and block[i]
// (-1 where the answer names no block). A point outside `space`, or with a
// NaN, is not asked: its answers are NaN and -1, and the least such index is
// returned (n when every point was inside).
inline std::size_t nearest_batch(const space_manager& manager, const block_ids& ids, const double* points,
                                 std::size_t n, double limit, int threads, double* distance, double* reach,
                                 std::int64_t* block) {
  const cuboid_t space = manager->space();
  std::atomic<std::size_t> first_outside{n};
  const std::int64_t count = std::int64_t(n);
#pragma omp parallel num_threads(threads)
  {
    candidate_list_cache first, second;
#pragma omp for schedule(static)
    for (std::int64_t i = 0; i < count; ++i) {
      const double* q = points + 3 * i;
      bool inside = true;
      for (int k = 0; k < 3; ++k) inside = inside && q[k] >= space.lower[k].value && q[k] <= space.upper[k].value;
      if (!inside) {
        distance[i] = reach[i] = std::numeric_limits<double>::quiet_NaN();
        block[i] = -1;
        std::size_t seen = first_outside.load(std::memory_order_relaxed);
        while (std::size_t(i) < seen && !first_outside.compare_exchange_weak(seen, std::size_t(i))) {
        }
        continue;
      }
      const nearest_result r = manager->nearest(point3{{q[0], q[1], q[2]}}, limit, first, second);
      distance[i] = r.distance.value;
      reach[i] = r.reach.value;
      block[i] = ids(r.block);
    }
  }
  return first_outside.load();
}

}  // namespace torva::python
