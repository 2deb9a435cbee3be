// parseBytes against parse: the same bytes read from memory and from a file
// give the same answer, records, messages, dump and list of layer names.
#include <gtest/gtest.h>

#include <cstdlib>
#include <deque>
#include <exception>
#include <filesystem>
#include <fstream>
#include <iterator>
#include <string>
#include <vector>

#include "torva/layout/cap3d_parser.h"
#include "torva/layout/generator.h"
#include "torva/layout/internal/binary_test_support.h"
#include "torva_testing/log_capture.h"

namespace torva {
namespace {

using namespace std::string_literals;

struct switches {
  int slices = 1;
  bool floating = true;
  bool cuboids_only = false;
};

struct outcome {
  bool ok = false;
  std::string thrown;  // what() of an exception, if one left the reader
  std::string error, warning, info;
  std::string dump;
  std::deque<std::string> layer_names;
  circuit_layout::raw raw;
};

std::string slurp(const std::string& path) {
  std::ifstream in(path, std::ios::binary);
  return std::string(std::istreambuf_iterator<char>(in), std::istreambuf_iterator<char>());
}

// One read of `bytes`, through a file or from memory. Each dump goes to a file
// of its own: the pool of streams keeps a file open once it has been opened.
void read_once(bool from_file, const std::string& bytes, const switches& s, const testing::temp_dir& dir, outcome& o) {
  static int reads = 0;
  const std::string tag = std::to_string(reads++);
  const std::string dump = dir.file("dump" + tag);
  _WIRE_BLOCK_LAYER_NAME_.clear();
  testing::log_capture log;
  Cap3dParser parser(o.raw, s.slices, s.floating, s.cuboids_only);
  try {
    if (from_file) {
      const std::string path = dir.file("input" + tag);
      std::ofstream(path, std::ios::binary) << bytes;
      o.ok = parser.parse(path, dump);
    } else {
      o.ok = parser.parseBytes(bytes.data(), bytes.size(), dump);
    }
  } catch (const std::exception& e) {
    o.thrown = e.what();
  }
  o.error = log.error();
  o.warning = log.warning();
  o.info = log.info() + log.detail();
  o.dump = slurp(dump);
  o.layer_names = _WIRE_BLOCK_LAYER_NAME_;
}

void expect_alike(const std::string& bytes, const std::string& what, const switches& s = {}) {
  SCOPED_TRACE(what);
  testing::temp_dir dir;
  outcome file, memory;
  read_once(true, bytes, s, dir, file);
  read_once(false, bytes, s, dir, memory);
  EXPECT_EQ(file.ok, memory.ok);
  EXPECT_EQ(file.thrown, memory.thrown);
  EXPECT_EQ(file.error, memory.error);
  EXPECT_EQ(file.warning, memory.warning);
  EXPECT_EQ(file.info, memory.info);
  EXPECT_EQ(file.dump, memory.dump);
  EXPECT_EQ(file.layer_names, memory.layer_names);
  internal::layout_match exact;
  exact.tolerance = 0.0;
  internal::expect_same_layout(file.raw, memory.raw, exact);
}

TEST(ParseBytes, ReadsTheFuzzingSeedsAsTheirFiles) {
  // The inputs the harnesses start from and every input that once found a
  // fault, with the switches set both ways.
  const char* source = std::getenv("TORVA_SOURCE_DIR");
  ASSERT_NE(source, nullptr);
  int inputs = 0;
  for (const char* harness : {"text_reader", "binary_reader"}) {
    const bool binary = std::string(harness) == "binary_reader";
    for (const char* kind : {"corpus", "regressions"}) {
      const std::filesystem::path dir = std::filesystem::path(source) / "fuzz" / kind / harness;
      if (!std::filesystem::exists(dir)) continue;
      for (const auto& entry : std::filesystem::directory_iterator(dir)) {
        const std::string bytes = (binary ? Cap3dParser::BIN_FLAG : "") + slurp(entry.path().string());
        expect_alike(bytes, entry.path().string(), {2, true, false});
        expect_alike(bytes, entry.path().string() + " (other switches)", {0, false, true});
        ++inputs;
      }
    }
  }
  EXPECT_GE(inputs, 10);
}

TEST(ParseBytes, ReadsTheEdgesOfTheFormsAsTheirFiles) {
  const std::string flag = Cap3dParser::BIN_FLAG;
  const std::string block = "<block> basepoint(0,0,0) v1(1,0,0) v2(0,1,0) hvector(0,0,1) </block>";
  expect_alike("", "empty");
  expect_alike("CAP3D_BIN", "shorter than the flag");
  expect_alike(flag, "the flag alone");
  expect_alike(flag + '\1', "the flag and the byte order");
  expect_alike(flag + "\0\x09\0\x0a"s, "a record cut short");
  expect_alike("<cap3d>\n<conductor>\nname a\n" + block + "\n</conductor>\n</cap3d>", "no final line feed");
  expect_alike("<cap3d>\n<conductor>\nname a\n" + block + "\n</conductor>\n\0</cap3d>\n"s, "a NUL");
  expect_alike("<cap3d>\n<conductor>\nname a@m1\n/* open\n" + block, "a comment never closed");
}

TEST(ParseBytes, ReadsTextOfManyChunksAsItsFile) {
  // Beyond a chunk of 1 MiB the text is read again from the last closing tag:
  // a generated layout of nearly 2 MiB, and a word longer than a chunk.
  generator_params params;
  params.kind = layout_kind::mixed;
  params.blocks = 12000;
  params.polygon_share = 0.1;
  params.incline_share = 0.1;
  params.media = true;
  const std::string text = generate_text(params);
  ASSERT_GT(text.size(), std::size_t(3) << 19);
  expect_alike(text, "generated");
  const std::string name(1048575 + 9, 'n');
  expect_alike("<cap3d>\n<conductor>\nname " + name +
                   "\n<block> basepoint(0,0,0) v1(1,0,0) v2(0,1,0) hvector(0,0,1) </block>\n</conductor>\n</cap3d>\n",
               "a word longer than a chunk");
}

}  // namespace
}  // namespace torva
