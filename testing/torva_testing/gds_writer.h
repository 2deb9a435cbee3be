// Test support: a small writer of GDSII stream files, so that tests build
// their own cells (a plate, an array, a rotated reference, a 45-degree path)
// without a binary fixture. It writes what it is told, record by record: a
// test that wants a broken file writes the broken record itself with record().
#pragma once

#include <cmath>
#include <cstdint>
#include <cstdio>
#include <stdexcept>
#include <string>
#include <utility>
#include <vector>

namespace torva::testing {

// Record types and data types of the stream format.
namespace gds_record {
enum : std::uint8_t {
  HEADER = 0x00, BGNLIB = 0x01, LIBNAME = 0x02, UNITS = 0x03, ENDLIB = 0x04, BGNSTR = 0x05,
  STRNAME = 0x06, ENDSTR = 0x07, BOUNDARY = 0x08, PATH = 0x09, SREF = 0x0A, AREF = 0x0B,
  TEXT = 0x0C, LAYER = 0x0D, DATATYPE = 0x0E, WIDTH = 0x0F, XY = 0x10, ENDEL = 0x11,
  SNAME = 0x12, COLROW = 0x13, NODE = 0x15, TEXTTYPE = 0x16, PRESENTATION = 0x17, STRING = 0x19,
  STRANS = 0x1A, MAG = 0x1B, ANGLE = 0x1C, PATHTYPE = 0x21, PROPATTR = 0x2B, PROPVALUE = 0x2C,
  BOX = 0x2D, BOXTYPE = 0x2E, NODETYPE = 0x2A, BGNEXTN = 0x30, ENDEXTN = 0x31,
};
}
namespace gds_data {
enum : std::uint8_t { NONE = 0, BITS = 1, INT16 = 2, INT32 = 3, REAL8 = 5, ASCII = 6 };
}

struct gds_xy {
  std::int32_t x = 0, y = 0;
};

// How a reference places its cell: reflection about x first, then
// magnification, then rotation anticlockwise by angle degrees.
struct gds_strans {
  bool reflect = false;
  double mag = 1.0;
  double angle = 0.0;
  bool absolute_mag = false;
  bool absolute_angle = false;
};

// The 8-byte real of the stream: sign, excess-64 power of 16, 56-bit fraction.
inline std::uint64_t gds_real8(double v) {
  if (v == 0.0) return 0;
  std::uint64_t sign = 0;
  if (v < 0) {
    sign = 1ull << 63;
    v = -v;
  }
  int exponent = 64;
  while (v >= 1.0) {
    v /= 16.0;
    ++exponent;
  }
  while (v < 1.0 / 16.0) {
    v *= 16.0;
    --exponent;
  }
  auto mantissa = static_cast<std::uint64_t>(std::llround(std::ldexp(v, 56)));
  if (mantissa >> 56) {  // rounding carried into a new hex digit
    mantissa >>= 4;
    ++exponent;
  }
  return sign | (std::uint64_t(exponent) << 56) | mantissa;
}

class gds_writer {
 public:
  std::vector<std::uint8_t> bytes;

  // A raw record: header (length, type, data type), then the payload as given.
  gds_writer& record(std::uint8_t type, std::uint8_t data_type, const std::vector<std::uint8_t>& payload = {}) {
    const std::size_t length = payload.size() + 4;
    put16(std::uint16_t(length));
    bytes.push_back(type);
    bytes.push_back(data_type);
    bytes.insert(bytes.end(), payload.begin(), payload.end());
    return *this;
  }
  gds_writer& int16s(std::uint8_t type, const std::vector<std::int16_t>& values) {
    std::vector<std::uint8_t> p;
    for (auto v : values) push16(p, std::uint16_t(v));
    return record(type, gds_data::INT16, p);
  }
  gds_writer& bits(std::uint8_t type, std::uint16_t value) {
    std::vector<std::uint8_t> p;
    push16(p, value);
    return record(type, gds_data::BITS, p);
  }
  gds_writer& int32s(std::uint8_t type, const std::vector<std::int32_t>& values) {
    std::vector<std::uint8_t> p;
    for (auto v : values) push32(p, std::uint32_t(v));
    return record(type, gds_data::INT32, p);
  }
  gds_writer& reals(std::uint8_t type, const std::vector<double>& values) {
    std::vector<std::uint8_t> p;
    for (double v : values) {
      const std::uint64_t r = gds_real8(v);
      push32(p, std::uint32_t(r >> 32));
      push32(p, std::uint32_t(r));
    }
    return record(type, gds_data::REAL8, p);
  }
  gds_writer& ascii(std::uint8_t type, const std::string& s) {
    std::vector<std::uint8_t> p(s.begin(), s.end());
    if (p.size() % 2) p.push_back(0);
    return record(type, gds_data::ASCII, p);
  }
  gds_writer& xy(const std::vector<gds_xy>& points) {
    std::vector<std::int32_t> v;
    for (auto p : points) {
      v.push_back(p.x);
      v.push_back(p.y);
    }
    return int32s(gds_record::XY, v);
  }

  // Library frame. user_unit: user units per database unit; metres: metres per database unit.
  gds_writer& begin_library(const std::string& name = "LIB", double user_unit = 1e-3, double metres = 1e-9) {
    int16s(gds_record::HEADER, {600});
    int16s(gds_record::BGNLIB, std::vector<std::int16_t>(12, 1));
    ascii(gds_record::LIBNAME, name);
    return reals(gds_record::UNITS, {user_unit, metres});
  }
  gds_writer& end_library() { return record(gds_record::ENDLIB, gds_data::NONE); }
  gds_writer& begin_cell(const std::string& name) {
    int16s(gds_record::BGNSTR, std::vector<std::int16_t>(12, 1));
    return ascii(gds_record::STRNAME, name);
  }
  gds_writer& end_cell() { return record(gds_record::ENDSTR, gds_data::NONE); }

  // Elements. A boundary's points are given open; the writer closes the ring.
  gds_writer& boundary(int layer, int datatype, std::vector<gds_xy> points) {
    record(gds_record::BOUNDARY, gds_data::NONE);
    int16s(gds_record::LAYER, {std::int16_t(layer)});
    int16s(gds_record::DATATYPE, {std::int16_t(datatype)});
    if (!points.empty()) points.push_back(points.front());
    xy(points);
    return end_element();
  }
  gds_writer& rectangle(int layer, int datatype, std::int32_t x0, std::int32_t y0, std::int32_t x1, std::int32_t y1) {
    return boundary(layer, datatype, {{x0, y0}, {x1, y0}, {x1, y1}, {x0, y1}});
  }
  gds_writer& box(int layer, int boxtype, std::int32_t x0, std::int32_t y0, std::int32_t x1, std::int32_t y1) {
    record(gds_record::BOX, gds_data::NONE);
    int16s(gds_record::LAYER, {std::int16_t(layer)});
    int16s(gds_record::BOXTYPE, {std::int16_t(boxtype)});
    xy({{x0, y0}, {x1, y0}, {x1, y1}, {x0, y1}, {x0, y0}});
    return end_element();
  }
  gds_writer& path(int layer, int datatype, std::int32_t width, int pathtype, const std::vector<gds_xy>& points,
                   std::int32_t begin_extension = 0, std::int32_t end_extension = 0) {
    record(gds_record::PATH, gds_data::NONE);
    int16s(gds_record::LAYER, {std::int16_t(layer)});
    int16s(gds_record::DATATYPE, {std::int16_t(datatype)});
    int16s(gds_record::PATHTYPE, {std::int16_t(pathtype)});
    int32s(gds_record::WIDTH, {width});
    if (pathtype == 4) {
      int32s(gds_record::BGNEXTN, {begin_extension});
      int32s(gds_record::ENDEXTN, {end_extension});
    }
    xy(points);
    return end_element();
  }
  gds_writer& text(int layer, int texttype, gds_xy at, const std::string& s) {
    record(gds_record::TEXT, gds_data::NONE);
    int16s(gds_record::LAYER, {std::int16_t(layer)});
    int16s(gds_record::TEXTTYPE, {std::int16_t(texttype)});
    bits(gds_record::PRESENTATION, 0);
    xy({at});
    ascii(gds_record::STRING, s);
    return end_element();
  }
  gds_writer& node(int layer, gds_xy at) {
    record(gds_record::NODE, gds_data::NONE);
    int16s(gds_record::LAYER, {std::int16_t(layer)});
    int16s(gds_record::NODETYPE, {0});
    xy({at});
    return end_element();
  }
  gds_writer& sref(const std::string& cell, gds_xy at, const gds_strans& t = {}) {
    record(gds_record::SREF, gds_data::NONE);
    ascii(gds_record::SNAME, cell);
    strans(t);
    xy({at});
    return end_element();
  }
  // origin, origin displaced by columns column pitches, by rows row pitches.
  gds_writer& aref(const std::string& cell, int columns, int rows, gds_xy origin, gds_xy column_end, gds_xy row_end,
                   const gds_strans& t = {}) {
    record(gds_record::AREF, gds_data::NONE);
    ascii(gds_record::SNAME, cell);
    strans(t);
    int16s(gds_record::COLROW, {std::int16_t(columns), std::int16_t(rows)});
    xy({origin, column_end, row_end});
    return end_element();
  }
  gds_writer& property(int attribute, const std::string& value) {
    int16s(gds_record::PROPATTR, {std::int16_t(attribute)});
    return ascii(gds_record::PROPVALUE, value);
  }
  gds_writer& end_element() { return record(gds_record::ENDEL, gds_data::NONE); }

  void save(const std::string& file) const {
    FILE* f = std::fopen(file.c_str(), "wb");
    if (f == nullptr) throw std::runtime_error("cannot write " + file);
    const bool ok = std::fwrite(bytes.data(), 1, bytes.size(), f) == bytes.size();
    if (std::fclose(f) != 0 || !ok) throw std::runtime_error("cannot write " + file);
  }

 private:
  gds_writer& strans(const gds_strans& t) {
    if (!t.reflect && t.mag == 1.0 && t.angle == 0.0 && !t.absolute_mag && !t.absolute_angle) return *this;
    std::uint16_t bits = 0;
    if (t.reflect) bits |= 0x8000;
    if (t.absolute_mag) bits |= 0x0004;
    if (t.absolute_angle) bits |= 0x0002;
    this->bits(gds_record::STRANS, bits);
    if (t.mag != 1.0) reals(gds_record::MAG, {t.mag});
    if (t.angle != 0.0) reals(gds_record::ANGLE, {t.angle});
    return *this;
  }
  void put16(std::uint16_t v) { push16(bytes, v); }
  static void push16(std::vector<std::uint8_t>& p, std::uint16_t v) {
    p.push_back(std::uint8_t(v >> 8));
    p.push_back(std::uint8_t(v));
  }
  static void push32(std::vector<std::uint8_t>& p, std::uint32_t v) {
    push16(p, std::uint16_t(v >> 16));
    push16(p, std::uint16_t(v));
  }
};

}  // namespace torva::testing
