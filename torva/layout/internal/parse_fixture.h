// Test support for the reader's tests: writes a text into a fresh file and
// reads it, with the logger's channels captured.
#pragma once

#include <fstream>
#include <string>

#include "torva/layout/cap3d_parser.h"
#include "torva_testing/log_capture.h"

namespace torva::internal {

struct parse_fixture {
  testing::log_capture log;
  testing::temp_dir dir;
  circuit_layout::raw raw;
  int slices = 1;
  bool allow_floating = true;
  bool cuboids_only = false;

  int files = 0;

  // A new file for every text: rewriting one file in place makes some file
  // systems flush it to disk on close, which is slow.
  std::string write(const std::string& text) {
    const std::string path = dir.file("layout" + std::to_string(files++) + ".cap3d");
    std::ofstream(path, std::ios::binary) << text;
    return path;
  }

  // Reads `text` into `raw` with a new parser.
  bool parse(const std::string& text) {
    Cap3dParser parser(raw, slices, allow_floating, cuboids_only);
    return parser.parse(write(text), "");
  }
};

}  // namespace torva::internal
