#include "figures.h"

#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <fstream>

#include "torva/layout/records.h"

namespace torva::cli {

std::string format_seconds(double s) {
  char b[48];
  if (s < 1e-6)
    std::snprintf(b, sizeof b, "%.0f ns", s * 1e9);
  else if (s < 1e-3)
    std::snprintf(b, sizeof b, "%.1f us", s * 1e6);
  else if (s < 1.0)
    std::snprintf(b, sizeof b, "%.1f ms", s * 1e3);
  else
    std::snprintf(b, sizeof b, "%.2f s", s);
  return b;
}

std::string format_bytes(double bytes) {
  static const char* units[] = {"B", "KiB", "MiB", "GiB", "TiB"};
  int u = 0;
  while (bytes >= 1024.0 && u < 4) {
    bytes /= 1024.0;
    ++u;
  }
  char b[48];
  std::snprintf(b, sizeof b, u == 0 ? "%.0f %s" : "%.1f %s", bytes, units[u]);
  return b;
}

namespace {
std::uint64_t status_field(const char* key) {
  std::ifstream status("/proc/self/status");
  std::string line;
  const std::size_t n = std::strlen(key);
  while (std::getline(status, line)) {
    if (line.compare(0, n, key) == 0) return std::strtoull(line.c_str() + n, nullptr, 10) * 1024;
  }
  return 0;
}
}  // namespace

std::uint64_t resident_bytes() { return status_field("VmRSS:"); }
std::uint64_t peak_resident_bytes() { return status_field("VmHWM:"); }

const char* solid_kind_name(std::uint32_t kind) {
  switch (kind) {
    case shape_cuboid: return "cuboid";
    case shape_cylinder: return "cylinder";
    case shape_prism: return "prism";
    default: return "other";
  }
}

}  // namespace torva::cli
