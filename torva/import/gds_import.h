// A GDS cell on a process stack made into a layout the extractor takes.
//
// What the import does:
// - Layers. Each conductor and via layer of the stack is its layer
//   expression over the cell's flattened shapes (GDS pairs, unions,
//   intersections and differences, by Boost.Polygon's booleans). Pairs of
//   the cell that the stack does not know are listed once in a warning and
//   skipped.
// - Pieces and nets. Shapes of one conductor layer that overlap or touch
//   (along an edge or at a point) are one piece. A via's shapes are shared
//   out among its targets in the stack's order: a target takes the parts
//   that lie over its lower layer; what lies over none is left out with a
//   warning. Each part joins the pieces of its lower and upper layer that it
//   overlaps or touches. Pieces so joined are one net.
// - Names. A label (TEXT) on a conductor's label, pin or drawing pair names
//   the net of the piece it stands in. Two different labels on one net keep
//   the first met and warn with both places; one name on two nets warns with
//   both places and the later net (in the order below) gets "NAME#2". A
//   label on no shape warns. An unlabelled net is named by its lowest layer
//   and its lowest-left vertex there, "met1_12.5_3" (um). Nets are ordered
//   by that layer and point, so the order and the names do not depend on how
//   the cell was drawn. Blanks, commas and parentheses in labels become "_".
// - Blocks. Each piece is cut into boxes (the fewer of its horizontal and
//   vertical slicings into rectangles) or, where it is not Manhattan, into
//   convex prisms of at most four sides, from its layer's bottom to its top.
//   Via parts span their target's z range. Block volumes per layer are the
//   pieces' areas times the thickness, exactly.
// - Dielectrics. Planar layers become plate media. Conformal coats and
//   sidewall rings become dielectric bodies: the footprint of the wrapped
//   layer grown by the coat's outer growth, cut into boxes, from the
//   conductor's bottom to the coat's top, and the coat's film elsewhere as
//   one layer across the window. Bodies are listed last-listed first, so
//   that where two overlap the one the stack lists first wins in the walk's
//   map, which lets a later body win. A footprint that is not Manhattan is
//   taken as the boxes of its convex parts, with one warning per layer.
// - Substrate. A conductor substrate is a grounded conductor net of the
//   stack's name (VSUBS), the window's floor at its bottom, with holes under
//   the layers it names grown by the stack's amount; its column in the
//   matrix is the substrate's share, GROUND the window walls'. A plane
//   substrate is the window's floor itself (the GROUND column); holes in a
//   plane are not modelled (a warning).
// - Window: the bounding box of the cell's conductor shapes grown by the
//   margin on every side, from the substrate up to the margin above the
//   stack; grounded (Dirichlet).
// - Tasks: the nets asked for, else every net of the cell (not the
//   substrate).
//
// Units: micrometres. Failures: an "ERROR: " line on the error channel, then
// sea::file_error (the reader's and flattener's failures pass through).
#pragma once

#include <cstdint>
#include <functional>
#include <memory>
#include <string>
#include <vector>

#include "torva/import/gds_flatten.h"
#include "torva/import/gds_reader.h"
#include "torva/import/process_stack.h"
#include "torva/layout/records.h"

namespace torva {

struct import_options {
  std::string top;                 // the cell; empty: the one no other references
  std::vector<std::string> nets;   // the layout's tasks; empty: every net of the cell
  double window_margin = -1.0;     // um past the cell's bounding box; negative: the stack's
  gds_read_options read;
  std::uint64_t max_polygons = 200'000'000;          // of the flattened cell
  std::uint64_t max_bytes = std::uint64_t(8) << 30;  // its estimated memory
  // Called now and then: the stage ("reading", "flattening", "layers",
  // "connecting", "cutting", "dielectrics"), work done and its total.
  std::function<void(const char* stage, std::uint64_t done, std::uint64_t total)> progress;
};

struct import_net {
  std::string name;
  bool labelled = false;   // named by a label of the cell (else a generated name)
  bool substrate = false;  // the grounded substrate
  std::size_t blocks = 0;
  std::vector<std::string> layers;  // conductor and via layers it has blocks on, in the stack's order
};

struct import_layer {
  std::string name;
  std::string kind;  // "conductor", "via", "substrate", "dielectric"
  std::size_t pieces = 0;
  std::size_t blocks = 0;
  double volume = 0;  // um^3
};

struct import_report {
  std::string file;
  std::string cell;
  std::string stack;
  double um_per_db = 0;
  std::uint64_t polygons = 0;  // of the flattened cell
  std::uint64_t labels = 0;
  std::vector<import_net> nets;      // in the layout's order
  std::vector<import_layer> layers;  // conductors and vias in the stack's order, the substrate, then dielectrics
  std::vector<std::string> warnings;
  double window_margin = 0;
  // Seconds of each stage: reading and flattening; evaluating and merging
  // the layers; joining pieces into nets and naming them; cutting pieces
  // into blocks; dielectric bodies and the substrate; the whole import.
  double read_seconds = 0, merge_seconds = 0, connect_seconds = 0, cut_seconds = 0, dielectric_seconds = 0,
         total_seconds = 0;
};

struct import_result {
  std::unique_ptr<circuit_layout> layout = std::make_unique<circuit_layout>();
  import_report report;
};

// Reads the file, flattens the cell and imports it.
import_result import_gds(const std::string& gds_file, const process_stack& stack, const import_options& options = {});

// Imports a cell already flattened.
import_result import_cell(const gds_flat_cell& cell, const process_stack& stack, const import_options& options = {});

}  // namespace torva
