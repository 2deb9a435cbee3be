// Text layout reading speed, against `wc -w` on the same file in the same run.
//
// A generated layout of about TORVA_PARSE_BENCH_MB megabytes (default 100) is
// written once to a temporary file: straight wires of abutting segments on
// four metal layers, mostly boxes with some polygons, cylinders and leaning
// blocks, and dielectric layers. BM_TextParse reads it with Cap3dParser into a fresh record;
// BM_WcWords runs `wc -w` on it through popen. Both report wall time and bytes
// per second ("MB/s"), and the megabytes per second of processor time the
// reading took ("cpu_MB/s"), which stays comparable on a busy machine.
#include <benchmark/benchmark.h>

#include <cstdio>
#include <cstdlib>
#include <filesystem>
#include <memory>
#include <string>
#include <vector>

#include <sys/resource.h>
#include <unistd.h>

#include "torva/foundation/logger.h"
#include "torva/layout/cap3d_parser.h"
#include "torva/layout/generator.h"

namespace {

using namespace torva;

struct bench_file {
  std::string path;
  std::uintmax_t bytes = 0;

  // The generator's crossing layout with a few polygons, cylinders, leaning
  // blocks and media, scaled to the size asked for.
  static generator_params params(std::uint64_t blocks) {
    generator_params p;
    p.kind = layout_kind::crossing;
    p.blocks = blocks;
    p.layers = 4;
    p.polygon_share = 0.05;
    p.cylinder_share = 0.05;
    p.incline_share = 0.05;
    p.media = true;
    return p;
  }

  bench_file() {
    const char* mb = std::getenv("TORVA_PARSE_BENCH_MB");
    const double target = static_cast<double>((mb ? std::strtoull(mb, nullptr, 10) : 100) << 20);
    const std::uint64_t sample = 20000;
    const double per_block = static_cast<double>(to_text(generate_layout(params(sample))).size()) / sample;
    path = (std::filesystem::temp_directory_path() / ("torva_parse_bench_" + std::to_string(::getpid()) + ".cap3d"))
               .string();
    write_text_file(generate_layout(params(static_cast<std::uint64_t>(target / per_block))), path);
    bytes = std::filesystem::file_size(path);
  }
  ~bench_file() { std::filesystem::remove(path); }
};

const bench_file& file() {
  static const bench_file f;
  return f;
}

void install_logger() {
  logger& log = logger::instance();
  if (log.error) return;
  log.set_info(std::make_unique<sea::file_writer>(stderr));
  log.set_detail(std::make_unique<sea::file_writer>(stderr));
  log.set_warning(std::make_unique<sea::file_writer>(stderr));
  log.set_error(std::make_unique<sea::file_writer>(stderr));
}

double cpu_seconds() {
  rusage usage{};
  ::getrusage(RUSAGE_SELF, &usage);
  return static_cast<double>(usage.ru_utime.tv_sec + usage.ru_stime.tv_sec) +
         1e-6 * static_cast<double>(usage.ru_utime.tv_usec + usage.ru_stime.tv_usec);
}

void BM_TextParse(benchmark::State& state) {
  install_logger();
  const bench_file& f = file();
  // Every round reads into a record of its own, and all are released after
  // the timed loop: a client reads one layout into a fresh heap, and a heap
  // full of a released layout would make the next round's allocations slower
  // than they ever are in use.
  std::vector<std::unique_ptr<circuit_layout::raw>> records;
  const double cpu_before = cpu_seconds();
  for (auto _ : state) {
    _WIRE_BLOCK_LAYER_NAME_.clear();
    records.push_back(std::make_unique<circuit_layout::raw>());
    Cap3dParser parser(*records.back(), 4, true, false);
    if (!parser.parse(f.path, "")) state.SkipWithError("parse failed");
  }
  const double cpu = cpu_seconds() - cpu_before;
  const double blocks = records.empty() ? 0.0 : static_cast<double>(records.back()->wire_blocks.size());
  records.clear();
  state.SetBytesProcessed(static_cast<std::int64_t>(state.iterations() * f.bytes));
  state.counters["MB/s"] = benchmark::Counter(static_cast<double>(f.bytes) / 1e6, benchmark::Counter::kIsIterationInvariantRate);
  state.counters["cpu_MB/s"] =
      cpu > 0 ? static_cast<double>(state.iterations()) * static_cast<double>(f.bytes) / 1e6 / cpu : 0.0;
  state.counters["file_MB"] = static_cast<double>(f.bytes) / 1e6;
  state.counters["blocks"] = blocks;
}

double children_cpu_seconds() {
  rusage usage{};
  ::getrusage(RUSAGE_CHILDREN, &usage);
  return static_cast<double>(usage.ru_utime.tv_sec + usage.ru_stime.tv_sec) +
         1e-6 * static_cast<double>(usage.ru_utime.tv_usec + usage.ru_stime.tv_usec);
}

void BM_WcWords(benchmark::State& state) {
  const bench_file& f = file();
  unsigned long long words = 0;
  const double cpu_before = children_cpu_seconds();
  for (auto _ : state) {
    const std::string command = "wc -w < '" + f.path + "'";
    FILE* pipe = ::popen(command.c_str(), "r");
    if (!pipe || std::fscanf(pipe, "%llu", &words) != 1) state.SkipWithError("wc -w failed");
    if (pipe) ::pclose(pipe);
  }
  // wc runs in a child: its processor time is the children's, which the
  // benchmark's own CPU column does not see.
  const double cpu = children_cpu_seconds() - cpu_before;
  state.SetBytesProcessed(static_cast<std::int64_t>(state.iterations() * f.bytes));
  state.counters["MB/s"] = benchmark::Counter(static_cast<double>(f.bytes) / 1e6, benchmark::Counter::kIsIterationInvariantRate);
  state.counters["cpu_MB/s"] =
      cpu > 0 ? static_cast<double>(state.iterations()) * static_cast<double>(f.bytes) / 1e6 / cpu : 0.0;
  state.counters["words"] = static_cast<double>(words);
}

// A fixed count of rounds bounds the memory the kept records take.
BENCHMARK(BM_TextParse)->Unit(benchmark::kMillisecond)->UseRealTime()->Iterations(3);
BENCHMARK(BM_WcWords)->Unit(benchmark::kMillisecond)->UseRealTime()->Iterations(3);

}  // namespace

BENCHMARK_MAIN();
