// The dielectric stack a run asks tables for, as the client gives it.
#pragma once

#include <vector>

namespace torva {

// `diels` holds the dielectric values in layer order, with five filler entries
// in front of the first layer and six behind the last: a stack of k layers has
// n = k + 11 entries, the real ones at indices 5 to n - 7. The library reads
// only the length n of `layer_slots`, which the client keeps in step with
// `diels` (one slot per entry; here the slots are the clients' own doubles,
// such as layer boundaries). A `diels` shorter than n - 6 is refused, since the
// values the slots speak of would be missing.
struct dielectric_layers {
  std::vector<double> layer_slots;
  std::vector<double> diels;
};

}  // namespace torva
