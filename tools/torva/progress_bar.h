// The progress bar of a long step of a subcommand.
#pragma once

#include <atomic>
#include <cstdint>
#include <functional>
#include <string>
#include <thread>

namespace torva::cli {

// A bar (or, without a known total, a spinner with the elapsed time) on
// standard error, drawn by a thread of its own from a polled source of
// progress. Shown only when progress is on (a terminal under "auto") and the
// work lasts longer than a moment; the line is wiped when it ends.
class progress_bar {
 public:
  // `poll` returns the work done so far, in units of `total`; total 0 means unknown.
  progress_bar(std::string label, std::uint64_t total, std::function<std::uint64_t()> poll);
  ~progress_bar();
  progress_bar(const progress_bar&) = delete;
  progress_bar& operator=(const progress_bar&) = delete;
  void finish();

  static bool enabled();

 private:
  void run();
  std::string label_;
  std::uint64_t total_;
  std::function<std::uint64_t()> poll_;
  std::atomic<bool> stop_{false};
  std::thread thread_;
  bool drawn_ = false;
};

}  // namespace torva::cli
