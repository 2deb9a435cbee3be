// Table kinds. A table is Count rows of Size single-precision floats, held as
// a plain array with no header; the file it comes from has a header of Header
// bytes in front that is skipped unread. The type code of the kind says how a
// row is finished after reading.
#pragma once

#include <cstddef>
#include <cstdint>

namespace torva {

// Type codes of table kinds: the high nibble 1 and a single low bit.
inline constexpr std::uint32_t cumulative_table = 268435457;       // 0x10000001: sampling weights
inline constexpr std::uint32_t absolute_table = 268435458;         // 0x10000002: walk weight values
inline constexpr std::uint32_t totals_table_b = 268435460;         // 0x10000004: weights with kept row totals
inline constexpr std::uint32_t totals_table_xy_b = 268435464;      // 0x10000008: weights with kept row totals

// The element layout of one row kind. In memory elements are always T = float.
template <std::uint32_t Type, std::size_t Size, class T = float>
struct table_data {
  using value_type = T;
  static constexpr std::uint32_t type = Type;
  static constexpr std::size_t size = Size;
};

// Count rows of Data, read from a file with a Header-byte header.
template <std::size_t Header, std::size_t Count, class Data>
struct table_file {
  using data_type = Data;
  using value_type = typename Data::value_type;
  static constexpr std::size_t header = Header;
  static constexpr std::size_t count = Count;
  static constexpr std::uint32_t type = Data::type;
  static constexpr std::size_t row_size = Data::size;
  static constexpr std::size_t elements = Count * Data::size;
  // Length of the file in its float form, and in its double form.
  static constexpr std::size_t float_file_bytes = Header + elements * 4;
  static constexpr std::size_t double_file_bytes = Header + elements * 8;

  value_type* row(std::size_t r) { return values + r * row_size; }
  const value_type* row(std::size_t r) const { return values + r * row_size; }
  value_type& operator[](std::size_t i) { return values[i]; }
  const value_type& operator[](std::size_t i) const { return values[i]; }
  value_type* begin() { return values; }
  value_type* end() { return values + elements; }
  const value_type* begin() const { return values; }
  const value_type* end() const { return values + elements; }

  value_type values[elements];
};

// The kinds read whole by table_loader::load_file.
using two_layer_wvt_is_table = table_file<24, 22, table_data<absolute_table, 3>>;
using two_layer_gft_table = table_file<24, 22, table_data<cumulative_table, 3174>>;
using two_layer_gft_is_table = table_file<24, 66, table_data<cumulative_table, 3174>>;
using half_layer_wvt_is_table = table_file<24, 1, table_data<absolute_table, 3>>;
using half_layer_gft_table = table_file<24, 1, table_data<cumulative_table, 3456>>;
using half_layer_gft_is_table = table_file<24, 3, table_data<cumulative_table, 3456>>;
using three_layer_wvt_is_table = table_file<28, 55, table_data<absolute_table, 3>>;
using three_layer_gft_table = table_file<28, 55, table_data<cumulative_table, 3456>>;
using three_layer_gft_is_table = table_file<28, 165, table_data<cumulative_table, 3456>>;
using four_layer_gft_table = table_file<36, 165, table_data<cumulative_table, 3456>>;

// Records of the compressed files read by table_loader::preload_approx: a file
// is n such records, each a 36-byte header and one row.
using cmpr_gft_a_record = table_file<36, 1, table_data<cumulative_table, 150>>;
using cmpr_gft_b_record = table_file<36, 1, table_data<totals_table_b, 144>>;
using cmpr_gft_is_z_record = table_file<36, 1, table_data<cumulative_table, 444>>;
using cmpr_gft_is_xy_a_record = table_file<36, 1, table_data<cumulative_table, 288>>;
using cmpr_gft_is_xy_b_record = table_file<36, 1, table_data<totals_table_xy_b, 288>>;
using cmpr_wvt_is_record = table_file<36, 1, table_data<absolute_table, 2>>;

}  // namespace torva
