// The binary form: the frame, the plain records, conductors and media in both
// ways of writing them, and the text dump.
#include <gtest/gtest.h>

#include <fstream>
#include <map>
#include <sstream>
#include <string>
#include <unordered_map>
#include <unordered_set>

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
  std::string dump;  // the dump of the latest parse with one
  int files = 0;

  bool parse(const std::string& bytes, bool with_dump = false) {
    const std::string name = std::to_string(++files);
    const std::string path = dir.file("layout" + name + ".bin");
    std::ofstream(path, std::ios::binary) << bytes;
    // Every dump gets a file of its own: pooled streams stay open.
    const std::string dump_path = with_dump ? dir.file("dump" + name + ".cap3d") : std::string();
    Cap3dParser parser(raw, 1, allow_floating, false);
    const bool ok = parser.parse(path, dump_path);
    if (with_dump) {
      std::stringstream text;
      text << std::ifstream(dump_path, std::ios::binary).rdbuf();
      dump = text.str();
    }
    return ok;
  }
  // A file of the one record `type` with `body`.
  bool parse_record(unsigned type, const std::string& body, bool with_dump = false) {
    return parse(binary_bytes().record(type, body).data, with_dump);
  }
};

std::string block_payload(double x, double y, double z, double dx, double dy, double dz, int layer,
                          const std::string& name, bool swapped = false) {
  return payload(swapped).f64(x).f64(y).f64(z).f64(dx).f64(dy).f64(dz).i16(layer).text(name).data;
}
std::string mark_payload(unsigned floating, const std::string& name) { return payload().u8(floating).text(name).data; }
std::string diel_payload(float diel, const std::string& name) { return payload().f32(diel).text(name).data; }
std::string layer_payload(int id, unsigned type, unsigned flat, double wmin, double thickness, const std::string& name) {
  return payload().i16(id).u8(type).u8(flat).f64(wmin).f64(thickness).text(name).data;
}

// ---------------------------------------------------------------- frame

TEST(BinaryFrame, HeaderAloneIsFalseWithoutMessageAndAnEmptyRecordIsTrue) {
  binary_fixture f;
  EXPECT_FALSE(f.parse(binary_bytes().data, true));
  EXPECT_EQ(f.dump, "<cap3d>\n</cap3d>\n");
  EXPECT_FALSE(f.parse("CAP3D_BINARY"));  // without even the order byte
  EXPECT_TRUE(f.parse(binary_bytes().i16(2).data));
  EXPECT_EQ(f.log.error(), "");
}

TEST(BinaryFrame, OddFlagsSwapLengthsAndIntegersButNotDoubles) {
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
  EXPECT_EQ(f.raw.layer_names, (std::map<short, std::string>{{5, "M3"}}));
  ASSERT_EQ(f.raw.layer_wmins.size(), 1u);
  EXPECT_EQ(f.raw.layer_wmins[0].value, 0.25);
  // Only the lowest bit of the flag counts.
  for (unsigned flag : {0u, 1u, 2u, 3u, 0xfeu, 0xffu}) {
    SCOPED_TRACE(flag);
    f.raw = circuit_layout::raw();
    binary_bytes b(static_cast<unsigned char>(flag));  // swaps for odd flags only
    b.record(10, block_payload(1, 2, 3, 4, 5, 6, 0x0102, "a", b.swapped)).record(9, mark_payload(0, "c"));
    b.record(4, payload(b.swapped).u8(8).i32(-123456).u8(1).f32(0.5f).data);
    ASSERT_TRUE(f.parse(b.data)) << f.log.error();
    ASSERT_EQ(f.raw.wire_blocks.size(), 1u);
    EXPECT_EQ(f.raw.wire_blocks[0].layer, 0x0102);
    internal::expect_box(f.raw.wire_blocks[0].cuboid(), 1, 2, 3, 5, 7, 9);
    EXPECT_EQ(f.raw.seed, -123456);
    EXPECT_EQ(f.raw.c_ratio, 0.5);
  }
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

// What came before a bad record stays; nothing behind it is read.
TEST(BinaryFrame, BadTypesLengthsAndCutRecordsEndTheRead) {
  const std::string kept = binary_bytes().record(5, mark_payload(0, "kept")).data;
  const std::string after = payload().record(5, mark_payload(0, "after")).data;
  const struct {
    const char* what;
    std::string tail;
    std::string error;
  } cases[] = {
      {"cylinder type", payload().record(12, std::string(60, '\0')).data + after, syntax_line},
      {"type 16", payload().record(16, std::string(60, '\0')).data + after, syntax_line},
      {"type 100", payload().record(100, std::string(60, '\0')).data + after, syntax_line},
      {"type 255", payload().record(255, std::string(60, '\0')).data + after, syntax_line},
      // a length below two ends the read without a message
      {"length 1", payload().i16(1).text(std::string(8, 'z')).data + after, ""},
      {"length 0", payload().i16(0).text(std::string(8, 'z')).data + after, ""},
      {"length -1", payload().i16(-1).text(std::string(8, 'z')).data + after, ""},
      {"length -32768", payload().i16(-32768).text(std::string(8, 'z')).data + after, ""},
      {"record cut by the end", payload().i16(60).u8(10).text(std::string(20, '\0')).data, syntax_line},
      {"one stray byte", payload().u8(7).data, syntax_line},
  };
  for (const auto& c : cases) {
    SCOPED_TRACE(c.what);
    binary_fixture f;
    EXPECT_FALSE(f.parse(kept + c.tail));
    EXPECT_EQ(f.log.error(), c.error);
    EXPECT_EQ(f.raw.capacitance_tasks, (std::unordered_set<std::string>{"kept"}));
    EXPECT_TRUE(f.raw.wire_blocks.empty() && f.raw.medium_blocks.empty());
  }
}

TEST(BinaryFrame, RecordsAcrossReadsOfAFileOfSeveralMegabytes) {
  // Names of varying length put record ends everywhere relative to the reads.
  binary_fixture f;
  binary_bytes b;
  b.record(8, mark_payload(0, "big"));
  const int count = 30000;
  for (int k = 0; k < count; ++k)
    b.record(10, block_payload(k, 0, 0, 1, 2, 3, k % 300, "block" + std::string(std::size_t(k % 97), 'x')));
  b.record(9, mark_payload(0, ""));
  ASSERT_GT(b.data.size(), 3u << 20);
  ASSERT_TRUE(f.parse(b.data)) << f.log.error();
  ASSERT_EQ(f.raw.wire_blocks.size(), std::size_t(count));
  for (int k : {0, 1, 12345, count - 1}) {
    internal::expect_box(f.raw.wire_blocks[std::size_t(k)].cuboid(), k, 0, 0, k + 1, 2, 3);  // corner and edges
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
  // The fixed fields of each record type, and whether a name follows them.
  const struct {
    unsigned type;
    std::size_t fields;
    bool named;
  } records[] = {{1, 12, true}, {2, 20, true}, {3, 49, true}, {5, 1, true},   {6, 4, true},
                 {7, 4, false}, {8, 1, true},  {9, 1, false}, {10, 50, true}, {11, 17, false}};
  for (const auto& r : records) {
    SCOPED_TRACE(r.type);
    binary_fixture f;
    // one byte less than the fields is a syntax error
    EXPECT_FALSE(f.parse_record(r.type, std::string(r.fields - 1, '\0')));
    EXPECT_EQ(f.log.error(), syntax_line);
    EXPECT_TRUE(f.raw.plate_mediums.empty() && f.raw.layer_names.empty() && f.raw.wire_nets.empty() &&
                f.raw.medium_nets.empty() && f.raw.capacitance_tasks.empty() && f.raw.window_name.empty());
    // a name of 1024 bytes is one too many
    if (!r.named) continue;
    binary_fixture g;
    EXPECT_FALSE(g.parse_record(r.type, std::string(r.fields, '\0') + std::string(1024, 'n')));
    EXPECT_EQ(g.log.error(), syntax_line);
  }
  binary_fixture f;
  ASSERT_TRUE(f.parse_record(5, mark_payload(0, std::string(1023, 'n'))));
  EXPECT_EQ(f.raw.capacitance_tasks.begin()->size(), 1023u);
}

TEST(BinaryFrame, NamesEndAtTheFirstNul) {
  binary_fixture f;
  binary_bytes b;
  b.record(5, mark_payload(0, std::string("ab\0\0\0", 5))).record(5, mark_payload(0, std::string("\0hidden", 7)));
  ASSERT_TRUE(f.parse(b.data));
  EXPECT_EQ(f.raw.capacitance_tasks, (std::unordered_set<std::string>{"ab", ""}));
}

// ---------------------------------------------------------------- plain records

TEST(BinaryRecords, PlateMediumAddsAnEmptyBodyAndWindowIsDirichletOnlyForOne) {
  binary_fixture f;
  ASSERT_TRUE(f.parse_record(1, payload().f64(1.5).f32(3.9f).text("ox").data));
  ASSERT_EQ(f.raw.plate_mediums.size(), 1u);
  EXPECT_EQ(f.raw.plate_mediums[0].name, "ox");
  EXPECT_EQ(f.raw.plate_mediums[0].z_top.value, 1.5);
  EXPECT_EQ(f.raw.plate_mediums[0].diel.value, double(3.9f));
  ASSERT_EQ(f.raw.medium_nets.size(), 1u);
  EXPECT_EQ(f.raw.medium_nets[0].name, "ox");
  EXPECT_TRUE(f.raw.medium_nets[0].blocks.empty());
  for (unsigned byte : {1u, 0u, 2u, 7u}) {
    SCOPED_TRACE(byte);
    ASSERT_TRUE(f.parse_record(3, payload().f64(-1).f64(-2).f64(-3).f64(4).f64(5).f64(6).u8(byte).text("w").data));
    EXPECT_EQ(f.raw.boundary, byte == 1 ? 1 : 2);
    EXPECT_EQ(f.raw.window_name, "w");
    internal::expect_box(f.raw.window, -1, -2, -3, 4, 5, 6);
  }
}

TEST(BinaryRecords, LayerStoresWhatTheTextFormWouldSkip) {
  binary_fixture f;
  binary_bytes b;
  b.record(2, layer_payload(-1, 2, 2, 0.1, 0.5, "V1"));
  b.record(2, layer_payload(4, 9, 0, -1.0, 0.0, ""));       // unknown type, no wmin, empty name
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

TEST(BinaryRecords, ParametersOfEveryIdInSinglePrecision) {
  binary_fixture f;
  payload p;
  for (unsigned id = 1; id <= 7; ++id) p.u8(id).f32(0.1f * float(id));
  p.u8(8).i32(-123456).u8(9).i16(12).u8(10).u8(0xff).u8(11).u8(3);
  p.u8(12).u8(5).text("a.log").u8(13).u8(0).u8(14).f32(1e-3f);
  ASSERT_TRUE(f.parse_record(4, p.data)) << f.log.error();
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

  // Short items and an empty run.
  binary_bytes b;
  b.record(4, payload().u8(9).i16(4).u8(10).u8(0).data).record(4, "");
  ASSERT_TRUE(f.parse(b.data, true));
  EXPECT_EQ(f.raw.thread_num, 4);
  EXPECT_EQ(f.raw.spice, 0);
  EXPECT_NE(f.dump.find("\tthread-num 4\n\tspice off\n</parameter>\n<parameter>\n</parameter>\n"), std::string::npos);
}

TEST(BinaryRecords, BadParameterIdIsReportedTwiceAndLeavesTheSectionOpen) {
  binary_fixture f;
  EXPECT_FALSE(f.parse_record(4, payload().u8(8).i32(5).u8(15).f32(1).data, true));
  EXPECT_EQ(f.log.error(), syntax_line + syntax_line);
  EXPECT_EQ(f.raw.seed, 5);  // items before the bad id are stored
  EXPECT_EQ(f.dump, "<cap3d>\n<parameter>\n\tseed 5\n</cap3d>\n");
}

TEST(BinaryRecords, ParameterItemsThatOverrunThePayloadAreRejected) {
  const std::string cases[] = {
      std::string("\x01\x00\x00", 3),    // a float cut short
      std::string("\x09\x01", 2),        // an int16 cut short
      std::string("\x0a", 1),            // a byte item without its byte
      std::string("\x0c\x09" "abc", 5),  // a name longer than what is left
      std::string("\x0d\xff" "abc", 5),  // a negative name length
  };
  for (const std::string& items : cases) {
    SCOPED_TRACE(items.size());
    binary_fixture f;
    EXPECT_FALSE(f.parse_record(4, items));
    EXPECT_EQ(f.log.error(), syntax_line);
    EXPECT_EQ(f.raw.log_file, "");
    EXPECT_EQ(f.raw.out_file, "");
  }
}

TEST(BinaryRecords, TaskTakesAnyNameAndDumpsOnlyANonEmptyOne) {
  binary_fixture f;
  ASSERT_TRUE(f.parse(binary_bytes().record(5, mark_payload(0x55, "net1")).record(5, mark_payload(0, "")).data, true));
  EXPECT_EQ(f.raw.capacitance_tasks, (std::unordered_set<std::string>{"net1", ""}));
  EXPECT_EQ(f.dump, "<cap3d>\n<task>\n\t<capacitance>\n\t\tnet1\n\t</capacitance>\n</task>\n</cap3d>\n");
}

// ---------------------------------------------------------------- nets

TEST(BinaryNets, BeginRecordFilesBlocksAtOnce) {
  circuit_layout::raw raw;
  Cap3dParser parser(raw, 1, false, false);  // the binary floating byte counts all the same
  auto feed = [&](unsigned type, const std::string& body) {
    const std::string record = char(type) + body;
    return parser.parseBinRecord(record.data(), static_cast<short>(record.size() + 2));
  };
  ASSERT_TRUE(feed(8, mark_payload(3, "vdd")));
  ASSERT_TRUE(feed(10, block_payload(0, 0, 0, 1, 1, 1, -1, "a@M1")));
  // Filed before the end record is read.
  ASSERT_EQ(raw.wire_nets.size(), 1u);
  ASSERT_EQ(raw.wire_blocks.size(), 1u);
  EXPECT_EQ(raw.wire_blocks[0].net, &raw.wire_nets[0]);
  EXPECT_TRUE(raw.wire_blocks[0].floating);
  ASSERT_TRUE(feed(10, block_payload(0, 0, 2, 1, 1, 1, 7, "b")));
  ASSERT_TRUE(feed(9, mark_payload(0, "other")));  // its name and byte do not count
  EXPECT_EQ(parser.state, 0u);
  ASSERT_EQ(raw.wire_nets.size(), 1u);
  const wire_net& net = raw.wire_nets[0];
  EXPECT_EQ(net.name, "vdd");
  EXPECT_TRUE(net.floating);
  ASSERT_EQ(net.blocks.size(), 2u);
  EXPECT_EQ(net.blocks[1], &raw.wire_blocks[1]);
  EXPECT_TRUE(raw.wire_blocks[1].floating);
  EXPECT_EQ(raw.wire_blocks[1].layer, 7);
}

// Without begin records (the round trips cover the rest of this way of
// writing): names stay whole, layers as they stand, the layer name list is not
// used; an end with nothing pending makes no net, and shapes behind the last
// end are dropped.
TEST(BinaryNets, EndRecordAloneMakesTheNetOfPendingShapes) {
  binary_fixture f;
  const std::size_t listed = _WIRE_BLOCK_LAYER_NAME_.size();
  binary_bytes b;
  b.record(9, mark_payload(0, "empty")).record(7, diel_payload(1, "none"));
  b.record(10, block_payload(0, 0, 0, 1, 1, 1, -1, "a@M1")).record(10, block_payload(0, 0, 2, 1, 1, 1, 3, "b"));
  b.record(9, mark_payload(1, "sig")).record(10, block_payload(5, 5, 5, 1, 1, 1, 2, "orphan"));
  ASSERT_TRUE(f.parse(b.data)) << f.log.error();
  EXPECT_TRUE(f.raw.medium_nets.empty() && f.raw.medium_blocks.empty());
  ASSERT_EQ(f.raw.wire_nets.size(), 1u);
  const wire_net& net = f.raw.wire_nets[0];
  EXPECT_EQ(net.name, "sig");
  EXPECT_TRUE(net.floating);
  ASSERT_EQ(net.blocks.size(), 2u);
  EXPECT_EQ(f.raw.wire_blocks.size(), 2u);
  EXPECT_EQ(net.blocks[0]->name, "a@M1");
  EXPECT_EQ(net.blocks[0]->layer, -1);
  EXPECT_EQ(net.blocks[1]->layer, 3);
  EXPECT_TRUE(net.blocks[0]->floating && net.blocks[1]->floating);
  EXPECT_EQ(net.blocks[0]->net, &net);
  EXPECT_EQ(_WIRE_BLOCK_LAYER_NAME_.size(), listed);
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

TEST(BinaryNets, DumpOfBeginRecordsAndNonameAndAfterAFailure) {
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
  // The dump is closed after a failure too.
  EXPECT_FALSE(f.parse(binary_bytes().record(8, mark_payload(0, "c")).record(12, std::string(42, '\0')).data, true));
  EXPECT_EQ(f.dump, "<cap3d>\n<conductor>\n\tname c\n</cap3d>\n");
}

}  // namespace
}  // namespace torva
