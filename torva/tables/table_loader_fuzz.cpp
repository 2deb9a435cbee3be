// Fuzzing harness: arbitrary contents of a table file through the readers.
// A file of the wrong length is refused; one of the right length is read
// and finished whatever its floats hold (NaN, infinities, denormals).
#include <cstdint>
#include <cstdlib>
#include <cstring>
#include <memory>
#include <vector>

#include "torva/foundation/errors.h"
#include "torva/tables/table_file.h"
#include "torva/tables/table_loader.h"
#include "torva_testing/fuzz_support.h"

namespace {

using namespace torva;

// 0: as given; 1: cut or padded to the float form's length; 2: to the double form's.
template <class F>
void read_as(const std::uint8_t* data, std::size_t size, int fit) {
  std::vector<std::uint8_t> bytes(data, data + size);
  if (fit == 1) bytes.resize(F::float_file_bytes);
  if (fit == 2) bytes.resize(F::double_file_bytes);
  const std::string& path = fuzzing::write_scratch(bytes.data(), bytes.size());
  auto table = std::make_unique<F>();
  table_loader loader(nullptr, nullptr, nullptr);
  try {
    loader.load_file(*table, path.c_str());
  } catch (const sea::base_error&) {
  }
}

}  // namespace

extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t* data, std::size_t size) {
  fuzzing::quiet_logger();
  if (size < 1) return 0;
  const int kind = data[0] % 5;
  const int fit = (data[0] / 5) % 3;
  ++data;
  --size;
  switch (kind) {
    case 0: read_as<half_layer_wvt_is_table>(data, size, fit); break;
    case 1: read_as<two_layer_wvt_is_table>(data, size, fit); break;
    case 2: read_as<half_layer_gft_table>(data, size, fit); break;
    case 3: read_as<three_layer_wvt_is_table>(data, size, fit); break;
    default: {
      // A compressed file of n records read whole.
      const int n = size > 0 ? data[0] % 8 : 0;
      const std::string& path = fuzzing::write_scratch(data, size);
      table_loader loader(nullptr, nullptr, nullptr);
      char* buffer = nullptr;
      try {
        loader.preload_approx<cmpr_wvt_is_record>(n, buffer, path.c_str());
      } catch (const sea::base_error&) {
      }
      std::free(buffer);
      break;
    }
  }
  return 0;
}
