// The plain records of the binary form: plate medium, layer, window,
// parameters and task, each checked against its payload and echoed to the
// text dump when one is asked for.
#include <cstdint>
#include <string>

#include "torva/foundation/logger.h"
#include "torva/layout/cap3d_parser.h"
#include "torva/layout/internal/binary_fields.h"

namespace torva {

namespace {

using internal::binary_payload_fits;
using internal::binary_syntax_error;

const char* layer_type_word(unsigned char type) noexcept {
  static const char* const words[] = {"dielectric", "interconnect", "via", "substrate"};
  return type < 4 ? words[type] : nullptr;
}

const char* flat_word(unsigned char flat) noexcept {
  static const char* const words[] = {"MIN", "MAX", "OFF"};
  return flat >= 1 && flat <= 3 ? words[flat - 1] : nullptr;
}

}  // namespace

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

}  // namespace torva
