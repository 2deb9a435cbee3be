#include "torva/foundation/thread_pool.h"

#include <omp.h>

// The OpenMP runtime hands work to its pooled threads and joins them through
// its own futex calls, which a thread-sanitized build does not see; these
// annotations tell the race checker about the hand-off and the join.
#if defined(__SANITIZE_THREAD__)
#define TORVA_TSAN_ANNOTATE 1
#elif defined(__has_feature)
#if __has_feature(thread_sanitizer)
#define TORVA_TSAN_ANNOTATE 1
#endif
#endif
#ifdef TORVA_TSAN_ANNOTATE
extern "C" void __tsan_acquire(void* addr);
extern "C" void __tsan_release(void* addr);
#define TORVA_TSAN_ACQUIRE(p) __tsan_acquire(p)
#define TORVA_TSAN_RELEASE(p) __tsan_release(p)
#else
#define TORVA_TSAN_ACQUIRE(p) ((void)(p))
#define TORVA_TSAN_RELEASE(p) ((void)(p))
#endif

namespace torva::sea {

namespace {
// The address the annotations synchronise on.
char region_handoff;
// The caller's function, read by the threads of the region only after they
// have synchronised (the call is entered by one thread at a time): the
// compiler may read what the region shares before any statement of its body.
std::function<void(int)>* region_body = nullptr;
}  // namespace

void thread_pool::temporary_run(int threads, std::function<void(int)>& fn) {
  if (!fn) throw std::bad_function_call();
  if (threads <= 1) {
    fn(0);
    return;
  }
  omp_set_dynamic(0);
  omp_set_num_threads(threads);
  region_body = &fn;
  TORVA_TSAN_RELEASE(&region_handoff);
#pragma omp parallel num_threads(threads)
  {
    TORVA_TSAN_ACQUIRE(&region_handoff);
    (*region_body)(omp_get_thread_num());
    TORVA_TSAN_RELEASE(&region_handoff);
  }
  TORVA_TSAN_ACQUIRE(&region_handoff);
  region_body = nullptr;
}

}  // namespace torva::sea
