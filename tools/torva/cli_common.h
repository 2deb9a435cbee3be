// What the subcommands of the torva program share: the run-wide options, the
// logger's channels, the error that ends a run with a one-line message, the
// progress bar, reading a layout, and small formatting helpers.
//
// Exit status: 0 on success, 1 on bad input (a file that can't be read or
// holds no layout, a value out of range), 2 on a usage error (unknown option,
// missing argument).
#pragma once

#include <chrono>
#include <cstdint>
#include <cstdio>
#include <functional>
#include <memory>
#include <stdexcept>
#include <string>
#include <thread>
#include <atomic>
#include <vector>

#include "torva/check/findings.h"
#include "torva/check/text_scan.h"
#include "torva/layout/records.h"

namespace torva::cli {

inline constexpr int exit_ok = 0;
inline constexpr int exit_bad_input = 1;
inline constexpr int exit_usage = 2;

// Set by the options common to every subcommand.
struct run_options {
  bool verbose = false;         // info and detail channels on standard error
  std::string log_file;         // all four channels also go here when set
  std::string progress = "auto";  // auto (a terminal), always, never
  bool strict = false;          // a layout word that was not wholly a number is an error
  std::string memory_limit;     // what a search structure may take (memory_budget.h); empty: the default
};
run_options& options();

// Ends the run with status 1 and this one line (without "torva: error: ").
struct input_error : std::runtime_error {
  using std::runtime_error::runtime_error;
};

// Installs the four channels of the logger by the options:
// - error: kept, and written on the log file; the program prints what it held
//   as part of its one-line message when the run fails, or on standard error
//   when the run goes on;
// - warning: standard error and the log file;
// - info, detail: standard error only with --verbose, and the log file;
//   info is also kept so that a subcommand can show the library's progress
//   lines (take_info).
// Throws input_error when the log file can't be opened.
void install_logger();
// Installs channels that print nothing and write no file, keeping the error
// lines for take_errors: for the processes of a shared run other than the
// first, which report through it.
void install_quiet_logger();
// The library's error lines since the last call, trimmed to one line each
// and joined by "; ".
std::string take_errors();
// The library's info text since the last call.
std::string take_info();
// Writes pending error lines on standard error (for a run that goes on).
void flush_errors();

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

// A parsed layout with the figures of its reading.
struct loaded_layout {
  std::unique_ptr<circuit_layout> layout = std::make_unique<circuit_layout>();
  double read_seconds = 0.0;
  std::uint64_t file_bytes = 0;
  bool binary = false;
  // What the scan of the file found beside the reader (layout_findings.h),
  // and where its conductors stand in the text.
  std::vector<finding> scan_findings;
  std::vector<finding> number_findings;  // words that were not wholly numbers, said when read
  layout_places places;
};

// How a layout file is read.
struct read_options {
  int incline_slices = 4;
  bool allow_floating = true;
  bool cuboids_only = false;
};

// Reads a cap3d file, text or binary, from a copy taken when it is opened
// (layout_source.h): only a regular file is read, a byte-order mark is left
// out and a missing final line feed supplied. The copy is scanned beside the
// reader (torva/check): every word that was not wholly a number is warned
// about on standard error with its line, and under --strict ends the run;
// the other findings are kept for the command. Every failure (missing file,
// not a regular file, syntax, bad geometry, a file that holds no layout at
// all) becomes input_error.
loaded_layout read_layout(const std::string& path, const read_options& how = {});

// Findings as warnings or errors on `out`, one a line:
// "torva: warning: LAYOUT: line 12: ...".
void print_findings(FILE* out, const std::string& path, const std::vector<finding>& findings);

// Seconds since `start`.
inline double seconds_since(std::chrono::steady_clock::time_point start) {
  return std::chrono::duration<double>(std::chrono::steady_clock::now() - start).count();
}

// "12.3 ms", "4.56 s", ...
std::string format_seconds(double s);
// "1.5 MiB", ...
std::string format_bytes(double bytes);
// Resident and peak resident memory of the process in bytes (0 if unknown).
std::uint64_t resident_bytes();
std::uint64_t peak_resident_bytes();

// The number of the kind: "cuboid", "cylinder", "prism", or "kind N".
const char* solid_kind_name(std::uint32_t kind);

}  // namespace torva::cli
