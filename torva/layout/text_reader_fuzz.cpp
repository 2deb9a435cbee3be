// Fuzzing harness: any bytes as a text layout file. The reader must answer
// true, false after one syntax line, or throw one of the errors it is
// documented to throw; never crash, hang or touch memory it does not own.
// The bytes go in through parseBytes, the file path's own code without the
// file (proven alike by cap3d_parser_bytes_test.cpp).
#include <cstdint>
#include <cstring>
#include <stdexcept>

#include "torva/foundation/errors.h"
#include "torva/layout/cap3d_parser.h"
#include "torva/layout/records.h"
#include "torva_testing/fuzz_support.h"

extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t* data, std::size_t size) {
  using namespace torva;
  fuzzing::quiet_logger();
  const char* bytes = reinterpret_cast<const char*>(data);
  // Keep the first bytes from reading as a binary file: that form has its own harness.
  if (size >= 12 && std::memcmp(bytes, Cap3dParser::BIN_FLAG.data(), 12) == 0) return 0;
  // The list of layer names lives in the process; emptied after the read as
  // well, so that every allocation of a run is freed within it and the
  // fuzzer's leak check stays quiet.
  _WIRE_BLOCK_LAYER_NAME_.clear();
  {
    circuit_layout::raw raw;
    // The first byte picks the reader's switches, so all of them get exercised.
    const int slices = size > 0 ? data[0] % 4 : 1;
    const bool floating = size > 0 && (data[0] & 4);
    const bool cuboids_only = size > 0 && (data[0] & 8);
    Cap3dParser parser(raw, slices, floating, cuboids_only);
    try {
      parser.parseBytes(bytes, size, "");
    } catch (const sea::base_error&) {
      // Geometry the reader cannot represent: a documented way out.
    }
  }
  _WIRE_BLOCK_LAYER_NAME_.clear();
  return 0;
}
