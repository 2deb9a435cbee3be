// torva.convert, torva.generate and torva.load_tables: the torva program's
// convert, gen and tables commands, with the same options. Files are written
// beside their path and renamed into place when whole, so a failure never
// destroys what the path held.
#include <pybind11/numpy.h>
#include <pybind11/stl.h>

#include <filesystem>
#include <map>

#include "bindings.h"
#include "torva/extract/staged_file.h"
#include "torva/foundation/configure.h"
#include "torva/foundation/errors.h"
#include "torva/layout/binary_writer.h"
#include "torva/layout/generator.h"
#include "torva/tables/tables.h"

namespace torva::python {

namespace {

std::string fspath(const py::object& p) { return py::module_::import("os").attr("fspath")(p).cast<std::string>(); }

// An output may replace an existing file only when asked, and never the input.
void check_output(const std::string& out, bool force, const std::string& in = "") {
  std::error_code ec;
  if (std::filesystem::is_directory(out, ec)) throw path_error(out + ": a directory", path_error::folder);
  if (!in.empty() && std::filesystem::equivalent(in, out, ec)) throw argument_error(out + ": the output is the input");
  if (!force && std::filesystem::exists(out, ec))
    throw path_error(out + ": exists (force=True replaces it)", path_error::exists);
}

bool is_binary_file(const std::string& path) {
  std::FILE* f = std::fopen(path.c_str(), "rb");
  if (f == nullptr) return false;
  char head[12] = {};
  const bool binary = std::fread(head, 1, 12, f) == 12 && std::string(head, 12) == "CAP3D_BINARY";
  std::fclose(f);
  return binary;
}

py::dict convert(const py::object& source, const py::object& target, bool force, bool swapped,
                 const std::string& note, int incline_slices) {
  const std::string in = fspath(source), out = fspath(target);
  check_output(out, force, in);
  read_settings how;
  how.incline_slices = incline_slices;
  py::dict summary;
  if (is_binary_file(in)) {
    // The reader writes the text form while it reads the records.
    auto staged = run_library([&] { return std::make_unique<staged_file>(out); });
    const auto layout = read_layout_file(in, how, staged->temp_path());
    run_library([&] { staged->commit(); });
    summary["direction"] = "binary to text";
    summary["conductors"] = layout->layout->data.wire_nets.size();
    summary["blocks"] = layout->layout->data.wire_blocks.size();
    std::error_code ec;
    summary["bytes"] = std::uint64_t(std::filesystem::file_size(out, ec));
    return summary;
  }
  const auto layout = read_layout_file(in, how);
  binary_write_options options;
  options.swapped = swapped;
  options.note = note;
  const binary_write_summary written = run_library([&] {
    staged_file staged(out);
    const binary_write_summary s = write_binary_file(layout->layout->data, staged.temp_path(), options);
    staged.commit();
    return s;
  });
  summary["direction"] = "text to binary";
  summary["conductors"] = layout->layout->data.wire_nets.size();
  summary["blocks"] = layout->layout->data.wire_blocks.size();
  summary["bytes"] = written.bytes;
  summary["records"] = written.records;
  summary["cylinders_as_cuboids"] = written.cylinders_as_cuboids;
  return summary;
}

py::object generate(const std::string& kind, const py::object& target, std::uint64_t size, int layers,
                    double polygons, double cylinders, double inclines, bool media, std::uint64_t seed,
                    std::uint64_t tasks, bool binary, bool force) {
  static const std::map<std::string, layout_kind> kinds = {
      {"bus", layout_kind::bus}, {"crossing", layout_kind::crossing}, {"mixed", layout_kind::mixed}};
  const auto k = kinds.find(kind);
  if (k == kinds.end()) throw argument_error("kind must be 'bus', 'crossing' or 'mixed'");
  if (size < 1 || size > 100000000) throw argument_error("size must lie in 1..100000000");
  if (layers < 1 || layers > 1000) throw argument_error("layers must lie in 1..1000");
  for (double share : {polygons, cylinders, inclines})
    if (!(share >= 0.0 && share <= 1.0)) throw argument_error("the shares must lie in [0, 1]");
  generator_params p;
  p.kind = k->second;
  p.blocks = size;
  p.layers = layers;
  p.polygon_share = polygons;
  p.cylinder_share = cylinders;
  p.incline_share = inclines;
  p.media = media;
  p.seed = seed;
  p.tasks = tasks;

  if (target.is_none()) {
    // No file: the layout itself, as text or as the bytes of the binary form.
    std::string data = run_library([&] {
      std::lock_guard<std::mutex> one_reader(reader_mutex());
      const generated_layout layout = generate_layout(p);
      if (!binary) return to_text(layout);
      circuit_layout::raw raw;
      build_layout(layout, raw);
      return to_binary(raw);
    });
    if (binary) return py::bytes(data);
    return py::str(data);
  }
  const std::string out = fspath(target);
  check_output(out, force);
  run_library([&] {
    std::lock_guard<std::mutex> one_reader(reader_mutex());
    const generated_layout layout = generate_layout(p);
    staged_file staged(out);
    if (binary)
      write_binary_file(layout, staged.temp_path());
    else
      write_text_file(layout, staged.temp_path());
    staged.commit();
  });
  return py::str(out);
}

struct tables_holder {
  std::unique_ptr<table_database> db = std::make_unique<table_database>();  // large: on the heap
  unsigned mode = 0;
  std::vector<double> stack;
};

std::unique_ptr<tables_holder> load_tables(unsigned mode, const py::object& dir, std::vector<double> diels,
                                           const py::object& dir_two, const py::object& dir_multi,
                                           const py::object& dir_equal, unsigned walk_scheme, bool force) {
  if (mode > 5) throw argument_error("mode must lie in 0..5");
  for (double d : diels)
    if (!(d > 0)) throw argument_error("dielectric values must be positive");
  configure config;
  config.table_mode = mode;
  config.walk_scheme = walk_scheme;
  config.table_dir = fspath(dir);
  config.table_dir_two = dir_two.is_none() ? config.table_dir : fspath(dir_two);
  config.table_dir_multi = dir_multi.is_none() ? config.table_dir : fspath(dir_multi);
  config.table_dir_equal = dir_equal.is_none() ? config.table_dir : fspath(dir_equal);
  // The database expects five filler entries before the stack and six after;
  // their value is never read.
  dielectric_layers layers;
  if (!diels.empty()) {
    layers.diels.assign(5, 1.0);
    layers.diels.insert(layers.diels.end(), diels.begin(), diels.end());
    layers.diels.insert(layers.diels.end(), 6, 1.0);
    layers.layer_slots.assign(layers.diels.size(), 0.0);
  }
  // The compressed set does not depend on the stack, so it loads without one.
  const bool go_on = force || (mode == 3 && diels.empty());
  auto out = std::make_unique<tables_holder>();
  out->mode = mode;
  out->stack = diels;
  run_library([&] {
    try {
      out->db->load(config, layers, go_on);
    } catch (const sea::base_error& e) {
      const std::string lines = take_error_lines();
      throw library_error("tables of mode " + std::to_string(mode) + " under \"" + config.table_dir +
                          "\": " + (lines.empty() ? std::string(e.what()) : lines));
    }
  });
  return out;
}

template <class Store>
void add_store(py::dict& into, const char* name, const Store& store) {
  into[name] = py::make_tuple(store.groups.size(), store.order.size());
}

}  // namespace

void bind_files(py::module_& m) {
  m.def("convert", &convert, py::arg("source"), py::arg("target"), py::kw_only(), py::arg("force") = false,
        py::arg("swapped") = false, py::arg("note") = "", py::arg("incline_slices") = 4, R"doc(
Converts a layout between its text and binary forms; the source's first
bytes decide the direction. Text goes to binary through the library's
writer (swapped: byte-swapped integers; note: a leading record readers skip;
cylinders become blocks of equal area), binary to text through the reader's
dump. The target is replaced only with force=True, and never by a failed
conversion. Returns a summary dict.)doc");

  m.def("generate", &generate, py::arg("kind"), py::arg("path") = py::none(), py::kw_only(),
        py::arg("size") = 1000, py::arg("layers") = 2, py::arg("polygons") = 0.0, py::arg("cylinders") = 0.0,
        py::arg("inclines") = 0.0, py::arg("media") = false, py::arg("seed") = 1, py::arg("tasks") = 4,
        py::arg("binary") = false, py::arg("force") = false, R"doc(
Writes a synthetic layout of straight wires on metal layers.

kind: 'bus' (layers along x), 'crossing' (layers alternate x and y) or
  'mixed' (crossing with random widths, spacings and lengths).
size: conductor segments to make; layers: metal layers; polygons,
cylinders, inclines: shares of segments written as polygons, cylinders and
blocks with a side slope; media: add plate media and dielectric bodies;
seed: of the random choices; tasks: conductors named in <task>;
binary: the binary form (cylinders become blocks of equal area).

With a path, writes the file (replacing one only with force=True) and
returns the path; without, returns the text (str) or the binary form (bytes).)doc");

  py::class_<tables_holder>(m, "Tables", "The Green's function and weight tables loaded for a dielectric stack.")
      .def_property_readonly("mode", [](const tables_holder& t) { return t.mode; })
      .def_property_readonly("stack", [](const tables_holder& t) { return t.stack; },
                             "The dielectric values of the stack, bottom first.")
      .def_property_readonly(
          "first_table", [](const tables_holder& t) {
            constexpr std::size_t n = table_database::single_oct_face_group::size;
            py::array_t<double> out(py::ssize_t{n});
            std::copy(t.db->first_group.first_table, t.db->first_group.first_table + n, out.mutable_data());
            return out;
          },
          "(1024,) float64: the cumulative exit distribution over the 32 x 32 cells of a quarter face.")
      .def_property_readonly(
          "groups", [](const tables_holder& t) {
            py::dict d;
            add_store(d, "two-layer", t.db->two_layer);
            add_store(d, "half-layer", t.db->half_layer);
            add_store(d, "three-layer", t.db->three_layer);
            add_store(d, "four-layer", t.db->four_layer);
            add_store(d, "compressed", t.db->cmpr_equal_layer);
            return d;
          },
          "For each store: (groups loaded, uses by the stack's interfaces).")
      .def("__repr__", [](const tables_holder& t) {
        return "<torva.Tables mode " + std::to_string(t.mode) + ", " + std::to_string(t.stack.size()) + " layers>";
      });

  m.def("load_tables", &load_tables, py::arg("mode"), py::arg("dir"), py::arg("diels") = std::vector<double>{},
        py::kw_only(), py::arg("dir_two") = py::none(), py::arg("dir_multi") = py::none(),
        py::arg("dir_equal") = py::none(), py::arg("walk_scheme") = 0, py::arg("force") = false, R"doc(
Loads the tables a walk over a dielectric stack needs.

mode: 0 none (the first table only), 1 Multiple up to two layers, 2 Multiple
  up to four layers, 3 compressed, 4 approximate (geometric ratio grid),
  5 approximate (linear ratio grid).
dir: the table directory (holding Multiple/ or Approx4equal/); dir_two,
  dir_multi, dir_equal override it for the two-layer and approximate, the
  three- and four-layer, and the compressed tables.
diels: the stack's dielectric values, bottom first.
walk_scheme: above 2 only the first table is taken.
force: go on with an empty stack.

Raises TorvaError with the library's message when a table cannot be read.)doc");
}

}  // namespace torva::python
