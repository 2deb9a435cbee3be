// Figures the subcommands print: elapsed time, sizes and the process's
// memory, with the names of solid kinds.
#pragma once

#include <chrono>
#include <cstdint>
#include <string>

namespace torva::cli {

// Seconds since `start`.
inline double seconds_since(std::chrono::steady_clock::time_point start) {
  return std::chrono::duration<double>(std::chrono::steady_clock::now() - start).count();
}

// "12.3 ms", "4.56 s", ...
std::string format_seconds(double s);
// "1.5 MiB", ...
std::string format_bytes(double bytes);
// Resident and peak resident memory of the process in bytes (0 if unknown).
std::uint64_t resident_bytes();
std::uint64_t peak_resident_bytes();

// The number of the kind: "cuboid", "cylinder", "prism", or "kind N".
const char* solid_kind_name(std::uint32_t kind);

}  // namespace torva::cli
