// Fuzzing harness: any bytes as a process stack. The reader must accept the
// stack or refuse it with sea::file_error; nothing else may escape it.
#include <cstdint>
#include <string_view>

#include "torva/foundation/errors.h"
#include "torva/import/process_stack.h"

extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t* data, std::size_t size) {
  try {
    const torva::process_stack s =
        torva::parse_stack(std::string_view(reinterpret_cast<const char*>(data), size), "fuzz.json");
    (void)torva::wrap_shells(s);
    (void)s.known_pairs();
  } catch (const torva::sea::file_error&) {
  }
  return 0;
}
