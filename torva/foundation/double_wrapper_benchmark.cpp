// The tolerant comparisons must cost what a double comparison costs.
#include <benchmark/benchmark.h>

#include <random>
#include <vector>

#include "torva/foundation/double_wrapper.h"

namespace {

template <class T>
std::vector<T> values() {
  std::mt19937_64 rng(7);
  std::uniform_real_distribution<double> u(-1.0, 1.0);
  std::vector<T> v(4096);
  for (auto& x : v) x = T(u(rng));
  return v;
}

template <class T>
void less_than(benchmark::State& state) {
  auto v = values<T>();
  for (auto _ : state) {
    long count = 0;
    for (std::size_t i = 1; i < v.size(); ++i) count += v[i - 1] < v[i];
    benchmark::DoNotOptimize(count);
  }
  state.SetItemsProcessed(state.iterations() * (v.size() - 1));
}

template <class T>
void equal_to(benchmark::State& state) {
  auto v = values<T>();
  for (auto _ : state) {
    long count = 0;
    for (std::size_t i = 1; i < v.size(); ++i) count += v[i - 1] == v[i];
    benchmark::DoNotOptimize(count);
  }
  state.SetItemsProcessed(state.iterations() * (v.size() - 1));
}

BENCHMARK(less_than<double>);
BENCHMARK(less_than<torva::sea::double_wrapper>);
BENCHMARK(equal_to<double>);
BENCHMARK(equal_to<torva::sea::double_wrapper>);

}  // namespace

BENCHMARK_MAIN();
