// Loading the compressed table set, beside a plain read of the same six files
// into memory (page cache warm). The load should stay within three times the
// plain read. load_approxc is the load as the database makes it (the direct
// reader, which fills the groups straight from the files on two threads);
// load_staged the reader that stages each file whole first.
//
// A load takes fresh memory for its groups, and how fast it goes depends on
// whether the heap has that memory at hand from an earlier load, so every load
// runs in a child process of its own, as a program loads its tables once. The
// time is the wall time of the load in the child; counters give the processor
// time of all its threads (cpu_ms), that of the loading thread alone
// (loader_cpu_ms), and the peak resident memory above the child's resident
// size before the load (peak_bytes), to be compared with the 70,311,248 bytes
// of the groups' table data. A last benchmark shows what merely faulting in
// that much fresh memory costs on the machine at hand, the floor under any
// load that keeps the groups.
#include <benchmark/benchmark.h>
#include <malloc.h>
#include <sys/wait.h>
#include <time.h>
#include <unistd.h>

#include <chrono>
#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <filesystem>
#include <fstream>
#include <memory>
#include <random>
#include <string>
#include <vector>

#include "torva/foundation/logger.h"
#include "torva/foundation/writer.h"
#include "torva/tables/internal/compressed_set.h"
#include "torva/tables/table_loader.h"
#include "torva_testing/log_capture.h"

namespace {

constexpr std::size_t rows = 13718;

const std::pair<const char*, std::size_t> files[] = {
    {"GFT/NumGFT_A.db", 150},       {"GFT/NumGFT_B.db", 144},       {"GFT/NumGFT_IS_Z.db", 444},
    {"GFT/NumGFT_IS_XY_A.db", 288}, {"GFT/NumGFT_IS_XY_B.db", 288}, {"WVT/NumWVT_IS.db", 2}};

// The set, written once per run with random positive rows.
struct table_set {
  table_set() {
    std::mt19937 rng(11);
    std::uniform_real_distribution<float> u(0.0f, 1.0f);
    for (auto [file, size] : files) {
      const std::string path = prefix() + "Approx4equal/" + file;
      std::filesystem::create_directories(std::filesystem::path(path).parent_path());
      std::vector<unsigned char> record(36 + 4 * size, 0);
      FILE* f = std::fopen(path.c_str(), "wb");
      for (std::size_t r = 0; r < rows; ++r) {
        for (std::size_t c = 0; c < size; ++c) {
          const float v = u(rng);
          std::memcpy(record.data() + 36 + 4 * c, &v, 4);
        }
        std::fwrite(record.data(), 1, record.size(), f);
      }
      std::fclose(f);
      paths.push_back(path);
    }
    // One plain read first, so that both benchmarks find the page cache warm.
    for (const auto& p : paths) read_whole(p);
  }
  std::string prefix() const { return dir.path.string() + "/"; }
  static std::size_t read_whole(const std::string& path) {
    FILE* f = std::fopen(path.c_str(), "rb");
    std::fseek(f, 0, SEEK_END);
    const long length = std::ftell(f);
    std::rewind(f);
    char* block = static_cast<char*>(std::malloc(length));
    const std::size_t got = std::fread(block, 1, length, f);
    benchmark::DoNotOptimize(block);
    std::free(block);
    std::fclose(f);
    return got;
  }
  torva::testing::temp_dir dir;
  std::vector<std::string> paths;
};

table_set& the_set() {
  static table_set set;
  return set;
}

long status_kb(const char* field) {
  std::ifstream status("/proc/self/status");
  std::string line;
  while (std::getline(status, line)) {
    if (line.rfind(field, 0) == 0) return std::strtol(line.c_str() + std::strlen(field), nullptr, 10);
  }
  return -1;
}

// Resets the peak resident size of the process, where the kernel allows it.
bool reset_peak() {
  std::ofstream clear("/proc/self/clear_refs");
  clear << "5";
  clear.flush();
  return static_cast<bool>(clear);
}

double clock_seconds(clockid_t clock) {
  timespec t{};
  clock_gettime(clock, &t);
  return double(t.tv_sec) + double(t.tv_nsec) * 1e-9;
}

void plain_read(benchmark::State& state) {
  table_set& set = the_set();
  std::size_t bytes = 0;
  const double start = clock_seconds(CLOCK_PROCESS_CPUTIME_ID);
  for (auto _ : state) {
    for (const auto& p : set.paths) bytes += table_set::read_whole(p);
  }
  state.counters["cpu_ms"] = 1e3 * (clock_seconds(CLOCK_PROCESS_CPUTIME_ID) - start) / double(state.iterations());
  state.SetBytesProcessed(static_cast<std::int64_t>(bytes));
}

struct load_figures {
  double wall = 0;
  double cpu = 0;
  double loader_cpu = 0;
  double peak_bytes = -1;
  std::size_t groups = 0;
};

// Runs `load` in a child process and brings back its figures.
template <class Load>
load_figures load_in_child(Load load, const std::string& prefix) {
  // Heap this process has freed but still holds would be shared with the
  // child, which would then copy those pages instead of taking fresh ones.
  ::malloc_trim(0);
  int report[2];
  if (::pipe(report) != 0) return {};
  const pid_t child = ::fork();
  if (child == 0) {
    ::close(report[0]);
    torva::testing::log_capture quiet;
    const long before = status_kb("VmRSS:");
    const bool reset = reset_peak();
    auto* store = new torva::cmpr_equal_layer_database;  // kept: the child ends without tearing it down
    torva::table_loader loader(nullptr, nullptr, nullptr);
    load_figures f;
    const double cpu = clock_seconds(CLOCK_PROCESS_CPUTIME_ID);
    const double mine = clock_seconds(CLOCK_THREAD_CPUTIME_ID);
    const auto start = std::chrono::steady_clock::now();
    load(loader, *store, prefix);
    f.wall = std::chrono::duration<double>(std::chrono::steady_clock::now() - start).count();
    f.loader_cpu = clock_seconds(CLOCK_THREAD_CPUTIME_ID) - mine;
    f.cpu = clock_seconds(CLOCK_PROCESS_CPUTIME_ID) - cpu;
    if (reset && before >= 0) f.peak_bytes = double(status_kb("VmHWM:") - before) * 1024;
    f.groups = store->groups.size();
    if (::write(report[1], &f, sizeof f) != sizeof f) ::_exit(1);
    ::_exit(0);
  }
  ::close(report[1]);
  load_figures f;
  if (child < 0 || ::read(report[0], &f, sizeof f) != sizeof f) f = {};
  ::close(report[0]);
  if (child > 0) ::waitpid(child, nullptr, 0);
  return f;
}

template <class Load>
void measure_load(benchmark::State& state, Load load) {
  table_set& set = the_set();
  load_figures sum;
  double peak = 0;
  for (auto _ : state) {
    const load_figures f = load_in_child(load, set.prefix());
    if (f.groups != 13357) {
      state.SkipWithError("the load failed");
      return;
    }
    state.SetIterationTime(f.wall);
    sum.cpu += f.cpu;
    sum.loader_cpu += f.loader_cpu;
    peak = std::max(peak, f.peak_bytes);
  }
  const double n = double(state.iterations());
  state.SetBytesProcessed(std::int64_t(n * (8724648 + 8395416 + 24857016 + 16296984 + 16296984 + 603592)));
  state.counters["peak_bytes"] = peak;
  state.counters["cpu_ms"] = 1e3 * sum.cpu / n;
  state.counters["loader_cpu_ms"] = 1e3 * sum.loader_cpu / n;
}

void load_approxc(benchmark::State& state) {
  measure_load(state, [](torva::table_loader& loader, torva::cmpr_equal_layer_database& store,
                         const std::string& prefix) { loader.load_approxc(store, prefix); });
}

void load_staged(benchmark::State& state) {
  measure_load(state, [](torva::table_loader& loader, torva::cmpr_equal_layer_database& store,
                         const std::string& prefix) {
    torva::internal::load_compressed_staged(loader, store, prefix + "Approx4equal/");
  });
}

// The floor of any load that keeps the groups' 70,311,248 bytes alive at its
// end: bringing that much fresh memory into the process, one write per page.
void touch_fresh_memory(benchmark::State& state) {
  constexpr std::size_t bytes = 70311248;
  for (auto _ : state) {
    char* block = static_cast<char*>(std::malloc(bytes));
    for (std::size_t i = 0; i < bytes; i += 4096) block[i] = 1;
    benchmark::DoNotOptimize(block);
    benchmark::ClobberMemory();
    std::free(block);
  }
}

BENCHMARK(load_approxc)->Unit(benchmark::kMillisecond)->UseManualTime()->Iterations(5);
BENCHMARK(load_staged)->Unit(benchmark::kMillisecond)->UseManualTime()->Iterations(5);
BENCHMARK(plain_read)->Unit(benchmark::kMillisecond)->UseRealTime();
BENCHMARK(touch_fresh_memory)->Unit(benchmark::kMillisecond)->UseRealTime();

}  // namespace

BENCHMARK_MAIN();
