// A generated layout (generated_layout.h) written as cap3d text.
#pragma once

#include <string>

#include "torva/foundation/writer.h"
#include "torva/layout/generated_layout.h"

namespace torva {

// Writes the cap3d text: <window>, <layer>s, <plate_medium>s, <medium>s,
// <conductor>s, <task>, each line ended by a line feed, "</cap3d>" last.
void write_text(const generated_layout& layout, sea::writer& out);
std::string to_text(const generated_layout& layout);
std::string generate_text(const generator_params& params);

// Writes the text to a file; a file that cannot be opened is reported on
// logger::error and thrown as sea::file_error, and a short write likewise.
void write_text_file(const generated_layout& layout, const std::string& path);

}  // namespace torva
