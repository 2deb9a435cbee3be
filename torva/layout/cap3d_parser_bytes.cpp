// The reader's entry for a layout held in memory: the file path's own code
// behind a stream over the bytes, so that what one reads the other reads too.
#include "torva/layout/cap3d_parser.h"
#include "torva/layout/internal/memory_stream.h"

namespace torva {

bool Cap3dParser::parseBytes(const char* data, std::size_t size, std::string dump_file) {
  internal::memory_stream in(data, size);
  return parseStream(in, "", dump_file, size);
}

}  // namespace torva
