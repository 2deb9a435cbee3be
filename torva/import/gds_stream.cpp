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
