// What a run may spend on its search structure, and the guards that keep it
// there: blocks in one place found before anything is built, the pair's
// memory estimated before it is built (torva/check/search_memory.h), and the
// resident memory watched while it is built.
//
// The budget is --memory-limit (a size: 512M, 4G, 1.5GiB, or bytes; 0 for
// none), else half the machine's memory (or of the container's limit, when
// that is lower).
#pragma once

#include <atomic>
#include <cstdint>
#include <string>
#include <thread>

#include "torva/extract/extractor.h"
#include "torva/foundation/configure.h"
#include "torva/layout/records.h"

namespace torva::cli {

// Bytes of a size text; throws input_error for one that is not a size.
std::uint64_t parse_size(const std::string& text);
// The budget in bytes; 0 when there is none.
std::uint64_t memory_budget();

// Blocks in one place, before a structure is built over them: a block that
// repeats another of its net is left out of layout.blocks (with a warning), and
// blocks of two nets in one place end the run (input_error). The block counts
// of the derived fields are made to match.
void merge_coincident_blocks(circuit_layout& layout, const std::string& path);

// The pair to build for `config.spacemgr_type`, settled against the budget:
// the one asked for, or under the automatic choice (10) the one that choice
// makes; when its estimate passes the budget, the plain grid (9) under the
// automatic choice (with a warning), else input_error saying so.
unsigned fit_search_to_budget(const circuit_layout& layout, const configure& config);

// The pair the extractor will build for these options, estimated against the
// budget; input_error when it passes. The layout's fields are derived, as the
// extractor derives them afresh.
void fit_extraction_to_budget(circuit_layout& layout, const extract_options& options);

// While it lives, a thread watches the resident memory; should it grow by more
// than the budget, the run ends at once with one line naming `what` (a build
// cannot be stopped half way, and nothing has been written yet).
class memory_watch {
 public:
  explicit memory_watch(std::string what);
  ~memory_watch();
  memory_watch(const memory_watch&) = delete;
  memory_watch& operator=(const memory_watch&) = delete;

 private:
  std::string what_;
  std::atomic<bool> stop_{false};
  std::thread thread_;
};

}  // namespace torva::cli
