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

namespace internal {

bool binary_syntax_error() {
  sea::writer& out = *logger::instance().error;
  out.print("ERROR: Syntax error in cap3d file.");
  out.write('\n');
  out.flush();
  return false;
}

}  // namespace internal

namespace {

using internal::binary_name_area;
using internal::binary_syntax_error;

// A mapped file from this size on (some 100,000 blocks) has the shapes of its
// block records made ahead on a second thread.
constexpr std::size_t large_file = std::size_t(8) << 20;

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

}  // namespace torva
