// The records of the binary form as the writer makes them: the record types,
// a builder that writes one whole record at a time, and the records of
// solids, layers, parameters, plate media and net marks.
#pragma once

#include <algorithm>
#include <cstdint>
#include <cstring>
#include <string>

#include "torva/foundation/writer.h"
#include "torva/layout/binary_writer.h"
#include "torva/layout/cap3d_parser.h"
#include "torva/layout/records.h"

namespace torva::internal {

// Record types of the format.
enum : unsigned char {
  note_record = 0,
  plate_medium_record = 1,
  layer_record = 2,
  window_record = 3,
  parameter_record = 4,
  task_record = 5,
  medium_begin_record = 6,
  medium_end_record = 7,
  conductor_begin_record = 8,
  conductor_end_record = 9,
  block_record = 10,
  polygon_record = 11,
};

constexpr std::size_t max_record = 32767;

// Builds one record at a time and writes it whole.
class record_writer {
 public:
  record_writer(sea::writer& out, bool swapped, binary_write_summary& summary)
      : out_(out), swapped_(swapped), summary_(summary) {
    record_.reserve(256);
  }

  void header() {
    out_.write(Cap3dParser::BIN_FLAG.data(), Cap3dParser::BIN_FLAG.size());
    out_.write(swapped_ ? '\1' : '\0');
    summary_.bytes += Cap3dParser::BIN_FLAG.size() + 1;
  }

  void begin(unsigned char type) {
    record_.assign(2, '\0');
    record_.push_back(static_cast<char>(type));
  }

  void u8(unsigned char v) { record_.push_back(static_cast<char>(v)); }
  void i16(std::int16_t v) {
    std::uint16_t bits = static_cast<std::uint16_t>(v);
    if (swapped_) bits = __builtin_bswap16(bits);
    raw(&bits, sizeof bits);
  }
  void i32(std::int32_t v) {
    std::uint32_t bits = static_cast<std::uint32_t>(v);
    if (swapped_) bits = __builtin_bswap32(bits);
    raw(&bits, sizeof bits);
  }
  void f32(float v) { raw(&v, sizeof v); }
  void f64(double v) { raw(&v, sizeof v); }
  void text(const std::string& s) { record_.append(s); }

  void end() {
    // Names are checked, so no record comes near the limit.
    std::int16_t length = static_cast<std::int16_t>(std::min(record_.size(), max_record));
    std::uint16_t bits = static_cast<std::uint16_t>(length);
    if (swapped_) bits = __builtin_bswap16(bits);
    std::memcpy(record_.data(), &bits, sizeof bits);
    out_.write(record_.data(), record_.size());
    ++summary_.records;
    summary_.bytes += record_.size();
  }

 private:
  void raw(const void* p, std::size_t n) { record_.append(static_cast<const char*>(p), n); }

  sea::writer& out_;
  bool swapped_;
  binary_write_summary& summary_;
  std::string record_;
};

// A solid as a block or polygon record; a cylinder as the block of equal area.
void write_solid(record_writer& w, const shape_t& shape, const std::string& name, short layer,
                 binary_write_summary& summary);
void write_layers(record_writer& w, const circuit_layout::raw& layout);
void write_parameters(record_writer& w, const circuit_layout::raw& layout);
void write_plate(record_writer& w, const circuit_layout::plate_medium& plate);
// The begin or end record of a medium (by its permittivity) or of a conductor.
void write_net_mark(record_writer& w, unsigned char type, float diel, const std::string& name);
void write_net_mark(record_writer& w, unsigned char type, bool floating, const std::string& name);

}  // namespace torva::internal
