#include "memory_budget.h"

#include <unistd.h>

#include <chrono>
#include <cmath>
#include <cstdio>
#include <cstdlib>
#include <fstream>

#include "cli_common.h"
#include "torva/check/coincident.h"
#include "torva/check/search_memory.h"
#include "torva/extract/internal/search_choice.h"
#include "torva/space/layout_fields.h"
#include "torva/space/space_manager.h"

namespace torva::cli {

namespace {

const char* const pair_names[] = {"simple-simple", "octree-octree", "hybrid-hybrid", "simple-none",    "octree-none",
                                  "hybrid-none",   "hybrid-simple", "hybrid-grid",   "hybrid-grid-nd", "grid-none-nd"};

std::uint64_t machine_memory() {
  std::uint64_t total = 0;
  std::ifstream info("/proc/meminfo");
  std::string key;
  while (info >> key) {
    if (key == "MemTotal:") {
      info >> total;
      total *= 1024;
      break;
    }
    info.ignore(1 << 10, '\n');
  }
  // A container's own limit, where it is lower.
  std::ifstream cgroup("/sys/fs/cgroup/memory.max");
  std::uint64_t limit = 0;
  if (cgroup >> limit && limit > 0 && (total == 0 || limit < total)) total = limit;
  return total;
}

std::uint64_t resident() {
  std::ifstream statm("/proc/self/statm");
  std::uint64_t size = 0, pages = 0;
  statm >> size >> pages;
  return pages * std::uint64_t(sysconf(_SC_PAGESIZE));
}

// The sanitizers' shadow memory, redzones and quarantine of freed blocks
// grow the resident set without being the program's own: in such builds the
// watcher allows that much more before it stops a run (the estimates, which
// choose what is built, are the same in every build).
#if defined(__SANITIZE_ADDRESS__)
constexpr std::uint64_t instrumentation_factor = 4;
#elif defined(__SANITIZE_THREAD__)
constexpr std::uint64_t instrumentation_factor = 8;
#elif defined(__has_feature)
#if __has_feature(address_sanitizer)
constexpr std::uint64_t instrumentation_factor = 4;
#elif __has_feature(thread_sanitizer)
constexpr std::uint64_t instrumentation_factor = 8;
#else
constexpr std::uint64_t instrumentation_factor = 1;
#endif
#else
constexpr std::uint64_t instrumentation_factor = 1;
#endif

}  // namespace

std::uint64_t parse_size(const std::string& text) {
  char* end = nullptr;
  const double v = std::strtod(text.c_str(), &end);
  std::string unit = end ? std::string(end) : std::string();
  for (char& c : unit) c = char(std::toupper(static_cast<unsigned char>(c)));
  double scale = 0;
  if (unit.empty() || unit == "B") scale = 1;
  else if (unit == "K" || unit == "KB" || unit == "KIB") scale = 1024.0;
  else if (unit == "M" || unit == "MB" || unit == "MIB") scale = 1024.0 * 1024;
  else if (unit == "G" || unit == "GB" || unit == "GIB") scale = 1024.0 * 1024 * 1024;
  else if (unit == "T" || unit == "TB" || unit == "TIB") scale = 1024.0 * 1024 * 1024 * 1024;
  if (end == text.c_str() || scale == 0 || !(v >= 0) || !std::isfinite(v * scale) || v * scale >= 1.8e19)
    throw input_error("--memory-limit \"" + text + "\" is not a size (say 512M, 4G or a number of bytes)");
  return std::uint64_t(v * scale);
}

std::uint64_t memory_budget() {
  if (!options().memory_limit.empty()) return parse_size(options().memory_limit);
  return machine_memory() / 2;
}

void merge_coincident_blocks(circuit_layout& layout, const std::string& path) {
  coincident_blocks found = find_coincident_blocks(layout.blocks);
  if (!found.across.empty()) {
    const auto& [a, b] = found.across.front();
    throw input_error(path + ": conductors " + a->net->name + " and " + b->net->name +
                      " have blocks in the same place (" + std::to_string(found.across_count) +
                      " such pairs): they would be one conductor");
  }
  if (found.repeats == 0) return;
  std::fprintf(stderr, "torva: warning: %s: %zu blocks repeat another block of their conductor; they are merged into it\n",
               path.c_str(), found.repeats);
  layout.blocks = std::move(found.kept);
  layout.cuboid_size = layout.prism_size = 0;
  for (const wire_block* b : layout.blocks) ++(b->shape_kind == shape_cuboid ? layout.cuboid_size : layout.prism_size);
}

unsigned fit_search_to_budget(const circuit_layout& layout, const configure& config) {
  const bool automatic = config.spacemgr_type == 10;
  const unsigned pair = automatic ? automatic_spacemgr_type(layout) : config.spacemgr_type;
  const std::uint64_t budget = memory_budget();
  if (budget == 0 || pair > 9) return config.spacemgr_type;
  configure asked = config;
  asked.spacemgr_type = pair;
  const search_memory_estimate estimate = estimate_search_memory(layout, asked, budget);
  if (!estimate.over_budget) return config.spacemgr_type;
  const std::string why = std::string("the search pair ") + pair_names[pair] + " (" + std::to_string(pair) +
                          ") would take " + (estimate.over_budget ? "more than " : "") +
                          format_bytes(double(estimate.bytes)) + ", beyond the memory limit of " +
                          format_bytes(double(budget));
  if (automatic && pair != 9) {
    configure plain = config;
    plain.spacemgr_type = 9;
    if (!estimate_search_memory(layout, plain, budget).over_budget) {
      std::fprintf(stderr, "torva: warning: %s: the plain grid (grid-none-nd, 9) is built instead\n", why.c_str());
      return 9;
    }
  }
  throw input_error(why + " (give --memory-limit to allow more" + (pair != 9 ? ", or --strategy 9" : "") + ")");
}

// The pair the extractor will build, estimated against the memory budget
// before it is built: the extractor merges repeated blocks first, and so does
// the estimate (the extractor derives the layout's fields afresh).
void fit_extraction_to_budget(circuit_layout& layout, const extract_options& o) {
  derive_layout_fields(layout);
  if (layout.blocks.empty()) return;  // the extractor says why
  layout.blocks = find_coincident_blocks(layout.blocks).kept;
  configure probe;
  probe.use_critical_box = layout.data.boundary == 1;
  const bool unsafe = o.allow_unsafe_search || o.group_dominance || o.group_optimize || o.double_incline_ratio;
  probe.spacemgr_type = internal::choose_search(layout, o.spacemgr_type, unsafe);
  fit_search_to_budget(layout, probe);
}

memory_watch::memory_watch(std::string what) : what_(std::move(what)) {
  const std::uint64_t budget = memory_budget();
  if (budget == 0) return;
  const std::uint64_t start = resident();
  thread_ = std::thread([this, budget, start] {
    while (!stop_.load()) {
      const std::uint64_t now = resident();
      if (now > start && now - start > budget * instrumentation_factor) {
        const std::string line = "torva: error: " + what_ + " passed the memory limit of " +
                                 format_bytes(double(budget)) + " (resident memory grew by " +
                                 format_bytes(double(now - start)) + "); give --memory-limit to allow more\n";
        std::fputs(line.c_str(), stderr);
        std::fflush(stderr);
        std::_Exit(exit_bad_input);
      }
      std::this_thread::sleep_for(std::chrono::milliseconds(20));
    }
  });
}

memory_watch::~memory_watch() {
  stop_ = true;
  if (thread_.joinable()) thread_.join();
}

}  // namespace torva::cli
