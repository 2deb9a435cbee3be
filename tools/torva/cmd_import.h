// What torva import and torva extract share to take a GDS cell on a process
// stack: the options that say how, and the import itself with its progress
// bar, its failures made input_error.
#pragma once

#include <string>
#include <vector>

#include <CLI/CLI.hpp>

#include "cli_common.h"
#include "torva/import/gds_import.h"

namespace torva::cli {

struct gds_args {
  std::string stack;  // a shipped stack's name or a stack file; empty: the input is a cap3d layout
  std::string top;
  std::vector<std::string> nets;
  double window_margin = -1.0;
};

// --stack, --top, --nets, --window-margin on a subcommand.
void add_gds_options(CLI::App* sub, gds_args& a, bool stack_required);

// Whether the file begins as a GDSII stream does (a HEADER record).
bool looks_like_gds(const std::string& path);

// Loads the stack and imports the cell; every failure becomes input_error.
import_result import_cell_file(const std::string& gds, const gds_args& a, process_stack& stack);

// The same as a loaded layout, for a command that goes on to use it.
loaded_layout import_layout(const std::string& gds, const gds_args& a);

}  // namespace torva::cli
