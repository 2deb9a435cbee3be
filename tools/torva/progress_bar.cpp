#include "progress_bar.h"

#include <unistd.h>

#include <chrono>
#include <cstdio>

#include "figures.h"
#include "run_options.h"

namespace torva::cli {

bool progress_bar::enabled() {
  const std::string& mode = options().progress;
  if (mode == "always") return true;
  if (mode == "never") return false;
  return !options().verbose && isatty(STDERR_FILENO) == 1;
}

progress_bar::progress_bar(std::string label, std::uint64_t total, std::function<std::uint64_t()> poll)
    : label_(std::move(label)), total_(total), poll_(std::move(poll)) {
  if (enabled()) thread_ = std::thread([this] { run(); });
}

progress_bar::~progress_bar() { finish(); }

void progress_bar::finish() {
  stop_ = true;
  if (thread_.joinable()) thread_.join();
}

void progress_bar::run() {
  using clock = std::chrono::steady_clock;
  const auto start = clock::now();
  // Under "always" the bar shows at once (tests use it); on a terminal only
  // work that lasts longer than a moment gets one, so short runs don't flicker.
  const double delay = options().progress == "always" ? 0.0 : 0.3;
  static const char spin[] = "|/-\\";
  int turn = 0;
  // Under "always" the bar is drawn at least once, however short the work.
  bool once = delay == 0.0;
  while (once || !stop_) {
    once = false;
    const double elapsed = seconds_since(start);
    if (elapsed >= delay) {
      char line[160];
      if (total_ > 0) {
        std::uint64_t done = poll_ ? poll_() : 0;
        if (done > total_) done = total_;
        const double share = double(done) / double(total_);
        const int width = 30;
        const int filled = static_cast<int>(share * width);
        std::string bar(static_cast<std::size_t>(filled), '#');
        bar.append(static_cast<std::size_t>(width - filled), '.');
        std::snprintf(line, sizeof line, "\r%s [%s] %3d%% %6.1f s", label_.c_str(), bar.c_str(),
                      static_cast<int>(share * 100.0), elapsed);
      } else {
        std::snprintf(line, sizeof line, "\r%s %c %6.1f s", label_.c_str(), spin[turn++ % 4], elapsed);
      }
      std::fputs(line, stderr);
      std::fflush(stderr);
      drawn_ = true;
    }
    for (int i = 0; i < 10 && !stop_; ++i) std::this_thread::sleep_for(std::chrono::milliseconds(10));
  }
  if (drawn_) {
    std::fputs("\r\033[K", stderr);
    std::fflush(stderr);
  }
}

}  // namespace torva::cli
