// Text layout reading speed, against `wc -w` on the same file in the same run.
//
// A bus-like layout of about TORVA_PARSE_BENCH_MB megabytes (default 100) is
// written once to a temporary file: straight wires of abutting box segments on
// a few metal layers, with an occasional polygon and comment, as layout tools
// write them. BM_TextParse reads it with Cap3dParser into a fresh record;
// BM_WcWords runs `wc -w` on it through popen. Both report wall time and bytes
// per second, so the two can be compared directly.
#include <benchmark/benchmark.h>

#include <cstdio>
#include <cstdlib>
#include <filesystem>
#include <memory>
#include <string>
#include <vector>

#include <unistd.h>

#include "torva/foundation/logger.h"
#include "torva/layout/cap3d_parser.h"

namespace {

using namespace torva;

struct bench_file {
  std::string path;
  std::uintmax_t bytes = 0;

  bench_file() {
    const char* mb = std::getenv("TORVA_PARSE_BENCH_MB");
    const std::uintmax_t target = (mb ? std::strtoull(mb, nullptr, 10) : 100) << 20;
    path = (std::filesystem::temp_directory_path() / ("torva_parse_bench_" + std::to_string(::getpid()) + ".cap3d"))
               .string();
    std::unique_ptr<FILE, int (*)(FILE*)> out(std::fopen(path.c_str(), "wb"), &std::fclose);
    if (!out) std::abort();
    FILE* f = out.get();
    std::fprintf(f, "<cap3d>\n<window>\n\tname bench\n\tv1(0,0,0)\n\tv2(100000,100000,20)\n\tdirichlet\n</window>\n");
    std::fprintf(f, "<plate_medium>\n\tname ox\n\tz_top 20\n\tdiel 3.9\n</plate_medium>\n");
    std::uintmax_t written = 0;
    for (long net = 0; written < target; ++net) {
      const int layer = static_cast<int>(net % 4);
      const double y = 0.4 * static_cast<double>(net / 4 % 100000);
      const double z = 1.0 + 1.5 * layer;
      written += std::fprintf(f, "<conductor>\n\tname net%ld\n", net);
      if (net % 50 == 0) written += std::fprintf(f, "\t// wire %ld of layer M%d\n", net, layer + 1);
      for (int s = 0; s < 8; ++s) {
        const double x = 4.0 * s + 0.001 * static_cast<double>(net % 997);
        if (s == 7 && net % 16 == 0) {
          written += std::fprintf(f,
                                  "\t<poly>\n\t\tname s%d@M%d\n\t\tbasepoint(%.3f,%.3f,%.3f)\n\t\tv1(1,0,0)\n"
                                  "\t\tv2(0,1,0)\n\t\thvector(0,0,0.300)\n\t\t<coord>\n"
                                  "\t\t\t(0,0)(4.000,0)(4.000,0.200)(0.100,0.200)\n\t\t</coord>\n\t</poly>\n",
                                  s, layer + 1, x, y, z);
        } else {
          written += std::fprintf(f,
                                  "\t<block>\n\t\tname s%d@M%d\n\t\tbasepoint(%.3f,%.3f,%.3f)\n\t\tv1(4.000,0,0)\n"
                                  "\t\tv2(0,0.200,0)\n\t\thvector(0,0,0.300)\n\t</block>\n",
                                  s, layer + 1, x, y, z);
        }
      }
      written += std::fprintf(f, "</conductor>\n");
    }
    std::fprintf(f, "<task>\n\t<capacitance> net0 </capacitance>\n</task>\n</cap3d>\n");
    out.reset();
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

void BM_TextParse(benchmark::State& state) {
  install_logger();
  const bench_file& f = file();
  // Every round reads into a record of its own, and all are released after
  // the timed loop: a client reads one layout into a fresh heap, and a heap
  // full of a released layout would make the next round's allocations slower
  // than they ever are in use.
  std::vector<std::unique_ptr<circuit_layout::raw>> records;
  for (auto _ : state) {
    _WIRE_BLOCK_LAYER_NAME_.clear();
    records.push_back(std::make_unique<circuit_layout::raw>());
    Cap3dParser parser(*records.back(), 4, true, false);
    if (!parser.parse(f.path, "")) state.SkipWithError("parse failed");
  }
  const double blocks = records.empty() ? 0.0 : static_cast<double>(records.back()->wire_blocks.size());
  records.clear();
  state.SetBytesProcessed(static_cast<std::int64_t>(state.iterations() * f.bytes));
  state.counters["MB/s"] = benchmark::Counter(static_cast<double>(f.bytes) / 1e6, benchmark::Counter::kIsIterationInvariantRate);
  state.counters["file_MB"] = static_cast<double>(f.bytes) / 1e6;
  state.counters["blocks"] = blocks;
}

void BM_WcWords(benchmark::State& state) {
  const bench_file& f = file();
  unsigned long long words = 0;
  for (auto _ : state) {
    const std::string command = "wc -w < '" + f.path + "'";
    FILE* pipe = ::popen(command.c_str(), "r");
    if (!pipe || std::fscanf(pipe, "%llu", &words) != 1) state.SkipWithError("wc -w failed");
    if (pipe) ::pclose(pipe);
  }
  state.SetBytesProcessed(static_cast<std::int64_t>(state.iterations() * f.bytes));
  state.counters["MB/s"] = benchmark::Counter(static_cast<double>(f.bytes) / 1e6, benchmark::Counter::kIsIterationInvariantRate);
  state.counters["words"] = static_cast<double>(words);
}

// A fixed count of rounds bounds the memory the kept records take.
BENCHMARK(BM_TextParse)->Unit(benchmark::kMillisecond)->UseRealTime()->Iterations(3);
BENCHMARK(BM_WcWords)->Unit(benchmark::kMillisecond)->UseRealTime()->Iterations(3);

}  // namespace

BENCHMARK_MAIN();
