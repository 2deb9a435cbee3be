// Reading a layout file for a subcommand: the copy taken when it is opened,
// the scan beside the reader, a progress bar, and every failure as one line.
#pragma once

#include <cstdint>
#include <cstdio>
#include <memory>
#include <string>
#include <vector>

#include "torva/check/findings.h"
#include "torva/check/text_scan.h"
#include "torva/layout/records.h"

namespace torva::cli {

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

}  // namespace torva::cli
