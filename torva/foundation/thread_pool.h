// Runs one function on a given number of OpenMP threads.
#pragma once

#include <functional>

namespace torva::sea {

struct thread_pool {
  // threads > 1: dynamic adjustment off, exactly `threads` threads, each
  // calling fn(its thread number); returns when all are done. threads <= 1:
  // fn(0) on the calling thread. An empty fn throws std::bad_function_call.
  // Changes process-wide OpenMP settings: one caller at a time.
  static void temporary_run(int threads, std::function<void(int)>& fn);
};

}  // namespace torva::sea
