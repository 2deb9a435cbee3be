// The abstract face of a pair of search strategies: the nearest conductor
// block from a point, and the search space. A manager is immutable once
// built; any number of threads may query it at once, each with its own pair
// of caches (one for each strategy of the pair).
#pragma once

#include "torva/foundation/double_wrapper.h"
#include "torva/foundation/point.h"
#include "torva/solids/solids.h"
#include "torva/space/candidate_list_cache.h"

namespace torva {

struct space_manager_interface {
  // The nearest block from `point` and its distance, never more than `limit`.
  virtual nearest_result nearest(const point3& point, sea::double_wrapper limit,
                                 candidate_list_cache& first_cache,
                                 candidate_list_cache& second_cache) const = 0;
  // The box that the search structures cover.
  virtual const cuboid_t& space() const = 0;
  virtual ~space_manager_interface() = default;
};

}  // namespace torva
