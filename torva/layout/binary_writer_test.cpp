// The binary writer, and the round trips it allows: text -> binary -> records,
// binary -> text dump -> records, in both ways of writing nets and in both
// byte orders.
#include "torva/layout/binary_writer.h"

#include <gtest/gtest.h>

#include <fstream>
#include <sstream>
#include <string>

#include "torva/foundation/errors.h"
#include "torva/layout/cap3d_parser.h"
#include "torva/layout/internal/binary_test_support.h"
#include "torva_testing/log_capture.h"

namespace torva {
namespace {

using internal::expect_same_layout;

// Everything the text form can say that the binary form can carry.
const std::string full_text = R"(<cap3d>
<window> name box v1(0,0,0) v2(20,20,10) dirichlet </window>
<layer> name M1 type interconnect wmin 0.1 id 1 </layer>
<layer> name V1 type via wmin 0.05 id 2 </layer>
<parameter> c-ratio 0.3 b-ratio 0.25 b-net-ratio 0.5 self-precision 0.01 coupling-precision 0.05
  blk-self-precision 0.02 blk-coupling-precision 0.1 thread-num 8 log-file run.log out-file run.out
  seed 42 spice on walk-type 2 outmincap 0.001 </parameter>
<plate_medium> name sub z_top 0.5 diel 11.9 </plate_medium>
<medium> name ox diel 3.9
  <block> basepoint(0,0,0.5) v1(20,0,0) v2(0,20,0) hvector(0,0,1) </block>
  <poly> basepoint(1,1,1.5) hvector(0,0,0.5) <coord> 0 0 4 0 3 2 1 2 </coord> </poly>
</medium>
<plate_medium> name top z_top 9 diel 1 </plate_medium>
<conductor> name n1
  <block> name a layer 1 basepoint(1,1,2) v1(3,0,0) v2(0,1,0) hvector(0,0,0.5) </block>
  <block> name b layer 2 basepoint(1,1,3) v1(1,0,0) v2(0,1,0) hvector(0,0,1) side_tan 0.2 </block>
  <poly> name L layer 1 basepoint(5,5,2) hvector(0,0,0.5) <coord> 0 0 2 0 2 1 1 1 1 2 0 2 </coord> </poly>
</conductor>
<conductor> name n2 floating
  <block> name c layer 0 basepoint(10,10,2) v1(1,0,0) v2(0,1,0) hvector(0,0,1) </block>
</conductor>
<conductor> name empty </conductor>
<task> <capacitance> n1 </capacitance> <capacitance> n2 </capacitance> </task>
</cap3d>
)";

struct round_trip {
  testing::log_capture log;
  testing::temp_dir dir;
  int files = 0;

  std::string path(const std::string& stem) { return dir.file(stem + std::to_string(++files)); }

  circuit_layout::raw read_text(const std::string& text, bool cuboids_only = false) {
    const std::string p = path("text");
    std::ofstream(p, std::ios::binary) << text;
    circuit_layout::raw raw;
    Cap3dParser parser(raw, 3, true, cuboids_only);
    EXPECT_TRUE(parser.parse(p, "")) << log.error();
    return raw;
  }

  // Reads `bytes` as a binary file; with `dump` the text dump lands there.
  circuit_layout::raw read_binary(const std::string& bytes, std::string* dump = nullptr) {
    const std::string p = path("bin");
    std::ofstream(p, std::ios::binary) << bytes;
    const std::string dump_path = dump ? path("dump") : std::string();
    circuit_layout::raw raw;
    Cap3dParser parser(raw, 3, true, false);
    EXPECT_TRUE(parser.parse(p, dump_path)) << log.error();
    if (dump) {
      std::stringstream s;
      s << std::ifstream(dump_path, std::ios::binary).rdbuf();
      *dump = s.str();
    }
    return raw;
  }
};

// Text -> binary -> records in both byte orders and both ways of writing nets
// (without begin records a net with no solid is lost), and binary -> text
// dump -> records.
TEST(BinaryWriter, RoundTrips) {
  round_trip t;
  const circuit_layout::raw text = t.read_text(full_text);
  ASSERT_EQ(text.wire_nets.size(), 3u);
  ASSERT_GE(text.wire_blocks.size(), 6u);  // slices and polygon pieces
  std::string without_empty = full_text;
  without_empty.erase(without_empty.find("<conductor> name empty </conductor>"), 35);
  const circuit_layout::raw text_without_empty = t.read_text(without_empty);
  for (bool begin : {true, false}) {
    for (bool swapped : {false, true}) {
      SCOPED_TRACE(std::string(begin ? "begin records, " : "end records only, ") + (swapped ? "swapped" : "native"));
      binary_write_options o;
      o.begin_records = begin;
      o.swapped = swapped;
      const std::string bytes = to_binary(text, o);
      EXPECT_EQ(bytes[12], swapped ? 1 : 0);
      expect_same_layout(begin ? text : text_without_empty, t.read_binary(bytes));
    }
  }

  std::string dump;
  const circuit_layout::raw bin = t.read_binary(to_binary(text), &dump);
  circuit_layout::raw again = t.read_text(dump);
  // The dump has no word for the boundary: it reads back as neumann.
  EXPECT_EQ(again.boundary, 2);
  again.boundary = bin.boundary;
  // Lengths come back to the six decimals the dump prints; an upper corner is a
  // rounded corner plus a rounded edge.
  internal::layout_match printed;
  printed.tolerance = 1.01e-6;
  expect_same_layout(bin, again, printed);
  expect_same_layout(text, again, printed);
}

TEST(BinaryWriter, CylindersBecomeTheReadersEqualAreaSquares) {
  round_trip t;
  const std::string text =
      "<cap3d>\n<conductor> name c\n<block> name r layer 3 basepoint(1,2,3) radius 0.5 height 2 </block>\n"
      "</conductor>\n</cap3d>\n";
  const circuit_layout::raw read = t.read_text(text);
  ASSERT_EQ(read.wire_blocks[0].shape_kind, shape_cylinder);
  sea::string_writer out;
  const binary_write_summary s = write_binary(read, out);
  EXPECT_EQ(s.cylinders_as_cuboids, 1u);
  EXPECT_EQ(t.log.warning(),
            "WARNING: (Binary) 1 cylinders written as blocks of equal area: the binary form holds no cylinder.\n");
  expect_same_layout(t.read_text(text, true), t.read_binary(out.text));
}

TEST(BinaryWriter, SummaryNotesAndWhatIsLeftOut) {
  round_trip t;
  circuit_layout::raw raw;  // boundary 0: no window was ever read
  raw.seed = 99;
  binary_write_options o;
  o.parameters = false;
  // Nothing but the header: a reader finds no record and keeps its values.
  const std::string p = t.path("bin");
  std::ofstream(p, std::ios::binary) << to_binary(raw, o);
  circuit_layout::raw target;
  target.boundary = 7;
  target.seed = 5;
  target.window_name = "mine";
  EXPECT_FALSE(Cap3dParser(target, 1, true, false).parse(p, ""));
  EXPECT_EQ(target.boundary, 7);
  EXPECT_EQ(target.seed, 5);
  EXPECT_EQ(target.window_name, "mine");

  // Header, the note, a begin and an end record.
  raw.wire_nets.emplace_back("n", false);
  o.note = "written by a test";
  sea::string_writer out;
  const binary_write_summary s = write_binary(raw, out, o);
  EXPECT_EQ(s.records, 3u);
  EXPECT_EQ(s.bytes, out.text.size());
  EXPECT_EQ(out.text.size(), 13u + (3 + o.note.size()) + 2 * (3 + 1 + 1));
  EXPECT_EQ(out.text.substr(0, 12), "CAP3D_BINARY");
  const circuit_layout::raw back = t.read_binary(out.text);
  ASSERT_EQ(back.wire_nets.size(), 1u);
  EXPECT_EQ(back.wire_nets[0].name, "n");
}

TEST(BinaryWriter, LayerStoresAreMappedOntoRecords) {
  round_trip t;
  circuit_layout::raw raw;
  raw.layer_names = {{1, "M1"}, {4, "M4"}};
  raw.layer_types = {{"M1", "via"}, {"V9", "substrate"}, {"odd", "unknown-word"}};
  raw.layer_wmins = {0.1, 0.2, 0.3, 0.4};
  const circuit_layout::raw back = t.read_binary(to_binary(raw));
  EXPECT_EQ(back.layer_names, raw.layer_names);
  // A type word the format does not know is dropped.
  EXPECT_EQ(back.layer_types, (std::unordered_map<std::string, std::string>{{"M1", "via"}, {"V9", "substrate"}}));
  ASSERT_EQ(back.layer_wmins.size(), 4u);
  for (std::size_t k = 0; k < 4; ++k) EXPECT_EQ(back.layer_wmins[k].value, raw.layer_wmins[k].value);

  // Fewer wmins than records: the rest come back as -1.
  raw.layer_wmins = {0.5};
  const circuit_layout::raw fewer = t.read_binary(to_binary(raw));
  ASSERT_EQ(fewer.layer_wmins.size(), 3u);
  EXPECT_EQ(fewer.layer_wmins[0].value, 0.5);
  EXPECT_EQ(fewer.layer_wmins[2].value, -1.0);
}

// Names of 1023 bytes and file names of 127 are written and read back; one
// byte more is refused before anything is written.
TEST(BinaryWriter, NameLimits) {
  round_trip t;
  circuit_layout::raw raw;
  raw.log_file = std::string(127, 'l');
  raw.out_file = "o";
  raw.window_name = std::string(1023, 'w');
  raw.boundary = 1;
  raw.wire_nets.emplace_back(std::string(1023, 'c'), true);
  const circuit_layout::raw back = t.read_binary(to_binary(raw));
  EXPECT_EQ(back.log_file, raw.log_file);
  EXPECT_EQ(back.out_file, "o");
  EXPECT_EQ(back.window_name, raw.window_name);
  ASSERT_EQ(back.wire_nets.size(), 1u);
  EXPECT_EQ(back.wire_nets[0].name, raw.wire_nets[0].name);
  EXPECT_TRUE(back.wire_nets[0].floating);

  raw.out_file = std::string(128, 'o');
  EXPECT_THROW(to_binary(raw), sea::fatal_error);
  binary_write_options o;
  o.parameters = false;  // then the file names do not matter
  EXPECT_NO_THROW(to_binary(raw, o));
  raw.capacitance_tasks.insert(std::string(1024, 't'));
  sea::string_writer out;
  t.log.clear();
  EXPECT_THROW(write_binary(raw, out, o), sea::fatal_error);
  EXPECT_EQ(out.text, "");
  EXPECT_EQ(t.log.error(), "ERROR: (Binary) name too long for a binary cap3d file: " + std::string(64, 't') + "\n");
}

TEST(BinaryWriter, FileWritingAndConversion) {
  round_trip t;
  const std::string text_path = t.path("layout");
  std::ofstream(text_path, std::ios::binary) << full_text;
  const std::string bin_path = t.path("layout.bin");
  ASSERT_TRUE(convert_text_to_binary(text_path, bin_path, {}, 3));  // the slices of read_text
  std::stringstream bytes;
  bytes << std::ifstream(bin_path, std::ios::binary).rdbuf();
  EXPECT_EQ(bytes.str(), to_binary(t.read_text(full_text)));

  // A text that can't be read writes nothing.
  const std::string bad_path = t.path("bad");
  std::ofstream(bad_path, std::ios::binary) << "<cap3d>\n<bogus>\n</cap3d>\n";
  const std::string unwritten = t.path("unwritten.bin");
  EXPECT_FALSE(convert_text_to_binary(bad_path, unwritten));
  EXPECT_FALSE(std::ifstream(unwritten).is_open());

  t.log.clear();
  circuit_layout::raw raw;
  EXPECT_THROW(write_binary_file(raw, t.dir.file("no/such/dir/x.bin")), sea::file_error);
  EXPECT_NE(t.log.error().find("ERROR: (Binary) cannot open \""), std::string::npos) << t.log.error();
}

}  // namespace
}  // namespace torva
