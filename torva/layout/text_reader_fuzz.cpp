// Fuzzing harness: any bytes as a text layout file. The reader must answer
// true, false after one syntax line, or throw one of the errors it is
// documented to throw; never crash, hang or touch memory it does not own.
#include <cstdint>
#include <stdexcept>

#include "torva/foundation/errors.h"
#include "torva/layout/cap3d_parser.h"
#include "torva/layout/records.h"
#include "torva_testing/fuzz_support.h"

extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t* data, std::size_t size) {
  using namespace torva;
  fuzzing::quiet_logger();
  // Keep the first bytes from reading as a binary file: that form has its own harness.
  if (size >= 12 && std::string(reinterpret_cast<const char*>(data), 12) == Cap3dParser::BIN_FLAG) return 0;
  const std::string& path = fuzzing::write_scratch(data, size);
  _WIRE_BLOCK_LAYER_NAME_.clear();
  circuit_layout::raw raw;
  // The first byte picks the reader's switches, so all of them get exercised.
  const int slices = size > 0 ? data[0] % 4 : 1;
  const bool floating = size > 0 && (data[0] & 4);
  const bool cuboids_only = size > 0 && (data[0] & 8);
  Cap3dParser parser(raw, slices, floating, cuboids_only);
  try {
    parser.parse(path, "");
  } catch (const sea::base_error&) {
    // Geometry the reader cannot represent: a documented way out.
  }
  return 0;
}
