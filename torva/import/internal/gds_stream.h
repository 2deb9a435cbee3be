// The record layer of a GDSII stream: each record is a big-endian 2-byte
// length (header included), a record type and a data type, then its payload.
// The cursor hands out records with their byte offsets and checks that each
// fits in what is left of the stream; the decoders read the payload kinds.
#pragma once

#include <cmath>
#include <cstdint>
#include <span>
#include <string>

namespace torva::internal {

namespace gds_type {
enum : std::uint8_t {
  HEADER = 0x00, BGNLIB = 0x01, LIBNAME = 0x02, UNITS = 0x03, ENDLIB = 0x04, BGNSTR = 0x05,
  STRNAME = 0x06, ENDSTR = 0x07, BOUNDARY = 0x08, PATH = 0x09, SREF = 0x0A, AREF = 0x0B,
  TEXT = 0x0C, LAYER = 0x0D, DATATYPE = 0x0E, WIDTH = 0x0F, XY = 0x10, ENDEL = 0x11,
  SNAME = 0x12, COLROW = 0x13, NODE = 0x15, TEXTTYPE = 0x16, PRESENTATION = 0x17, STRING = 0x19,
  STRANS = 0x1A, MAG = 0x1B, ANGLE = 0x1C, PATHTYPE = 0x21, PROPATTR = 0x2B, PROPVALUE = 0x2C,
  BOX = 0x2D, BOXTYPE = 0x2E, BGNEXTN = 0x30, ENDEXTN = 0x31,
};
}
namespace gds_data {
enum : std::uint8_t { NONE = 0, BITS = 1, INT16 = 2, INT32 = 3, REAL4 = 4, REAL8 = 5, ASCII = 6 };
}

// The name of a record type for messages ("XY", "record 0x5f" if unknown).
std::string gds_record_name(std::uint8_t type);

// Records of the library's bookkeeping, outside cells, that the geometry does not need.
bool gds_library_bookkeeping(std::uint8_t type);
// The records that begin an element.
bool gds_element_start(std::uint8_t type);
// Records of an element that the geometry does not need.
bool gds_element_extra(std::uint8_t type);

struct gds_record {
  std::uint64_t offset = 0;  // of the header
  std::uint8_t type = 0;
  std::uint8_t data_type = 0;
  std::span<const std::uint8_t> payload;
};

inline std::int16_t gds_int16(const std::uint8_t* p) { return std::int16_t(std::uint16_t(p[0] << 8 | p[1])); }
inline std::uint16_t gds_uint16(const std::uint8_t* p) { return std::uint16_t(p[0] << 8 | p[1]); }
inline std::int32_t gds_int32(const std::uint8_t* p) {
  return std::int32_t(std::uint32_t(p[0]) << 24 | std::uint32_t(p[1]) << 16 | std::uint32_t(p[2]) << 8 | p[3]);
}

// The 8-byte real: sign bit, 7-bit power of 16 in excess 64, 56-bit fraction.
inline double gds_real8(const std::uint8_t* p) {
  std::uint64_t bits = 0;
  for (int i = 0; i < 8; ++i) bits = bits << 8 | p[i];
  const int exponent = int((bits >> 56) & 0x7f) - 64;
  const double value = std::ldexp(double(bits & 0x00ff'ffff'ffff'ffffull), 4 * exponent - 56);
  return (bits >> 63) ? -value : value;
}

class gds_cursor {
 public:
  explicit gds_cursor(std::span<const std::uint8_t> bytes) : bytes_(bytes) {}

  bool at_end() const { return at_ >= bytes_.size(); }
  std::uint64_t offset() const { return at_; }
  std::uint64_t size() const { return bytes_.size(); }
  // The next record; fails (with the byte offset) on a length below the
  // header's 4 bytes, an odd length, or a record running past the end.
  gds_record next(const std::string& file);

 private:
  std::span<const std::uint8_t> bytes_;
  std::uint64_t at_ = 0;
};

}  // namespace torva::internal
