// Which pair of search strategies the extractor builds. A walk's cube must
// never reach a conductor, so only pairs whose answer never exceeds the true
// clearance are chosen: hybrid-grid (7) measures an incline cell's bound by a
// prism's box and may then drop the nearer prism, so where the library's
// automatic choice would take it the extractor takes hybrid-grid-nd (8).
#pragma once

#include <cstdint>
#include <string>

#include "torva/foundation/errors.h"
#include "torva/foundation/logger.h"
#include "torva/layout/records.h"
#include "torva/space/space_manager.h"

namespace torva::internal {

inline std::uint32_t choose_search(const circuit_layout& layout, int requested, bool allow_unsafe) {
  if (requested < 0 || requested == 10) {
    const std::uint32_t automatic = automatic_spacemgr_type(layout);
    return automatic == 7 ? 8 : automatic;
  }
  if (requested > 10) {
    const std::string m = "search pair " + std::to_string(requested) + " does not exist (0 to 10)";
    logger::instance().error->print(("ERROR: " + m + "\n").c_str());
    throw sea::fatal_error(m.c_str());
  }
  if (requested == 7 && !allow_unsafe) {
    const std::string m = "search pair 7 (hybrid-grid) may answer more than the clearance; it needs the unsafe-search option";
    logger::instance().error->print(("ERROR: " + m + "\n").c_str());
    throw sea::fatal_error(m.c_str());
  }
  return std::uint32_t(requested);
}

}  // namespace torva::internal
