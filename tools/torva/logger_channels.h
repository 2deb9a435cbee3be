// The four channels of the library's logger, as the torva program installs
// them, and the error and info lines it keeps from them.
#pragma once

#include <string>

namespace torva::cli {

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

}  // namespace torva::cli
