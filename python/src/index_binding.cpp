// Layout.index and the Index it returns: a built search structure that
// answers batches of points without the GIL, on several threads.
#include <pybind11/numpy.h>

#include <algorithm>
#include <chrono>
#include <cmath>
#include <thread>

#include "batch_nearest.h"
#include "bindings.h"

namespace torva::python {

namespace {

const char* const pair_names[] = {"simple-simple", "octree-octree", "hybrid-hybrid", "simple-none", "octree-none",
                                  "hybrid-none",   "hybrid-simple", "hybrid-grid",   "hybrid-grid-nd", "grid-none-nd"};

// A built space manager and what it was built from. The layout is held by
// its shared pointer, so dropping the Python Layout never frees what the
// manager reads; the configure lives here because the manager points at it.
struct index_holder {
  std::shared_ptr<layout_holder> owner;
  configure config;
  space_manager manager;
  std::unique_ptr<block_ids> ids;
  std::uint32_t strategy = 0;
  int threads = 1;
  double build_seconds = 0.0;
};

int default_threads(const circuit_layout& layout) {
  if (layout.data.thread_num > 0) return layout.data.thread_num;
  return int(std::max(1u, std::thread::hardware_concurrency()));
}

std::unique_ptr<index_holder> build(std::shared_ptr<layout_holder> owner, unsigned strategy, int threads) {
  if (strategy > 10) throw argument_error("strategy must lie in 0..10 (10: chosen by the layout's size)");
  if (threads < 0) throw argument_error("threads must not be negative (0: the layout's thread-num, else every core)");
  const circuit_layout& layout = *owner->layout;
  if (layout.blocks.empty()) throw library_error(owner->path + ": the layout has no conductor blocks to index");
  auto ix = std::make_unique<index_holder>();
  ix->owner = std::move(owner);
  ix->threads = threads > 0 ? threads : default_threads(layout);
  ix->config.spacemgr_type = strategy;
  ix->config.thread_count = ix->threads;
  ix->strategy = strategy == 10 ? automatic_spacemgr_type(layout) : strategy;
  run_library([&] {
    const auto start = std::chrono::steady_clock::now();
    ix->manager.initialize(ix->config, layout);
    ix->ids = std::make_unique<block_ids>(layout.data);
    ix->build_seconds = std::chrono::duration<double>(std::chrono::steady_clock::now() - start).count();
  });
  if (!ix->manager) throw library_error("strategy " + std::to_string(strategy) + " built no index");
  return ix;
}

py::object nearest_tuple_type() {
  // Never destroyed: the interpreter may be gone when static objects are.
  static py::object* type = [] {
    py::object t = py::module_::import("collections").attr("namedtuple")("Nearest", "distance reach block");
    t.attr("__module__") = "torva";
    t.attr("__doc__") = "Answers of Index.nearest: distance and reach (float64) and block ids (int64, -1 for none).";
    return new py::object(std::move(t));
  }();
  return *type;
}

py::object nearest(const index_holder& ix, py::array_t<double, py::array::c_style | py::array::forcecast> points,
                   double limit, int threads) {
  if (points.ndim() != 2 || points.shape(1) != 3)
    throw argument_error("points must be an (N, 3) array of x, y, z rows");
  if (!(limit > 0)) throw argument_error("limit must be positive");
  if (threads < 0) throw argument_error("threads must not be negative (0: the index's threads)");
  const std::size_t n = std::size_t(points.shape(0));
  py::array_t<double> distance{py::ssize_t(n)}, reach{py::ssize_t(n)};
  py::array_t<std::int64_t> block{py::ssize_t(n)};
  const int workers = std::max(1, int(std::min<std::size_t>(threads > 0 ? threads : ix.threads, std::max<std::size_t>(n / 256, 1))));
  const double* in = points.data();
  double* d = distance.mutable_data();
  double* r = reach.mutable_data();
  std::int64_t* b = block.mutable_data();
  std::size_t outside = n;
  {
    py::gil_scoped_release release;
    outside = nearest_batch(ix.manager, *ix.ids, in, n, limit, workers, d, r, b);
  }
  if (outside < n) {
    const cuboid_t& s = ix.manager->space();
    const double* q = in + 3 * outside;
    char text[400];
    std::snprintf(text, sizeof text,
                  "point %zu (%g, %g, %g) lies outside the search space (%g, %g, %g) to (%g, %g, %g)", outside, q[0],
                  q[1], q[2], s.lower[0].value, s.lower[1].value, s.lower[2].value, s.upper[0].value,
                  s.upper[1].value, s.upper[2].value);
    throw argument_error(text);
  }
  return nearest_tuple_type()(distance, reach, block);
}

}  // namespace

void bind_index(py::module_& m, layout_class& layout) {
  py::class_<index_holder> cls(m, "Index", R"doc(
The search structure of a layout: from any point of its space, the nearest
conductor block in the maximum norm. It keeps its layout alive. Built once,
it answers any number of threads at once.)doc");
  cls.def("nearest", &nearest, py::arg("points"), py::arg("limit") = 1e9, py::arg("threads") = 0, R"doc(
The nearest conductor block from each of a batch of points.

points: (N, 3) array of x, y, z (converted to C-ordered float64 if needed).
limit: the largest distance of interest; no answer exceeds it.
threads: threads to split the batch over (0: the index's own count).

Returns Nearest(distance, reach, block): float64, float64 and int64 arrays
of length N. `block` is the index into the layout's block arrays of the
block at `distance`, or -1 where no block is named: then the distance is the
reach of the search there or the wall of the window, and a walker may step
that far. `distance` never exceeds the true clearance. The GIL is released
while the batch runs; each thread keeps its own caches.

Raises ValueError for a point outside `space` (or with a NaN), naming the
first.)doc")
      .def_property_readonly("layout", [](const index_holder& ix) { return ix.owner; }, "The layout it searches.")
      .def_property_readonly("strategy", [](const index_holder& ix) { return ix.strategy; },
                             "The pair of strategies built, 0..9 (the choice, when 10 was asked).")
      .def_property_readonly("pair", [](const index_holder& ix) { return std::string(pair_names[ix.strategy]); },
                             "The name of that pair, e.g. 'grid-none-nd'.")
      .def_property_readonly("threads", [](const index_holder& ix) { return ix.threads; },
                             "Threads it was built with and that nearest uses by default.")
      .def_property_readonly("build_seconds", [](const index_holder& ix) { return ix.build_seconds; },
                             "Seconds the build took.")
      .def_property_readonly(
          "space", [](const index_holder& ix) {
            py::array_t<double> out({2, 3});
            auto v = out.mutable_unchecked<2>();
            const cuboid_t& s = ix.manager->space();
            for (int k = 0; k < 3; ++k) {
              v(0, k) = s.lower[k].value;
              v(1, k) = s.upper[k].value;
            }
            return out;
          },
          "(2, 3) float64: the box the search covers; nearest accepts points inside it.")
      .def("__repr__", [](const index_holder& ix) {
        return "<torva.Index " + std::string(pair_names[ix.strategy]) + " over " + ix.owner->path + ">";
      });

  layout.def(
      "index",
      [](std::shared_ptr<layout_holder> self, unsigned strategy, int threads) {
        return build(std::move(self), strategy, threads);
      },
      py::arg("strategy") = 10, py::arg("threads") = 0, R"doc(
Builds the search structure of the layout.

strategy: the pair of search strategies, 0 simple-simple, 1 octree-octree,
  2 hybrid-hybrid, 3 simple-none, 4 octree-none, 5 hybrid-none,
  6 hybrid-simple, 7 hybrid-grid, 8 hybrid-grid-nd, 9 grid-none-nd, or 10 to
  let the library choose by the layout's size.
threads: threads for building a grid and for nearest (0: the layout's
  thread-num, else every core).

The GIL is released while it builds. Raises TorvaError for a layout without
conductor blocks.)doc");
}

}  // namespace torva::python
