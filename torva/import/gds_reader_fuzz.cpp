// Fuzzing harness: any bytes as a GDSII stream, read and then flattened
// under each of its first cells. The reader and the flattener must answer or
// throw one of the library's errors; never crash, hang, or grow without bound
// (the limits here keep a flattened cell to a few megabytes).
#include <cstdint>

#include "torva/foundation/errors.h"
#include "torva/import/gds_flatten.h"
#include "torva/import/gds_reader.h"
#include "torva_testing/fuzz_support.h"

extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t* data, std::size_t size) {
  using namespace torva;
  fuzzing::quiet_logger();
  gds_read_options read;
  read.round_end_segments = 8;
  read.progress = [](std::uint64_t, std::uint64_t) {};
  gds_library lib;
  try {
    lib = read_gds_bytes({data, size}, "fuzz.gds", read);
  } catch (const sea::base_error&) {
    return 0;
  }
  gds_flatten_options flatten;
  flatten.max_polygons = 100'000;
  flatten.max_bytes = std::uint64_t(16) << 20;
  flatten.max_depth = 64;
  flatten.progress = [](std::uint64_t, std::uint64_t) {};
  for (std::size_t i = 0; i <= lib.cells.size() && i < 4; ++i) {
    // First the top found by the rule, then each cell by name.
    flatten.top = i == 0 ? "" : lib.cells[i - 1].name;
    try {
      const gds_flat_cell flat = flatten_gds(lib, flatten);
      (void)flat.polygon_count();
    } catch (const sea::base_error&) {
    }
  }
  return 0;
}
