// torva.read_layout and the Layout it returns: the records of a layout file
// as Python values and numpy arrays, read once and never changed after.
#include <pybind11/numpy.h>
#include <pybind11/stl.h>

#include <algorithm>
#include <cstring>
#include <filesystem>
#include <fstream>
#include <unordered_map>
#include <vector>

#include "bindings.h"
#include "torva/layout/cap3d_parser.h"
#include "torva/space/layout_fields.h"

namespace torva::python {

std::mutex& reader_mutex() {
  static std::mutex m;
  return m;
}

namespace {

bool holds_anything(const circuit_layout::raw& r) {
  return !r.wire_nets.empty() || !r.medium_nets.empty() || !r.plate_mediums.empty() || !r.window_name.empty() ||
         !r.layer_names.empty() || !r.capacitance_tasks.empty() || r.boundary != 0;
}

// Pairs every element of `from` with the one at its place in `to`.
template <class T>
std::unordered_map<const T*, T*> pair_up(const std::deque<T>& from, std::deque<T>& to) {
  std::unordered_map<const T*, T*> map;
  map.reserve(from.size());
  auto t = to.begin();
  for (auto f = from.begin(); f != from.end(); ++f, ++t) map.emplace(&*f, &*t);
  return map;
}

// Position of each net in the file's order, which Python's indices follow.
std::unordered_map<const wire_net*, std::int32_t> net_positions(const circuit_layout::raw& r) {
  std::unordered_map<const wire_net*, std::int32_t> at;
  std::int32_t i = 0;
  for (const wire_net& n : r.wire_nets) at.emplace(&n, i++);
  return at;
}

py::array_t<double> box_array(const cuboid_t& box) {
  py::array_t<double> out({2, 3});
  auto v = out.mutable_unchecked<2>();
  for (int k = 0; k < 3; ++k) {
    v(0, k) = box.lower[k].value;
    v(1, k) = box.upper[k].value;
  }
  return out;
}

const circuit_layout::raw& raw_of(const layout_holder& h) { return h.layout->data; }

}  // namespace

std::unique_ptr<circuit_layout> copy_layout(const circuit_layout& source) {
  auto copy = std::make_unique<circuit_layout>(source);
  circuit_layout::raw& to = copy->data;
  const auto nets = pair_up(source.data.wire_nets, to.wire_nets);
  const auto blocks = pair_up(source.data.wire_blocks, to.wire_blocks);
  const auto media = pair_up(source.data.medium_nets, to.medium_nets);
  const auto medium_blocks = pair_up(source.data.medium_blocks, to.medium_blocks);
  for (wire_block& b : to.wire_blocks)
    if (b.net != nullptr) b.net = nets.at(b.net);
  for (wire_net& n : to.wire_nets)
    for (wire_block*& b : n.blocks) b = blocks.at(b);
  for (medium_block& b : to.medium_blocks)
    if (b.net != nullptr) b.net = media.at(b.net);
  for (medium_net& n : to.medium_nets)
    for (medium_block*& b : n.blocks) b = medium_blocks.at(b);
  for (wire_block const*& b : copy->blocks) b = blocks.at(b);
  return copy;
}

std::shared_ptr<layout_holder> read_layout_file(const std::string& path, const read_settings& how,
                                                const std::string& dump_file) {
  std::error_code ec;
  if (std::filesystem::is_directory(path, ec)) throw path_error(path + ": a directory, not a layout file", path_error::folder);
  if (!std::filesystem::exists(path, ec)) throw path_error(path + ": no such file", path_error::missing);
  auto holder = std::make_shared<layout_holder>();
  holder->path = path;
  holder->how = how;
  {
    std::ifstream probe(path, std::ios::binary);
    if (!probe) throw path_error(path + ": cannot be opened", path_error::missing);
    char head[12] = {};
    probe.read(head, sizeof head);
    holder->binary = probe.gcount() == 12 && std::memcmp(head, "CAP3D_BINARY", 12) == 0;
  }
  run_library([&] {
    std::lock_guard<std::mutex> one_reader(reader_mutex());
    take_error_lines();  // lines of an earlier failure are not this file's
    bool ok = false;
    try {
      Cap3dParser parser(holder->layout->data, how.incline_slices, how.allow_floating, how.cuboids_only);
      ok = parser.parse(path, dump_file);
    } catch (const std::bad_alloc&) {
      throw;
    } catch (const std::exception& e) {
      const std::string lines = take_error_lines();
      throw library_error(path + ": " + (lines.empty() ? std::string(e.what()) : lines));
    }
    if (!ok) {
      const std::string lines = take_error_lines();
      throw library_error(path + ": " + (lines.empty() ? std::string("not a cap3d layout, or a malformed one") : lines));
    }
    if (!holds_anything(holder->layout->data)) throw library_error(path + ": no cap3d layout in the file");
    derive_layout_fields(*holder->layout);
  });
  return holder;
}

layout_class bind_layout(py::module_& m) {
  layout_class cls(m, "Layout", R"doc(
A layout read from a cap3d file (text or binary). Read-only: every property
returns a fresh value. Block arrays share one order, the order of the file;
`Index.nearest` answers block ids in it.)doc");
  cls.def_property_readonly("path", [](const layout_holder& h) { return h.path; }, "The file it was read from.")
      .def_property_readonly("binary", [](const layout_holder& h) { return h.binary; }, "Whether the file is binary.")
      .def_property_readonly(
          "nets", [](const layout_holder& h) {
            std::vector<std::string> names;
            for (const wire_net& n : raw_of(h).wire_nets) names.push_back(n.name);
            return names;
          },
          "Conductor names, in the file's order.")
      .def_property_readonly(
          "floating", [](const layout_holder& h) {
            std::vector<std::string> names;
            for (const wire_net& n : raw_of(h).wire_nets)
              if (n.floating) names.push_back(n.name);
            return names;
          },
          "Names of the floating conductors.")
      .def_property_readonly(
          "block_count", [](const layout_holder& h) { return raw_of(h).wire_blocks.size(); },
          "Number of conductor blocks.")
      .def_property_readonly(
          "boxes", [](const layout_holder& h) {
            const auto& blocks = raw_of(h).wire_blocks;
            py::array_t<double> out({py::ssize_t(blocks.size()), py::ssize_t(2), py::ssize_t(3)});
            auto v = out.mutable_unchecked<3>();
            py::ssize_t i = 0;
            for (const wire_block& b : blocks) {
              for (int k = 0; k < 3; ++k) {
                v(i, 0, k) = b.outer_box.lower[k].value;
                v(i, 1, k) = b.outer_box.upper[k].value;
              }
              ++i;
            }
            return out;
          },
          "(M, 2, 3) float64: each conductor block's bounding box, lower corner then upper.")
      .def_property_readonly(
          "kinds", [](const layout_holder& h) {
            const auto& blocks = raw_of(h).wire_blocks;
            py::array_t<std::uint8_t> out(py::ssize_t(blocks.size()));
            auto v = out.mutable_unchecked<1>();
            py::ssize_t i = 0;
            for (const wire_block& b : blocks) v(i++) = std::uint8_t(b.shape_kind);
            return out;
          },
          "(M,) uint8: the solid of each block, 0 cuboid, 1 cylinder, 2 prism.")
      .def_property_readonly(
          "block_nets", [](const layout_holder& h) {
            const auto& r = raw_of(h);
            const auto at = net_positions(r);
            py::array_t<std::int32_t> out(py::ssize_t(r.wire_blocks.size()));
            auto v = out.mutable_unchecked<1>();
            py::ssize_t i = 0;
            for (const wire_block& b : r.wire_blocks) {
              const auto it = at.find(b.net);
              v(i++) = it == at.end() ? -1 : it->second;
            }
            return out;
          },
          "(M,) int32: the index in `nets` of each block's conductor.")
      .def_property_readonly(
          "block_layers", [](const layout_holder& h) {
            const auto& blocks = raw_of(h).wire_blocks;
            py::array_t<std::int16_t> out(py::ssize_t(blocks.size()));
            auto v = out.mutable_unchecked<1>();
            py::ssize_t i = 0;
            for (const wire_block& b : blocks) v(i++) = b.layer;
            return out;
          },
          "(M,) int16: each block's layer number, -1 for none.")
      .def_property_readonly(
          "block_names", [](const layout_holder& h) {
            std::vector<std::string> names;
            for (const wire_block& b : raw_of(h).wire_blocks) names.push_back(b.name);
            return names;
          },
          "Each block's name (empty when the file gives none).")
      .def_property_readonly(
          "window", [](const layout_holder& h) -> py::object {
            if (raw_of(h).boundary == 0 && raw_of(h).window_name.empty()) return py::none();
            return box_array(raw_of(h).window);
          },
          "(2, 3) float64: the simulation box, lower corner then upper; None when the file has no window.")
      .def_property_readonly(
          "boundary", [](const layout_holder& h) -> py::object {
            const int b = raw_of(h).boundary;
            if (b == 1) return py::str("dirichlet");
            if (b == 2) return py::str("neumann");
            return py::none();
          },
          "'dirichlet' (a grounded window), 'neumann', or None.")
      .def_property_readonly(
          "parameters", [](const layout_holder& h) {
            const auto& r = raw_of(h);
            py::dict p;
            p["self-precision"] = r.self_precision;
            p["coupling-precision"] = r.coupling_precision;
            p["c-ratio"] = r.c_ratio;
            p["thread-num"] = r.thread_num;
            p["walk-type"] = r.walk_type;
            p["seed"] = r.seed;
            p["blk-self-precision"] = r.blk_self_precision;
            p["blk-coupling-precision"] = r.blk_coupling_precision;
            p["b-ratio"] = r.b_ratio;
            p["b-net-ratio"] = r.b_net_ratio;
            p["spice"] = r.spice != 0;
            p["outmincap"] = r.outmincap;
            p["out-file"] = r.out_file;
            p["log-file"] = r.log_file;
            return p;
          },
          "The <parameter> section by the file's names (0 or empty where the file sets nothing).")
      .def_property_readonly(
          "tasks", [](const layout_holder& h) {
            std::vector<std::string> t(raw_of(h).capacitance_tasks.begin(), raw_of(h).capacitance_tasks.end());
            std::sort(t.begin(), t.end());
            return t;
          },
          "Conductor names of the <task> section, sorted.")
      .def_property_readonly(
          "media", [](const layout_holder& h) {
            std::vector<std::tuple<std::string, double, std::size_t>> out;
            for (const medium_net& n : raw_of(h).medium_nets) out.emplace_back(n.name, n.diel.value, n.blocks.size());
            return out;
          },
          "Dielectric bodies as (name, relative permittivity, block count).")
      .def_property_readonly(
          "plate_media", [](const layout_holder& h) {
            std::vector<std::tuple<std::string, double, double>> out;
            for (const auto& p : raw_of(h).plate_mediums) out.emplace_back(p.name, p.z_top.value, p.diel.value);
            return out;
          },
          "Flat dielectric layers as (name, height of the upper face, relative permittivity).")
      .def_property_readonly(
          "layers", [](const layout_holder& h) {
            return std::map<short, std::string>(raw_of(h).layer_names.begin(), raw_of(h).layer_names.end());
          },
          "Layer names by id.")
      .def("__repr__", [](const layout_holder& h) {
        return "<torva.Layout " + h.path + ": " + std::to_string(raw_of(h).wire_nets.size()) + " nets, " +
               std::to_string(raw_of(h).wire_blocks.size()) + " blocks>";
      });

  m.def(
      "read_layout",
      [](const std::string& path, int incline_slices, bool allow_floating, bool cuboids_only) {
        return read_layout_file(path, read_settings{incline_slices, allow_floating, cuboids_only});
      },
      py::arg("path"), py::arg("incline_slices") = 4, py::arg("allow_floating") = true,
      py::arg("cuboids_only") = false, R"doc(
Reads a cap3d layout, text or binary (told by its first bytes).

incline_slices: horizontal slices of a conductor block with a side slope
  (below 1: such blocks are dropped).
allow_floating: whether "floating" in a text <conductor> counts.
cuboids_only: read cylinders and polygon pieces as their bounding boxes.

Raises FileNotFoundError or IsADirectoryError for a path that is no file, and
TorvaError with the reader's message for a file it cannot read. The GIL is
released while the file is read.)doc");
  return cls;
}

}  // namespace torva::python
