// The import of a generated cell of 10^6 rectangles on sky130's five metals
// (met1 .. met5, alternately along x and y, 1000 tracks of 200 wires each at
// a pitch of 1 um) with vias (via .. via4) where about three in ten wires
// rise to a wire crossing over them, and the extraction of its largest net
// to 1% on one and on two threads.
//
// Counters: the import's seconds by stage (read and flatten, layers and
// merging, nets, blocks, dielectrics and substrate), the peak resident memory
// of the process, the cell's nets and blocks; for the extraction, the walks,
// the setup and walking seconds and the error reached.
#include <benchmark/benchmark.h>
#include <sys/resource.h>

#include <cstdio>
#include <filesystem>
#include <memory>
#include <string>

#include "torva/extract/extractor.h"
#include "torva/foundation/logger.h"
#include "torva/import/gds_import.h"
#include "torva_testing/gds_writer.h"

namespace {

using torva::testing::gds_writer;

double peak_mib() {
  rusage u{};
  getrusage(RUSAGE_SELF, &u);
  return double(u.ru_maxrss) / 1024.0;
}

void quiet() {
  auto& log = torva::logger::instance();
  if (log.info) return;
  log.set_info(std::make_unique<torva::sea::string_writer>());
  log.set_detail(std::make_unique<torva::sea::string_writer>());
  log.set_warning(std::make_unique<torva::sea::file_writer>(stderr));
  log.set_error(std::make_unique<torva::sea::file_writer>(stderr));
}

struct splitmix {
  std::uint64_t s;
  std::uint64_t next() {
    std::uint64_t z = (s += 0x9e3779b97f4a7c15ull);
    z = (z ^ (z >> 30)) * 0xbf58476d1ce4e5b9ull;
    z = (z ^ (z >> 27)) * 0x94d049bb133111ebull;
    return z ^ (z >> 31);
  }
};

constexpr int tracks = 1000, wires = 200;                 // per layer: 200000 rectangles
constexpr int pitch = 1000, width = 400, length = 4000, period = 4800;  // nm
constexpr int cut = 150;

// Where wire w of track t on a layer begins along the track.
int wire_start(int layer, int track, int w) { return w * period + (track * 1700 + layer * 900) % period; }

const std::string& cell_file() {
  static const std::string file = [] {
    gds_writer g;
    g.begin_library("MILLION").begin_cell("TOP");
    splitmix rng{7};
    for (int layer = 0; layer < 5; ++layer) {
      const bool along_x = layer % 2 == 0;
      for (int t = 0; t < tracks; ++t)
        for (int w = 0; w < wires; ++w) {
          const int a = wire_start(layer, t, w), across = t * pitch;
          if (along_x)
            g.rectangle(68 + layer, 20, a, across, a + length, across + width);
          else
            g.rectangle(68 + layer, 20, across, a, across + width, a + length);
          // About three wires in ten rise by a via to a wire of the layer
          // above that crosses them (that layer runs the other way).
          if (layer == 4 || rng.next() % 10 >= 3) continue;
          for (int k = a / pitch + 1; k < tracks && k * pitch + width <= a + length; ++k) {
            const int from = across - wire_start(layer + 1, k, 0);
            if (from < 0 || from / period >= wires || from % period + width > length) continue;
            const int x = along_x ? k * pitch : across, y = along_x ? across : k * pitch;
            g.rectangle(68 + layer, 44, x + (width - cut) / 2, y + (width - cut) / 2, x + (width + cut) / 2,
                        y + (width + cut) / 2);
            break;
          }
        }
    }
    g.end_cell().end_library();
    const std::string f = (std::filesystem::temp_directory_path() / "torva_import_bench_million.gds").string();
    g.save(f);
    return f;
  }();
  return file;
}

const torva::process_stack& sky130() {
  static const torva::process_stack s = torva::load_stack("sky130A");
  return s;
}

void BM_import_million_rectangles(benchmark::State& state) {
  quiet();
  const std::string& file = cell_file();
  torva::import_report r;
  std::size_t blocks = 0, medium = 0;
  for (auto _ : state) {
    torva::import_result result = torva::import_gds(file, sky130());
    r = result.report;
    blocks = result.layout->data.wire_blocks.size();
    medium = result.layout->data.medium_blocks.size();
  }
  state.counters["polygons"] = double(r.polygons);
  state.counters["nets"] = double(r.nets.size());
  state.counters["blocks"] = double(blocks);
  state.counters["dielectric_blocks"] = double(medium);
  state.counters["read_s"] = r.read_seconds;
  state.counters["layers_merge_s"] = r.merge_seconds;
  state.counters["connect_s"] = r.connect_seconds;
  state.counters["cut_s"] = r.cut_seconds;
  state.counters["dielectric_s"] = r.dielectric_seconds;
  state.counters["total_s"] = r.total_seconds;
  state.counters["peak_MiB"] = peak_mib();
}
BENCHMARK(BM_import_million_rectangles)->Unit(benchmark::kSecond)->Iterations(1);

// The extraction of the cell's largest net (by blocks) to a relative standard
// error of 1% in its self capacitance (its dozens of small couplings would
// each need their own precision, which is not what is measured here).
void BM_extract_largest_net(benchmark::State& state) {
  quiet();
  static const std::unique_ptr<torva::import_result> cell = [] {
    torva::import_options o;
    auto r = std::make_unique<torva::import_result>(torva::import_gds(cell_file(), sky130(), o));
    return r;
  }();
  std::string largest;
  std::size_t most = 0;
  for (const torva::import_net& n : cell->report.nets)
    if (!n.substrate && n.blocks > most) most = n.blocks, largest = n.name;
  torva::extract_result x;
  for (auto _ : state) {
    torva::extract_options o;
    o.masters = {largest};
    o.self_precision = 0.01;
    o.coupling_precision = 1.0;  // the self capacitance alone decides when to stop
    o.threads = int(state.range(0));
    o.seed = 3;
    x = torva::extract(*cell->layout, o);
  }
  state.counters["net_blocks"] = double(most);
  state.counters["walks"] = double(x.walks.empty() ? 0 : x.walks[0]);
  state.counters["hops_per_walk"] = x.hops.empty() ? 0.0 : x.hops[0];
  state.counters["setup_s"] = x.setup_seconds;
  state.counters["walk_s"] = x.seconds;
  state.counters["error"] = x.self_error.empty() ? 0.0 : x.self_error[0];
  for (std::size_t j = 0; j < x.nets.size() && !x.matrix.empty(); ++j)
    if (x.nets[j] == largest) state.counters["C_fF"] = x.matrix[0][j];
  state.counters["peak_MiB"] = peak_mib();
}
BENCHMARK(BM_extract_largest_net)->Arg(1)->Arg(2)->Unit(benchmark::kSecond)->Iterations(1)->UseRealTime();

}  // namespace

BENCHMARK_MAIN();
