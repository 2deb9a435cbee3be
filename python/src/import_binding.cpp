// torva.import_gds: a GDS cell on a process stack made into a Layout, as the
// torva import command does, with its report as a dict.
#include <pybind11/stl.h>

#include <filesystem>

#include "bindings.h"
#include "torva/import/gds_import.h"
#include "torva/space/layout_fields.h"

namespace torva::python {

namespace {

std::string fspath(const py::object& p) { return py::module_::import("os").attr("fspath")(p).cast<std::string>(); }

py::dict report_dict(const import_report& r) {
  py::dict d;
  d["cell"] = r.cell;
  d["stack"] = r.stack;
  d["um_per_db"] = r.um_per_db;
  d["polygons"] = r.polygons;
  d["labels"] = r.labels;
  d["window_margin"] = r.window_margin;
  py::list nets;
  for (const import_net& n : r.nets) {
    py::dict e;
    e["name"] = n.name;
    e["labelled"] = n.labelled;
    e["substrate"] = n.substrate;
    e["blocks"] = n.blocks;
    e["layers"] = n.layers;
    nets.append(e);
  }
  d["nets"] = nets;
  py::list layers;
  for (const import_layer& l : r.layers) {
    py::dict e;
    e["name"] = l.name;
    e["kind"] = l.kind;
    e["pieces"] = l.pieces;
    e["blocks"] = l.blocks;
    e["volume"] = l.volume;
    layers.append(e);
  }
  d["layers"] = layers;
  d["warnings"] = r.warnings;
  py::dict seconds;
  seconds["read"] = r.read_seconds;
  seconds["layers"] = r.merge_seconds;
  seconds["nets"] = r.connect_seconds;
  seconds["blocks"] = r.cut_seconds;
  seconds["dielectrics"] = r.dielectric_seconds;
  seconds["total"] = r.total_seconds;
  d["seconds"] = seconds;
  return d;
}

py::tuple import_gds_file(const py::object& path, const py::object& stack, const std::string& top,
                          const std::vector<std::string>& nets, const py::object& window_margin) {
  const std::string file = fspath(path);
  std::string stack_name = py::isinstance<py::str>(stack) ? stack.cast<std::string>() : fspath(stack);
  std::error_code ec;
  if (std::filesystem::is_directory(file, ec)) throw path_error(file + ": a directory, not a GDS file", path_error::folder);
  if (!std::filesystem::exists(file, ec)) throw path_error(file + ": no such file", path_error::missing);
  import_options o;
  o.top = top;
  o.nets = nets;
  if (!window_margin.is_none()) {
    o.window_margin = window_margin.cast<double>();
    if (!(o.window_margin >= 0)) throw argument_error("window_margin must not be negative");
  }
  auto holder = std::make_shared<layout_holder>();
  holder->path = file;
  import_report report = run_library([&] {
    take_error_lines();
    const process_stack s = load_stack(stack_name);
    import_result r = import_gds(file, s, o);
    holder->layout = std::move(r.layout);
    derive_layout_fields(*holder->layout);
    return r.report;
  });
  return py::make_tuple(holder, report_dict(report));
}

}  // namespace

void bind_import(py::module_& m) {
  m.def("import_gds", &import_gds_file, py::arg("path"), py::arg("stack"), py::kw_only(), py::arg("top") = "",
        py::arg("nets") = std::vector<std::string>{}, py::arg("window_margin") = py::none(), R"doc(
Imports a GDS cell on a process stack: returns (layout, report).

stack: a shipped stack's name (sky130A, ihp-sg13g2, ihp-sg13cmos5l, gf180mcuD,
  or one in $TORVA_STACK_PATH) or a stack file.
top: the cell (default: the one no other references).
nets: the nets the layout's tasks name (default: every net of the cell).
window_margin: um past the cell's bounding box (default: the stack's).

The layout is a Layout like read_layout's (extract takes it); the report is
a dict: cell, stack, nets (name, labelled, substrate, blocks, layers), layers
(name, kind, pieces, blocks, volume in um^3), warnings, seconds by stage.
Lengths in um. Raises FileNotFoundError for a missing file and TorvaError
with the library's message for a cell or stack it cannot take. The GIL is
released while the cell is imported.)doc");
}

}  // namespace torva::python
