// How the extractor gives up on a layout: the line on the error channel, then
// the throw, as the rest of the library does.
#pragma once

#include <string>

#include "torva/foundation/errors.h"
#include "torva/foundation/logger.h"

namespace torva::internal {

[[noreturn]] inline void refuse(const std::string& message) {
  sea::writer& err = *logger::instance().error;
  err.print(("ERROR: " + message + "\n").c_str());
  err.flush();
  throw sea::fatal_error(message.c_str());
}

}  // namespace torva::internal
