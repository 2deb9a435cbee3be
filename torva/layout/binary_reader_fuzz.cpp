// Fuzzing harness: any bytes behind the binary header as a binary layout
// file, read with a text dump. The reader must answer true or false, or throw
// what it is documented to throw; never read beyond a record. The bytes go in
// through parseBytes, the file path's own code without the file (proven alike
// by cap3d_parser_bytes_test.cpp).
#include <cstdint>
#include <cstring>
#include <stdexcept>
#include <vector>

#include "torva/foundation/errors.h"
#include "torva/layout/cap3d_parser.h"
#include "torva/layout/records.h"
#include "torva_testing/fuzz_support.h"

extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t* data, std::size_t size) {
  using namespace torva;
  fuzzing::quiet_logger();
  std::vector<char> file(Cap3dParser::BIN_FLAG.begin(), Cap3dParser::BIN_FLAG.end());
  file.insert(file.end(), data, data + size);
  circuit_layout::raw raw;
  const bool cuboids_only = size > 1 && (data[1] & 0x80);
  Cap3dParser parser(raw, 2, true, cuboids_only);
  try {
    // The dump goes to /dev/null, which is the same pooled stream every time.
    parser.parseBytes(file.data(), file.size(), "null");
  } catch (const sea::base_error&) {
  } catch (const std::length_error&) {
    // A polygon count of 64 to 127 cannot size its vertex list.
  }
  return 0;
}
