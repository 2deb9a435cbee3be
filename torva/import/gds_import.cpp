#include "torva/import/gds_import.h"

#include <chrono>
#include <map>
#include <set>
#include <string>

#include "torva/import/internal/import_steps.h"

namespace torva {

namespace {

using clock_type = std::chrono::steady_clock;

double since(clock_type::time_point t) { return std::chrono::duration<double>(clock_type::now() - t).count(); }

// One warning for every GDS pair of the cell that the stack does not know.
void warn_unknown_pairs(const gds_flat_cell& cell, const process_stack& stack, internal::import_warnings& warn) {
  const std::set<gds_pair> known = stack.known_pairs();
  std::map<gds_pair, std::pair<std::size_t, std::size_t>> unknown;  // shapes, labels
  for (const gds_polygons& p : cell.layers)
    if (!known.count(gds_pair{p.key.layer, p.key.datatype})) unknown[{p.key.layer, p.key.datatype}].first += p.size();
  for (const gds_label& l : cell.labels)
    if (!known.count(gds_pair{l.key.layer, l.key.datatype})) ++unknown[{l.key.layer, l.key.datatype}].second;
  if (unknown.empty()) return;
  std::string list;
  for (const auto& [pair, counts] : unknown) {
    list += (list.empty() ? "" : ", ") + std::to_string(pair.layer) + "/" + std::to_string(pair.datatype) + " (";
    if (counts.first) list += std::to_string(counts.first) + (counts.first == 1 ? " shape" : " shapes");
    if (counts.first && counts.second) list += ", ";
    if (counts.second) list += std::to_string(counts.second) + (counts.second == 1 ? " label" : " labels");
    list += ")";
  }
  warn.add("stack " + stack.name + " does not know the GDS layers " + list + " of cell " + cell.top +
           ": they are skipped");
}

}  // namespace

import_result import_cell(const gds_flat_cell& cell, const process_stack& stack, const import_options& options) {
  const auto start = clock_type::now();
  import_result result;
  import_report& report = result.report;
  report.cell = cell.top;
  report.stack = stack.name;
  report.um_per_db = cell.um_per_db;
  report.polygons = cell.polygon_count();
  report.labels = cell.labels.size();
  report.warnings = cell.warnings;  // the reader said them already
  internal::import_warnings warn{&report.warnings};
  warn_unknown_pairs(cell, stack, warn);
  if (!(cell.um_per_db > 0)) internal::import_fail("cell " + cell.top + ": the library's database unit is not positive");
  const double margin = options.window_margin >= 0 ? options.window_margin : stack.window_margin;

  internal::chip_plan plan;
  auto t = clock_type::now();
  internal::build_pieces(cell, stack, plan, warn, options.progress);
  report.merge_seconds = since(t);
  if (!plan.has_extent)
    internal::import_fail("cell " + cell.top + " has no shapes on the conductor layers of stack " + stack.name);

  t = clock_type::now();
  internal::connect_nets(cell, stack, plan, warn, options.progress);
  report.connect_seconds = since(t);

  internal::build_layout(stack, plan, margin, options.nets, *result.layout, report, warn, options.progress);
  report.total_seconds = since(start);
  return result;
}

import_result import_gds(const std::string& gds_file, const process_stack& stack, const import_options& options) {
  const auto start = clock_type::now();
  gds_flatten_options flatten;
  flatten.top = options.top;
  flatten.max_polygons = options.max_polygons;
  flatten.max_bytes = options.max_bytes;
  gds_read_options read = options.read;
  if (options.progress) {
    flatten.progress = [&](std::uint64_t done, std::uint64_t total) { options.progress("flattening", done, total); };
    read.progress = [&](std::uint64_t done, std::uint64_t total) { options.progress("reading", done, total); };
  }
  const gds_flat_cell cell = read_gds_flat(gds_file, flatten, read);
  const double read_seconds = since(start);
  import_result result = import_cell(cell, stack, options);
  result.report.file = gds_file;
  result.report.read_seconds = read_seconds;
  result.report.total_seconds += read_seconds;
  return result;
}

}  // namespace torva
