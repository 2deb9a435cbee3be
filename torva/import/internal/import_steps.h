// The steps of importing a flattened GDS cell on a process stack, and what
// they hand one another: the merged pieces of every conductor layer and of
// every via target, the net of each, and the nets' names.
#pragma once

#include <cstdint>
#include <functional>
#include <string>
#include <vector>

#include "torva/import/gds_flatten.h"
#include "torva/import/gds_import.h"
#include "torva/import/internal/region.h"
#include "torva/import/process_stack.h"

namespace torva::internal {

// Lengths on a grid (database units, or a finer grid of them) in
// micrometres: by division where a micrometre is a whole number of units, so
// that 30141 nm come out as the 30.141 um they stand for.
struct length_unit {
  double um_per_unit = 1;
  double units_per_um = 0;  // when a whole number
  explicit length_unit(double um_per);
  double operator()(double v) const { return units_per_um > 0 ? v / units_per_um : v * um_per_unit; }
  // The unit of a grid `k` times finer.
  length_unit finer(int k) const;
};

// Warnings of an import: each said on the warning channel as it comes and
// kept for the report.
struct import_warnings {
  std::vector<std::string>* out = nullptr;
  void add(const std::string& message);
};

// The pieces of one via target: the parts of the via's shapes it takes.
struct via_parts {
  std::size_t via = 0;
  std::size_t target = 0;
  piece_store pieces;
  std::vector<std::uint32_t> net;  // per piece
};

struct chip_plan {
  double um_per_db = 0;
  std::vector<piece_store> conductors;              // per conductor layer of the stack
  std::vector<std::vector<std::uint32_t>> net;      // per conductor layer, per piece
  std::vector<via_parts> vias;                      // per via target with parts
  std::vector<std::string> net_names;               // per net, in the layout's order
  std::vector<bool> labelled;                       // per net
  grid_rect extent;                                 // of every piece, database units
  bool has_extent = false;
};

// Fails the import: the line on the error channel, then sea::file_error.
[[noreturn]] void import_fail(const std::string& message);

using stage_progress = std::function<void(const char* stage, std::uint64_t done, std::uint64_t total)>;

// Evaluates the layer expressions of every conductor and via layer, merges
// their shapes into pieces, and shares each via's shapes out among its
// targets. Checks that coordinates stay within coordinate_limit.
void build_pieces(const gds_flat_cell& cell, const process_stack& stack, chip_plan& plan, import_warnings& warn,
                  const stage_progress& progress);

// Joins pieces into nets (pieces that meet at a point, and vias with the
// pieces under and over them), names the nets from the cell's labels or by
// their lowest layer and lowest-left point, and orders them by that point.
void connect_nets(const gds_flat_cell& cell, const process_stack& stack, chip_plan& plan, import_warnings& warn,
                  const stage_progress& progress);

// Builds the layout: window, plate media, coats and rings, conductor blocks,
// the substrate, tasks. Fills the report's nets and layers.
void build_layout(const process_stack& stack, const chip_plan& plan, double window_margin,
                  const std::vector<std::string>& tasks, circuit_layout& layout, import_report& report,
                  import_warnings& warn, const stage_progress& progress);

// A length of database units in micrometres as text: the shortest that
// reads back to the same double.
std::string format_um(double um);

}  // namespace torva::internal
