#include "over_answer.h"

#include <cmath>

#include "torva/geometry/distance.h"

namespace torva::cli {

bool may_over_answer(const built_index& index) { return index.pair == "hybrid-grid"; }

bool over_answers(const circuit_layout& layout, const point3& p, const nearest_result& r, double limit) {
  constexpr double tol = 1e-9;
  const double said = r.distance.value;
  if (!(said > brute_nearest(layout, p).distance + tol) || said > limit + tol) return false;
  return r.block == nullptr || std::abs(manhattan_distance(p, *r.block).value - said) <= tol;
}

}  // namespace torva::cli
