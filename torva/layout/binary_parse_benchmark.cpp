// Reading one generated layout of about TORVA_PARSE_BENCH_MB megabytes of text
// (default 100) in its two forms, in the same run: the text file, and the
// binary file the writer makes of what the text reader read. The binary read
// is meant to take at most a third of the text read's time.
//
// Most of either read goes to allocating the records and faulting in their
// pages, so the state of the heap decides much of the figure: a read into
// memory that an earlier read released is measured by how the allocator reuses
// it. Every read therefore runs in a child process of its own, on a fresh
// heap, as a program reading its layout does. The time is the wall time of
// the read in the child (it reads a large binary file on two threads);
// counters give the processor time of all its threads (cpu_ms) and of the
// reading thread alone (reader_cpu_ms), which a busy machine disturbs less.
// BM_read_binary_piped reads the binary file through a pipe, which can't be
// mapped: the plain streamed read on one thread.
//
//   TORVA_PARSE_BENCH_MB=100 build/bench/binary_parse_benchmark --benchmark_repetitions=5
#include <benchmark/benchmark.h>

#include <malloc.h>
#include <sys/wait.h>
#include <time.h>
#include <unistd.h>

#include <chrono>
#include <cstdio>
#include <cstdlib>
#include <filesystem>
#include <memory>
#include <string>

#include "torva/layout/binary_writer.h"
#include "torva/layout/cap3d_parser.h"
#include "torva/layout/generator.h"
#include "torva_testing/log_capture.h"

namespace {

using namespace torva;

struct layout_files {
  testing::temp_dir dir;
  std::string text_path;
  std::string binary_path;
  std::size_t text_bytes = 0;
  std::size_t binary_bytes = 0;
  std::size_t blocks = 0;

  // The crossing layout with a few polygons, leaning blocks and media (no
  // cylinders: the binary form has none), scaled to the size asked for.
  static generator_params params(std::uint64_t segments) {
    generator_params p;
    p.kind = layout_kind::crossing;
    p.blocks = segments;
    p.layers = 4;
    p.polygon_share = 0.05;
    p.incline_share = 0.05;
    p.media = true;
    return p;
  }

  layout_files() {
    testing::log_capture quiet;
    const char* mb = std::getenv("TORVA_PARSE_BENCH_MB");
    const double target = double((mb ? std::strtoull(mb, nullptr, 10) : 100) << 20);
    const std::uint64_t sample = 20000;
    const double per_segment = double(generate_text(params(sample)).size()) / double(sample);
    text_path = dir.file("layout.cap3d");
    binary_path = dir.file("layout.bin");
    write_text_file(generate_layout(params(std::uint64_t(target / per_segment))), text_path);
    circuit_layout::raw raw;
    Cap3dParser parser(raw, 4, true, false);
    if (!parser.parse(text_path, "")) return;
    text_bytes = std::filesystem::file_size(text_path);
    binary_bytes = write_binary_file(raw, binary_path).bytes;
    blocks = raw.wire_blocks.size();
  }
};

const layout_files& files() {
  static const layout_files f;
  return f;
}

double clock_seconds(clockid_t clock) {
  timespec t{};
  clock_gettime(clock, &t);
  return double(t.tv_sec) + double(t.tv_nsec) * 1e-9;
}

struct read_times {
  double wall = 0;
  double cpu = 0;
  double reader_cpu = 0;
  std::size_t blocks = 0;
};

// Reads `path` in a child process and brings back its times; through a pipe
// fed by a grandchild when `piped`. Blocks 0 on failure.
read_times read_in_child(const std::string& path, bool piped) {
  // Heap this process has freed but still holds would be shared with the
  // child, which would then copy those pages instead of taking fresh ones.
  ::malloc_trim(0);
  int report[2];
  if (::pipe(report) != 0) return {};
  const pid_t child = ::fork();
  if (child == 0) {
    ::close(report[0]);
    std::string source = path;
    if (piped) {
      int feed[2];
      if (::pipe(feed) != 0) ::_exit(1);
      if (::fork() == 0) {
        ::close(feed[0]);
        ::dup2(feed[1], STDOUT_FILENO);
        ::execlp("cat", "cat", path.c_str(), static_cast<char*>(nullptr));
        ::_exit(1);
      }
      ::close(feed[1]);
      source = "/proc/self/fd/" + std::to_string(feed[0]);
    }
    testing::log_capture quiet;
    auto* raw = new circuit_layout::raw;  // kept: the child ends without tearing it down
    const double cpu = clock_seconds(CLOCK_PROCESS_CPUTIME_ID);
    const double reader = clock_seconds(CLOCK_THREAD_CPUTIME_ID);
    const auto start = std::chrono::steady_clock::now();
    Cap3dParser parser(*raw, 4, true, false);
    const bool ok = parser.parse(source, "");
    read_times t;
    t.wall = std::chrono::duration<double>(std::chrono::steady_clock::now() - start).count();
    t.reader_cpu = clock_seconds(CLOCK_THREAD_CPUTIME_ID) - reader;
    t.cpu = clock_seconds(CLOCK_PROCESS_CPUTIME_ID) - cpu;
    t.blocks = ok ? raw->wire_blocks.size() : 0;
    if (::write(report[1], &t, sizeof t) != sizeof t) ::_exit(1);
    ::_exit(0);
  }
  ::close(report[1]);
  read_times t;
  if (child < 0 || ::read(report[0], &t, sizeof t) != sizeof t) t = {};
  ::close(report[0]);
  if (child > 0) ::waitpid(child, nullptr, 0);
  while (::waitpid(-1, nullptr, WNOHANG) > 0) {
  }
  return t;
}

void read(benchmark::State& state, bool binary, bool piped) {
  const layout_files& f = files();
  if (f.blocks == 0) {
    state.SkipWithError("the generated text could not be read");
    return;
  }
  double cpu = 0, reader_cpu = 0;
  for (auto _ : state) {
    const read_times t = read_in_child(binary ? f.binary_path : f.text_path, piped);
    if (t.blocks != f.blocks) {
      state.SkipWithError("read failed");
      return;
    }
    state.SetIterationTime(t.wall);
    cpu += t.cpu;
    reader_cpu += t.reader_cpu;
  }
  const double n = double(state.iterations());
  state.SetBytesProcessed(std::int64_t(n * double(binary ? f.binary_bytes : f.text_bytes)));
  state.counters["cpu_ms"] = 1e3 * cpu / n;
  state.counters["reader_cpu_ms"] = 1e3 * reader_cpu / n;
  state.counters["file_MB"] = double(binary ? f.binary_bytes : f.text_bytes) / 1e6;
  state.counters["blocks"] = double(f.blocks);
}

void BM_read_text(benchmark::State& state) { read(state, false, false); }
void BM_read_binary(benchmark::State& state) { read(state, true, false); }
void BM_read_binary_piped(benchmark::State& state) { read(state, true, true); }

BENCHMARK(BM_read_text)->Unit(benchmark::kMillisecond)->UseManualTime()->Iterations(3);
BENCHMARK(BM_read_binary)->Unit(benchmark::kMillisecond)->UseManualTime()->Iterations(3);
BENCHMARK(BM_read_binary_piped)->Unit(benchmark::kMillisecond)->UseManualTime()->Iterations(3);

}  // namespace

BENCHMARK_MAIN();
