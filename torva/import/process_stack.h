// A process stack: which GDS layers are conductors, at what heights, which
// vias join them, and the dielectrics around them. The import of a GDS cell
// builds its three-dimensional layout from one of these. Units: micrometres;
// z = 0 is the top of the substrate's silicon, where diffusion begins.
//
// The file is JSON, one object (stacks/README.md has the full description and
// the shipped stacks are examples):
//
//   format      "torva-stack"; version 1.
//   name        the stack's name (e.g. "sky130A").
//   units       optional; "um" if given.
//   window_margin  optional: how far (um) the simulation window reaches past
//               the cell's bounding box when the import is not told otherwise.
//   gds         names for GDS pairs: {"diff": [65, 20], ...}. Every pair the
//               process draws that the stack knows belongs here, modelled or
//               not (wells, implants), so that only truly unknown layers of a
//               cell draw a warning. Expressions below may use these names.
//   conductors  [{name, kind, drawing, pin?, label?, z, thickness,
//               shares_gds_with?}]: kind is "diffusion", "poly", "metal" or
//               "mim_plate"; z is the bottom, z + thickness the top. drawing
//               is a layer expression (below); pin and label are single GDS
//               pairs (or names from gds). Label texts name the nets of the
//               pieces they stand on.
//   vias        [{name, drawing, targets: [{below, above, z?}], cut?,
//               shares_gds_with?}]: the via's shapes are shared out among its
//               targets in order. Target 1 takes the parts of the shapes that
//               lie over shapes of its `below` conductor layer, target 2 the
//               parts of the rest that lie over its own `below`, and so on;
//               what lies over none is left out (with a warning). A target
//               joins `below` to `above` and spans z = [bottom, top], by
//               default from the top of `below` to the bottom of `above`.
//               cut {width, spacing, border} records how the process draws a
//               large via as an array of cuts.
//   dielectrics bottom to top, of three kinds:
//     planar    {name, kind:"planar", z:[bottom, top], permittivity}. The
//               planar layers tile z without gap or overlap from the top of
//               the substrate to the top of the stack; above it is vacuum.
//     conformal {name, kind:"conformal", wraps, permittivity, over, sidewall,
//               elsewhere}: a coat on the body it wraps (a conductor layer, or
//               a conductor with the coats already on it): `over` thick on
//               its top, `sidewall` thick on its sides, from the conductor's
//               bottom up; and a film `elsewhere` thick wherever the grown
//               body is not, lying on the film of the coat it wraps (or on
//               the conductor's bottom z when there is none).
//     sidewall  {name, kind:"sidewall", wraps, permittivity, width, above}: a
//               ring `width` wide around the wrapped body's sides, from the
//               conductor's bottom to `above` over the body's top (0: flush
//               with the top); a ring that rises above the top also covers it.
//               It is a conformal coat without a film elsewhere.
//               Coats and rings are dielectric bodies: they replace the planar
//               layers where they lie, a conductor replaces them, and where
//               two overlap, the one listed first wins.
//   substrate   {kind:"conductor", net, z:[bottom, top], holes?} or
//               {kind:"plane", net, top, holes?}: grounded. holes {under:
//               [conductor names], grow} opens it under those layers' shapes
//               grown by `grow`.
//   notes, corrections  free-form (notes is allowed in any entry too): what
//               the file's author changed against its sources, and why.
//
// A layer expression is a GDS pair [layer, datatype], a name from gds, or an
// object {"or": [e...]} (union) or {"and": [e...]} (intersection), either
// with an optional "not": [e...] whose union is taken away.
//
// A stack that contradicts itself is refused by read_stack with a
// sea::file_error whose text names the file and the field, e.g.
// "stack sky130A.json: conductors[3].thickness: negative (-0.1)".
#pragma once

#include <compare>
#include <cstddef>
#include <set>
#include <string>
#include <string_view>
#include <vector>

namespace torva {

struct gds_pair {
  int layer = 0;
  int datatype = 0;
  auto operator<=>(const gds_pair&) const = default;
};

// The shapes of a GDS pair, or a boolean of other expressions.
struct layer_expr {
  enum class op { pair, union_of, intersection_of };
  op kind = op::pair;
  gds_pair pair;                 // kind == pair
  std::vector<layer_expr> terms;  // union_of, intersection_of
  std::vector<layer_expr> minus;  // taken away from the union or intersection

  bool derived() const { return kind != op::pair; }
  // Every GDS pair the expression reads.
  void collect_pairs(std::set<gds_pair>& out) const;
};

enum class conductor_kind { diffusion, poly, metal, mim_plate };

struct conductor_layer {
  std::string name;
  conductor_kind kind = conductor_kind::metal;
  layer_expr drawing;
  bool has_pin = false, has_label = false;
  gds_pair pin, label;
  double z = 0;  // bottom
  double thickness = 0;
  std::string shares_gds_with;  // another layer allowed to draw on the same pair

  double top() const { return z + thickness; }
};

struct via_target {
  std::size_t below = 0, above = 0;  // indices into process_stack::conductors
  double z_bottom = 0, z_top = 0;
};

struct via_cut {
  double width = 0, spacing = 0, border = 0;
};

struct via_layer {
  std::string name;
  layer_expr drawing;
  std::vector<via_target> targets;  // in the order they take the via's shapes
  bool has_cut = false;
  via_cut cut;
  std::string shares_gds_with;
};

enum class dielectric_kind { planar, conformal, sidewall };

struct dielectric_layer {
  std::string name;
  dielectric_kind kind = dielectric_kind::planar;
  double permittivity = 1;  // relative
  // planar
  double z_bottom = 0, z_top = 0;
  // conformal and sidewall: what it wraps, a conductor layer or an earlier
  // coat (one of these two indices is set, the other is npos)
  std::size_t wraps_conductor = npos, wraps_dielectric = npos;
  // over the top, on the sides, and as a film where the body is not; a
  // sidewall ring has over = its `above`, side = its `width`, field = 0
  double over = 0, side = 0, field = 0;

  static constexpr std::size_t npos = std::size_t(-1);
};

enum class substrate_kind { conductor, plane };

struct substrate_model {
  substrate_kind kind = substrate_kind::plane;
  std::string net = "substrate";
  double z_bottom = 0, z_top = 0;  // a plane has only a top: the window's floor is its bottom
  std::vector<std::size_t> holes_under;  // conductor indices
  double hole_grow = 0;
};

struct process_stack {
  std::string name;
  std::string path;  // the file it was read from
  double window_margin = 0;
  std::vector<std::pair<std::string, gds_pair>> gds;  // named pairs, in name order
  std::vector<conductor_layer> conductors;
  std::vector<via_layer> vias;
  std::vector<dielectric_layer> dielectrics;  // planar ones bottom to top, coats after what they wrap
  substrate_model substrate;
  std::vector<std::string> notes, corrections;

  // Index of the conductor, via or dielectric of that name, or npos.
  std::size_t conductor_index(std::string_view name) const;
  std::size_t via_index(std::string_view name) const;
  std::size_t dielectric_index(std::string_view name) const;
  // Bottom and top of the planar layers.
  double stack_bottom() const;
  double stack_top() const;
  // Every GDS pair the stack names, reads or draws on.
  std::set<gds_pair> known_pairs() const;

  static constexpr std::size_t npos = std::size_t(-1);
};

// Where a coat or ring lies, as offsets from the shapes of the conductor at
// the root of its chain. The body is (shapes grown by outer_grow) x
// [z_bottom, outer_top] less (shapes grown by inner_grow) x [z_bottom,
// inner_top]; the film is everywhere outside the shapes grown by outer_grow,
// from field_bottom to field_top (no film when they are equal).
struct wrap_shell {
  std::size_t dielectric = 0;  // index into process_stack::dielectrics
  std::size_t conductor = 0;   // the conductor at the root of the chain
  double inner_grow = 0, outer_grow = 0;
  double z_bottom = 0, inner_top = 0, outer_top = 0;
  double field_bottom = 0, field_top = 0;
};

// The shells of every conformal and sidewall dielectric, in list order.
std::vector<wrap_shell> wrap_shells(const process_stack& stack);

// Reads and validates a stack. `origin` names it in messages. Throws
// sea::file_error "stack ORIGIN: FIELD: WHAT" on anything that contradicts.
process_stack parse_stack(std::string_view json_text, const std::string& origin);
process_stack read_stack_file(const std::string& path);

// The file a --stack argument means: an existing path as it is; else NAME or
// NAME.json in each directory of $TORVA_STACK_PATH (colon-separated), then in
// the installed stacks, then in the source tree's stacks/. Throws
// sea::file_error listing the shipped names when nothing matches.
std::string find_stack(const std::string& name_or_path);
// find_stack then read_stack_file.
process_stack load_stack(const std::string& name_or_path);
// The names of the stacks find_stack would find by name, sorted.
std::vector<std::string> shipped_stack_names();

const char* to_string(conductor_kind kind);
const char* to_string(dielectric_kind kind);

}  // namespace torva
