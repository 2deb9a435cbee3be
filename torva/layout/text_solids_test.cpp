// <block> and <poly> sections: boxes, leaning blocks, cylinders, polygons in
// conductors and media, and the bad-geometry reports.
#include <gtest/gtest.h>

#include <cstdlib>
#include <deque>
#include <fstream>
#include <sstream>
#include <string>
#include <unordered_set>

#include "torva/foundation/errors.h"
#include "torva/layout/cap3d_parser.h"
#include "torva/layout/internal/parse_fixture.h"
#include "torva/layout/internal/shapes.h"

namespace torva {
namespace {

using internal::parse_fixture;

std::string conductor(const std::string& body) {
  return "<cap3d>\n<conductor> name c\n" + body + "\n</conductor>\n</cap3d>\n";
}
std::string medium(const std::string& body) {
  return "<cap3d>\n<medium> name m diel 2\n" + body + "\n</medium>\n</cap3d>\n";
}

void expect_box(const cuboid_t& box, double x0, double y0, double z0, double x1, double y1, double z1) {
  EXPECT_DOUBLE_EQ(box.lower[0].value, x0);
  EXPECT_DOUBLE_EQ(box.lower[1].value, y0);
  EXPECT_DOUBLE_EQ(box.lower[2].value, z0);
  EXPECT_DOUBLE_EQ(box.upper[0].value, x1);
  EXPECT_DOUBLE_EQ(box.upper[1].value, y1);
  EXPECT_DOUBLE_EQ(box.upper[2].value, z1);
}

// The plain cuboid shape: solid, both boxes and both piece lists agree.
void expect_cuboid_shape(const shape_t& s, double x0, double y0, double z0, double x1, double y1, double z1) {
  ASSERT_EQ(s.shape_kind, shape_cuboid);
  expect_box(s.cuboid(), x0, y0, z0, x1, y1, z1);
  expect_box(s.inner_box, x0, y0, z0, x1, y1, z1);
  expect_box(s.outer_box, x0, y0, z0, x1, y1, z1);
  ASSERT_EQ(s.inner_pieces.size(), 1u);
  ASSERT_EQ(s.outer_pieces.size(), 1u);
  expect_box(s.inner_pieces[0], x0, y0, z0, x1, y1, z1);
  expect_box(s.outer_pieces[0], x0, y0, z0, x1, y1, z1);
}

void expect_vertices(const nprism_t& p, std::initializer_list<std::pair<double, double>> vertices) {
  ASSERT_EQ(p.size, vertices.size());
  std::size_t k = 0;
  for (const auto& [x, y] : vertices) {
    EXPECT_DOUBLE_EQ(p.points[k][0].value, x) << "vertex " << k;
    EXPECT_DOUBLE_EQ(p.points[k][1].value, y) << "vertex " << k;
    ++k;
  }
}

TEST(Block, OnlyTheDiagonalOfTheEdgeVectorsCounts) {
  for (const char* v1 : {"v1(4,0,0)", "v1(4,9,9)"}) {
    parse_fixture f;
    ASSERT_TRUE(f.parse(conductor(std::string("<block> basepoint(1,2,3) ") + v1 +
                                  " v2(0,5,0) hvector(0,0,6) </block>")));
    ASSERT_EQ(f.raw.wire_blocks.size(), 1u);
    expect_cuboid_shape(f.raw.wire_blocks[0], 1, 2, 3, 5, 7, 9);
    EXPECT_EQ(f.raw.wire_blocks[0].layer, 0);  // no "@" and an empty list: the empty name at 0
  }
}

TEST(Block, LeaningBlockIsCutIntoCentredSlices) {
  parse_fixture f;
  f.slices = 2;
  ASSERT_TRUE(f.parse(conductor(
      "<block> name lean layer 3 basepoint(0,0,0) v1(4,0,0) v2(0,4,0) hvector(0,0,2) side_tan 0.5 </block>")));
  ASSERT_EQ(f.raw.wire_blocks.size(), 2u);
  expect_cuboid_shape(f.raw.wire_blocks[0], 0.25, 0.25, 0, 3.75, 3.75, 1);
  expect_cuboid_shape(f.raw.wire_blocks[1], -0.25, -0.25, 1, 4.25, 4.25, 2);
  for (const wire_block& b : f.raw.wire_blocks) {
    EXPECT_EQ(b.name, "lean");
    EXPECT_EQ(b.layer, 3);
  }
}

TEST(Block, LeaningBlockWithThreeSlicesStaysOnItsAxis) {
  parse_fixture f;
  f.slices = 3;
  ASSERT_TRUE(f.parse(conductor(
      "<block> basepoint(1,1,0) v1(2,0,0) v2(0,6,0) hvector(0,0,3) side_tan -0.25 </block>")));
  ASSERT_EQ(f.raw.wire_blocks.size(), 3u);
  for (std::size_t k = 0; k < 3; ++k) {
    const cuboid_t& c = f.raw.wire_blocks[k].cuboid();
    EXPECT_DOUBLE_EQ((c.lower[0] + c.upper[0]).value / 2, 2.0);
    EXPECT_DOUBLE_EQ((c.lower[1] + c.upper[1]).value / 2, 4.0);
    EXPECT_DOUBLE_EQ(c.lower[2].value, static_cast<double>(k));
    EXPECT_DOUBLE_EQ(c.upper[2].value, static_cast<double>(k + 1));
  }
  // a negative side tan narrows upwards: the middle slice has the full width
  EXPECT_DOUBLE_EQ(f.raw.wire_blocks[1].cuboid().upper[0].value - f.raw.wire_blocks[1].cuboid().lower[0].value, 2.0);
  EXPECT_GT(f.raw.wire_blocks[0].cuboid().upper[0].value, f.raw.wire_blocks[2].cuboid().upper[0].value);
}

TEST(Block, LeaningBlockVanishesWithoutSlices) {
  parse_fixture f;
  f.slices = 0;
  ASSERT_TRUE(f.parse(conductor("<block> v1(1,0,0) v2(0,1,0) hvector(0,0,1) side_tan 0.1 </block>\n"
                                "<block> v1(1,0,0) v2(0,1,0) hvector(0,0,1) </block>")));
  ASSERT_EQ(f.raw.wire_blocks.size(), 1u);  // only the upright one
  EXPECT_EQ(f.raw.wire_nets.at(0).blocks.size(), 1u);
  EXPECT_EQ(f.log.error(), "");
}

TEST(Block, InAMediumKeepsItsSideTanAndIsNeverSliced) {
  parse_fixture f;
  f.slices = 4;
  ASSERT_TRUE(f.parse(medium("<block> basepoint(0,0,1) v1(2,0,0) v2(0,3,0) hvector(0,0,4) side_tan 0.5 </block>")));
  ASSERT_EQ(f.raw.medium_blocks.size(), 1u);
  expect_cuboid_shape(f.raw.medium_blocks[0], 0, 0, 1, 2, 3, 5);
  EXPECT_DOUBLE_EQ(f.raw.medium_blocks[0].side_tan, 0.5);
}

TEST(Block, CylinderShapeAndItsBoxes) {
  parse_fixture f;
  ASSERT_TRUE(f.parse(conductor("<block> basepoint(1,2,3) radius 2 height 4 side_tan 0.5 rho 1.7 </block>")));
  ASSERT_EQ(f.raw.wire_blocks.size(), 1u);  // the side tan does not slice a cylinder
  const wire_block& b = f.raw.wire_blocks[0];
  ASSERT_EQ(b.shape_kind, shape_cylinder);
  EXPECT_DOUBLE_EQ(b.cylinder().radius.value, 2);
  EXPECT_DOUBLE_EQ(b.cylinder().half_height.value, 2);
  EXPECT_DOUBLE_EQ(b.cylinder().center[2].value, 3);
  const double s = 0.7071067811865476 * 2;
  expect_box(b.inner_box, 1 - s, 2 - s, 1, 1 + s, 2 + s, 5);
  expect_box(b.outer_box, -1, 0, 1, 3, 4, 5);
  ASSERT_EQ(b.inner_pieces.size(), 1u);
  expect_box(b.inner_pieces[0], 1 - s, 2 - s, 1, 1 + s, 2 + s, 5);
  expect_box(b.outer_pieces.at(0), -1, 0, 1, 3, 4, 5);
}

TEST(Block, CylinderWithoutHeightIsUpsideDownAndRadiusMinusOneIsNoRadius) {
  parse_fixture f;
  ASSERT_TRUE(f.parse(conductor("<block> basepoint(0,0,5) radius 1 </block>\n"
                                "<block> basepoint(0,0,0) v1(1,0,0) v2(0,1,0) hvector(0,0,1) radius -1 </block>")));
  ASSERT_EQ(f.raw.wire_blocks.size(), 2u);
  EXPECT_EQ(f.raw.wire_blocks[0].shape_kind, shape_cylinder);
  expect_box(f.raw.wire_blocks[0].outer_box, -1, -1, 6, 1, 1, 4);
  expect_cuboid_shape(f.raw.wire_blocks[1], 0, 0, 0, 1, 1, 1);
}

TEST(Block, CylinderAsCuboidOfEqualArea) {
  parse_fixture f;
  f.cuboids_only = true;
  ASSERT_TRUE(f.parse(conductor("<block> basepoint(1,1,1) radius 2 height 2 </block>")));
  const double d = 2 * 0.886226925452759;
  expect_cuboid_shape(f.raw.wire_blocks.at(0), 1 - d, 1 - d, 0, 1 + d, 1 + d, 2);
}

TEST(Block, ConductorOnlyKeysAndUnknownKeys) {
  for (const char* key : {"rho", "radius", "height"}) {
    parse_fixture f;
    EXPECT_FALSE(f.parse(medium(std::string("<block> ") + key + " 1 </block>")));
    EXPECT_EQ(f.log.error(), std::string("ERROR: (Syntax) \"") + key + "\".\n");
  }
  parse_fixture f;
  EXPECT_FALSE(f.parse(conductor("<block> width 1 </block>")));
  EXPECT_EQ(f.log.error(), "ERROR: (Syntax) \"width\".\n");
  f.log.clear();
  EXPECT_FALSE(f.parse(conductor("<block> <coord> 1 2 </coord> </block>")));
  EXPECT_EQ(f.log.error(), "ERROR: (Syntax) \"<coord>\".\n");
}

TEST(Poly, InAMediumTheTriangleClosesOnItsFirstVertex) {
  parse_fixture f;
  ASSERT_TRUE(f.parse(medium("<poly> hvector(0,0,2) side_tan 0.3 <coord> 0,0 4,0 0,3 </coord> </poly>")));
  ASSERT_EQ(f.raw.medium_blocks.size(), 1u);
  const medium_block& b = f.raw.medium_blocks[0];
  ASSERT_EQ(b.shape_kind, shape_prism);
  expect_vertices(b.prism(), {{0, 0}, {4, 0}, {0, 3}, {0, 0}});
  EXPECT_DOUBLE_EQ(b.side_tan, 0.3);
  expect_box(b.outer_box, 0, 0, 0, 4, 3, 2);
  expect_box(b.inner_box, 1 - 0.0001, 0.75 - 0.0001, 0, 1 + 0.0001, 0.75 + 0.0001, 2);
}

TEST(Poly, InAMediumABasePointCountsTwiceInTheClosingVertex) {
  parse_fixture f;
  ASSERT_TRUE(f.parse(medium("<poly> basepoint(10,20,1) hvector(0,0,2) <coord> 0,0 4,0 0,3 </coord> </poly>")));
  expect_vertices(f.raw.medium_blocks.at(0).prism(), {{10, 20}, {14, 20}, {10, 23}, {20, 40}});
}

TEST(Poly, InAMediumOnlyTheFirstFourPointsCountAndFewerLeaveZeros) {
  parse_fixture f;
  f.cuboids_only = true;  // has no say over a medium polygon
  ASSERT_TRUE(f.parse(medium("<poly> basepoint(1,1,0) <coord> 0,0 2,0 </coord> <coord> 2,2 0,2 9,9 </coord> </poly>\n"
                             "<poly> basepoint(1,1,0) <coord> 0 0 3 0 </coord> </poly>")));
  ASSERT_EQ(f.raw.medium_blocks.size(), 2u);
  expect_vertices(f.raw.medium_blocks[0].prism(), {{1, 1}, {3, 1}, {3, 3}, {1, 3}});
  expect_vertices(f.raw.medium_blocks[1].prism(), {{1, 1}, {4, 1}, {0, 0}, {0, 0}});
}

TEST(Poly, InAMediumClockwiseStaysAsItStands) {
  parse_fixture f;
  ASSERT_TRUE(f.parse(medium("<poly> <coord> 0,0 0,1 1,1 1,0 </coord> </poly>")));
  expect_vertices(f.raw.medium_blocks.at(0).prism(), {{0, 0}, {0, 1}, {1, 1}, {1, 0}});
}

TEST(Poly, InAConductorAConvexPentagonGivesPiecesOfOneName) {
  parse_fixture f;
  ASSERT_TRUE(f.parse(conductor(
      "<poly> name pent@M1 layer 2 basepoint(1,0,1) hvector(0,0,3) <coord> 0,0 2,0 3,1 1,3 -1,1 </coord> </poly>")));
  ASSERT_EQ(f.raw.wire_blocks.size(), 2u);
  expect_vertices(f.raw.wire_blocks[0].prism(), {{1, 0}, {3, 0}, {4, 1}, {2, 3}});
  expect_vertices(f.raw.wire_blocks[1].prism(), {{1, 0}, {2, 3}, {0, 1}});
  for (const wire_block& b : f.raw.wire_blocks) {
    EXPECT_EQ(b.name, "pent");
    EXPECT_EQ(b.layer, 2);
    EXPECT_DOUBLE_EQ(b.prism().bottom.value, 1);
    EXPECT_DOUBLE_EQ(b.prism().top.value, 4);
    EXPECT_EQ(b.net, &f.raw.wire_nets.at(0));
  }
}

TEST(Poly, InAConductorClockwiseIsTurnedAndAnLIsSplit) {
  parse_fixture f;
  ASSERT_TRUE(f.parse(conductor("<poly> hvector(0,0,1) <coord> 0,0 0,1 1,1 1,0 </coord> </poly>\n"
                                "<poly> hvector(0,0,1) <coord> 0,0 2,0 2,1 1,1 1,2 0,2 </coord> </poly>")));
  ASSERT_EQ(f.raw.wire_blocks.size(), 3u);
  expect_vertices(f.raw.wire_blocks[0].prism(), {{1, 0}, {1, 1}, {0, 1}, {0, 0}});
  expect_vertices(f.raw.wire_blocks[1].prism(), {{0, 0}, {2, 0}, {2, 1}, {1, 1}});
  expect_vertices(f.raw.wire_blocks[2].prism(), {{1, 1}, {1, 2}, {0, 2}, {0, 0}});
}

TEST(Poly, InAConductorCuboidsOnlyGivesBoundingBoxes) {
  parse_fixture f;
  f.cuboids_only = true;
  ASSERT_TRUE(f.parse(conductor("<poly> basepoint(0,0,1) hvector(0,0,1) <coord> 0,0 2,0 2,1 1,1 1,2 0,2 </coord> </poly>")));
  ASSERT_EQ(f.raw.wire_blocks.size(), 2u);
  expect_cuboid_shape(f.raw.wire_blocks[0], 0, 0, 1, 2, 1, 2);
  expect_cuboid_shape(f.raw.wire_blocks[1], 0, 0, 1, 1, 2, 2);
}

TEST(Poly, ABrokenOutlineGivesNoPieceAndAWarningOnly) {
  parse_fixture f;
  ASSERT_TRUE(f.parse(conductor("<poly> <coord> 0,0 1,0 2,0 </coord> </poly> <poly> </poly>")));
  EXPECT_TRUE(f.raw.wire_blocks.empty());
  EXPECT_EQ(f.raw.wire_nets.size(), 1u);
  EXPECT_NE(f.log.warning(), "");
  EXPECT_EQ(f.log.error(), "");
}

TEST(Poly, OutsideConductorAndMediumIsIgnored) {
  parse_fixture f;
  ASSERT_TRUE(f.parse("<cap3d> <poly> <coord> 0,0 1,0 1,1 </coord> </poly> </cap3d>\n"));
  EXPECT_TRUE(f.raw.wire_blocks.empty());
  EXPECT_TRUE(f.raw.medium_blocks.empty());
  EXPECT_EQ(f.log.error(), "");
}

TEST(Poly, KeysAndErrors) {
  parse_fixture f;
  EXPECT_FALSE(f.parse(conductor("<poly> <coord> 0,0 1 </coord> </poly>")));
  EXPECT_EQ(f.log.error(), "ERROR: (Syntax) \"</coord>\".\n");
  f.log.clear();
  EXPECT_FALSE(f.parse(medium("<poly> rho 2 </poly>")));
  EXPECT_EQ(f.log.error(), "ERROR: (Syntax) \"rho\".\n");
  f.log.clear();
  EXPECT_FALSE(f.parse(conductor("<poly> radius 2 </poly>")));
  EXPECT_EQ(f.log.error(), "ERROR: (Syntax) \"radius\".\n");
  f.log.clear();
  // v1 and v2 are skipped whatever they hold; rho is fine in a conductor
  parse_fixture g;
  ASSERT_TRUE(g.parse(conductor("<poly> v1 name x y v2 1 2 3 rho 4 hvector(9,9,2) <coord> 0,0 1,0 1,1 </coord> </poly>")));
  ASSERT_EQ(g.raw.wire_blocks.size(), 1u);
  EXPECT_EQ(g.raw.wire_blocks[0].name, "");
  EXPECT_DOUBLE_EQ(g.raw.wire_blocks[0].prism().top.value, 2);
}

TEST(BothFlags, ABlockCountsAsMediumAndAPolyAsConductor) {
  parse_fixture f;
  f.slices = 3;
  ASSERT_TRUE(f.parse(
      "<cap3d> <conductor> <medium> name m\n"
      "<block> v1(1,0,0) v2(0,1,0) hvector(0,0,1) side_tan 0.5 </block>\n"
      "<poly> <coord> 0,0 2,0 3,1 1,3 -1,1 </coord> </poly>\n"
      "</medium> </cap3d>\n"));
  // one unsliced block and two polygon pieces, all filed by the medium close
  ASSERT_EQ(f.raw.medium_blocks.size(), 3u);
  EXPECT_EQ(f.raw.medium_blocks[0].shape_kind, shape_cuboid);
  EXPECT_DOUBLE_EQ(f.raw.medium_blocks[0].side_tan, 0.5);
  EXPECT_EQ(f.raw.medium_blocks[1].prism().size, 4u);
  EXPECT_EQ(f.raw.medium_blocks[2].prism().size, 3u);
}

TEST(Poly, APieceThatIsNotAnticlockwiseIsReportedAndThrown) {
  // A self-crossing outline whose split leaves a clockwise piece.
  parse_fixture f;
  try {
    f.parse(conductor("<poly> basepoint(0,0,0.5) hvector(0,0,1) <coord> 3,2 2,2 3,1 2,3 1,1 </coord> </poly>"));
    ADD_FAILURE() << "no throw";
  } catch (const sea::fatal_error& e) {
    EXPECT_STREQ(e.what(), "GEOMETRY ERROR. \n");
  }
  EXPECT_EQ(f.log.error(), "ERROR: (Geometry) convex vertex should be anticlock.\n");
  const std::string& detail = f.log.detail();
  EXPECT_EQ(detail.rfind("pt 0:(", 0), 0u);
  const std::string z = "z <min:0.500000000000;max: 1.500000000000>\n";
  ASSERT_GE(detail.size(), z.size());
  EXPECT_EQ(detail.substr(detail.size() - z.size()), z);
  EXPECT_TRUE(f.raw.wire_blocks.empty());  // the conductor never closed
}

TEST(Shapes, PrismOfTooFewOrTooManyVertices) {
  for (std::size_t n : {2u, 9u}) {
    testing::log_capture log;
    nprism_large_t poly;
    for (std::size_t k = 0; k < n; ++k) poly.points.push_back(point2{static_cast<double>(k), 0.0});
    poly.size = n;
    try {
      internal::make_prism_shape(poly);
      ADD_FAILURE() << n;
    } catch (const sea::fatal_error& e) {
      EXPECT_STREQ(e.what(), "GEOMETRY ERROR.\n");
    }
    EXPECT_EQ(log.error(), "ERROR: vertex number not supported.\n");
  }
}

TEST(Shapes, BadPieceReportListsVerticesAndHeights) {
  testing::log_capture log;
  nprism_large_t piece;
  piece.points = {point2{0.5, 1.0}, point2{-2.0, 3.25}};
  piece.size = 2;
  piece.bottom = 1.0;
  piece.top = 2.5;
  try {
    internal::throw_bad_piece(piece);
  } catch (const sea::fatal_error& e) {
    EXPECT_STREQ(e.what(), "GEOMETRY ERROR. \n");
  }
  EXPECT_EQ(log.detail(),
            "pt 0:(0.500000000000, 1.000000000000)\n"
            "pt 1:(-2.000000000000, 3.250000000000)\n"
            "z <min:1.000000000000;max: 2.500000000000>\n");
}

// The bundled example: all five kinds of section, conductors, a medium and a
// plate medium, a concave polygon.
TEST(Example, BusLayoutReadsIntoItsRecords) {
  const char* source = std::getenv("TORVA_SOURCE_DIR");
  ASSERT_NE(source, nullptr);
  _WIRE_BLOCK_LAYER_NAME_.clear();
  testing::log_capture log;
  circuit_layout::raw raw;
  Cap3dParser parser(raw, 1, true, false);
  ASSERT_TRUE(parser.parse(std::string(source) + "/examples/bus.cap3d", ""));
  EXPECT_EQ(log.error(), "");
  EXPECT_EQ(log.warning(), "");

  EXPECT_EQ(raw.window_name, "bus_window");
  EXPECT_EQ(raw.boundary, 1);
  expect_box(raw.window, 0, 0, 0, 10, 10, 6);
  EXPECT_EQ(raw.thread_num, 2);
  EXPECT_EQ(raw.spice, 0);
  EXPECT_EQ(raw.out_file, "bus.out");
  EXPECT_EQ(raw.layer_types.size(), 3u);
  EXPECT_EQ(raw.layer_names.at(1), "M1");
  ASSERT_EQ(raw.plate_mediums.size(), 1u);
  EXPECT_DOUBLE_EQ(raw.plate_mediums[0].z_top.value, 4);
  ASSERT_EQ(raw.medium_nets.size(), 2u);  // the plate's body and the passivation
  EXPECT_EQ(raw.medium_nets[1].blocks.size(), 1u);
  ASSERT_EQ(raw.wire_nets.size(), 4u);
  EXPECT_EQ(raw.wire_nets[0].name, "ground");
  EXPECT_EQ(raw.wire_nets[3].blocks.size(), 2u);  // the L-shaped wire in two pieces
  EXPECT_EQ(raw.wire_blocks.size(), 5u);
  EXPECT_EQ(raw.capacitance_tasks.size(), 3u);
  // GP is listed first and M1 second; M1 gets its position from its second block on
  EXPECT_EQ(_WIRE_BLOCK_LAYER_NAME_, (std::deque<std::string>{"GP", "M1"}));
  EXPECT_EQ(raw.wire_blocks[1].layer, 0);
  EXPECT_EQ(raw.wire_blocks[2].layer, 1);
  _WIRE_BLOCK_LAYER_NAME_.clear();
}

}  // namespace
}  // namespace torva

namespace torva {
namespace {

double plan_area(const nprism_t& p) {
  double twice = 0.0;
  for (std::uint64_t k = 0; k < p.size; ++k) {
    const point2& a = p.points[k];
    const point2& b = p.points[(k + 1) % p.size];
    twice += a[0].value * b[1].value - b[0].value * a[1].value;
  }
  return twice / 2;
}

// The second bundled example: a tapered wire, a cylinder, a concave
// conductor polygon, and a medium with a leaning block and polygons.
TEST(Example, ShapesLayoutReadsIntoItsShapes) {
  const char* source = std::getenv("TORVA_SOURCE_DIR");
  ASSERT_NE(source, nullptr);
  _WIRE_BLOCK_LAYER_NAME_.clear();
  testing::log_capture log;
  circuit_layout::raw raw;
  Cap3dParser parser(raw, 2, true, false);
  ASSERT_TRUE(parser.parse(std::string(source) + "/examples/shapes.cap3d", ""));
  EXPECT_EQ(log.error(), "");
  EXPECT_EQ(log.warning(), "");

  ASSERT_EQ(raw.wire_nets.size(), 2u);
  const wire_net& net1 = raw.wire_nets[0];
  ASSERT_EQ(net1.blocks.size(), 4u);  // two slices, the via, the pad
  expect_cuboid_shape(*net1.blocks[0], 1.05, 3.55, 1.5, 6.95, 4.45, 2.0);
  expect_cuboid_shape(*net1.blocks[1], 0.95, 3.45, 2.0, 7.05, 4.55, 2.5);
  EXPECT_EQ(net1.blocks[0]->name, "taper");
  ASSERT_EQ(net1.blocks[2]->shape_kind, shape_cylinder);
  expect_box(net1.blocks[2]->outer_box, 3.75, 3.75, 2.5, 4.25, 4.25, 3.5);
  EXPECT_EQ(net1.blocks[2]->name, "via");
  expect_cuboid_shape(*net1.blocks[3], 3, 3, 3.5, 5, 5, 4);
  // layers by name: M1, V1, M2 listed in that order, each new one at 0
  EXPECT_EQ(_WIRE_BLOCK_LAYER_NAME_, (std::deque<std::string>{"M1", "V1", "M2"}));

  // The U is cut into convex pieces of at most four sides that cover it.
  const wire_net& comb = raw.wire_nets[1];
  ASSERT_GE(comb.blocks.size(), 2u);
  double area = 0.0;
  for (const wire_block* b : comb.blocks) {
    ASSERT_EQ(b->shape_kind, shape_prism);
    EXPECT_LE(b->prism().size, 4u);
    EXPECT_GT(plan_area(b->prism()), 0.0);  // anticlockwise
    EXPECT_EQ(b->name, "u");
    EXPECT_EQ(b->layer, 2);
    EXPECT_DOUBLE_EQ(b->prism().bottom.value, 3.5);
    EXPECT_DOUBLE_EQ(b->prism().top.value, 4.0);
    area += plan_area(b->prism());
  }
  EXPECT_NEAR(area, 8.0, 1e-9);

  // The plate's body first, then the cap with its three blocks.
  ASSERT_EQ(raw.medium_nets.size(), 2u);
  const medium_net& cap = raw.medium_nets[1];
  EXPECT_EQ(cap.name, "cap");
  ASSERT_EQ(cap.blocks.size(), 3u);
  expect_cuboid_shape(*cap.blocks[0], 0, 0, 4.5, 8, 8, 6);
  EXPECT_DOUBLE_EQ(cap.blocks[0]->side_tan, 0.1);
  expect_vertices(cap.blocks[1]->prism(), {{0, 0}, {4, 1}, {8, 0}, {4, 4}});  // concave, as it stands
  expect_vertices(cap.blocks[2]->prism(), {{0, 8}, {4, 5}, {8, 8}, {0, 8}});
  EXPECT_EQ(raw.capacitance_tasks, (std::unordered_set<std::string>{"net1", "comb"}));
  EXPECT_EQ(raw.boundary, 2);
  _WIRE_BLOCK_LAYER_NAME_.clear();
}

}  // namespace
}  // namespace torva
