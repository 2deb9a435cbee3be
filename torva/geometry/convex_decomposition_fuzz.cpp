// Fuzzing harness: arbitrary vertex lists through the convex decomposition.
// Any outline (self-touching, collinear, doubled back, huge or tiny
// coordinates) must end in pieces or in a warning, never in a fault.
#include <cmath>
#include <cstdint>
#include <cstring>
#include <vector>

#include "torva/geometry/convex_decomposition.h"
#include "torva_testing/fuzz_support.h"

extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t* data, std::size_t size) {
  using namespace torva;
  fuzzing::quiet_logger();
  if (size < 1) return 0;
  // First byte: how coordinates are read. Small integers give the exact
  // collinear and coincident cases real outlines have; raw doubles give
  // everything else, non-finite values included.
  const bool raw_doubles = data[0] & 1;
  const double scale = (data[0] >> 1) % 8 == 0 ? 1.0 : std::ldexp(1.0, int((data[0] >> 1) % 8) * 6 - 20);
  ++data;
  --size;
  nprism_large_t poly;
  poly.bottom = 0.0;
  poly.top = 1.0;
  if (raw_doubles) {
    for (std::size_t i = 0; i + 16 <= size && poly.points.size() < 64; i += 16) {
      double x, y;
      std::memcpy(&x, data + i, 8);
      std::memcpy(&y, data + i + 8, 8);
      poly.points.push_back(point2{{x, y}});
    }
  } else {
    for (std::size_t i = 0; i + 2 <= size && poly.points.size() < 64; i += 2) {
      const double x = double(std::int8_t(data[i]) % 16) * scale;
      const double y = double(std::int8_t(data[i + 1]) % 16) * scale;
      poly.points.push_back(point2{{x, y}});
    }
  }
  poly.size = poly.points.size();
  std::vector<nprism_large_t> pieces;
  convex_decomposition(poly, pieces);
  for (const nprism_large_t& piece : pieces) {
    if (piece.size != piece.points.size()) __builtin_trap();  // the size field must follow the points
    is_anticlock(piece.points.begin(), piece.size);
  }
  return 0;
}
