// Fuzzing harness: any bytes as a layout file (text, or binary by its flag),
// through the whole road a program takes before a walk: read, scan, checks,
// derived fields, blocks in one place, the memory estimate of a search pair,
// and, when the estimate fits, the pair built and asked a few points. Run with
// libFuzzer's -rss_limit_mb, memory that runs away past the estimate is a
// finding like a crash.
#include <sys/resource.h>

#include <cstdint>
#include <cstdio>
#include <cstdlib>
#include <new>
#include <stdexcept>
#include <string_view>

#include "torva/check/check.h"
#include "torva/foundation/errors.h"
#include "torva/layout/cap3d_parser.h"
#include "torva/space/layout_fields.h"
#include "torva/space/space_manager.h"
#include "torva_testing/fuzz_support.h"

#if defined(__SANITIZE_THREAD__)
#define TORVA_THREAD_SANITIZED 1
#elif defined(__has_feature)
#if __has_feature(thread_sanitizer)
#define TORVA_THREAD_SANITIZED 1
#endif
#endif

namespace {

long peak_resident_kib() {
  rusage usage{};
  getrusage(RUSAGE_SELF, &usage);
  return usage.ru_maxrss;
}

// libFuzzer's memory limit samples the process's peak once a second, so an
// input that peaks and frees within the second is blamed on a later one (or
// on none). This watch blames the input itself: one that raises the peak by
// more than 1 GiB, over six times the largest budget below, aborts with its
// figures. Not under the thread sanitizer, whose shadow memory alone may
// grow that much for a large build.
struct peak_watch {
  long before = peak_resident_kib();
  ~peak_watch() {
#ifndef TORVA_THREAD_SANITIZED
    const long after = peak_resident_kib();
    if (after - before > (1L << 20)) {
      std::fprintf(stderr, "check harness: one input raised the peak resident memory from %ld to %ld MiB\n",
                   before >> 10, after >> 10);
      std::abort();
    }
#endif
  }
};

}  // namespace

extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t* data, std::size_t size) {
  using namespace torva;
  const peak_watch watch;
  fuzzing::quiet_logger();
  const std::string_view bytes(reinterpret_cast<const char*>(data), size);
  _WIRE_BLOCK_LAYER_NAME_.clear();
  circuit_layout layout;
  bool read = false;
  try {
    Cap3dParser parser(layout.data, 4, true, false);
    // The file path's own code over the bytes, without a file per input.
    read = parser.parseBytes(reinterpret_cast<const char*>(data), size, "");
  } catch (const sea::base_error&) {
  } catch (const std::length_error&) {
    // the binary form's polygon count of 64 to 127
  }
  const bool binary = bytes.substr(0, 12) == Cap3dParser::BIN_FLAG;
  const text_scan_result scan =
      binary ? text_scan_result{scan_layout_binary(bytes, 5), {}} : scan_layout_text(bytes, {size % 2 == 0, 5});
  if (!read) return 0;
  const std::vector<finding> found = check_layout(layout.data, binary ? nullptr : &scan.places, {5});
  if (found.size() + scan.findings.size() > 1000) std::abort();  // five of each kind and a count at most

  derive_layout_fields(layout);
  if (layout.blocks.empty()) return 0;
  const coincident_blocks same = find_coincident_blocks(layout.blocks);
  if (!same.across.empty()) return 0;  // refused before any build
  layout.blocks = same.kept;

  // The last byte picks the pair (a layout's last byte is mostly a line feed: the automatic choice).
  configure config;
  config.spacemgr_type = size > 0 ? data[size - 1] % 11 : 10;
  config.thread_count = 1;
  config.use_critical_box = layout.data.boundary == 1;
  // Pairs that small inputs blow up are what this harness is after, not one
  // big build: 64 MiB, but 160 for the plain grid when the last byte asks for
  // it, whose million cells alone take about 100 MiB of any layout (were the
  // automatic choice's plain grids built too, they would halve the harness's
  // rate).
  const std::uint64_t budget = std::uint64_t(config.spacemgr_type == 9 ? 160 : 64) << 20;
  if (estimate_search_memory(layout, config, budget).over_budget) return 0;
  space_manager manager;
  manager.initialize(config, layout);
  if (!manager) return 0;
  const cuboid_t& space = manager->space();
  candidate_list_cache first, second;
  for (int i = 0; i < 27; ++i) {
    point3 p;
    for (int k = 0; k < 3; ++k) {
      const int step = k == 0 ? i % 3 : k == 1 ? (i / 3) % 3 : i / 9;
      p[k] = space.lower[k].value + (space.upper[k].value - space.lower[k].value) * (0.1 + 0.4 * step);
    }
    manager->nearest(p, 1e9, first, second);
  }
  return 0;
}
