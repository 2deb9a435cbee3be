#include "torva/layout/records.h"

namespace torva {

std::deque<std::string> _WIRE_BLOCK_LAYER_NAME_;

}  // namespace torva
