#include "extract_display.h"

#include <sched.h>

#include <algorithm>
#include <cmath>
#include <cstdio>
#include <thread>

#include "progress_bar.h"
#include "run_options.h"
#include "torva/foundation/logger.h"

namespace torva::cli {

void log_line(const std::string& line) {
  sea::writer& w = *logger::instance().info;
  w.print(line + "\n");
  w.flush();
}

std::string error_text(double e) {
  if (!std::isfinite(e)) return "-";
  char b[32];
  std::snprintf(b, sizeof b, "%.3g%%", e * 100.0);
  return b;
}

int usable_cores() {
  cpu_set_t set;
  CPU_ZERO(&set);
  if (sched_getaffinity(0, sizeof set, &set) == 0 && CPU_COUNT(&set) > 0) return CPU_COUNT(&set);
  return int(std::max(1u, std::thread::hardware_concurrency()));
}

void progress_display::operator()(const extract_progress& p) {
  const std::string name = p.master < names_.size() ? names_[p.master] : "#" + std::to_string(p.master);
  if (p.master != master_) {
    master_ = p.master;
    master_start_ = p.seconds;
  }
  // The error falls as one over the root of the walks: the walks still
  // needed, at this master's pace so far, give the time left.
  std::string left;
  const double ratio = p.self_error / p.goal;
  if (std::isfinite(ratio) && p.walks > 0) {
    char t[64];
    std::snprintf(t, sizeof t, ", about %.1f s left", (p.seconds - master_start_) * std::max(0.0, ratio * ratio - 1));
    left = t;
  }
  char line[320];
  std::snprintf(line, sizeof line, "master %s (%zu of %zu): %llu walks, error %s (goal %s), %.1f s%s", name.c_str(),
                p.master + 1, p.master_count, (unsigned long long)p.walks, error_text(p.self_error).c_str(),
                error_text(p.goal).c_str(), p.seconds, left.c_str());
  if (p.seconds - last_log_ >= 2.0) {
    log_line("progress: " + std::string(line));
    last_log_ = p.seconds;
  }
  // Under "always" at once; on a terminal only once the run lasts, so short runs don't flicker.
  const double delay = options().progress == "always" ? 0.0 : 0.3;
  if (draw_ && p.seconds >= delay && p.seconds - last_draw_ >= 0.1) {
    std::fprintf(stderr, "\rextracting %s\033[K", line);
    std::fflush(stderr);
    last_draw_ = p.seconds;
    drawn_ = true;
  }
}

// The layout's parameters that this extractor does not act on, with the values it set.
std::string unused_parameters(const circuit_layout::raw& d) {
  std::string s;
  auto add = [&s](const char* name, double v) {
    if (v == 0.0) return;
    char b[96];
    std::snprintf(b, sizeof b, "%s%s %g", s.empty() ? "" : ", ", name, v);
    s += b;
  };
  add("walk-type", d.walk_type);
  add("blk-self-precision", d.blk_self_precision);
  add("blk-coupling-precision", d.blk_coupling_precision);
  add("b-ratio", d.b_ratio);
  add("b-net-ratio", d.b_net_ratio);
  return s;
}

void print_matrix(const extract_result& r) {
  std::size_t first = 6;
  for (const std::string& m : r.masters) first = std::max(first, m.size());
  std::printf("  %-*s", int(first), "");
  for (const std::string& n : r.nets) std::printf("  %12s", n.c_str());
  std::printf("\n");
  for (std::size_t i = 0; i < r.masters.size(); ++i) {
    std::printf("  %-*s", int(first), r.masters[i].c_str());
    for (double v : r.matrix[i]) std::printf("  %12.6g", v);
    std::printf("\n");
  }
}

}  // namespace torva::cli
