// Bounds and the syntax error shared by the record readers of the binary form.
#pragma once

namespace torva::internal {

// Names are read into an area of this size that ends with a NUL, so a name
// field must be shorter.
inline constexpr int binary_name_area = 1024;

// True if a payload of `payload_size` bytes holds `fixed` bytes of fields and
// behind them a name that fits the area.
inline bool binary_payload_fits(short payload_size, int fixed) noexcept {
  return payload_size >= fixed && payload_size - fixed < binary_name_area;
}

// Writes "ERROR: Syntax error in cap3d file." on logger::error; false, for the
// reader to return.
bool binary_syntax_error();

}  // namespace torva::internal
