// Threads, paths, the holder and the usage text.
#include <gtest/gtest.h>
#include <omp.h>

#include <algorithm>
#include <atomic>
#include <cstdlib>
#include <mutex>
#include <set>
#include <thread>
#include <vector>

#include "torva/foundation/abstract_wrapper.h"
#include "torva/foundation/path.h"
#include "torva/foundation/thread_pool.h"
#include "torva/foundation/usage.h"

namespace torva {
namespace {

TEST(TemporaryRun, OneOrFewerThreadsRunsOnTheCallerAndAnEmptyFunctionThrows) {
  for (int threads : {1, 0, -3}) {
    std::vector<int> seen;
    std::thread::id where;
    std::function<void(int)> fn = [&](int id) {
      seen.push_back(id);
      where = std::this_thread::get_id();
    };
    sea::thread_pool::temporary_run(threads, fn);
    EXPECT_EQ(seen, std::vector<int>{0});
    EXPECT_EQ(where, std::this_thread::get_id());
  }
  std::function<void(int)> empty;
  EXPECT_THROW(sea::thread_pool::temporary_run(2, empty), std::bad_function_call);
  EXPECT_THROW(sea::thread_pool::temporary_run(1, empty), std::bad_function_call);
}

TEST(TemporaryRun, FourThreadsEvenWhenTheEnvironmentSaysOne) {
  setenv("OMP_NUM_THREADS", "1", 1);
  omp_set_num_threads(1);
  std::mutex m;
  std::multiset<int> ids;
  std::set<std::thread::id> threads;
  std::atomic<int> inside{0}, peak{0};
  std::function<void(int)> fn = [&](int id) {
    int now = ++inside;
    int p = peak.load();
    while (now > p && !peak.compare_exchange_weak(p, now)) {
    }
    // Wait until all four are inside at once: they are truly concurrent.
    for (int spin = 0; spin < 2000000 && peak.load() < 4; ++spin) std::this_thread::yield();
    std::lock_guard<std::mutex> lock(m);
    ids.insert(id);
    threads.insert(std::this_thread::get_id());
    --inside;
  };
  sea::thread_pool::temporary_run(4, fn);
  EXPECT_EQ(ids, (std::multiset<int>{0, 1, 2, 3}));
  EXPECT_EQ(threads.size(), 4u);
  EXPECT_EQ(peak.load(), 4);
}

TEST(PathJoin, Forms) {
  using sea::path::join;
  EXPECT_EQ(join("dir", ""), "dir/");
  EXPECT_EQ(join("dir/", ""), "dir/");
  EXPECT_EQ(join("", ""), "");
  EXPECT_EQ(join("", "x"), "x");
  EXPECT_EQ(join("a", "b"), "a/b");
  EXPECT_EQ(join("a/", "b"), "a/b");
  EXPECT_EQ(join("a", "/b"), "a//b");  // the tail is not examined
  EXPECT_EQ(join("a", "b", "c.db"), "a/b/c.db");
  EXPECT_EQ(join("a", "", "c"), "a/c");
}

struct base_t {
  virtual ~base_t() = default;
};
struct tracked : base_t {
  tracked() { order->push_back("born " + std::to_string(id = next++)); }
  ~tracked() override { order->push_back("died " + std::to_string(id)); }
  int id;
  long zeroed_field;
  static inline int next = 0;
  static inline std::vector<std::string>* order = nullptr;
};
struct plain : base_t {
  double a;
  long b;
  char c[16];
};

TEST(AbstractWrapper, ConstructReplacesAfterTheNewOneIsInPlaceAndZeroesIt) {
  std::vector<std::string> order;
  tracked::order = &order;
  tracked::next = 0;
  sea::abstract_wrapper<base_t> holder;
  EXPECT_FALSE(holder);
  tracked& first = holder.construct<tracked>();
  EXPECT_EQ(holder.get(), &first);
  tracked& second = holder.construct<tracked>();
  EXPECT_EQ(holder.get(), &second);
  EXPECT_EQ(order, (std::vector<std::string>{"born 0", "born 1", "died 0"}));
  holder.holder.reset();
  EXPECT_EQ(std::count(order.begin(), order.end(), "died 0"), 1);
  EXPECT_EQ(std::count(order.begin(), order.end(), "died 1"), 1);
  const plain& p = holder.construct<plain>();
  EXPECT_EQ(p.a, 0.0);
  EXPECT_EQ(p.b, 0);
  EXPECT_EQ(std::count(std::begin(p.c), std::end(p.c), 0), 16);
}

TEST(Usage, TwentyOneLinesFromTheSyntaxLine) {
  const auto& u = sea::config_impl::verbose_usage;
  EXPECT_EQ(std::size(u), 21u);
  EXPECT_EQ(u[0], "The syntax:");
}

}  // namespace
}  // namespace torva
