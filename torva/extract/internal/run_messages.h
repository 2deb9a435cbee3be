// How the extractor speaks while it runs: warnings, also kept in the result,
// and progress lines, on the logger's channels.
#pragma once

#include <string>

#include "torva/extract/extractor.h"
#include "torva/foundation/logger.h"

namespace torva::internal {

inline void warn(extract_result& result, const std::string& message) {
  sea::writer& w = *logger::instance().warning;
  w.print(("WARNING: " + message + "\n").c_str());
  w.flush();
  result.warnings.push_back(message);
}

inline void info(const std::string& message) {
  sea::writer& w = *logger::instance().info;
  w.print((message + "\n").c_str());
  w.flush();
}

}  // namespace torva::internal
