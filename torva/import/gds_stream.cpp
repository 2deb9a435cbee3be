#include "torva/import/internal/gds_stream.h"

#include <cstdio>

#include "torva/import/internal/gds_report.h"

namespace torva::internal {

std::string gds_record_name(std::uint8_t type) {
  static const char* const names[] = {
      "HEADER", "BGNLIB", "LIBNAME", "UNITS", "ENDLIB", "BGNSTR", "STRNAME", "ENDSTR", "BOUNDARY", "PATH",
      "SREF", "AREF", "TEXT", "LAYER", "DATATYPE", "WIDTH", "XY", "ENDEL", "SNAME", "COLROW", "TEXTNODE",
      "NODE", "TEXTTYPE", "PRESENTATION", "SPACING", "STRING", "STRANS", "MAG", "ANGLE", "UINTEGER",
      "USTRING", "REFLIBS", "FONTS", "PATHTYPE", "GENERATIONS", "ATTRTABLE", "STYPTABLE", "STRTYPE",
      "ELFLAGS", "ELKEY", "LINKTYPE", "LINKKEYS", "NODETYPE", "PROPATTR", "PROPVALUE", "BOX", "BOXTYPE",
      "PLEX", "BGNEXTN", "ENDEXTN", "TAPENUM", "TAPECODE", "STRCLASS", "RESERVED", "FORMAT", "MASK",
      "ENDMASKS", "LIBDIRSIZE", "SRFNAME", "LIBSECUR"};
  if (type < sizeof names / sizeof names[0]) return names[type];
  char text[24];
  std::snprintf(text, sizeof text, "record 0x%02x", unsigned(type));
  return text;
}

bool gds_library_bookkeeping(std::uint8_t type) {
  switch (type) {
    case gds_type::BGNLIB: case 0x1F /* REFLIBS */: case 0x20 /* FONTS */: case 0x22 /* GENERATIONS */:
    case 0x23 /* ATTRTABLE */: case 0x24 /* STYPTABLE */: case 0x25 /* STRTYPE */: case 0x32 /* TAPENUM */:
    case 0x33 /* TAPECODE */: case 0x36 /* FORMAT */: case 0x37 /* MASK */: case 0x38 /* ENDMASKS */:
    case 0x39 /* LIBDIRSIZE */: case 0x3A /* SRFNAME */: case 0x3B /* LIBSECUR */:
    case gds_type::PROPATTR: case gds_type::PROPVALUE:
      return true;
    default:
      return false;
  }
}

bool gds_element_start(std::uint8_t type) {
  return type == gds_type::BOUNDARY || type == gds_type::PATH || type == gds_type::SREF || type == gds_type::AREF ||
         type == gds_type::TEXT || type == gds_type::NODE || type == gds_type::BOX || type == 0x14 /* TEXTNODE */;
}

// A record the reader knows by type but has no use for in an element.
bool gds_element_extra(std::uint8_t type) {
  switch (type) {
    case gds_type::PRESENTATION: case gds_type::PROPATTR: case gds_type::PROPVALUE: case 0x2A /* NODETYPE */:
    case 0x26 /* ELFLAGS */: case 0x2F /* PLEX */: case 0x28 /* ELKEY */: case 0x18 /* SPACING */:
    case 0x1D /* UINTEGER */: case 0x1E /* USTRING */: case 0x29 /* LINKTYPE */:
      return true;
    default:
      return false;
  }
}

gds_record gds_cursor::next(const std::string& file) {
  const std::uint64_t left = bytes_.size() - at_;
  auto where = [&] { return "GDS file \"" + file + "\": "; };
  if (left < 4)
    gds_fail(where() + "the stream ends at byte offset " + std::to_string(bytes_.size()) +
             (left == 0 ? " before ENDLIB" : " inside a record header"));
  const std::uint8_t* p = bytes_.data() + at_;
  gds_record r;
  r.offset = at_;
  const std::uint16_t length = gds_uint16(p);
  r.type = p[2];
  r.data_type = p[3];
  auto record = [&] { return gds_record_name(r.type) + " record at byte offset " + std::to_string(at_); };
  if (length < 4 || length % 2 != 0)
    gds_fail(where() + "corrupt record length " + std::to_string(length) + " (" + record() + ")");
  if (length > left)
    gds_fail(where() + "the stream ends at byte offset " + std::to_string(bytes_.size()) + " inside a record of " +
             std::to_string(length) + " bytes (" + record() + ")");
  r.payload = bytes_.subspan(at_ + 4, length - 4);
  at_ += length;
  return r;
}

}  // namespace torva::internal
