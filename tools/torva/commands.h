// The subcommands of the torva program. Each add_* registers one on the
// application and returns the work to do when it was chosen; the work returns
// the exit status or throws input_error.
#pragma once

#include <functional>

#include <CLI/CLI.hpp>

#include "output_files.h"

namespace torva::cli {

struct command {
  CLI::App* app = nullptr;
  std::function<int()> run;
  // The command installs the logger itself, once it has checked where the log
  // file goes; the program leaves the log file unopened for it.
  bool own_log = false;
  // The files the run reads and writes, which the program checks against one
  // another and against the log file before it opens anything for writing.
  std::function<run_files()> files;
};

command add_info(CLI::App& app);
command add_gen(CLI::App& app);
command add_convert(CLI::App& app);
command add_index(CLI::App& app);
command add_query(CLI::App& app);
command add_bench(CLI::App& app);
command add_tables(CLI::App& app);
command add_extract(CLI::App& app);
command add_check(CLI::App& app);
command add_import(CLI::App& app);

}  // namespace torva::cli
