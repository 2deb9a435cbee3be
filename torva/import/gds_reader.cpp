#include "torva/import/gds_reader.h"

#include <cmath>
#include <cstdio>
#include <filesystem>
#include <memory>
#include <unordered_map>
#include <vector>

#include "torva/import/gds_path.h"
#include "torva/import/internal/gds_report.h"
#include "torva/import/internal/gds_stream.h"

namespace torva {

using namespace internal;

namespace {

// Products of two coordinates need more than 64 bits.
__extension__ typedef __int128 wide;

// What one element's records said, before it becomes a shape or a reference.
struct element {
  std::uint8_t kind = 0;
  std::uint64_t offset = 0;
  int layer = -1;
  int datatype = 0;  // or TEXTTYPE, BOXTYPE
  std::int64_t width = 0;
  int pathtype = 0;
  std::int64_t begin_extension = 0, end_extension = 0;
  std::vector<gds_point> xy;
  std::string sname, text;
  bool has_sname = false;
  gds_strans strans;
  int columns = 0, rows = 0;
  bool has_colrow = false;
};

class parser {
 public:
  parser(std::span<const std::uint8_t> bytes, const std::string& file, const gds_read_options& options)
      : bytes_(bytes), cur_(bytes), file_(file), options_(options) {}

  gds_library run();

 private:
  std::span<const std::uint8_t> bytes_;
  gds_cursor cur_;
  std::string file_;
  const gds_read_options& options_;
  gds_library lib_;
  gds_warnings warnings_;
  std::unordered_map<std::string, std::size_t> names_;
  bool has_units_ = false;
  std::uint64_t reported_ = 0;
  std::vector<std::vector<gds_point>> outlines_;

  gds_record next() {
    const gds_record r = cur_.next(file_);
    if (options_.progress && cur_.offset() - reported_ >= (1u << 20)) {
      reported_ = cur_.offset();
      options_.progress(reported_, cur_.size());
    }
    return r;
  }
  std::string place(const gds_record& r) const {
    std::string s = gds_record_name(r.type) + " record at byte offset " + std::to_string(r.offset);
    if (!lib_.cells.empty() && in_cell_) s += ", in cell \"" + lib_.cells.back().name + "\"";
    return s;
  }
  [[noreturn]] void fail(const gds_record& r, const std::string& what) const {
    gds_fail("GDS file \"" + file_ + "\": " + what + " (" + place(r) + ")");
  }
  void warn(const std::string& kind, const gds_record& r, const std::string& what) {
    warnings_.add(kind, "GDS file \"" + file_ + "\": " + what + " (" + place(r) + ")");
  }
  // The payload must be of this data type and hold at least `bytes` bytes.
  void expect(const gds_record& r, std::uint8_t data_type, std::size_t bytes) const {
    const bool bits_as_int = data_type == gds_data::BITS && r.data_type == gds_data::INT16;
    if (r.data_type != data_type && !bits_as_int)
      fail(r, "data type " + std::to_string(r.data_type) + " where " + std::to_string(data_type) + " belongs");
    if (r.payload.size() < bytes)
      fail(r, "the record holds " + std::to_string(r.payload.size()) + " bytes, fewer than its " +
                  std::to_string(bytes));
  }
  int int16_value(const gds_record& r) const {
    expect(r, gds_data::INT16, 2);
    return gds_uint16(r.payload.data());
  }
  std::int64_t int32_value(const gds_record& r) const {
    expect(r, gds_data::INT32, 4);
    return gds_int32(r.payload.data());
  }
  double real_value(const gds_record& r) const {
    expect(r, gds_data::REAL8, 8);
    return gds_real8(r.payload.data());
  }
  std::string text_value(const gds_record& r) const {
    expect(r, gds_data::ASCII, 0);
    std::string s(r.payload.begin(), r.payload.end());
    while (!s.empty() && s.back() == '\0') s.pop_back();
    return s;
  }

  bool in_cell_ = false;
  element element_;
  void read_cell(const gds_record& begin);
  void read_element(const gds_record& begin);
  void finish_element(element& e, const gds_record& end);
  void add_polygon(const element& e, std::vector<gds_point>& ring, const gds_record& end);
  void resolve();
};

gds_library parser::run() {
  // Said before any length is trusted: a file of another kind reads as nonsense records.
  if (bytes_.size() < 4 || bytes_[2] != gds_type::HEADER)
    gds_fail("GDS file \"" + file_ + "\": not a GDSII stream (it does not begin with a HEADER record)");
  next();
  for (;;) {
    const gds_record r = next();
    if (r.type == gds_type::ENDLIB) break;
    if (r.type == gds_type::LIBNAME) {
      lib_.name = text_value(r);
    } else if (r.type == gds_type::UNITS) {
      expect(r, gds_data::REAL8, 16);
      lib_.user_units_per_db = gds_real8(r.payload.data());
      lib_.metres_per_db = gds_real8(r.payload.data() + 8);
      if (!(lib_.user_units_per_db > 0 && lib_.metres_per_db > 0 && std::isfinite(lib_.metres_per_db)))
        fail(r, "the units must be positive");
      has_units_ = true;
    } else if (r.type == gds_type::BGNSTR) {
      if (!has_units_) fail(r, "a cell before the library's UNITS");
      read_cell(r);
    } else if (gds_library_bookkeeping(r.type)) {
      // Nothing the geometry needs.
    } else if (r.type <= 0x3B) {
      fail(r, "a record out of place outside any cell");
    } else {
      warn("unknown:" + std::to_string(r.type), r, "an unknown record, skipped");
    }
  }
  if (!has_units_) gds_fail("GDS file \"" + file_ + "\": no UNITS record");
  if (options_.progress) options_.progress(cur_.size(), cur_.size());
  resolve();
  warnings_.flush(lib_.warnings);
  return std::move(lib_);
}

void parser::read_cell(const gds_record& begin) {
  gds_cell& cell = lib_.cells.emplace_back();
  cell.offset = begin.offset;
  in_cell_ = true;
  bool named = false;
  for (;;) {
    const gds_record r = next();
    if (r.type == gds_type::STRNAME) {
      cell.name = text_value(r);
      named = true;
      auto [it, fresh] = names_.try_emplace(cell.name, lib_.cells.size() - 1);
      if (!fresh)
        fail(r, "a second cell named \"" + cell.name + "\" (the first begins at byte offset " +
                    std::to_string(lib_.cells[it->second].offset) + ")");
      continue;
    }
    if (r.type == gds_type::ENDSTR) break;
    if (r.type == 0x34 /* STRCLASS */ || r.type == gds_type::PROPATTR || r.type == gds_type::PROPVALUE) continue;
    if (!named) fail(r, "a cell without STRNAME");
    if (gds_element_start(r.type)) {
      read_element(r);
    } else if (r.type <= 0x3B) {
      fail(r, "a record out of place in a cell");
    } else {
      warn("unknown:" + std::to_string(r.type), r, "an unknown record, skipped");
    }
  }
  if (!named) fail(begin, "a cell without STRNAME");
  in_cell_ = false;
}

void parser::read_element(const gds_record& begin) {
  // One element's storage, reused: a cell of a million rectangles makes no
  // allocation per element.
  element& e = element_;
  e.xy.clear();
  std::vector<gds_point> xy = std::move(e.xy);
  e = element{};
  e.xy = std::move(xy);
  e.kind = begin.type;
  e.offset = begin.offset;
  for (;;) {
    const gds_record r = next();
    switch (r.type) {
      case gds_type::ENDEL:
        finish_element(e, r);
        return;
      case gds_type::LAYER: e.layer = int16_value(r); break;
      case gds_type::DATATYPE: case gds_type::TEXTTYPE: case gds_type::BOXTYPE: e.datatype = int16_value(r); break;
      case gds_type::PATHTYPE: e.pathtype = std::int16_t(int16_value(r)); break;
      case gds_type::WIDTH: e.width = int32_value(r); break;
      case gds_type::BGNEXTN: e.begin_extension = int32_value(r); break;
      case gds_type::ENDEXTN: e.end_extension = int32_value(r); break;
      case gds_type::XY: {
        expect(r, gds_data::INT32, 0);
        if (r.payload.size() % 8 != 0) fail(r, "XY holds " + std::to_string(r.payload.size()) + " bytes, not whole points");
        for (std::size_t i = 0; i < r.payload.size(); i += 8)
          e.xy.push_back({gds_int32(r.payload.data() + i), gds_int32(r.payload.data() + i + 4)});
        break;
      }
      case gds_type::SNAME: e.sname = text_value(r); e.has_sname = true; break;
      case gds_type::STRING: e.text = text_value(r); break;
      case gds_type::STRANS: {
        expect(r, gds_data::BITS, 2);
        const std::uint16_t bits = gds_uint16(r.payload.data());
        e.strans.reflect = bits & 0x8000;
        e.strans.absolute_mag = bits & 0x0004;
        e.strans.absolute_angle = bits & 0x0002;
        break;
      }
      case gds_type::MAG:
        e.strans.mag = real_value(r);
        if (!(e.strans.mag > 0 && std::isfinite(e.strans.mag))) fail(r, "the magnification must be positive");
        break;
      case gds_type::ANGLE:
        e.strans.angle = real_value(r);
        if (!std::isfinite(e.strans.angle)) fail(r, "the angle is not a finite number");
        break;
      case gds_type::COLROW:
        expect(r, gds_data::INT16, 4);
        e.columns = gds_int16(r.payload.data());
        e.rows = gds_int16(r.payload.data() + 2);
        e.has_colrow = true;
        break;
      default:
        if (gds_element_extra(r.type)) break;
        if (r.type <= 0x3B) fail(r, "a record out of place in a " + gds_record_name(e.kind) + " element (ENDEL missing?)");
        warn("unknown:" + std::to_string(r.type), r, "an unknown record, skipped");
    }
  }
}

void parser::add_polygon(const element& e, std::vector<gds_point>& ring, const gds_record& end) {
  if (!gds_normalize_ring(ring)) {
    warn("few points", end, "a " + gds_record_name(e.kind) + " with fewer than three distinct points, skipped");
    return;
  }
  lib_.cells.back().shapes_of({e.layer, e.datatype}).add(ring);
}

void parser::finish_element(element& e, const gds_record& end) {
  gds_cell& cell = lib_.cells.back();
  const std::string kind = gds_record_name(e.kind);
  auto need = [&](bool ok, const std::string& what) {
    if (!ok) fail(end, "a " + kind + " element without " + what);
  };
  switch (e.kind) {
    case gds_type::BOUNDARY:
    case gds_type::BOX:
      need(e.layer >= 0, "LAYER");
      add_polygon(e, e.xy, end);
      return;
    case gds_type::PATH: {
      need(e.layer >= 0, "LAYER");
      if (e.width == 0) return warn("zero width", end, "a PATH of zero width, skipped");
      if (e.width < 0) {
        warn("absolute width", end, "a PATH of absolute width, taken as relative to the magnification");
        e.width = -e.width;
      }
      if (e.pathtype != 0 && e.pathtype != 1 && e.pathtype != 2 && e.pathtype != 4) {
        warn("pathtype", end, "PATHTYPE " + std::to_string(e.pathtype) + " read as 0 (flush ends)");
        e.pathtype = 0;
      }
      gds_path_style style;
      style.width = e.width;
      style.ends = gds_path_ends(e.pathtype);
      style.begin_extension = e.begin_extension;
      style.end_extension = e.end_extension;
      style.round_end_segments = options_.round_end_segments;
      outlines_.clear();
      if (!gds_path_outline(e.xy, style, outlines_))
        return warn("few points", end, "a PATH with fewer than two distinct points, skipped");
      gds_polygons& shapes = cell.shapes_of({e.layer, e.datatype});
      for (const auto& ring : outlines_) shapes.add(ring);
      return;
    }
    case gds_type::TEXT:
      need(e.layer >= 0, "LAYER");
      need(!e.xy.empty(), "XY");
      cell.labels.push_back({{e.layer, e.datatype}, e.xy.front(), std::move(e.text)});
      return;
    case gds_type::SREF:
    case gds_type::AREF: {
      need(e.has_sname, "SNAME");
      gds_reference ref;
      ref.name = std::move(e.sname);
      ref.transform = e.strans;
      ref.offset = e.offset;
      if (e.strans.absolute_mag || e.strans.absolute_angle)
        warn("absolute strans", end, "an absolute magnification or angle, taken as relative");
      if (e.kind == gds_type::SREF) {
        need(!e.xy.empty(), "XY");
        ref.origin = ref.column_end = ref.row_end = e.xy.front();
      } else {
        need(e.has_colrow, "COLROW");
        need(e.xy.size() >= 3, "its three XY points");
        if (e.columns <= 0 || e.rows <= 0)
          fail(end, "an array of " + std::to_string(e.columns) + " columns and " + std::to_string(e.rows) +
                        " rows: both must be positive");
        ref.array = true;
        ref.columns = e.columns;
        ref.rows = e.rows;
        ref.origin = e.xy[0];
        ref.column_end = e.xy[1];
        ref.row_end = e.xy[2];
        const gds_point v{ref.column_end.x - ref.origin.x, ref.column_end.y - ref.origin.y};
        const gds_point w{ref.row_end.x - ref.origin.x, ref.row_end.y - ref.origin.y};
        if (ref.columns > 1 && v == gds_point{}) fail(end, "an array of zero column pitch");
        if (ref.rows > 1 && w == gds_point{}) fail(end, "an array of zero row pitch");
        if (ref.columns > 1 && ref.rows > 1 && wide(v.x) * w.y - wide(v.y) * w.x == 0)
          fail(end, "an array whose column and row vectors are parallel");
      }
      cell.references.push_back(std::move(ref));
      return;
    }
    default:  // NODE, TEXTNODE: nothing of the geometry
      return;
  }
}

void parser::resolve() {
  for (gds_cell& cell : lib_.cells)
    for (gds_reference& ref : cell.references) {
      auto it = names_.find(ref.name);
      if (it != names_.end()) {
        ref.cell = it->second;
        continue;
      }
      warnings_.add("undefined:" + ref.name, "GDS file \"" + file_ + "\": cell \"" + cell.name +
                                                 "\" references \"" + ref.name +
                                                 "\", which the file does not define; skipped");
    }
}

}  // namespace

gds_polygons& gds_cell::shapes_of(gds_layer key) {
  for (auto it = shapes.rbegin(); it != shapes.rend(); ++it)
    if (it->key == key) return *it;
  gds_polygons& fresh = shapes.emplace_back();
  fresh.key = key;
  return fresh;
}

std::size_t gds_cell::polygon_count() const {
  std::size_t n = 0;
  for (const auto& s : shapes) n += s.size();
  return n;
}

std::size_t gds_library::find(const std::string& cell) const {
  for (std::size_t i = 0; i < cells.size(); ++i)
    if (cells[i].name == cell) return i;
  return gds_reference::undefined;
}

gds_library read_gds_bytes(std::span<const std::uint8_t> bytes, const std::string& name,
                           const gds_read_options& options) {
  return parser(bytes, name, options).run();
}

gds_library read_gds(const std::string& file, const gds_read_options& options) {
  std::error_code ec;
  const auto size = std::filesystem::file_size(file, ec);
  if (ec) gds_fail("cannot read GDS file \"" + file + "\": " + ec.message());
  if (size > options.max_file_bytes)
    gds_refuse("GDS file \"" + file + "\" has " + std::to_string(size) + " bytes, over the limit of " +
               std::to_string(options.max_file_bytes));
  std::unique_ptr<FILE, int (*)(FILE*)> f(std::fopen(file.c_str(), "rb"), &std::fclose);
  if (!f) gds_fail("cannot open GDS file \"" + file + "\"");
  std::vector<std::uint8_t> bytes(size);
  if (size != 0 && std::fread(bytes.data(), 1, size, f.get()) != size)
    gds_fail("cannot read GDS file \"" + file + "\": it changed or failed while being read");
  return read_gds_bytes(bytes, file, options);
}

}  // namespace torva
