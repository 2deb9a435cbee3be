// torva.extract: the capacitance matrix of a layout by the floating random
// walk, with the layout's <parameter> values as defaults, the walk run
// without the GIL, and progress reported to a Python callable.
#include <pybind11/numpy.h>
#include <pybind11/stl.h>

#include <optional>

#include "bindings.h"
#include "torva/extract/extractor.h"
#include "torva/extract/report.h"
#include "torva/foundation/errors.h"

namespace torva::python {

namespace {

struct result_holder {
  extract_result r;
};

py::array_t<double> matrix_array(const std::vector<std::vector<double>>& rows, std::size_t columns) {
  py::array_t<double> out({py::ssize_t(rows.size()), py::ssize_t(columns)});
  auto v = out.mutable_unchecked<2>();
  for (std::size_t i = 0; i < rows.size(); ++i)
    for (std::size_t j = 0; j < columns; ++j) v(i, j) = j < rows[i].size() ? rows[i][j] : 0.0;
  return out;
}

template <class T>
py::array_t<T> vector_array(const std::vector<T>& values) {
  py::array_t<T> out(py::ssize_t(values.size()));
  std::copy(values.begin(), values.end(), out.mutable_data());
  return out;
}

py::object progress_type() {
  // Never destroyed: the interpreter may be gone when static objects are.
  static py::object* type = [] {
    py::object t = py::module_::import("collections")
                       .attr("namedtuple")("Progress", "master net master_count walks self_error goal seconds");
    t.attr("__module__") = "torva";
    t.attr("__doc__") =
        "What extract reports while it runs: the master's index and net name, the number of masters, its walks so "
        "far, the relative standard error of its self capacitance and the goal, and seconds since the run began.";
    return new py::object(std::move(t));
  }();
  return *type;
}

// The masters the extractor will take, in its order, so that progress can name them.
std::vector<std::string> master_names(const circuit_layout& layout, const std::vector<std::string>& asked) {
  if (!asked.empty()) return asked;
  std::vector<std::string> names;
  const auto& d = layout.data;
  for (const wire_net& n : d.wire_nets)
    if (d.capacitance_tasks.empty() || d.capacitance_tasks.count(n.name) != 0) names.push_back(n.name);
  return names;
}

std::unique_ptr<result_holder> run_extract(py::object source, std::optional<double> self_precision,
                                           std::optional<double> coupling_precision, std::optional<int> threads,
                                           std::optional<std::uint64_t> seed, std::vector<std::string> masters,
                                           std::uint64_t max_walks, double time_limit, int strategy,
                                           py::object progress) {
  // A Layout may be indexed and queried by other threads meanwhile, and the
  // extractor writes to the layout it is given: it walks a copy.
  std::unique_ptr<circuit_layout> layout;
  std::string path;
  if (py::isinstance<layout_holder>(source)) {
    const auto& held = source.cast<const layout_holder&>();
    path = held.path;
    layout = run_library([&] { return copy_layout(*held.layout); });
  } else {
    path = py::module_::import("os").attr("fspath")(source).cast<std::string>();
    auto read = read_layout_file(path, read_settings{});
    layout = std::move(read->layout);
  }

  extract_options o = extract_options_from_layout(*layout);
  if (self_precision) o.self_precision = *self_precision;
  if (coupling_precision) o.coupling_precision = *coupling_precision;
  if (threads) o.threads = *threads;
  if (seed) o.seed = *seed;
  o.masters = std::move(masters);
  o.max_walks = max_walks;
  o.time_limit = time_limit;
  o.spacemgr_type = strategy;
  if (!(o.self_precision > 0) || !(o.coupling_precision > 0)) throw argument_error("the precisions must be positive");
  if (time_limit < 0) throw argument_error("time_limit must not be negative");

  // The extractor calls back from the thread that called it, which holds no
  // GIL while it walks. The walk cannot be stopped half way, so an exception
  // of the callback ends its calls and is raised when the run returns.
  std::optional<py::error_already_set> failure;
  if (!progress.is_none()) {
    const std::vector<std::string> names = master_names(*layout, o.masters);
    o.progress = [&failure, &progress, names](const extract_progress& p) {
      py::gil_scoped_acquire hold;
      if (failure) return;
      try {
        const std::string net = p.master < names.size() ? names[p.master] : std::string();
        progress(progress_type()(p.master, net, p.master_count, p.walks, p.self_error, p.goal, p.seconds));
      } catch (py::error_already_set& e) {
        failure.emplace(std::move(e));
      }
    };
  }
  auto out = std::make_unique<result_holder>();
  out->r = run_library([&] {
    try {
      return extract(*layout, o);
    } catch (const sea::base_error& e) {
      const std::string lines = take_error_lines();
      throw library_error(path + ": " + (lines.empty() ? std::string(e.what()) : lines));
    }
  });
  if (failure) throw std::move(*failure);
  return out;
}

}  // namespace

void bind_extract(py::module_& m) {
  py::class_<result_holder> cls(m, "ExtractResult", R"doc(
The outcome of extract. Capacitances in fF: rows are masters, columns are
`nets` (every conductor, then the grounded window under a Dirichlet window).
C_ii > 0, couplings < 0, and every row sums to zero.)doc");
  cls.def_property_readonly("nets", [](const result_holder& h) { return h.r.nets; }, "Column names.")
      .def_property_readonly("masters", [](const result_holder& h) { return h.r.masters; }, "Row names.")
      .def_property_readonly("has_ground", [](const result_holder& h) { return h.r.has_ground; },
                             "Whether the last column is the grounded window.")
      .def_property_readonly("matrix", [](const result_holder& h) { return matrix_array(h.r.matrix, h.r.nets.size()); },
                             "(masters, nets) float64: the Maxwell capacitance matrix in fF.")
      .def_property_readonly("stderr",
                             [](const result_holder& h) { return matrix_array(h.r.stderr_matrix, h.r.nets.size()); },
                             "(masters, nets) float64: the standard error of each entry in fF.")
      .def_property_readonly("walks", [](const result_holder& h) { return vector_array(h.r.walks); },
                             "Walks per master.")
      .def_property_readonly("hops", [](const result_holder& h) { return vector_array(h.r.hops); },
                             "Mean hops per walk, per master.")
      .def_property_readonly("self_error", [](const result_holder& h) { return vector_array(h.r.self_error); },
                             "Relative standard error of C_ii reached, per master.")
      .def_property_readonly("master_stopped_by", [](const result_holder& h) { return h.r.master_stopped_by; },
                             "Per master: 'precision', 'walks' or 'time'.")
      .def_property_readonly("stopped_by", [](const result_holder& h) { return h.r.stopped_by; },
                             "'time' if any master ran out of time, else 'walks' if any hit max_walks, else 'precision'.")
      .def_property_readonly("seconds", [](const result_holder& h) { return h.r.seconds; }, "Walking time.")
      .def_property_readonly("setup_seconds", [](const result_holder& h) { return h.r.setup_seconds; },
                             "Deriving, search structure and Gaussian surfaces.")
      .def_property_readonly("permittivity", [](const result_holder& h) { return h.r.permittivity; },
                             "The relative permittivity when one fills the window, else 0.")
      .def_property_readonly("dielectric", [](const result_holder& h) { return h.r.dielectric; },
                             "What the walks crossed: 'uniform 3.9', or the layers from the bottom and the boxes.")
      .def_property_readonly("stop_distance", [](const result_holder& h) { return h.r.stop_distance; }, "In um.")
      .def_property_readonly("self_precision", [](const result_holder& h) { return h.r.self_precision; })
      .def_property_readonly("coupling_precision", [](const result_holder& h) { return h.r.coupling_precision; })
      .def_property_readonly("threads", [](const result_holder& h) { return h.r.threads; })
      .def_property_readonly("seed", [](const result_holder& h) { return h.r.seed; })
      .def_property_readonly("strategy", [](const result_holder& h) { return h.r.spacemgr_type; },
                             "The search pair the run used.")
      .def_property_readonly("warnings", [](const result_holder& h) { return h.r.warnings; },
                             "The run's warnings (also sent to logging as warnings).")
      .def(
          "write_json",
          [](const result_holder& h, const std::string& path) { run_library([&] { write_json(path, h.r); }); },
          py::arg("path"), "Writes the result as the torva program's --json report does.")
      .def("__repr__", [](const result_holder& h) {
        return "<torva.ExtractResult " + std::to_string(h.r.masters.size()) + " masters x " +
               std::to_string(h.r.nets.size()) + " nets, stopped by " + h.r.stopped_by + ">";
      });

  m.def("extract", &run_extract, py::arg("layout"), py::kw_only(), py::arg("self_precision") = py::none(),
        py::arg("coupling_precision") = py::none(), py::arg("threads") = py::none(), py::arg("seed") = py::none(),
        py::arg("masters") = std::vector<std::string>{}, py::arg("max_walks") = 0, py::arg("time_limit") = 0.0,
        py::arg("strategy") = -1, py::arg("progress") = py::none(), R"doc(
Extracts the capacitance matrix of a layout (a path or a Layout).

Options left at None take the layout's <parameter> values (self-precision,
coupling-precision, thread-num, seed), else 0.01, 0.05, 1 thread, seed 1.
self_precision: relative standard error each C_ii must reach.
coupling_precision: relative error of the couplings that make 95% of C_ii.
threads: walking threads (below 1: every core).
seed: the same seed and options give the same matrix for any thread count.
masters: net names to extract rows for (default: the layout's tasks, else all).
max_walks: walks per master at most (0: no limit).
time_limit: seconds for the whole run at most (0: no limit).
strategy: search pair, -1 to let the extractor choose a safe one.
progress: called about every 0.1 s with a Progress tuple. The run cannot be
  stopped half way: an exception of the callback ends its calls and is raised
  when the run returns.

A Layout is not changed: the run works on a copy. The GIL is released while
it runs. Raises TorvaError for a layout it cannot extract (floating or
touching conductors, an unknown master).)doc");
}

}  // namespace torva::python
