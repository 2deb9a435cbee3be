#include "torva/check/binary_scan.h"

#include <cstdint>
#include <cstdio>
#include <cstring>
#include <string>

#include "torva/check/polygon_crossing.h"

namespace torva {

namespace {

template <class T>
T field(const char* p) {
  T v;
  std::memcpy(&v, p, sizeof v);
  return v;
}

}  // namespace

std::vector<finding> scan_layout_binary(std::string_view bytes, std::size_t limit) {
  finding_list found(limit);
  if (bytes.size() < 13 || bytes.substr(0, 12) != "CAP3D_BINARY") return found.take();
  const bool swap = (bytes[12] & 1) != 0;
  std::size_t at = 13, record = 0;
  std::string owner;
  while (at + 2 <= bytes.size()) {
    std::uint16_t bits = field<std::uint16_t>(bytes.data() + at);
    if (swap) bits = __builtin_bswap16(bits);
    const std::int16_t length = static_cast<std::int16_t>(bits);
    if (length < 2 || at + std::size_t(length) > bytes.size()) break;  // the reader refuses the rest
    ++record;
    const char* payload = bytes.data() + at + 3;
    const std::size_t size = length > 3 ? std::size_t(length) - 3 : 0;
    const unsigned char type = length > 2 ? static_cast<unsigned char>(bytes[at + 2]) : 0;
    if ((type == 8 || type == 6) && size >= (type == 8 ? 1u : 4u)) {
      const std::size_t skip = type == 8 ? 1 : 4;
      owner = std::string(type == 8 ? "conductor " : "medium ") + std::string(payload + skip, size - skip).c_str();
    } else if (type == 9 || type == 7) {
      owner.clear();
    } else if (type == 11 && size >= 17) {
      const unsigned n = static_cast<unsigned char>(payload[16]);
      if (n <= 63 && 17 + 16 * std::size_t(n) <= size) {
        std::vector<point2> outline(n);
        for (unsigned k = 0; k < n; ++k)
          outline[k] = point2{field<double>(payload + 17 + 16 * k), field<double>(payload + 25 + 16 * k)};
        const polygon_crossing c = find_self_crossing(outline);
        if (c.found) {
          char what[200];
          std::snprintf(what, sizeof what,
                        "a polygon outline crosses itself: the edges from points %zu and %zu cross at (%.15g, %.15g)",
                        c.edge_a + 1, c.edge_b + 1, c.x, c.y);
          found.add(severity::error, finding_kind::self_crossing, what,
                    "record " + std::to_string(record) + " (byte " + std::to_string(at) + ")" +
                        (owner.empty() ? std::string() : ", " + owner));
        }
      }
    }
    at += std::size_t(length);
  }
  return found.take();
}

}  // namespace torva
