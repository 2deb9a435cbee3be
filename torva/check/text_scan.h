// A scan of a text layout beside the reader's own read, for what only the
// text shows: numbers that were not wholly numbers ("v1(abc,0,0)" reads as 0,
// "basepoint(12abc,0,0)" as 12), sections opened inside others or closed
// twice, blocks without their fields, polygons too short to keep, and
// polygon outlines that cross themselves, each with its line.
//
// The words are split as the reader splits them (the same separators and
// comments), and each number word is read as the reader reads it, so a
// finding says what value the reader took. The scan never changes what the
// reader does; a file the reader rejects may give findings that no longer
// matter.
#pragma once

#include <cstddef>
#include <cstdint>
#include <string_view>
#include <vector>

#include "torva/check/findings.h"

namespace torva {

// Where the conductors of a text layout stand: the line of the <conductor>
// of each net the reader makes, in the order it makes them.
struct layout_places {
  std::vector<std::uint32_t> conductor_lines;
};

struct text_scan_options {
  bool strict_numbers = false;  // a word that was not wholly a number is an error, not a warning
  std::size_t limit = 20;       // findings listed of each kind
};

struct text_scan_result {
  std::vector<finding> findings;
  layout_places places;
};

text_scan_result scan_layout_text(std::string_view text, const text_scan_options& options = {});

}  // namespace torva
