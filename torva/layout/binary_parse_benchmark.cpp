// Reading one generated layout in its two forms, in the same run: the text
// file, and the binary file the writer makes of what the text reader read.
// Bytes per second are those of each file; items per second are conductor
// blocks. The binary read is meant to take at most a third of the text read's
// time for the same layout.
//
// Most of either read is spent allocating the records and faulting in their
// pages, so the state of the heap decides much of the figure: a read into
// memory that an earlier read has just released is measured by how the
// allocator reuses many small pieces, and favours whichever form runs later.
// Every record read here therefore lives to the end of the process, as a
// client's record does, and each read takes fresh memory. That keeps the
// sizes modest: 4 iterations of each read of 30,000 segments.
//
// The time taken is the thread's CPU time (page faults included), which a busy
// machine disturbs far less than the wall clock.
#include <benchmark/benchmark.h>

#include <time.h>

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

double thread_seconds() {
  timespec t{};
  clock_gettime(CLOCK_THREAD_CPUTIME_ID, &t);
  return double(t.tv_sec) + double(t.tv_nsec) * 1e-9;
}

bool read_into(torva::circuit_layout::raw& raw, const std::string& path) {
  torva::Cap3dParser parser(raw, 4, true, false);
  return parser.parse(path, "");
}

void read(benchmark::State& state, bool binary) {
  torva::testing::log_capture quiet;
  const files& f = layout_files(state.range(0));
  if (f.blocks == 0) {
    state.SkipWithError("the generated text could not be read");
    return;
  }
  const std::string& path = binary ? f.binary_path : f.text_path;
  for (auto _ : state) {
    // Solids live for the process, so every read adds to that store.
    torva::circuit_layout::raw& raw = *kept().emplace_back(std::make_unique<torva::circuit_layout::raw>());
    const double start = thread_seconds();
    const bool ok = read_into(raw, path);
    state.SetIterationTime(thread_seconds() - start);
    if (!ok) {
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

BENCHMARK(BM_parse_text)->Arg(30'000)->Unit(benchmark::kMillisecond)->UseManualTime()->Iterations(4);
BENCHMARK(BM_parse_binary)->Arg(30'000)->Unit(benchmark::kMillisecond)->UseManualTime()->Iterations(4);

}  // namespace

BENCHMARK_MAIN();
