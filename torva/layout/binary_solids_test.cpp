// Solid records of the binary form: polygons (decomposed in every state, the
// count limit and its wrap), the cylinder member, and their dumps. Block
// records are pinned by the frame's tests of the binary reader.
#include <gtest/gtest.h>

#include <array>
#include <cmath>
#include <fstream>
#include <stdexcept>
#include <string>
#include <vector>

#include "torva/layout/cap3d_parser.h"
#include "torva/layout/internal/binary_test_support.h"
#include "torva_testing/log_capture.h"

namespace torva {
namespace {

using internal::binary_bytes;
using internal::expect_box;
using internal::payload;

const std::string syntax_line = "ERROR: Syntax error in cap3d file.\n";

// A parser fed record by record, with its dump on a string.
struct record_feeder {
  testing::log_capture log;
  circuit_layout::raw raw;
  Cap3dParser parser;
  sea::string_writer dump;

  explicit record_feeder(bool cuboids_only = false) : parser(raw, 1, true, cuboids_only) {
    parser.dump_enabled = true;
    parser.dump = &dump;
  }
  bool feed(unsigned type, const std::string& body) {
    const std::string record = char(type) + body;
    return parser.parseBinRecord(record.data(), static_cast<short>(record.size() + 2));
  }
  bool conductor(const std::string& name = "c") { return feed(8, std::string(1, '\0') + name); }
  bool medium(const std::string& name = "m") { return feed(6, payload().f32(3.0f).text(name).data); }
};

std::string polygon(double bottom, double height, const std::vector<std::array<double, 2>>& points, int layer,
                    const std::string& name, int count = -1) {
  payload p;
  p.f64(bottom).f64(height).u8(count < 0 ? unsigned(points.size()) : unsigned(count));
  for (const auto& v : points) p.f64(v[0]).f64(v[1]);
  p.i16(layer).text(name);
  return p.data;
}

std::string block(double x, double y, double z, double dx, double dy, double dz, int layer, const std::string& name) {
  return payload().f64(x).f64(y).f64(z).f64(dx).f64(dy).f64(dz).i16(layer).text(name).data;
}

std::vector<std::array<double, 2>> regular(int n, double r) {
  std::vector<std::array<double, 2>> v;
  for (int k = 0; k < n; ++k) {
    const double a = 2 * M_PI * k / n;
    v.push_back({r * std::cos(a), r * std::sin(a)});
  }
  return v;
}

TEST(BinaryPoly, ConvexQuadIsOnePrismWithTopFromHeight) {
  record_feeder f;
  ASSERT_TRUE(f.conductor());
  ASSERT_TRUE(f.feed(11, polygon(1.0, 0.5, {{0, 0}, {2, 0}, {2, 1}, {0, 1}}, 3, "p")));
  ASSERT_EQ(f.raw.wire_blocks.size(), 1u);
  const wire_block& b = f.raw.wire_blocks[0];
  ASSERT_EQ(b.shape_kind, shape_prism);
  EXPECT_EQ(b.prism().size, 4u);
  EXPECT_EQ(b.prism().bottom.value, 1.0);
  EXPECT_EQ(b.prism().top.value, 1.5);
  expect_box(b.outer_box, 0, 0, 1, 2, 1, 1.5);
  expect_box(b.inner_box, 1 - 1e-4, 0.5 - 1e-4, 1, 1 + 1e-4, 0.5 + 1e-4, 1.5);
  EXPECT_EQ(b.name, "p");
  EXPECT_EQ(b.layer, 3);
}

TEST(BinaryPoly, MediumPolygonIsDecomposedAndEveryPieceLinked) {
  for (bool cuboids_only : {false, true}) {
    record_feeder f(cuboids_only);
    ASSERT_TRUE(f.medium());
    // An L, clockwise: repaired, turned and split.
    ASSERT_TRUE(f.feed(11, polygon(0, 1, {{0, 0}, {0, 2}, {1, 2}, {1, 1}, {2, 1}, {2, 0}}, 0, "")));
    ASSERT_GE(f.raw.medium_blocks.size(), 2u);
    for (const medium_block& b : f.raw.medium_blocks) {
      EXPECT_EQ(b.net, &f.raw.medium_nets[0]);
      EXPECT_EQ(b.side_tan, 0.0);
      EXPECT_EQ(b.shape_kind, cuboids_only ? shape_cuboid : shape_prism);
    }
    EXPECT_EQ(f.raw.medium_nets[0].blocks.size(), f.raw.medium_blocks.size());
    // The dump prints the outline as read, not the pieces.
    EXPECT_NE(f.dump.text.find("(0.000000,0.000000)(0.000000,2.000000)(1.000000,2.000000)"), std::string::npos);
  }
}

TEST(BinaryPoly, EmptyPolygonFilesNothingAndStillDumps) {
  record_feeder f;
  ASSERT_TRUE(f.conductor());
  ASSERT_TRUE(f.feed(11, polygon(0, 1, {}, 0, "")));
  EXPECT_TRUE(f.raw.wire_blocks.empty());
  EXPECT_EQ(f.dump.text,
            "<conductor>\n\tname c\n\t<poly>\n\t\tlayer 0\n\t\tbasepoint(0,0,0.000000)\n\t\tv1(1,0,0)\n\t\tv2(0,1,0)\n"
            "\t\thvector(0,0,1.000000)\n\t\t<coord>\n\t\t\t\n\t\t</coord>\n\t</poly>\n");
}

TEST(BinaryPoly, SixtyThreeVerticesAreReadSixtyFourThrow) {
  record_feeder f;
  ASSERT_TRUE(f.conductor());
  ASSERT_TRUE(f.feed(11, polygon(0, 1, regular(63, 10.0), 0, "round")));
  EXPECT_GE(f.raw.wire_blocks.size(), 20u);
  const std::size_t filed = f.raw.wire_blocks.size();
  for (int count : {64, 100, 127, 192, 255}) {
    try {
      f.feed(11, polygon(0, 1, regular(64, 10.0), 0, "big", count));
      ADD_FAILURE() << "no throw for " << count;
    } catch (const std::length_error& e) {
      EXPECT_STREQ(e.what(), "cannot create std::vector larger than max_size()");
    }
  }
  EXPECT_EQ(f.raw.wire_blocks.size(), filed);  // what was filed before stays
}

TEST(BinaryPoly, CountAboveOneTwentySevenWrapsAndMustStillFit) {
  record_feeder f;
  ASSERT_TRUE(f.conductor());
  // 131 wraps to 3 vertices: the triangle is read, then layer and name from
  // where the wrapped count puts them.
  ASSERT_TRUE(f.feed(11, polygon(0, 1, {{0, 0}, {1, 0}, {0, 1}}, 5, "tri", 131))) << f.log.error();
  ASSERT_EQ(f.raw.wire_blocks.size(), 1u);
  EXPECT_EQ(f.raw.wire_blocks[0].prism().size, 3u);
  EXPECT_EQ(f.raw.wire_blocks[0].layer, 5);
  EXPECT_EQ(f.raw.wire_blocks[0].name, "tri");
  // 140 wraps to 12 vertices, more than the payload holds: rejected.
  EXPECT_FALSE(f.feed(11, polygon(0, 1, {{0, 0}, {1, 0}, {0, 1}}, 5, "tri", 140)));
  EXPECT_EQ(f.log.error(), syntax_line);
  EXPECT_EQ(f.raw.wire_blocks.size(), 1u);
}

TEST(BinaryPoly, VertexListLongerThanThePayloadIsRejected) {
  record_feeder f;
  std::string body = polygon(0, 1, {{0, 0}, {1, 0}, {1, 1}, {0, 1}}, 1, "");
  body.resize(body.size() - 4);  // the layer and the end of the last vertex are missing
  EXPECT_FALSE(f.feed(11, body));
  EXPECT_EQ(f.log.error(), syntax_line);
  EXPECT_TRUE(f.parser.pending_shapes.empty());
}

// The cylinder member (the record type of a cylinder is refused): a cylinder
// filed in the open conductor, or with cuboids only the square of equal area,
// whose half side the dump gives as its radius.
TEST(BinaryCylinder, MemberMakesCylinderOrEqualAreaSquare) {
  const std::string p = payload().f64(1).f64(2).f64(3).f64(2.0).f64(0.5).i16(6).text("cyl").data;
  for (bool cuboids_only : {false, true}) {
    SCOPED_TRACE(cuboids_only);
    record_feeder f(cuboids_only);
    ASSERT_TRUE(f.conductor());
    const char* cursor = p.data();
    ASSERT_TRUE(f.parser.parseBinCylinder(cursor, static_cast<short>(p.size())));
    ASSERT_EQ(f.raw.wire_blocks.size(), 1u);
    const wire_block& b = f.raw.wire_blocks[0];
    EXPECT_EQ(b.layer, 6);
    EXPECT_EQ(b.net, &f.raw.wire_nets[0]);
    const double d = cuboids_only ? 2.0 * 0.886226925452759 : 2.0;
    expect_box(b.outer_box, 1 - d, 2 - d, 2.5, 1 + d, 2 + d, 3.5);
    ASSERT_EQ(b.shape_kind, cuboids_only ? shape_cuboid : shape_cylinder);
    EXPECT_NE(f.dump.text.find(cuboids_only ? "\t\tradius 1.772454\n\t\theight 0.500000\n"
                                            : "\t<block>\n\t\tname cyl\n\t\tlayer 6\n\t\tbasepoint(1.000000,"
                                              "2.000000,3.000000)\n\t\tradius 2.000000\n\t\theight 0.500000\n"),
              std::string::npos)
        << f.dump.text;
  }
  record_feeder f;
  const char* cursor = p.data();
  EXPECT_FALSE(f.parser.parseBinCylinder(cursor, 41));  // shorter than its fields
  EXPECT_TRUE(f.parser.pending_shapes.empty());
}

TEST(BinarySolids, GeometryErrorsLeaveParseAsExceptions) {
  testing::log_capture log;
  testing::temp_dir dir;
  binary_bytes b;
  b.record(8, std::string(1, '\0') + "c");
  b.record(10, block(0, 0, 0, 1, 1, 1, 0, "kept"));
  b.record(11, polygon(0, 1, regular(64, 1.0), 0, "big"));
  const std::string path = dir.file("big.bin");
  std::ofstream(path, std::ios::binary) << b.data;
  circuit_layout::raw raw;
  Cap3dParser parser(raw, 1, true, false);
  EXPECT_THROW(parser.parse(path, dir.file("big.dump")), std::length_error);
  EXPECT_EQ(parser.dump, nullptr);  // the dump's writer is gone, and so is the pointer
  EXPECT_EQ(raw.wire_blocks.size(), 1u);
}

}  // namespace
}  // namespace torva
