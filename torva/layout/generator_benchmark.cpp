// Speed of the synthetic layout generator: describing, writing text, and
// building the records in memory.
#include <benchmark/benchmark.h>

#include "torva/layout/generator.h"

namespace {

torva::generator_params params(std::int64_t blocks) {
  torva::generator_params p;
  p.kind = torva::layout_kind::crossing;
  p.blocks = std::uint64_t(blocks);
  p.layers = 4;
  p.polygon_share = 0.05;
  p.cylinder_share = 0.05;
  p.incline_share = 0.05;
  p.media = true;
  return p;
}

void BM_generate_layout(benchmark::State& state) {
  for (auto _ : state) benchmark::DoNotOptimize(torva::generate_layout(params(state.range(0))));
  state.SetItemsProcessed(state.iterations() * state.range(0));
}
BENCHMARK(BM_generate_layout)->Arg(1'000'000)->Unit(benchmark::kMillisecond);

void BM_to_text(benchmark::State& state) {
  const torva::generated_layout g = torva::generate_layout(params(state.range(0)));
  std::size_t bytes = 0;
  for (auto _ : state) {
    const std::string text = torva::to_text(g);
    bytes = text.size();
    benchmark::DoNotOptimize(text.data());
  }
  state.SetBytesProcessed(std::int64_t(state.iterations() * bytes));
}
BENCHMARK(BM_to_text)->Arg(1'000'000)->Unit(benchmark::kMillisecond);

void BM_build_circuit(benchmark::State& state) {
  const torva::generated_layout g = torva::generate_layout(params(state.range(0)));
  for (auto _ : state) {
    // Solids live for the process, so repeated builds keep adding to that store.
    torva::circuit_layout circuit;
    torva::build_circuit(g, circuit);
    benchmark::DoNotOptimize(circuit.blocks.data());
  }
  state.SetItemsProcessed(state.iterations() * state.range(0));
}
BENCHMARK(BM_build_circuit)->Arg(1'000'000)->Unit(benchmark::kMillisecond)->Iterations(2);

}  // namespace

BENCHMARK_MAIN();
