// The binary form of the reader: the file's frame, its records, and the text
// dump written beside a binary read.
//
// A file is the 12 bytes of BIN_FLAG, one byte whose lowest bit says whether
// 16- and 32-bit integers are byte-swapped, then records back to back: a signed
// 16-bit length L of the whole record (its own two bytes included), a type
// byte, and L - 3 bytes of payload. Floats and doubles are never swapped.
//
// Conductors and media come in two ways. With a begin record (8 or 6) a net
// stands at once and the solids that follow are filed into it; the end record
// only closes it. Without one, solids wait in the pending vectors and the end
// record (9 or 7) makes the net of them; an end record with nothing pending and
// no begin before it makes no net.
//
// Bad input never makes a read leave its record. These are rejected with
// "ERROR: Syntax error in cap3d file." and `parse` returns false:
// - a record or a length cut off by the end of the file;
// - a payload shorter than the fixed fields of its type;
// - a name of 1024 bytes or more (the reader keeps names in a 1024-byte area);
// - a parameter item that runs past the payload, or a file name item whose
//   length byte is negative;
// - a polygon whose vertex list, layer and name do not fit its payload.
// A polygon count of 64 to 127 (twice the count is held as a signed byte, so
// the list's size is negative) throws std::length_error, as the format's own
// limit of 63 vertices; a count above 127 wraps and the wrapped count is used
// for every later field, the name taking the rest of the payload.
#include <cstdint>
#include <cstdio>
#include <cstring>
#include <memory>
#include <optional>
#include <stdexcept>
#include <system_error>
#include <thread>
#include <vector>

#include "torva/foundation/file_pool.h"
#include "torva/foundation/logger.h"
#include "torva/geometry/convex_decomposition.h"
#include "torva/layout/cap3d_parser.h"
#include "torva/layout/internal/binary_fields.h"
#include "torva/layout/internal/block_shape_supply.h"
#include "torva/layout/internal/mapped_file.h"

namespace torva {

namespace {

using internal::binary_name_area;
using internal::binary_payload_fits;

// A mapped file from this size on (some 100,000 blocks) has the shapes of its
// block records made ahead on a second thread.
constexpr std::size_t large_file = std::size_t(8) << 20;

bool binary_syntax_error() {
  sea::writer& out = *logger::instance().error;
  out.print("ERROR: Syntax error in cap3d file.");
  out.write('\n');
  out.flush();
  return false;
}

const char* layer_type_word(unsigned char type) noexcept {
  static const char* const words[] = {"dielectric", "interconnect", "via", "substrate"};
  return type < 4 ? words[type] : nullptr;
}

const char* flat_word(unsigned char flat) noexcept {
  static const char* const words[] = {"MIN", "MAX", "OFF"};
  return flat >= 1 && flat <= 3 ? words[flat - 1] : nullptr;
}

// Moves the pending shapes into blocks of a new net and links them; the
// second way of writing a conductor or medium.
template <class Net, class Block, class MakeBlock>
void close_pending(std::deque<Net>& nets, std::deque<Block>& blocks, const std::vector<shape_t>& shapes,
                   Net net, MakeBlock make_block) {
  const std::size_t first = blocks.size();
  for (std::size_t k = 0; k < shapes.size(); ++k) make_block(k);
  nets.push_back(std::move(net));
  Net& stands = nets.back();
  for (std::size_t j = first; j < blocks.size(); ++j) {
    stands.blocks.push_back(&blocks[j]);
    blocks[j].net = &stands;
  }
}

}  // namespace

// ---------------------------------------------------------------- fields

int Cap3dParser::readInt(const char*& cursor) {
  std::uint32_t v;
  std::memcpy(&v, cursor, sizeof v);
  cursor += sizeof v;
  if (swap_bytes == 1) v = __builtin_bswap32(v);
  return static_cast<int>(v);
}

short Cap3dParser::readShort(const char*& cursor) {
  std::uint16_t v;
  std::memcpy(&v, cursor, sizeof v);
  cursor += sizeof v;
  if (swap_bytes == 1) v = __builtin_bswap16(v);
  return static_cast<short>(v);
}

char Cap3dParser::readChar(const char*& cursor) { return *cursor++; }

double Cap3dParser::readDouble(const char*& cursor) {
  double v;
  std::memcpy(&v, cursor, sizeof v);
  cursor += sizeof v;
  return v;
}

float Cap3dParser::readFloat(const char*& cursor) {
  float v;
  std::memcpy(&v, cursor, sizeof v);
  cursor += sizeof v;
  return v;
}

std::string Cap3dParser::readString(const char*& cursor, short length) {
  if (length < 1) return std::string();
  // The characters up to the first NUL: a name may be padded with NULs. The
  // record readers reject a name that does not fit the area; called alone,
  // this keeps what fits and still steps over the whole field.
  const std::size_t kept = static_cast<std::size_t>(length < binary_name_area ? length : binary_name_area - 1);
  const void* nul = std::memchr(cursor, '\0', kept);
  const std::size_t size = nul ? static_cast<std::size_t>(static_cast<const char*>(nul) - cursor) : kept;
  std::string s(cursor, size);
  cursor += length;
  return s;
}

// ---------------------------------------------------------------- frame

bool Cap3dParser::parseBinary(std::istream& in, const std::string& file, const std::string& dump_file, char* buffer,
                              std::size_t buffer_size) {
  state = 0;
  // A regular file is read where it is mapped; anything else through the
  // stream. Either way the records are cut from one run of bytes, `bytes`,
  // and the mapping only spares the copies.
  const internal::mapped_file mapped(file, BIN_FLAG.size() + 1);
  char order = 0;
  if (mapped.data != nullptr) {
    order = mapped.data[BIN_FLAG.size()];
  } else {
    in.read(&order, 1);
  }
  swap_bytes = static_cast<char>(order & 1);

  // The dump's writer only flushes when it goes; `dump` must not outlive it,
  // also when a solid throws.
  std::unique_ptr<sea::file_writer> dump_writer;
  struct forget_dump {
    sea::writer*& dump;
    ~forget_dump() { dump = nullptr; }
  } forget{dump};
  if (!dump_file.empty()) {
    dump_enabled = true;
    dump_writer = std::make_unique<sea::file_writer>(sea::file_pool::instance().open_impl(dump_file.c_str(), "w"));
    dump = dump_writer.get();
    dump->print("<cap3d>\n");
  }

  // Records are cut from the buffer, which is refilled from the stream when
  // what is left of it no longer holds the next record: the file is read
  // forward in large pieces, not a call per record. A record is at most 32767
  // bytes, far less than the buffer. Unread bytes are bytes[next, filled). A
  // mapped file is all there from the start.
  const char* bytes = buffer;
  std::size_t next = 0;
  std::size_t filled = 0;
  bool drained = false;
  std::optional<internal::block_shape_supply> shapes_ahead;
  if (mapped.data != nullptr) {
    bytes = mapped.data;
    next = BIN_FLAG.size() + 1;
    filled = mapped.size;
    drained = true;
    if (mapped.size >= large_file && std::thread::hardware_concurrency() > 1) {
      try {
        shapes_ahead.emplace(mapped.data, mapped.size, next, swap_bytes == 1);
      } catch (const std::system_error&) {
        // No thread to be had: every shape is made here.
      }
    }
  }
  auto have = [&](std::size_t wanted) {
    if (filled - next >= wanted) return true;
    if (drained) return false;
    std::memmove(buffer, buffer + next, filled - next);
    filled -= next;
    next = 0;
    const std::size_t room = buffer_size - filled;
    in.read(buffer + filled, static_cast<std::streamsize>(room));
    const std::size_t got = static_cast<std::size_t>(in.gcount());
    filled += got;
    if (got < room) drained = true;  // end of file, or a stream that can't be read
    return filled - next >= wanted;
  };

  for (;;) {
    if (!have(2)) {
      // Nothing left is the end of the file; a lone byte is a cut-off length.
      if (filled != next) parse_ok = binary_syntax_error();
      break;
    }
    std::uint16_t bits;
    std::memcpy(&bits, bytes + next, sizeof bits);
    next += 2;
    if (swap_bytes == 1) bits = __builtin_bswap16(bits);
    const short length = static_cast<short>(bits);

    const std::size_t rest = length > 2 ? static_cast<std::size_t>(length - 2) : 0;
    if (!have(rest)) {  // cut off by the end of the file
      parse_ok = binary_syntax_error();
      break;
    }
    parse_ok = parseBinRecord(bytes + next, length);
    next += rest;
    if (!parse_ok) break;
  }

  if (dump) {
    dump->print("</cap3d>\n");
    dump->flush();
  }
  return parse_ok;
}

bool Cap3dParser::parseBinRecord(const char* record, short length) {
  if (length < 2) return false;
  if (length == 2) return true;
  const char* cursor = record;
  const unsigned char type = static_cast<unsigned char>(readChar(cursor));
  const short payload = static_cast<short>(length - 3);
  bool ok = false;
  switch (type) {
    case 0:
    case 13:
    case 14:
    case 15:
      return true;
    case 1: ok = parseBinPlateMedium(cursor, payload); break;
    case 2: ok = parseBinLayer(cursor, payload); break;
    case 3: ok = parseBinWindow(cursor, payload); break;
    case 4: ok = parseBinParam(cursor, payload); break;
    case 5: ok = parseBinTask(cursor, payload); break;
    case 6: ok = parseBinMediumBegin(cursor, payload); break;
    case 7: ok = parseBinMediumEnd(cursor, payload); break;
    case 8: ok = parseBinConductorBegin(cursor, payload); break;
    case 9: ok = parseBinConductorEnd(cursor, payload); break;
    case 10: ok = parseBinBlock(cursor, payload); break;
    case 11: ok = parseBinPoly(cursor, payload); break;
    default: break;  // 12, the cylinder, is not a record of files; nor is anything above 15
  }
  if (!ok) return binary_syntax_error();
  return true;
}

// ---------------------------------------------------------------- plain records

bool Cap3dParser::parseBinPlateMedium(const char*& cursor, short payload_size) {
  if (!binary_payload_fits(payload_size, 12)) return false;
  const double z_top = readDouble(cursor);
  const float diel = readFloat(cursor);
  std::string name = readString(cursor, static_cast<short>(payload_size - 12));
  layout.plate_mediums.push_back(circuit_layout::plate_medium{name, z_top, diel});
  layout.medium_nets.emplace_back(name, diel);
  if (dump_enabled)
    (*dump)("<plate_medium>\n\tname %s\n\tdiel %.6f\n\tz_top %.6f\n</plate_medium>\n", name.c_str(), double(diel),
            z_top);
  return true;
}

bool Cap3dParser::parseBinLayer(const char*& cursor, short payload_size) {
  if (!binary_payload_fits(payload_size, 20)) return false;
  const short id = readShort(cursor);
  const unsigned char type = static_cast<unsigned char>(readChar(cursor));
  const unsigned char flat = static_cast<unsigned char>(readChar(cursor));
  const double wmin = readDouble(cursor);
  const double thickness = readDouble(cursor);
  std::string name = readString(cursor, static_cast<short>(payload_size - 20));

  // Unlike the text form: an id of -1 and a wmin of -1 are stored too.
  const char* type_word = layer_type_word(type);
  if (type_word) layout.layer_types.emplace(name, type_word);
  layout.layer_wmins.push_back(wmin);
  if (dump_enabled) {
    sea::writer& out = *dump;
    out("<layer>\n\tname %s\n\tid %d\n\ttype %s\n", name.c_str(), id, type_word ? type_word : "");
    if (wmin > 0) out("\twmin %.6f\n", wmin);
    if (const char* f = flat_word(flat)) out("\tflat %s\n", f);
    if (thickness > 0) out("\tthickness %.6f\n", thickness);
    out.print("</layer>\n");
  }
  layout.layer_names.emplace(id, std::move(name));
  return true;
}

bool Cap3dParser::parseBinWindow(const char*& cursor, short payload_size) {
  if (!binary_payload_fits(payload_size, 49)) return false;
  point3 low;
  point3 high;
  for (int c = 0; c < 3; ++c) low[c] = readDouble(cursor);
  for (int c = 0; c < 3; ++c) high[c] = readDouble(cursor);
  const char boundary = readChar(cursor);
  layout.window = cuboid_t{low, high};
  layout.window_name = readString(cursor, static_cast<short>(payload_size - 49));
  layout.boundary = boundary == 1 ? 1 : 2;
  if (dump_enabled)
    (*dump)("<window>\n\tname %s\n\tv1(%.6f,%.6f,%.6f)\n\tv2(%.6f,%.6f,%.6f)\n</window>\n",
            layout.window_name.c_str(), double(low[0]), double(low[1]), double(low[2]), double(high[0]),
            double(high[1]), double(high[2]));
  return true;
}

bool Cap3dParser::parseBinParam(const char*& cursor, short payload_size) {
  sea::writer* out = dump_enabled ? dump : nullptr;
  if (out) out->print("<parameter>\n");

  // Each item: an id byte and its value. Floats widen to the double fields.
  struct float_item {
    double circuit_layout::raw::*field;
    const char* line;
  };
  static const float_item floats[] = {
      {nullptr, nullptr},
      {&circuit_layout::raw::c_ratio, "\tc-ratio %.6f\n"},
      {&circuit_layout::raw::b_ratio, "\tb-ratio %.6f\n"},
      {&circuit_layout::raw::b_net_ratio, "\tb-net-ratio %.6f\n"},
      {&circuit_layout::raw::self_precision, "\tself-precision %.6f\n"},
      {&circuit_layout::raw::coupling_precision, "\tcoupling-precision %.6f\n"},
      {&circuit_layout::raw::blk_self_precision, "\tblk-self-precision %.6f\n"},
      {&circuit_layout::raw::blk_coupling_precision, "\tblk-coupling-precision %.6f\n"},
  };

  int counted = 0;
  while (counted < payload_size) {
    const int left = payload_size - counted;
    const int id = static_cast<unsigned char>(readChar(cursor));
    int bytes = 0;
    if ((id >= 1 && id <= 8) || id == 14) {
      bytes = 5;
    } else if (id == 9) {
      bytes = 3;
    } else if (id == 10 || id == 11 || id == 12 || id == 13) {
      bytes = 2;
    } else {
      // Reported here and once more by the record.
      binary_syntax_error();
      return false;
    }
    if (bytes > left) return false;  // the item runs past the payload

    if (id <= 7) {
      const double value = readFloat(cursor);
      layout.*floats[id].field = value;
      if (out) (*out)(floats[id].line, value);
    } else if (id == 14) {
      layout.outmincap = readFloat(cursor);
      if (out) (*out)("\toutmincap %.6f\n", layout.outmincap);
    } else if (id == 8) {
      layout.seed = readInt(cursor);
      if (out) (*out)("\tseed %d\n", layout.seed);
    } else if (id == 9) {
      layout.thread_num = readShort(cursor);
      if (out) (*out)("\tthread-num %d\n", layout.thread_num);
    } else if (id == 10) {
      layout.spice = static_cast<signed char>(readChar(cursor));
      if (out) out->print(layout.spice != 0 ? "\tspice on\n" : "\tspice off\n");
    } else if (id == 11) {
      layout.walk_type = static_cast<signed char>(readChar(cursor));
      if (out) (*out)("\twalk-type %d\n", layout.walk_type);
    } else {
      const int n = static_cast<signed char>(readChar(cursor));
      if (n < 0 || bytes + n > left) return false;  // a length that can't be
      bytes += n;
      std::string& file = id == 12 ? layout.log_file : layout.out_file;
      file = readString(cursor, static_cast<short>(n));
      if (out) (*out)(id == 12 ? "\tlog-file %s\n" : "\tout-file %s\n", file.c_str());
    }
    counted += bytes;
  }
  if (out) out->print("</parameter>\n");
  return true;
}

bool Cap3dParser::parseBinTask(const char*& cursor, short payload_size) {
  if (!binary_payload_fits(payload_size, 1)) return false;
  readChar(cursor);  // any value
  std::string name = readString(cursor, static_cast<short>(payload_size - 1));
  if (dump_enabled && !name.empty())
    (*dump)("<task>\n\t<capacitance>\n\t\t%s\n\t</capacitance>\n</task>\n", name.c_str());
  layout.capacitance_tasks.insert(std::move(name));
  return true;
}

// ---------------------------------------------------------------- nets

bool Cap3dParser::parseBinMediumBegin(const char*& cursor, short payload_size) {
  if (!binary_payload_fits(payload_size, 4)) return false;
  const float diel = readFloat(cursor);
  std::string name = readString(cursor, static_cast<short>(payload_size - 4));
  if (dump_enabled) (*dump)("<medium>\n\tname %s\n", name.empty() ? "noname" : name.c_str());
  layout.medium_nets.emplace_back(std::move(name), diel);
  state |= in_medium;
  pending_shapes.clear();
  pending_side_tans.clear();
  pending_names.clear();
  pending_layers.clear();
  return true;
}

bool Cap3dParser::parseBinMediumEnd(const char*& cursor, short payload_size) {
  if (!binary_payload_fits(payload_size, 4)) return false;
  const float diel = readFloat(cursor);
  std::string name = readString(cursor, static_cast<short>(payload_size - 4));
  if (!(state & in_medium) && !pending_shapes.empty()) {
    close_pending(layout.medium_nets, layout.medium_blocks, pending_shapes, medium_net(std::move(name), diel),
                  [&](std::size_t k) { layout.medium_blocks.emplace_back(pending_shapes[k], 0.0); });
    pending_shapes.clear();
  }
  state &= 0xff000000u;
  pending_names.clear();
  pending_layers.clear();
  if (dump_enabled) (*dump)("\tdiel %.6f\n</medium>\n", double(diel));
  return true;
}

bool Cap3dParser::parseBinConductorBegin(const char*& cursor, short payload_size) {
  if (!binary_payload_fits(payload_size, 1)) return false;
  const bool floating = readChar(cursor) != 0;
  std::string name = readString(cursor, static_cast<short>(payload_size - 1));
  if (dump_enabled) {
    (*dump)("<conductor>\n\tname %s\n", name.c_str());
    if (floating) dump->print("\tfloating\n");
  }
  layout.wire_nets.emplace_back(std::move(name), floating);
  state |= in_conductor;
  pending_shapes.clear();
  pending_side_tans.clear();
  pending_names.clear();
  pending_layers.clear();
  return true;
}

bool Cap3dParser::parseBinConductorEnd(const char*& cursor, short payload_size) {
  if (!binary_payload_fits(payload_size, 1)) return false;
  const bool floating = readChar(cursor) != 0;
  std::string name = readString(cursor, static_cast<short>(payload_size - 1));
  if (!(state & in_conductor) && !pending_shapes.empty()) {
    // Names are taken whole and layers as they stand: no "@" and no layer list.
    close_pending(layout.wire_nets, layout.wire_blocks, pending_shapes, wire_net(std::move(name), floating),
                  [&](std::size_t k) {
                    layout.wire_blocks.emplace_back(pending_shapes[k], pending_names[k], pending_layers[k]);
                  });
    for (wire_block* b : layout.wire_nets.back().blocks) b->floating = floating;
    pending_shapes.clear();
  }
  state &= 0xff000000u;
  pending_names.clear();
  pending_layers.clear();
  if (dump_enabled) dump->print("</conductor>\n");
  return true;
}

}  // namespace torva
