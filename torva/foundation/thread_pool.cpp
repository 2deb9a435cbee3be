#include "torva/foundation/thread_pool.h"

#include <omp.h>

namespace torva::sea {

void thread_pool::temporary_run(int threads, std::function<void(int)>& fn) {
  if (!fn) throw std::bad_function_call();
  if (threads <= 1) {
    fn(0);
    return;
  }
  omp_set_dynamic(0);
  omp_set_num_threads(threads);
#pragma omp parallel num_threads(threads)
  { fn(omp_get_thread_num()); }
}

}  // namespace torva::sea
