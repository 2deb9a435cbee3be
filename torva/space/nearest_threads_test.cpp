// Queries from many threads at once, and queries that allocate nothing.
#include <gtest/gtest.h>

#include <atomic>
#include <cstdlib>
#include <new>
#include <random>
#include <thread>
#include <vector>

#include "torva/foundation/abstract_wrapper.h"
#include "torva/space/basic_space_manager.h"
#include "torva/space/layout_fields.h"
#include "torva/space/octree_spacemgr.h"
#include "torva/space/simple_spacemgr.h"
#include "torva/space/unused_spacemgr.h"
#include "torva_testing/log_capture.h"
#include "torva_testing/random_layout.h"

// Counts the allocations of the calling thread, so that a test can tell that a
// stretch of code allocated nothing. Sanitizer runtimes bring their own
// operator new (clang links it statically), so there the count is left out.
#if defined(__SANITIZE_ADDRESS__) || defined(__SANITIZE_THREAD__)
#define TORVA_SANITIZED_BUILD 1
#elif defined(__has_feature)
#if __has_feature(address_sanitizer) || __has_feature(thread_sanitizer) || __has_feature(memory_sanitizer)
#define TORVA_SANITIZED_BUILD 1
#endif
#endif

#ifndef TORVA_SANITIZED_BUILD
// GCC sees free() meet the pointers of the replaced operator new below and
// takes the pair for a mismatch; they are malloc's own.
#if defined(__GNUC__) && !defined(__clang__)
#pragma GCC diagnostic ignored "-Wmismatched-new-delete"
#endif

namespace {
thread_local long allocations = 0;
}

void* operator new(std::size_t size) {
  ++allocations;
  if (void* p = std::malloc(size ? size : 1)) return p;
  throw std::bad_alloc();
}
void* operator new[](std::size_t size) {
  ++allocations;
  if (void* p = std::malloc(size ? size : 1)) return p;
  throw std::bad_alloc();
}
void operator delete(void* p) noexcept { std::free(p); }
void operator delete[](void* p) noexcept { std::free(p); }
void operator delete(void* p, std::size_t) noexcept { std::free(p); }
void operator delete[](void* p, std::size_t) noexcept { std::free(p); }
#endif

namespace torva {
namespace {

using manager_holder = sea::abstract_wrapper<space_manager_interface>;

struct query {
  point3 point;
  double limit;
};

// A walk-like stream: each next point on the surface of the cube that the
// last answer allows, a fresh start when the answer gets small.
std::vector<query> walk(const space_manager_interface& m, const circuit_layout& layout, int count,
                        std::uint64_t seed) {
  std::mt19937_64 rng(seed);
  std::uniform_real_distribution<double> unit(0, 1);
  const cuboid_t& w = layout.data.window;
  auto fresh = [&] {
    point3 p;
    for (int k = 0; k < 3; ++k) p[k] = w.lower[k].value + (w.upper[k].value - w.lower[k].value) * unit(rng);
    return p;
  };
  std::vector<query> out;
  candidate_list_cache a, b;
  point3 p = fresh();
  for (int i = 0; i < count; ++i) {
    const double limit = i % 7 == 0 ? 3.0 : 1e9;
    const nearest_result r = m.nearest(p, limit, a, b);
    out.push_back({p, limit});
    const double h = r.distance.value;
    if (h < 0.05) {
      p = fresh();
      continue;
    }
    const int face = int(unit(rng) * 6) % 6;
    for (int k = 0; k < 3; ++k) p[k] = p[k].value + h * (2 * unit(rng) - 1);
    p[face % 3] = p[face % 3].value + (face < 3 ? h : -h);
    for (int k = 0; k < 3; ++k)
      if (p[k].value < w.lower[k].value || p[k].value > w.upper[k].value) p = fresh();
  }
  return out;
}

constexpr std::size_t chunk = 100;  // a walker's caches live for one chunk of the stream

// The answers to one chunk, with caches that start empty and are reused through it.
void answer_chunk(const space_manager_interface& m, const std::vector<query>& stream, std::size_t c,
                  std::vector<nearest_result>& out) {
  candidate_list_cache a, b;
  for (std::size_t i = c * chunk; i < std::min(stream.size(), (c + 1) * chunk); ++i)
    out[i] = m.nearest(stream[i].point, stream[i].limit, a, b);
}

template <class Pair>
void check_threads_agree() {
  testing::log_capture log;
  auto layout = testing::make_random_layout({.blocks = 200, .max_pieces = 3}, 77);
  derive_layout_fields(*layout);
  configure config;
  config.max_candidates = 4;
  config.group_dominance = true;
  manager_holder holder;
  holder.construct<Pair>().initialize(config, *layout);
  const std::vector<query> stream = walk(*holder, *layout, 3000, 5);
  const std::size_t chunks = (stream.size() + chunk - 1) / chunk;
  std::vector<nearest_result> expected(stream.size());
  for (std::size_t c = 0; c < chunks; ++c) answer_chunk(*holder, stream, c, expected);

  constexpr int threads = 4;
  std::vector<std::vector<nearest_result>> got(threads, std::vector<nearest_result>(stream.size()));
  std::vector<std::thread> pool;
  std::atomic<int> ready{0};
  for (int t = 0; t < threads; ++t) {
    pool.emplace_back([&, t] {
      ready.fetch_add(1);
      while (ready.load() < threads) std::this_thread::yield();  // start together
      // Each thread takes the chunks in its own order, so that the threads
      // stand in different parts of the layout at once.
      for (std::size_t n = 0; n < chunks; ++n) answer_chunk(*holder, stream, (n + t * 7) % chunks, got[t]);
    });
  }
  for (std::thread& th : pool) th.join();
  for (int t = 0; t < threads; ++t) {
    int mismatches = 0;
    for (std::size_t i = 0; i < stream.size(); ++i) {
      const nearest_result& r = got[t][i];
      mismatches += r.block != expected[i].block || r.distance.value != expected[i].distance.value ||
                    r.reach.value != expected[i].reach.value;
    }
    EXPECT_EQ(mismatches, 0) << "thread " << t;
  }
}

TEST(NearestThreads, ManyThreadsQueryingOneManagerAgreeWithOne) {
  check_threads_agree<basic_space_manager<octree_spacemgr<3>, octree_spacemgr<1>>>();
  check_threads_agree<basic_space_manager<octree_spacemgr<0>, unused_spacemgr>>();
  check_threads_agree<basic_space_manager<simple_spacemgr<3>, simple_spacemgr<1>>>();
}

TEST(NearestAllocations, QueriesAllocateNothing) {
#ifdef TORVA_SANITIZED_BUILD
  GTEST_SKIP() << "allocations are not counted under a sanitizer";
#else
  testing::log_capture log;
  auto layout = testing::make_random_layout({.blocks = 300}, 8);
  derive_layout_fields(*layout);
  configure config;
  config.max_candidates = 3;
  manager_holder holder;
  holder.construct<basic_space_manager<octree_spacemgr<3>, octree_spacemgr<1>>>().initialize(config, *layout);
  std::vector<point3> points;
  std::mt19937_64 rng(2);
  std::uniform_real_distribution<double> unit(0, 100);
  for (int i = 0; i < 2000; ++i) points.push_back(point3{{unit(rng), unit(rng), unit(rng)}});
  candidate_list_cache a, b;
  double sum = 0;
  const long before = allocations;
  for (const point3& p : points) {
    sum += holder->nearest(p, 1e9, a, b).distance.value;  // mostly misses
    point3 q = p;
    q[0] = q[0].value + 1e-3;
    sum += holder->nearest(q, 1e9, a, b).distance.value;  // mostly hits
  }
  EXPECT_EQ(allocations, before);
  EXPECT_GT(sum, 0.0);
  // The counter itself works.
  auto probe = std::make_unique<int>(1);
  EXPECT_EQ(allocations, before + 1);
#endif
}

}  // namespace
}  // namespace torva
