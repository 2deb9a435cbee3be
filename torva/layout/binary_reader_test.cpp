// The binary form: the frame, the plain records, conductors and media in both
// ways of writing them, and the text dump.
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

using internal::binary_bytes;
using internal::payload;

const std::string syntax_line = "ERROR: Syntax error in cap3d file.\n";

struct binary_fixture {
  testing::log_capture log;
  testing::temp_dir dir;
  circuit_layout::raw raw;
  bool allow_floating = true;
  bool cuboids_only = false;
  std::string dump;  // the dump of the latest parse with one
  int files = 0;

  bool parse(const std::string& bytes, bool with_dump = false) {
    const std::string name = std::to_string(++files);
    const std::string path = dir.file("layout" + name + ".bin");
    std::ofstream(path, std::ios::binary) << bytes;
    // Every dump gets a file of its own: pooled streams stay open.
    const std::string dump_path = with_dump ? dir.file("dump" + name + ".cap3d") : std::string();
    Cap3dParser parser(raw, 1, allow_floating, cuboids_only);
    const bool ok = parser.parse(path, dump_path);
    if (with_dump) {
      std::ifstream in(dump_path, std::ios::binary);
      std::stringstream text;
      text << in.rdbuf();
      dump = text.str();
    }
    return ok;
  }
};

std::string block_payload(double x, double y, double z, double dx, double dy, double dz, int layer,
                          const std::string& name, bool swapped = false) {
  payload p(swapped);
  p.f64(x).f64(y).f64(z).f64(dx).f64(dy).f64(dz).i16(layer).text(name);
  return p.data;
}

std::string mark_payload(unsigned floating, const std::string& name) {
  payload p;
  p.u8(floating).text(name);
  return p.data;
}

std::string diel_payload(float diel, const std::string& name) {
  payload p;
  p.f32(diel).text(name);
  return p.data;
}

std::string layer_payload(int id, unsigned type, unsigned flat, double wmin, double thickness,
                          const std::string& name, bool swapped = false) {
  payload p(swapped);
  p.i16(id).u8(type).u8(flat).f64(wmin).f64(thickness).text(name);
  return p.data;
}

// ---------------------------------------------------------------- frame

TEST(BinaryFrame, HeaderAloneIsFalseWithoutMessageAndDumpHasBrackets) {
  binary_fixture f;
  EXPECT_FALSE(f.parse(binary_bytes().data, true));
  EXPECT_EQ(f.log.error(), "");
  EXPECT_EQ(f.dump, "<cap3d>\n</cap3d>\n");
  // Without even the order byte.
  EXPECT_FALSE(f.parse("CAP3D_BINARY"));
  EXPECT_EQ(f.log.error(), "");
}

TEST(BinaryFrame, RecordOfLengthTwoIsEmptyAndTrue) {
  binary_fixture f;
  binary_bytes b;
  b.i16(2);
  EXPECT_TRUE(f.parse(b.data));
  EXPECT_EQ(f.log.error(), "");
}

TEST(BinaryFrame, FlagOneSwapsLengthsAndIntegersButNotDoubles) {
  binary_fixture f;
  // Length bytes 0x00 0x10: 16 with the flag set, a task of 12 name bytes.
  std::string bytes = binary_bytes(1).data;
  bytes += std::string("\x00\x10", 2) + '\x05' + 'x' + "twelve_bytes";
  // A layer whose id bytes are 0x00 0x05, and a double as it stands.
  const double wmin = 0.25;
  std::string layer = std::string("\x00\x05", 2) + '\x02' + '\x00';
  layer.append(reinterpret_cast<const char*>(&wmin), 8);
  layer.append(8, '\0');
  layer += "M3";
  bytes += std::string("\x00", 1) + char(layer.size() + 3) + '\x02' + layer;
  ASSERT_TRUE(f.parse(bytes)) << f.log.error();
  EXPECT_EQ(f.raw.capacitance_tasks.count("twelve_bytes"), 1u);
  ASSERT_EQ(f.raw.layer_names.count(5), 1u);
  EXPECT_EQ(f.raw.layer_names.at(5), "M3");
  ASSERT_EQ(f.raw.layer_wmins.size(), 1u);
  EXPECT_EQ(f.raw.layer_wmins[0].value, 0.25);
}

TEST(BinaryFrame, OnlyTheLowestBitOfTheFlagCounts) {
  for (unsigned flag : {0u, 1u, 2u, 3u, 0xfeu, 0xffu}) {
    binary_fixture f;
    binary_bytes b(static_cast<unsigned char>(flag));  // swaps for odd flags only
    b.record(10, block_payload(1, 2, 3, 4, 5, 6, 0x0102, "a", b.swapped)).record(9, mark_payload(0, "c"));
    ASSERT_TRUE(f.parse(b.data)) << "flag " << flag << ": " << f.log.error();
    ASSERT_EQ(f.raw.wire_blocks.size(), 1u) << "flag " << flag;
    EXPECT_EQ(f.raw.wire_blocks[0].layer, 0x0102) << "flag " << flag;
  }
  // The same bytes under the other flag read the layer swapped.
  binary_fixture f;
  binary_bytes b(0);
  b.record(10, block_payload(1, 2, 3, 4, 5, 6, 0x0102, "a")).record(9, mark_payload(0, "c"));
  b.data[12] = 2;  // still native
  ASSERT_TRUE(f.parse(b.data));
  EXPECT_EQ(f.raw.wire_blocks[0].layer, 0x0102);
}

TEST(BinaryFrame, IgnoredTypesAreSkippedWithAnyPayload) {
  binary_fixture f;
  binary_bytes b;
  for (unsigned type : {0u, 13u, 14u, 15u}) b.record(type, std::string(40, '\x7f'));
  b.record(5, mark_payload(0, "after"));
  ASSERT_TRUE(f.parse(b.data)) << f.log.error();
  EXPECT_EQ(f.log.error(), "");
  EXPECT_EQ(f.raw.capacitance_tasks.size(), 1u);
  EXPECT_TRUE(f.raw.wire_nets.empty());
}

TEST(BinaryFrame, CylinderTypeAndUnknownTypesAreSyntaxErrors) {
  for (unsigned type : {12u, 16u, 100u, 255u}) {
    binary_fixture f;
    binary_bytes b;
    b.record(5, mark_payload(0, "before")).record(type, std::string(60, '\0')).record(5, mark_payload(0, "after"));
    EXPECT_FALSE(f.parse(b.data)) << type;
    EXPECT_EQ(f.log.error(), syntax_line) << type;
    // What came before stays; nothing behind the bad record is read.
    EXPECT_EQ(f.raw.capacitance_tasks.count("before"), 1u);
    EXPECT_EQ(f.raw.capacitance_tasks.count("after"), 0u);
  }
}

TEST(BinaryFrame, LengthBelowTwoEndsTheReadWithoutMessage) {
  for (int length : {1, 0, -1, -32768}) {
    binary_fixture f;
    binary_bytes b;
    b.record(5, mark_payload(0, "kept")).i16(length).text(std::string(8, 'z'));
    EXPECT_FALSE(f.parse(b.data)) << length;
    EXPECT_EQ(f.log.error(), "") << length;
    EXPECT_EQ(f.raw.capacitance_tasks.count("kept"), 1u);
  }
}

TEST(BinaryFrame, RecordCutOffByTheEndOfTheFileIsRejected) {
  binary_fixture f;
  binary_bytes b;
  b.record(5, mark_payload(0, "kept")).i16(60).u8(10).text(std::string(20, '\0'));
  EXPECT_FALSE(f.parse(b.data));
  EXPECT_EQ(f.log.error(), syntax_line);
  EXPECT_TRUE(f.raw.wire_blocks.empty() && f.raw.medium_blocks.empty());
  EXPECT_EQ(f.raw.capacitance_tasks.count("kept"), 1u);

  // One stray byte where a length should be.
  binary_fixture g;
  binary_bytes c;
  c.record(5, mark_payload(0, "kept")).u8(7);
  EXPECT_FALSE(g.parse(c.data));
  EXPECT_EQ(g.log.error(), syntax_line);
}

TEST(BinaryFrame, RecordsAcrossReadsOfAFileOfSeveralMegabytes) {
  // Names of varying length put record ends everywhere relative to the reads.
  binary_fixture f;
  binary_bytes b;
  b.record(8, mark_payload(0, "big"));
  const int count = 30000;
  for (int k = 0; k < count; ++k)
    b.record(10, block_payload(k, 0, 0, 1, 1, 1, k % 300, "block" + std::string(std::size_t(k % 97), 'x')));
  b.record(9, mark_payload(0, ""));
  ASSERT_GT(b.data.size(), 3u << 20);
  ASSERT_TRUE(f.parse(b.data)) << f.log.error();
  ASSERT_EQ(f.raw.wire_blocks.size(), std::size_t(count));
  for (int k : {0, 1, 12345, count - 1}) {
    EXPECT_EQ(f.raw.wire_blocks[std::size_t(k)].cuboid().lower[0].value, double(k));
    EXPECT_EQ(f.raw.wire_blocks[std::size_t(k)].layer, k % 300);
    EXPECT_EQ(f.raw.wire_blocks[std::size_t(k)].name.size(), 5u + std::size_t(k % 97));
  }
  // The same file cut inside its last record.
  binary_fixture g;
  EXPECT_FALSE(g.parse(b.data.substr(0, b.data.size() - 1)));
  EXPECT_EQ(g.log.error(), syntax_line);
  EXPECT_EQ(g.raw.wire_blocks.size(), std::size_t(count));
}

TEST(BinaryFrame, ShortPayloadsAndOverlongNamesAreRejected) {
  // The fixed fields of each record type; one byte less is a syntax error.
  const std::pair<unsigned, int> fixed[] = {{1, 12}, {2, 20}, {3, 49}, {5, 1}, {6, 4},
                                            {7, 4},  {8, 1},  {9, 1},  {10, 50}, {11, 17}};
  for (const auto& [type, size] : fixed) {
    binary_fixture f;
    binary_bytes b;
    b.record(type, std::string(static_cast<std::size_t>(size - 1), '\0'));
    EXPECT_FALSE(f.parse(b.data)) << "type " << type;
    EXPECT_EQ(f.log.error(), syntax_line) << "type " << type;
    EXPECT_TRUE(f.raw.plate_mediums.empty() && f.raw.layer_names.empty() && f.raw.wire_nets.empty() &&
                f.raw.medium_nets.empty() && f.raw.capacitance_tasks.empty() && f.raw.window_name.empty());
  }
  // A name field of 1023 bytes is read, one of 1024 is not.
  binary_fixture f;
  binary_bytes ok;
  ok.record(5, mark_payload(0, std::string(1023, 'n')));
  ASSERT_TRUE(f.parse(ok.data));
  EXPECT_EQ(f.raw.capacitance_tasks.begin()->size(), 1023u);
  for (unsigned type : {1u, 2u, 3u, 5u, 6u, 8u, 10u}) {
    binary_fixture g;
    const int fields = type == 1 ? 12 : type == 2 ? 20 : type == 3 ? 49 : type == 6 ? 4 : type == 10 ? 50 : 1;
    binary_bytes b;
    b.record(type, std::string(static_cast<std::size_t>(fields), '\0') + std::string(1024, 'n'));
    EXPECT_FALSE(g.parse(b.data)) << "type " << type;
    EXPECT_EQ(g.log.error(), syntax_line);
  }
}

TEST(BinaryFrame, NamesEndAtTheFirstNul) {
  binary_fixture f;
  binary_bytes b;
  b.record(5, mark_payload(0, std::string("ab\0\0\0", 5)));
  b.record(5, mark_payload(0, std::string("\0hidden", 7)));
  ASSERT_TRUE(f.parse(b.data));
  EXPECT_EQ(f.raw.capacitance_tasks, (std::unordered_set<std::string>{"ab", ""}));
}

// ---------------------------------------------------------------- plain records

TEST(BinaryRecords, PlateMediumAddsPlateAndEmptyBody) {
  binary_fixture f;
  payload p;
  p.f64(1.5).f32(3.9f).text("ox");
  binary_bytes b;
  b.record(1, p.data);
  ASSERT_TRUE(f.parse(b.data, true));
  ASSERT_EQ(f.raw.plate_mediums.size(), 1u);
  EXPECT_EQ(f.raw.plate_mediums[0].name, "ox");
  EXPECT_EQ(f.raw.plate_mediums[0].z_top.value, 1.5);
  EXPECT_EQ(f.raw.plate_mediums[0].diel.value, double(3.9f));
  ASSERT_EQ(f.raw.medium_nets.size(), 1u);
  EXPECT_EQ(f.raw.medium_nets[0].name, "ox");
  EXPECT_TRUE(f.raw.medium_nets[0].blocks.empty());
  EXPECT_EQ(f.dump, "<cap3d>\n<plate_medium>\n\tname ox\n\tdiel 3.900000\n\tz_top 1.500000\n</plate_medium>\n</cap3d>\n");
}

TEST(BinaryRecords, LayerStoresWhatTheTextFormWouldSkip) {
  binary_fixture f;
  binary_bytes b;
  b.record(2, layer_payload(-1, 2, 2, 0.1, 0.5, "V1"));
  b.record(2, layer_payload(4, 9, 0, -1.0, 0.0, ""));     // unknown type, no wmin, empty name
  b.record(2, layer_payload(4, 0, 3, 0.0, -2.0, "later"));  // the first name of an id stays
  ASSERT_TRUE(f.parse(b.data, true)) << f.log.error();
  EXPECT_EQ(f.raw.layer_names, (std::map<short, std::string>{{-1, "V1"}, {4, ""}}));
  EXPECT_EQ(f.raw.layer_types, (std::unordered_map<std::string, std::string>{{"V1", "via"}, {"later", "dielectric"}}));
  ASSERT_EQ(f.raw.layer_wmins.size(), 3u);
  EXPECT_EQ(f.raw.layer_wmins[0].value, 0.1);
  EXPECT_EQ(f.raw.layer_wmins[1].value, -1.0);
  EXPECT_EQ(f.raw.layer_wmins[2].value, 0.0);
  EXPECT_EQ(f.dump,
            "<cap3d>\n"
            "<layer>\n\tname V1\n\tid -1\n\ttype via\n\twmin 0.100000\n\tflat MAX\n\tthickness 0.500000\n</layer>\n"
            "<layer>\n\tname \n\tid 4\n\ttype \n</layer>\n"
            "<layer>\n\tname later\n\tid 4\n\ttype dielectric\n\tflat OFF\n</layer>\n"
            "</cap3d>\n");
}

TEST(BinaryRecords, WindowBoundaryIsDirichletOnlyForOne) {
  for (unsigned byte : {1u, 0u, 2u, 7u}) {
    binary_fixture f;
    payload p;
    p.f64(-1).f64(-2).f64(-3).f64(4).f64(5).f64(6).u8(byte).text("w");
    binary_bytes b;
    b.record(3, p.data);
    ASSERT_TRUE(f.parse(b.data, true));
    EXPECT_EQ(f.raw.boundary, byte == 1 ? 1 : 2) << byte;
    EXPECT_EQ(f.raw.window_name, "w");
    EXPECT_EQ(f.raw.window.lower[2].value, -3.0);
    EXPECT_EQ(f.raw.window.upper[0].value, 4.0);
    EXPECT_EQ(f.dump,
              "<cap3d>\n<window>\n\tname w\n\tv1(-1.000000,-2.000000,-3.000000)\n\tv2(4.000000,5.000000,6.000000)\n"
              "</window>\n</cap3d>\n");
  }
}

TEST(BinaryRecords, ParametersOfEveryIdInSinglePrecision) {
  binary_fixture f;
  payload p;
  for (unsigned id = 1; id <= 7; ++id) p.u8(id).f32(0.1f * float(id));
  p.u8(8).i32(-123456).u8(9).i16(12).u8(10).u8(0xff).u8(11).u8(3);
  p.u8(12).u8(5).text("a.log").u8(13).u8(0).u8(14).f32(1e-3f);
  binary_bytes b;
  b.record(4, p.data);
  ASSERT_TRUE(f.parse(b.data, true)) << f.log.error();
  EXPECT_EQ(f.raw.c_ratio, double(0.1f));
  EXPECT_EQ(f.raw.b_ratio, double(0.2f));
  EXPECT_EQ(f.raw.b_net_ratio, double(0.1f * 3));
  EXPECT_EQ(f.raw.self_precision, double(0.1f * 4));
  EXPECT_EQ(f.raw.coupling_precision, double(0.1f * 5));
  EXPECT_EQ(f.raw.blk_self_precision, double(0.1f * 6));
  EXPECT_EQ(f.raw.blk_coupling_precision, double(0.1f * 7));
  EXPECT_EQ(f.raw.seed, -123456);
  EXPECT_EQ(f.raw.thread_num, 12);
  EXPECT_EQ(f.raw.spice, -1);  // the signed byte as it stands
  EXPECT_EQ(f.raw.walk_type, 3);
  EXPECT_EQ(f.raw.log_file, "a.log");
  EXPECT_EQ(f.raw.out_file, "");
  EXPECT_EQ(f.raw.outmincap, double(1e-3f));
  EXPECT_EQ(f.dump,
            "<cap3d>\n<parameter>\n\tc-ratio 0.100000\n\tb-ratio 0.200000\n\tb-net-ratio 0.300000\n"
            "\tself-precision 0.400000\n\tcoupling-precision 0.500000\n\tblk-self-precision 0.600000\n"
            "\tblk-coupling-precision 0.700000\n\tseed -123456\n\tthread-num 12\n\tspice on\n\twalk-type 3\n"
            "\tlog-file a.log\n\tout-file \n\toutmincap 0.001000\n</parameter>\n</cap3d>\n");
}

TEST(BinaryRecords, ShortParameterItemsAndAnEmptyRun) {
  binary_fixture f;
  payload p;
  p.u8(9).i16(4).u8(10).u8(0);  // 5 bytes: thread-num and spice
  binary_bytes b;
  b.record(4, p.data).record(4, "");
  ASSERT_TRUE(f.parse(b.data, true));
  EXPECT_EQ(f.raw.thread_num, 4);
  EXPECT_EQ(f.raw.spice, 0);
  EXPECT_NE(f.dump.find("\tthread-num 4\n\tspice off\n</parameter>\n<parameter>\n</parameter>\n"), std::string::npos);
}

TEST(BinaryRecords, BadParameterIdIsReportedTwiceAndLeavesTheSectionOpen) {
  binary_fixture f;
  payload p;
  p.u8(8).i32(5).u8(15).f32(1);
  binary_bytes b;
  b.record(4, p.data);
  EXPECT_FALSE(f.parse(b.data, true));
  EXPECT_EQ(f.log.error(), syntax_line + syntax_line);
  EXPECT_EQ(f.raw.seed, 5);  // items before the bad id are stored
  EXPECT_EQ(f.dump, "<cap3d>\n<parameter>\n\tseed 5\n</cap3d>\n");
}

TEST(BinaryRecords, ParameterItemsThatOverrunThePayloadAreRejected) {
  const std::string cases[] = {
      std::string("\x01\x00\x00", 3),           // a float cut short
      std::string("\x09\x01", 2),               // an int16 cut short
      std::string("\x0a", 1),                   // a byte item without its byte
      std::string("\x0c\x09" "abc", 5),         // a name longer than what is left
      std::string("\x0d\xff" "abc", 5),         // a negative name length
  };
  for (const std::string& items : cases) {
    binary_fixture f;
    binary_bytes b;
    b.record(4, items);
    EXPECT_FALSE(f.parse(b.data)) << items.size();
    EXPECT_EQ(f.log.error(), syntax_line);
    EXPECT_EQ(f.raw.log_file, "");
    EXPECT_EQ(f.raw.out_file, "");
  }
}

TEST(BinaryRecords, TaskTakesAnyNameAndDumpsOnlyANonEmptyOne) {
  binary_fixture f;
  binary_bytes b;
  b.record(5, mark_payload(0x55, "net1")).record(5, mark_payload(0, ""));
  ASSERT_TRUE(f.parse(b.data, true));
  EXPECT_EQ(f.raw.capacitance_tasks, (std::unordered_set<std::string>{"net1", ""}));
  EXPECT_EQ(f.dump, "<cap3d>\n<task>\n\t<capacitance>\n\t\tnet1\n\t</capacitance>\n</task>\n</cap3d>\n");
}

// ---------------------------------------------------------------- nets

TEST(BinaryNets, BeginRecordFilesBlocksAtOnce) {
  binary_fixture f;
  f.allow_floating = false;  // the binary floating byte counts all the same
  Cap3dParser parser(f.raw, 1, false, false);
  auto feed = [&](unsigned type, const std::string& body) {
    const std::string record = char(type) + body;
    return parser.parseBinRecord(record.data(), static_cast<short>(record.size() + 2));
  };
  ASSERT_TRUE(feed(8, mark_payload(3, "vdd")));
  ASSERT_TRUE(feed(10, block_payload(0, 0, 0, 1, 1, 1, -1, "a@M1")));
  // Filed before the end record is read.
  ASSERT_EQ(f.raw.wire_nets.size(), 1u);
  ASSERT_EQ(f.raw.wire_blocks.size(), 1u);
  EXPECT_EQ(f.raw.wire_blocks[0].net, &f.raw.wire_nets[0]);
  EXPECT_TRUE(f.raw.wire_blocks[0].floating);
  ASSERT_TRUE(feed(10, block_payload(0, 0, 2, 1, 1, 1, 7, "b")));
  ASSERT_TRUE(feed(9, mark_payload(0, "other")));  // its name and byte do not count
  EXPECT_EQ(parser.state, 0u);
  ASSERT_EQ(f.raw.wire_nets.size(), 1u);
  const wire_net& net = f.raw.wire_nets[0];
  EXPECT_EQ(net.name, "vdd");
  EXPECT_TRUE(net.floating);
  ASSERT_EQ(net.blocks.size(), 2u);
  EXPECT_EQ(net.blocks[1], &f.raw.wire_blocks[1]);
  EXPECT_TRUE(f.raw.wire_blocks[1].floating);
  EXPECT_EQ(f.raw.wire_blocks[1].layer, 7);
}

TEST(BinaryNets, EndRecordAloneMakesTheNetOfPendingShapes) {
  binary_fixture f;
  const std::size_t listed = _WIRE_BLOCK_LAYER_NAME_.size();
  binary_bytes b;
  b.record(10, block_payload(0, 0, 0, 1, 1, 1, -1, "a@M1"));
  b.record(10, block_payload(0, 0, 2, 1, 1, 1, 3, "b"));
  b.record(9, mark_payload(1, "sig"));
  b.record(10, block_payload(5, 5, 5, 1, 1, 1, 2, "dropped name"));
  b.record(7, diel_payload(4.5f, "m"));
  ASSERT_TRUE(f.parse(b.data)) << f.log.error();
  ASSERT_EQ(f.raw.wire_nets.size(), 1u);
  const wire_net& net = f.raw.wire_nets[0];
  EXPECT_EQ(net.name, "sig");
  EXPECT_TRUE(net.floating);
  ASSERT_EQ(net.blocks.size(), 2u);
  // Names whole, layers as they stand, no use of the layer name list.
  EXPECT_EQ(net.blocks[0]->name, "a@M1");
  EXPECT_EQ(net.blocks[0]->layer, -1);
  EXPECT_EQ(net.blocks[1]->layer, 3);
  EXPECT_TRUE(net.blocks[0]->floating && net.blocks[1]->floating);
  EXPECT_EQ(net.blocks[0]->net, &net);
  EXPECT_EQ(_WIRE_BLOCK_LAYER_NAME_.size(), listed);

  ASSERT_EQ(f.raw.medium_nets.size(), 1u);
  EXPECT_EQ(f.raw.medium_nets[0].name, "m");
  EXPECT_EQ(f.raw.medium_nets[0].diel.value, 4.5);
  ASSERT_EQ(f.raw.medium_blocks.size(), 1u);
  EXPECT_EQ(f.raw.medium_blocks[0].side_tan, 0.0);
  EXPECT_EQ(f.raw.medium_blocks[0].net, &f.raw.medium_nets[0]);
  EXPECT_EQ(f.raw.medium_nets[0].blocks[0], &f.raw.medium_blocks[0]);
}

TEST(BinaryNets, EndWithNothingPendingMakesNoNetAndLeftoversAreDropped) {
  binary_fixture f;
  binary_bytes b;
  b.record(9, mark_payload(0, "empty")).record(7, diel_payload(1, "none"));
  b.record(10, block_payload(0, 0, 0, 1, 1, 1, 0, "orphan"));  // no end record follows
  ASSERT_TRUE(f.parse(b.data));
  EXPECT_TRUE(f.raw.wire_nets.empty());
  EXPECT_TRUE(f.raw.medium_nets.empty());
  EXPECT_TRUE(f.raw.wire_blocks.empty());
  EXPECT_TRUE(f.raw.medium_blocks.empty());
}

TEST(BinaryNets, EmptyConductorWithBeginStandsAndNetsFollowEachOther) {
  binary_fixture f;
  binary_bytes b;
  b.record(8, mark_payload(0, "first")).record(9, mark_payload(0, ""));
  b.record(6, diel_payload(2.5f, "body")).record(10, block_payload(0, 0, 0, 1, 1, 1, 9, "x"));
  b.record(7, diel_payload(9.0f, "ignored"));
  b.record(8, mark_payload(0, "second")).record(10, block_payload(0, 0, 0, 2, 2, 2, 1, "y"));
  b.record(9, mark_payload(1, ""));
  ASSERT_TRUE(f.parse(b.data));
  ASSERT_EQ(f.raw.wire_nets.size(), 2u);
  EXPECT_TRUE(f.raw.wire_nets[0].blocks.empty());
  ASSERT_EQ(f.raw.wire_nets[1].blocks.size(), 1u);
  EXPECT_FALSE(f.raw.wire_nets[1].blocks[0]->floating);
  ASSERT_EQ(f.raw.medium_nets.size(), 1u);
  EXPECT_EQ(f.raw.medium_nets[0].name, "body");
  EXPECT_EQ(f.raw.medium_nets[0].diel.value, 2.5);  // the begin record's value
  ASSERT_EQ(f.raw.medium_blocks.size(), 1u);
  EXPECT_EQ(f.raw.medium_blocks[0].net, &f.raw.medium_nets[0]);
}

TEST(BinaryNets, DumpOfBeginRecordsAndNoname) {
  binary_fixture f;
  binary_bytes b;
  b.record(6, diel_payload(2.0f, "")).record(7, diel_payload(3.25f, "x"));
  b.record(8, mark_payload(1, "c1")).record(9, mark_payload(0, "c1"));
  b.record(8, mark_payload(0, "c2")).record(9, mark_payload(0, "c2"));
  ASSERT_TRUE(f.parse(b.data, true));
  EXPECT_EQ(f.raw.medium_nets[0].name, "");
  EXPECT_EQ(f.dump,
            "<cap3d>\n<medium>\n\tname noname\n\tdiel 3.250000\n</medium>\n"
            "<conductor>\n\tname c1\n\tfloating\n</conductor>\n<conductor>\n\tname c2\n</conductor>\n</cap3d>\n");
}

TEST(BinaryNets, DumpEndsAfterAFailureToo) {
  binary_fixture f;
  binary_bytes b;
  b.record(8, mark_payload(0, "c")).record(12, std::string(42, '\0'));
  EXPECT_FALSE(f.parse(b.data, true));
  EXPECT_EQ(f.dump, "<cap3d>\n<conductor>\n\tname c\n</cap3d>\n");
}

TEST(BinaryFields, ReadersAdvanceAndSwapOnlyIntegers) {
  circuit_layout::raw raw;
  Cap3dParser parser(raw, 1, true, false);
  parser.swap_bytes = 1;
  payload p;
  p.raw("\x01\x02", 2).raw("\x01\x02\x03\x04", 4).f64(2.5).f32(1.5f).u8(0xfe).text("abc");
  const char* cursor = p.data.data();
  EXPECT_EQ(parser.readShort(cursor), 0x0102);
  EXPECT_EQ(parser.readInt(cursor), 0x01020304);
  EXPECT_EQ(parser.readDouble(cursor), 2.5);
  EXPECT_EQ(parser.readFloat(cursor), 1.5f);
  EXPECT_EQ(parser.readChar(cursor), char(0xfe));
  const char* name_start = cursor;
  EXPECT_EQ(parser.readString(cursor, 0), "");
  EXPECT_EQ(cursor, name_start);  // a length below 1 leaves the cursor alone
  EXPECT_EQ(parser.readString(cursor, -4), "");
  EXPECT_EQ(parser.readString(cursor, 3), "abc");
  EXPECT_EQ(cursor, p.data.data() + p.data.size());
}

// Damaged files: every byte of a valid file is a candidate for a change, and a
// file may end anywhere. A read ends in true, false or one of the exceptions
// the form names, never in a crash or a read beyond the file (the sanitized
// build checks the latter).
TEST(BinaryDamage, MutatedAndTruncatedFilesFailCleanly) {
  binary_bytes b;
  payload win;
  win.f64(0).f64(0).f64(0).f64(9).f64(9).f64(9).u8(1).text("w");
  b.record(3, win.data).record(2, layer_payload(1, 1, 1, 0.1, 0.2, "M1"));
  payload par;
  par.u8(1).f32(0.5f).u8(9).i16(2).u8(12).u8(3).text("log").u8(10).u8(1);
  b.record(4, par.data).record(5, mark_payload(0, "n"));
  b.record(6, diel_payload(2, "m")).record(10, block_payload(0, 0, 0, 1, 1, 1, -1, "")).record(7, diel_payload(2, "m"));
  payload poly;
  poly.f64(0).f64(1).u8(5);
  for (double v : {0.0, 0.0, 2.0, 0.0, 2.0, 1.0, 1.0, 2.0, 0.0, 1.0}) poly.f64(v);
  poly.i16(1).text("p");
  b.record(8, mark_payload(1, "n")).record(11, poly.data).record(10, block_payload(3, 3, 3, 1, 1, 1, 2, "q"));
  b.record(9, mark_payload(1, "n"));
  {
    binary_fixture f;
    ASSERT_TRUE(f.parse(b.data)) << f.log.error();
  }

  std::uint64_t state = 12345;
  auto next = [&] {
    state = state * 6364136223846793005ull + 1442695040888963407ull;
    return static_cast<std::uint32_t>(state >> 33);
  };
  binary_fixture f;
  int outcomes[4] = {};
  for (int round = 0; round < 400; ++round) {
    std::string bytes = b.data;
    const int changes = 1 + static_cast<int>(next() % 4);
    for (int c = 0; c < changes; ++c) {
      const std::size_t at = 13 + next() % (bytes.size() - 13);
      bytes[at] = static_cast<char>(next() & 0xff);
    }
    if (round % 3 == 0) bytes.resize(13 + next() % (bytes.size() - 13));
    f.raw = circuit_layout::raw();
    try {
      ++outcomes[f.parse(bytes) ? 0 : 1];
    } catch (const std::length_error&) {
      ++outcomes[2];
    } catch (const sea::fatal_error&) {
      ++outcomes[3];
    }
    // Every block that was filed belongs to a net that lists it.
    for (const wire_net& n : f.raw.wire_nets)
      for (const wire_block* blk : n.blocks) ASSERT_EQ(blk->net, &n);
  }
  EXPECT_GT(outcomes[0], 0);
  EXPECT_GT(outcomes[1], 0);
}

}  // namespace
}  // namespace torva
