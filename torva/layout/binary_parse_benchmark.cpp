// Reading one generated layout in its two forms, in the same run: the text
// file, and the binary file the writer makes of what the text reader read.
// Bytes per second are those of each file; items per second are conductor
// blocks. The binary read is meant to take at most a third of the text read's
// time for the same layout.
#include <benchmark/benchmark.h>

#include <fstream>
#include <map>
#include <memory>
#include <string>
#include <vector>

#include "torva/foundation/logger.h"
#include "torva/layout/binary_writer.h"
#include "torva/layout/cap3d_parser.h"
#include "torva/layout/generator.h"
#include "torva_testing/log_capture.h"

namespace {

// Every record read here lives to the end of the run, as a client's does: a
// read into memory that an earlier read has just released would measure the
// allocator's reuse of it, and favour whichever form runs later.
std::vector<std::unique_ptr<torva::circuit_layout::raw>>& kept() {
  static std::vector<std::unique_ptr<torva::circuit_layout::raw>> records;
  return records;
}

struct files {
  torva::testing::temp_dir dir;
  std::string text_path;
  std::string binary_path;
  std::size_t text_bytes = 0;
  std::size_t binary_bytes = 0;
  std::size_t blocks = 0;
};

// One pair of files for each size, made once.
const files& layout_files(std::int64_t segments) {
  static std::map<std::int64_t, std::unique_ptr<files>> made;
  std::unique_ptr<files>& f = made[segments];
  if (f) return *f;
  f = std::make_unique<files>();

  torva::generator_params p;
  p.kind = torva::layout_kind::crossing;
  p.blocks = std::uint64_t(segments);
  p.layers = 4;
  p.polygon_share = 0.05;
  p.incline_share = 0.05;
  p.media = true;  // no cylinders: the binary form has none
  const std::string text = torva::generate_text(p);
  f->text_path = f->dir.file("layout.cap3d");
  f->binary_path = f->dir.file("layout.bin");
  std::ofstream(f->text_path, std::ios::binary) << text;
  f->text_bytes = text.size();

  torva::circuit_layout::raw& raw = *kept().emplace_back(std::make_unique<torva::circuit_layout::raw>());
  torva::Cap3dParser parser(raw, 4, true, false);
  if (!parser.parse(f->text_path, "")) return *f;
  f->blocks = raw.wire_blocks.size();
  f->binary_bytes = torva::write_binary_file(raw, f->binary_path).bytes;
  return *f;
}

void read(benchmark::State& state, bool binary) {
  torva::testing::log_capture quiet;
  const files& f = layout_files(state.range(0));
  if (f.blocks == 0) {
    state.SkipWithError("the generated text could not be read");
    return;
  }
  for (auto _ : state) {
    // Solids live for the process, so every read adds to that store.
    torva::circuit_layout::raw& raw = *kept().emplace_back(std::make_unique<torva::circuit_layout::raw>());
    torva::Cap3dParser parser(raw, 4, true, false);
    if (!parser.parse(binary ? f.binary_path : f.text_path, "")) {
      state.SkipWithError("read failed");
      return;
    }
    benchmark::DoNotOptimize(raw.wire_blocks.size());
  }
  state.SetBytesProcessed(std::int64_t(state.iterations() * (binary ? f.binary_bytes : f.text_bytes)));
  state.SetItemsProcessed(std::int64_t(state.iterations() * f.blocks));
  state.counters["file_MB"] = double(binary ? f.binary_bytes : f.text_bytes) / 1e6;
}

void BM_parse_text(benchmark::State& state) { read(state, false); }
void BM_parse_binary(benchmark::State& state) { read(state, true); }

BENCHMARK(BM_parse_text)->Arg(50'000)->Unit(benchmark::kMillisecond)->Iterations(8);
BENCHMARK(BM_parse_binary)->Arg(50'000)->Unit(benchmark::kMillisecond)->Iterations(8);

}  // namespace

BENCHMARK_MAIN();
