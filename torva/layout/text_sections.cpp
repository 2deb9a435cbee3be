// The sections of the text form that hold plain keys: <window>, <parameter>,
// <layer>, <task> and <plate_medium>. A key takes its value words without
// looking at them; any other word ends the section with a syntax error.
#include "torva/layout/cap3d_parser.h"
#include "torva/layout/internal/words.h"

namespace torva {

using internal::same;

bool Cap3dParser::parseWindow(unsigned int& i) {
  layout.boundary = 2;
  point3 low;
  point3 high;
  for (;; ++i) {
    if (i >= words.size()) return endOfWords();
    const std::string_view w = words[i];
    if (same(w, "</window>")) {
      // The corners reach the record only here, so a bad section leaves the
      // old box in place.
      layout.window = cuboid_t{low, high};
      return true;
    }
    if (same(w, "name")) {
      if (!haveValues(i, 1)) return endOfWords();
      layout.window_name = parseString(words[++i]);
    } else if (same(w, "v1") || same(w, "v2")) {
      if (!haveValues(i, 3)) return endOfWords();
      point3& corner = w[1] == '1' ? low : high;
      for (int c = 0; c < 3; ++c) corner[c] = parseDouble(words[++i]);
    } else if (same(w, "dirichlet")) {
      layout.boundary = 1;
    } else if (same(w, "neumann")) {
      layout.boundary = 2;
    } else {
      return syntaxError(words[i]);
    }
  }
}

bool Cap3dParser::parseParam(unsigned int& i) {
  for (;; ++i) {
    if (i >= words.size()) return endOfWords();
    const std::string_view w = words[i];
    if (same(w, "</parameter>")) return true;

    // Every key has one value word.
    double* real = nullptr;
    int* whole = nullptr;
    std::string* text = nullptr;
    if (same(w, "c-ratio")) real = &layout.c_ratio;
    else if (same(w, "b-ratio")) real = &layout.b_ratio;
    else if (same(w, "b-net-ratio")) real = &layout.b_net_ratio;
    else if (same(w, "self-precision")) real = &layout.self_precision;
    else if (same(w, "coupling-precision")) real = &layout.coupling_precision;
    else if (same(w, "blk-self-precision")) real = &layout.blk_self_precision;
    else if (same(w, "blk-coupling-precision")) real = &layout.blk_coupling_precision;
    else if (same(w, "thread-num")) whole = &layout.thread_num;
    else if (same(w, "log-file")) text = &layout.log_file;
    else if (same(w, "out-file")) text = &layout.out_file;
    else if (same(w, "seed")) whole = &layout.seed;
    else if (same(w, "spice")) whole = &layout.spice;
    else if (same(w, "walk-type")) whole = &layout.walk_type;
    else if (same(w, "outmincap")) real = &layout.outmincap;
    else return syntaxError(words[i]);

    if (!haveValues(i, 1)) return endOfWords();
    const char* value = words[++i];
    if (whole == &layout.spice) {
      if (same(value, "on")) layout.spice = 1;
      else if (same(value, "off")) layout.spice = 0;
      else return syntaxError(value);  // the value is reported, not the key
    } else if (real) {
      *real = parseDouble(value);
    } else if (whole) {
      *whole = static_cast<int>(parseInt(value));
    } else {
      *text = parseString(value);
    }
  }
}

bool Cap3dParser::parseLayer(unsigned int& i) {
  std::string name;
  std::string type;
  double wmin = -1.0;  // -1 marks "no wmin"
  int id = -1;         // -1 marks "no id"
  for (;; ++i) {
    if (i >= words.size()) return endOfWords();
    const std::string_view w = words[i];
    if (same(w, "</layer>")) break;
    if (same(w, "name")) {
      if (!haveValues(i, 1)) return endOfWords();
      name = parseString(words[++i]);
    } else if (same(w, "type")) {
      if (!haveValues(i, 1)) return endOfWords();
      type = parseString(words[++i]);
    } else if (same(w, "wmin")) {
      if (!haveValues(i, 1)) return endOfWords();
      wmin = parseDouble(words[++i]);
    } else if (same(w, "flat") || same(w, "thickness")) {
      if (!haveValues(i, 1)) return endOfWords();
      ++i;  // read and dropped
    } else if (same(w, "id")) {
      if (!haveValues(i, 1)) return endOfWords();
      id = static_cast<int>(parseInt(words[++i]));
    } else {
      return syntaxError(words[i]);
    }
  }

  if (name.empty() || type.empty()) return syntaxError(words[i]);
  layout.layer_types.emplace(name, type);  // the first type of a name stays
  if (wmin != -1.0) layout.layer_wmins.push_back(wmin);
  if (id != -1) layout.layer_names.emplace(static_cast<short>(id), name);  // the first name of an id stays
  return true;
}

bool Cap3dParser::parseTask(unsigned int& i) {
  for (;; ++i) {
    if (i >= words.size()) return endOfWords();
    const std::string_view w = words[i];
    if (same(w, "</task>")) return true;
    if (!same(w, "<capacitance>")) return syntaxError(words[i]);
    // Exactly one name per element.
    if (!haveValues(i, 1)) return endOfWords();
    layout.capacitance_tasks.insert(parseString(words[++i]));
    if (!haveValues(i, 1)) return endOfWords();
    if (!same(words[++i], "</capacitance>")) return false;
  }
}

bool Cap3dParser::parsePlateMedium(unsigned int& i) {
  std::string name;
  sea::double_wrapper z_top = 0.0;
  sea::double_wrapper diel = 0.0;
  for (;; ++i) {
    if (i >= words.size()) return endOfWords();
    const std::string_view w = words[i];
    if (same(w, "</plate_medium>")) {
      layout.plate_mediums.push_back(circuit_layout::plate_medium{name, z_top, diel});
      // A plate medium also stands as a dielectric body with no blocks.
      layout.medium_nets.emplace_back(name, diel);
      return true;
    }
    if (same(w, "name")) {
      if (!haveValues(i, 1)) return endOfWords();
      name = parseString(words[++i]);
    } else if (same(w, "diel")) {
      if (!haveValues(i, 1)) return endOfWords();
      diel = parseDouble(words[++i]);
    } else if (same(w, "z_top")) {
      if (!haveValues(i, 1)) return endOfWords();
      z_top = parseDouble(words[++i]);
    } else {
      return syntaxError(words[i]);
    }
  }
}

}  // namespace torva
