// Synthetic cap3d layouts for tests and benchmarks.
//
// A layout is first generated as a plain description (`generated_layout`):
// metal layers of straight wires, each wire a conductor made of segments that
// abut end to end, on a lattice of integer length units. The description is
// then written as cap3d text, or built directly into a `circuit_layout` the way
// the text reader would build it from that text, so that search structures can
// be tested and measured without the reader. Further writers (a binary one,
// say) work from the same description.
//
// Kinds:
// - bus: every layer runs along x; wires of width 0.2 at pitch 0.4, segments
//   of length 4.
// - crossing: as bus, but layers alternate between x and y.
// - mixed: crossing, with a random width (0.1 to 0.3), spacing (0.15 to 0.3)
//   and segment length (1 to 8) for every wire.
// Each segment becomes, by the shares, a polygon (a wire with a notch, a
// chamfered end or a trapezoid outline), a cylinder standing in the segment, a
// block with a side taper, or else a plain box. Wires of one layer are parallel
// and apart; solids of different layers are apart in z. With `media`, a plate
// medium lies under every layer and over the last, and each layer gets a thin
// cap dielectric over it; one trapezoid dielectric polygon is added.
//
// All lengths are exact multiples of 1/1000, printed with three decimals, so
// that the numbers the reader gets back are the very doubles that the in-memory
// builder uses. The same parameters always give the same layout.
#pragma once

#include <array>
#include <cstdint>
#include <string>
#include <vector>

#include "torva/foundation/writer.h"
#include "torva/layout/records.h"

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

// Makes the description. Shares are clamped to [0, 1] and taken in the order
// polygon, cylinder, incline; `layers` below 1 counts as 1.
generated_layout generate_layout(const generator_params& params);

// Writes the cap3d text: <window>, <layer>s, <plate_medium>s, <medium>s,
// <conductor>s, <task>, each line ended by a line feed, "</cap3d>" last.
void write_text(const generated_layout& layout, sea::writer& out);
std::string to_text(const generated_layout& layout);
std::string generate_text(const generator_params& params);

// Writes the text to a file; a file that cannot be opened is reported on
// logger::error and thrown as sea::file_error, and a short write likewise.
void write_text_file(const generated_layout& layout, const std::string& path);

// How the reader is asked to read the text, which the in-memory build follows.
struct build_options {
  int incline_slices = 4;     // slices of a conductor block with a side_tan
  bool cuboids_only = false;  // cylinders and polygon pieces of conductors become boxes
};

// Appends to `raw` exactly what reading the text of `layout` would: the same
// records with the same numbers, in the same order.
void build_layout(const generated_layout& layout, circuit_layout::raw& raw, const build_options& options = {});

// build_layout into `circuit.data`, then the fields a client derives: `blocks`
// lists every conductor block, `critical_box` is the window, `cuboid_size` and
// `prism_size` count blocks of shape_kind 0 and of the other kinds. The other
// derived fields (space_margin, crowding_ratio, coarse_grid) keep their values.
void build_circuit(const generated_layout& layout, circuit_layout& circuit, const build_options& options = {});

}  // namespace torva
