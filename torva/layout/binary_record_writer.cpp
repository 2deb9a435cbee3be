// The records of solids, layers, parameters, plate media and net marks, as
// the binary writer puts them in a file.
#include "torva/layout/internal/binary_record_writer.h"

#include <algorithm>
#include <string>
#include <unordered_set>
#include <vector>

namespace torva::internal {

namespace {

constexpr double equal_area_half_side = 0.886226925452759;

int layer_type_code(const std::string& word) {
  static const char* const words[] = {"dielectric", "interconnect", "via", "substrate"};
  for (int k = 0; k < 4; ++k)
    if (word == words[k]) return k;
  return -1;
}

}  // namespace

void write_solid(record_writer& w, const shape_t& shape, const std::string& name, short layer,
                 binary_write_summary& summary) {
  if (shape.shape_kind == shape_prism) {
    const nprism_t& p = shape.prism();
    w.begin(polygon_record);
    w.f64(p.bottom.value);
    w.f64(p.top.value - p.bottom.value);
    w.u8(static_cast<unsigned char>(p.size));
    for (std::uint64_t k = 0; k < p.size; ++k) {
      w.f64(p.points[k][0].value);
      w.f64(p.points[k][1].value);
    }
  } else {
    point3 low;
    point3 high;
    if (shape.shape_kind == shape_cylinder) {
      // No cylinder in this form: the square of equal area stands for it.
      const cylinder_t& c = shape.cylinder();
      const double d = c.radius.value * equal_area_half_side;
      const double h = c.half_height.value;
      low = point3{c.center[0] - d, c.center[1] - d, c.center[2] - h};
      high = point3{c.center[0] + d, c.center[1] + d, c.center[2] + h};
      ++summary.cylinders_as_cuboids;
    } else {
      low = shape.cuboid().lower;
      high = shape.cuboid().upper;
    }
    w.begin(block_record);
    for (int c = 0; c < 3; ++c) w.f64(low[c].value);
    for (int c = 0; c < 3; ++c) w.f64(high[c].value - low[c].value);
  }
  w.i16(layer);
  w.text(name);
  w.end();
}

void write_layers(record_writer& w, const circuit_layout::raw& layout) {
  struct layer {
    short id;
    std::string name;
    int type;
    double wmin = -1.0;
  };
  std::vector<layer> records;
  std::unordered_set<std::string> typed;
  auto type_of = [&](const std::string& name) {
    const auto found = layout.layer_types.find(name);
    return found == layout.layer_types.end() ? -1 : layer_type_code(found->second);
  };
  for (const auto& [id, name] : layout.layer_names) {
    const int type = type_of(name);
    records.push_back(layer{id, name, type});
    if (type >= 0) typed.insert(name);
  }
  // The reader keeps the first name of an id, so a further record under an id
  // already written adds its type and its wmin and nothing else.
  const short spare = layout.layer_names.empty() ? short(-1) : layout.layer_names.begin()->first;
  std::vector<std::string> untyped;
  for (const auto& [name, word] : layout.layer_types)
    if (!typed.count(name) && layer_type_code(word) >= 0) untyped.push_back(name);
  std::sort(untyped.begin(), untyped.end());
  for (const std::string& name : untyped) records.push_back(layer{spare, name, type_of(name)});
  for (std::size_t k = 0; k < layout.layer_wmins.size(); ++k) {
    if (k == records.size()) records.push_back(layer{spare, std::string(), -1});
    records[k].wmin = layout.layer_wmins[k].value;
  }

  for (const layer& l : records) {
    w.begin(layer_record);
    w.i16(l.id);
    w.u8(l.type < 0 ? 255 : static_cast<unsigned char>(l.type));
    w.u8(0);  // flat: none
    w.f64(l.wmin);
    w.f64(0.0);  // thickness: none
    w.text(l.name);
    w.end();
  }
}

void write_parameters(record_writer& w, const circuit_layout::raw& layout) {
  w.begin(parameter_record);
  const double floats[] = {layout.c_ratio,           layout.b_ratio,           layout.b_net_ratio,
                           layout.self_precision,    layout.coupling_precision, layout.blk_self_precision,
                           layout.blk_coupling_precision};
  for (int k = 0; k < 7; ++k) {
    w.u8(static_cast<unsigned char>(k + 1));
    w.f32(static_cast<float>(floats[k]));
  }
  w.u8(8);
  w.i32(layout.seed);
  w.u8(9);
  w.i16(static_cast<std::int16_t>(layout.thread_num));
  w.u8(10);
  w.u8(static_cast<unsigned char>(static_cast<signed char>(layout.spice)));
  w.u8(11);
  w.u8(static_cast<unsigned char>(static_cast<signed char>(layout.walk_type)));
  // An empty file name is left out: it would change nothing a client keeps,
  // and the text dump of an empty one does not read back.
  const std::pair<unsigned char, const std::string*> files[] = {{12, &layout.log_file}, {13, &layout.out_file}};
  for (const auto& [id, name] : files) {
    if (name->empty()) continue;
    w.u8(id);
    w.u8(static_cast<unsigned char>(name->size()));
    w.text(*name);
  }
  w.u8(14);
  w.f32(static_cast<float>(layout.outmincap));
  w.end();
}

void write_plate(record_writer& w, const circuit_layout::plate_medium& plate) {
  w.begin(plate_medium_record);
  w.f64(plate.z_top.value);
  w.f32(static_cast<float>(plate.diel.value));
  w.text(plate.name);
  w.end();
}

void write_net_mark(record_writer& w, unsigned char type, float diel, const std::string& name) {
  w.begin(type);
  w.f32(diel);
  w.text(name);
  w.end();
}

void write_net_mark(record_writer& w, unsigned char type, bool floating, const std::string& name) {
  w.begin(type);
  w.u8(floating ? 1 : 0);
  w.text(name);
  w.end();
}

}  // namespace torva::internal
