// Speed of reading and flattening GDS cells of 10^6 rectangles: one flat cell,
// and the same count built from arrays (a leaf of 10 rectangles arrayed
// 100 x 100, that arrayed 10 x 1 rotated and mirrored). The streams are
// written to temporary files first; the peak resident memory of the process
// (writer included) is reported as a counter.
#include <benchmark/benchmark.h>
#include <sys/resource.h>

#include <chrono>
#include <cstdio>
#include <filesystem>
#include <memory>
#include <string>

#include "torva/foundation/logger.h"
#include "torva/import/gds_flatten.h"
#include "torva/import/gds_reader.h"
#include "torva_testing/gds_writer.h"

namespace {

using torva::testing::gds_writer;

std::string temp_file(const char* name) {
  return (std::filesystem::temp_directory_path() / (std::string("torva_gds_bench_") + name + ".gds")).string();
}

double peak_mib() {
  rusage u{};
  getrusage(RUSAGE_SELF, &u);
  return double(u.ru_maxrss) / 1024.0;
}

void quiet() {
  auto& log = torva::logger::instance();
  if (log.info) return;
  log.set_info(std::make_unique<torva::sea::file_writer>(stderr));
  log.set_detail(std::make_unique<torva::sea::file_writer>(stderr));
  log.set_warning(std::make_unique<torva::sea::file_writer>(stderr));
  log.set_error(std::make_unique<torva::sea::file_writer>(stderr));
}

const std::string& flat_file() {
  static const std::string file = [] {
    gds_writer w;
    w.begin_library("FLAT").begin_cell("TOP");
    for (int i = 0; i < 1000; ++i)
      for (int j = 0; j < 1000; ++j) w.rectangle(1 + (i + j) % 5, 0, i * 200, j * 300, i * 200 + 100, j * 300 + 150);
    w.end_cell().end_library();
    const std::string f = temp_file("flat");
    w.save(f);
    return f;
  }();
  return file;
}

const std::string& array_file() {
  static const std::string file = [] {
    gds_writer w;
    w.begin_library("ARRAYS");
    w.begin_cell("LEAF");
    for (int k = 0; k < 10; ++k) w.rectangle(1 + k % 5, 0, k * 20, 0, k * 20 + 10, 50);
    w.end_cell();
    w.begin_cell("BLOCK").aref("LEAF", 100, 100, {0, 0}, {100 * 250, 0}, {0, 100 * 80}).end_cell();
    w.begin_cell("TOP").aref("BLOCK", 10, 1, {0, 0}, {10 * 9000, 0}, {0, 1}, {true, 1.0, 90.0}).end_cell();
    w.end_library();
    const std::string f = temp_file("arrays");
    w.save(f);
    return f;
  }();
  return file;
}

void run(benchmark::State& state, const std::string& file) {
  quiet();
  std::size_t polygons = 0;
  double read_s = 0, flatten_s = 0;
  for (auto _ : state) {
    const auto t0 = std::chrono::steady_clock::now();
    const torva::gds_library lib = torva::read_gds(file);
    const auto t1 = std::chrono::steady_clock::now();
    const torva::gds_flat_cell flat = torva::flatten_gds(lib);
    const auto t2 = std::chrono::steady_clock::now();
    polygons = flat.polygon_count();
    read_s += std::chrono::duration<double>(t1 - t0).count();
    flatten_s += std::chrono::duration<double>(t2 - t1).count();
    benchmark::DoNotOptimize(flat.layers.data());
  }
  state.counters["polygons"] = double(polygons);
  state.counters["read_s"] = read_s / double(state.iterations());
  state.counters["flatten_s"] = flatten_s / double(state.iterations());
  state.counters["peak_MiB"] = peak_mib();
  state.counters["file_MiB"] = double(std::filesystem::file_size(file)) / (1 << 20);
}

void BM_flat_cell(benchmark::State& state) { run(state, flat_file()); }
BENCHMARK(BM_flat_cell)->Unit(benchmark::kMillisecond)->Iterations(3);

void BM_arrayed_cell(benchmark::State& state) { run(state, array_file()); }
BENCHMARK(BM_arrayed_cell)->Unit(benchmark::kMillisecond)->Iterations(3);

}  // namespace

BENCHMARK_MAIN();
