// Joining path parts with "/".
#pragma once

#include <string>
#include <string_view>

namespace torva::sea::path {

inline std::string join(std::string_view base) { return std::string(base); }

// An empty base gives the tail; a base ending in "/" gets no second slash; any
// other base gets one. The tail is not examined: join(dir, "") is dir with
// exactly one trailing slash, or empty for an empty dir.
template <class... Rest>
std::string join(std::string_view base, std::string_view next, const Rest&... rest) {
  std::string tail = join(next, rest...);
  if (base.empty()) return tail;
  std::string out(base);
  if (out.back() != '/') out.push_back('/');
  out += tail;
  return out;
}

}  // namespace torva::sea::path
