// The options common to every subcommand of the torva program, and how a run
// ends on bad input.
//
// Exit status: 0 on success, 1 on bad input (a file that can't be read or
// holds no layout, a value out of range), 2 on a usage error (unknown option,
// missing argument).
#pragma once

#include <stdexcept>
#include <string>

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

}  // namespace torva::cli
