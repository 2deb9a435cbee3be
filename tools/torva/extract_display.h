// What torva extract shows while and after it walks: the progress line on
// standard error and in the log, the matrix on standard output, and the
// layout's parameters it does not act on.
#pragma once

#include <cstddef>
#include <string>
#include <vector>

#include <cstdio>

#include "progress_bar.h"
#include "torva/extract/extractor.h"

namespace torva::cli {

// A line on the library's info channel (the log file, and standard error under -v).
void log_line(const std::string& line);

// A relative error as a percentage with three figures, "-" when not finite.
std::string error_text(double e);

// The cores this process may run on (its affinity), at least one.
int usable_cores();

// The line on standard error while the walks go (when progress is shown), and
// a line in the log every few seconds. Called by the extractor every few tens
// of milliseconds from the thread that runs it: it only formats and prints.
class progress_display {
 public:
  explicit progress_display(const std::vector<std::string>& names) : names_(names), draw_(progress_bar::enabled()) {}
  ~progress_display() { wipe(); }

  void operator()(const extract_progress& p);

  void wipe() {
    if (!drawn_) return;
    std::fputs("\r\033[K", stderr);
    std::fflush(stderr);
    drawn_ = false;
  }

 private:
  std::vector<std::string> names_;
  bool draw_;
  bool drawn_ = false;
  double last_draw_ = -1.0;
  double last_log_ = 0.0;
  std::size_t master_ = std::size_t(-1);
  double master_start_ = 0.0;
};

// The layout's parameters that this extractor does not act on, with the values it set.
std::string unused_parameters(const circuit_layout::raw& d);

void print_matrix(const extract_result& r);

}  // namespace torva::cli
