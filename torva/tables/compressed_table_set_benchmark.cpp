// Loading the compressed table set, beside a plain read of the same six files
// into memory (page cache warm). The load should stay within three times the
// plain read. load_approxc is the load as the database makes it (the direct
// reader, which fills the groups straight from the files on two threads);
// load_staged the reader that stages each file whole first. Each load reports
// its peak resident memory above the process's resident size before it
// (peak_bytes), to be compared with the 70,311,248 bytes of the groups' table
// data, and the processor time of all its threads per load (cpu_ms). A last
// benchmark shows what merely faulting in that much fresh memory costs on the
// machine at hand, the floor under any load that keeps the groups.
#include <benchmark/benchmark.h>
#include <malloc.h>
#include <time.h>

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

double process_cpu_seconds() {
  timespec t{};
  clock_gettime(CLOCK_PROCESS_CPUTIME_ID, &t);
  return double(t.tv_sec) + double(t.tv_nsec) * 1e-9;
}

void plain_read(benchmark::State& state) {
  table_set& set = the_set();
  std::size_t bytes = 0;
  const double start = process_cpu_seconds();
  for (auto _ : state) {
    for (const auto& p : set.paths) bytes += table_set::read_whole(p);
  }
  state.counters["cpu_ms"] = 1e3 * (process_cpu_seconds() - start) / double(state.iterations());
  state.SetBytesProcessed(static_cast<std::int64_t>(bytes));
}

template <class Load>
void measure_load(benchmark::State& state, Load load) {
  table_set& set = the_set();
  torva::logger::instance().set_info(std::make_unique<torva::sea::string_writer>());
  double peak_bytes = -1;
  double cpu = 0;
  bool measured = false;
  std::size_t bytes = 0;
  for (auto _ : state) {
    auto store = std::make_unique<torva::cmpr_equal_layer_database>();
    torva::table_loader loader(nullptr, nullptr, nullptr);
    if (!measured) {
      state.PauseTiming();
      // Free heap left resident by the setup would be reused by the load and
      // hide part of its peak: give it back first.
      malloc_trim(0);
      const long before = status_kb("VmRSS:");
      const bool reset = reset_peak();
      state.ResumeTiming();
      const double start = process_cpu_seconds();
      load(loader, *store, set.prefix());
      cpu += process_cpu_seconds() - start;
      state.PauseTiming();
      if (reset && before >= 0) peak_bytes = double(status_kb("VmHWM:") - before) * 1024;
      measured = true;
      state.ResumeTiming();
    } else {
      const double start = process_cpu_seconds();
      load(loader, *store, set.prefix());
      cpu += process_cpu_seconds() - start;
    }
    benchmark::DoNotOptimize(store->groups.size());
    state.PauseTiming();
    store.reset();
    static_cast<torva::sea::string_writer*>(torva::logger::instance().info)->text.clear();
    state.ResumeTiming();
    bytes += 8724648 + 8395416 + 24857016 + 16296984 + 16296984 + 603592;
  }
  state.SetBytesProcessed(static_cast<std::int64_t>(bytes));
  state.counters["peak_bytes"] = peak_bytes;
  state.counters["cpu_ms"] = 1e3 * cpu / double(state.iterations());
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

BENCHMARK(load_approxc)->Unit(benchmark::kMillisecond)->UseRealTime();
BENCHMARK(load_staged)->Unit(benchmark::kMillisecond)->UseRealTime();
BENCHMARK(plain_read)->Unit(benchmark::kMillisecond)->UseRealTime();
BENCHMARK(touch_fresh_memory)->Unit(benchmark::kMillisecond)->UseRealTime();

}  // namespace

BENCHMARK_MAIN();
