// The plain description of a synthetic layout (generator.h makes it): metal
// layers of straight wires on a lattice of integer length units, each wire a
// conductor of segments, with the media about them.
#pragma once

#include <array>
#include <cstdint>
#include <string>
#include <vector>

namespace torva {

enum class layout_kind : std::uint8_t { bus, crossing, mixed };

struct generator_params {
  layout_kind kind = layout_kind::bus;
  std::uint64_t blocks = 1000;   // conductor segments to make (a polygon may give several blocks)
  int layers = 2;                // metal layers, at least 1
  double polygon_share = 0.0;    // of segments written as <poly>
  double cylinder_share = 0.0;   // of segments that are a cylinder
  double incline_share = 0.0;    // of segments with a non-zero side_tan
  bool media = false;            // plate media and dielectric bodies
  std::uint64_t seed = 1;
  std::uint64_t tasks = 4;       // conductors named in <task>, from the first
};

// Lengths in the description are integers in thousandths of the layout unit.
inline constexpr std::int32_t generated_units_per_length = 1000;
inline double generated_length(std::int64_t units) { return double(units) / 1000.0; }

enum class generated_form : std::uint8_t { box, cylinder, polygon };

struct generated_solid {
  generated_form form = generated_form::box;
  std::int16_t layer = -1;      // index into layer_names; -1 for a dielectric
  std::int32_t x = 0, y = 0, z = 0;  // basepoint; the centre of a cylinder
  std::int32_t dx = 0, dy = 0, dz = 0;  // box edges; radius (dx) and height (dz) of a cylinder;
                                        // height (dz) of a polygon
  std::int32_t side_tan = 0;    // thousandths; boxes only
  std::uint32_t first_vertex = 0;  // polygon: its vertices, relative to the basepoint,
  std::uint32_t vertex_count = 0;  // are vertices[first_vertex ...], anticlockwise
};

// A conductor or dielectric body: its solids are a run of the solid list.
struct generated_net {
  std::string name;
  std::uint32_t first = 0;
  std::uint32_t count = 0;
  std::int32_t diel = 0;  // thousandths; dielectrics only
};

struct generated_plate {
  std::string name;
  std::int32_t z_top = 0;
  std::int32_t diel = 0;  // thousandths
};

struct generated_layout {
  generator_params params;
  std::array<std::int32_t, 3> window_lower{};
  std::array<std::int32_t, 3> window_upper{};
  std::vector<std::string> layer_names;       // "M1", "M2", ...: layer k is layer_names[k]
  std::int32_t wire_width_min = 0;            // the <layer> wmin of every metal layer
  std::vector<generated_plate> plates;
  std::vector<generated_net> media;           // solids in medium_solids
  std::vector<generated_solid> medium_solids;
  std::vector<generated_net> conductors;      // solids in solids
  std::vector<generated_solid> solids;
  std::vector<std::array<std::int32_t, 2>> vertices;
  std::vector<std::string> tasks;             // conductor names
};

}  // namespace torva
