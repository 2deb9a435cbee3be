// <block> and <poly> sections: boxes, leaning blocks, cylinders, polygons in
// conductors and media, the bad-geometry reports, and the bundled examples.
#include <gtest/gtest.h>

#include <cstdlib>
#include <deque>
#include <string>
#include <vector>

#include "torva/foundation/errors.h"
#include "torva/layout/cap3d_parser.h"
#include "torva/layout/internal/binary_test_support.h"
#include "torva/layout/internal/parse_fixture.h"
#include "torva/layout/internal/shapes.h"

namespace torva {
namespace {

using internal::expect_box;
using internal::parse_fixture;
using vertices_t = std::vector<std::pair<double, double>>;

std::string conductor(const std::string& body) {
  return "<cap3d>\n<conductor> name c\n" + body + "\n</conductor>\n</cap3d>\n";
}
std::string medium(const std::string& body) { return "<cap3d>\n<medium> name m diel 2\n" + body + "\n</medium>\n</cap3d>\n"; }

// The plain cuboid shape: solid, both boxes and both piece lists agree.
void expect_cuboid_shape(const shape_t& s, double x0, double y0, double z0, double x1, double y1, double z1) {
  ASSERT_EQ(s.shape_kind, shape_cuboid);
  ASSERT_EQ(s.inner_pieces.size(), 1u);
  ASSERT_EQ(s.outer_pieces.size(), 1u);
  for (const cuboid_t* box : {&s.cuboid(), &s.inner_box, &s.outer_box, &s.inner_pieces[0], &s.outer_pieces[0]})
    expect_box(*box, x0, y0, z0, x1, y1, z1);
}

void expect_vertices(const nprism_t& p, const vertices_t& vertices) {
  ASSERT_EQ(p.size, vertices.size());
  for (std::size_t k = 0; k < vertices.size(); ++k) {
    EXPECT_DOUBLE_EQ(p.points[k][0].value, vertices[k].first) << "vertex " << k;
    EXPECT_DOUBLE_EQ(p.points[k][1].value, vertices[k].second) << "vertex " << k;
  }
}

TEST(Block, OnlyTheDiagonalOfTheEdgeVectorsCounts) {
  for (const char* v1 : {"v1(4,0,0)", "v1(4,9,9)"}) {
    parse_fixture f;
    ASSERT_TRUE(f.parse(conductor(std::string("<block> basepoint(1,2,3) ") + v1 + " v2(0,5,0) hvector(0,0,6) </block>")));
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
  // Without slices a leaning block vanishes.
  parse_fixture h;
  h.slices = 0;
  ASSERT_TRUE(h.parse(conductor("<block> v1(1,0,0) v2(0,1,0) hvector(0,0,1) side_tan 0.1 </block>\n"
                                "<block> v1(1,0,0) v2(0,1,0) hvector(0,0,1) </block>")));
  ASSERT_EQ(h.raw.wire_blocks.size(), 1u);  // only the upright one
  EXPECT_EQ(h.raw.wire_nets.at(0).blocks.size(), 1u);
  EXPECT_EQ(h.log.error(), "");
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
  ASSERT_TRUE(f.parse(conductor("<block> basepoint(1,2,3) radius 2 height 4 side_tan 0.5 rho 1.7 </block>\n"
                                "<block> basepoint(0,0,5) radius 1 </block>\n"
                                "<block> basepoint(0,0,0) v1(1,0,0) v2(0,1,0) hvector(0,0,1) radius -1 </block>")));
  ASSERT_EQ(f.raw.wire_blocks.size(), 3u);  // the side tan does not slice a cylinder
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
  // without a height it stands upside down; a radius of -1 is no radius
  EXPECT_EQ(f.raw.wire_blocks[1].shape_kind, shape_cylinder);
  expect_box(f.raw.wire_blocks[1].outer_box, -1, -1, 6, 1, 1, 4);
  expect_cuboid_shape(f.raw.wire_blocks[2], 0, 0, 0, 1, 1, 1);
}

// A medium takes a polygon as it stands: the first four points, a triangle
// closed on its first vertex (a base point counted twice in it), fewer points
// leaving zeros, clockwise kept. Cuboids-only has no say over it.
TEST(Poly, InAMediumTheFirstFourPointsAsTheyStand) {
  parse_fixture f;
  f.cuboids_only = true;
  ASSERT_TRUE(f.parse(medium("<poly> hvector(0,0,2) side_tan 0.3 <coord> 0,0 4,0 0,3 </coord> </poly>\n"
                             "<poly> basepoint(10,20,1) hvector(0,0,2) <coord> 0,0 4,0 0,3 </coord> </poly>\n"
                             "<poly> basepoint(1,1,0) <coord> 0,0 2,0 </coord> <coord> 2,2 0,2 9,9 </coord> </poly>\n"
                             "<poly> basepoint(1,1,0) <coord> 0 0 3 0 </coord> </poly>\n"
                             "<poly> <coord> 0,0 0,1 1,1 1,0 </coord> </poly>")));
  const vertices_t expected[] = {{{0, 0}, {4, 0}, {0, 3}, {0, 0}},
                                 {{10, 20}, {14, 20}, {10, 23}, {20, 40}},
                                 {{1, 1}, {3, 1}, {3, 3}, {1, 3}},
                                 {{1, 1}, {4, 1}, {0, 0}, {0, 0}},
                                 {{0, 0}, {0, 1}, {1, 1}, {1, 0}}};
  ASSERT_EQ(f.raw.medium_blocks.size(), std::size(expected));
  for (std::size_t k = 0; k < std::size(expected); ++k) {
    SCOPED_TRACE(k);
    ASSERT_EQ(f.raw.medium_blocks[k].shape_kind, shape_prism);
    expect_vertices(f.raw.medium_blocks[k].prism(), expected[k]);
  }
  const medium_block& b = f.raw.medium_blocks[0];
  EXPECT_DOUBLE_EQ(b.side_tan, 0.3);
  expect_box(b.outer_box, 0, 0, 0, 4, 3, 2);
  expect_box(b.inner_box, 1 - 0.0001, 0.75 - 0.0001, 0, 1 + 0.0001, 0.75 + 0.0001, 2);
}

// A conductor hands the polygon, moved to its base point, to the convex
// decomposition and files every piece under the polygon's name and layer.
TEST(Poly, InAConductorPiecesShareNameLayerAndHeights) {
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
  // Cuboids-only gives the pieces' bounding boxes.
  parse_fixture g;
  g.cuboids_only = true;
  ASSERT_TRUE(g.parse(conductor("<poly> basepoint(0,0,1) hvector(0,0,1) <coord> 0,0 2,0 2,1 1,1 1,2 0,2 </coord> </poly>")));
  ASSERT_EQ(g.raw.wire_blocks.size(), 2u);
  expect_cuboid_shape(g.raw.wire_blocks[0], 0, 0, 1, 2, 1, 2);
  expect_cuboid_shape(g.raw.wire_blocks[1], 0, 0, 1, 1, 2, 2);
}

TEST(Poly, SkippedKeysBrokenOutlinesAndPolygonsOutsideASection) {
  // v1 and v2 are skipped whatever they hold; rho is fine in a conductor
  parse_fixture f;
  ASSERT_TRUE(f.parse(conductor("<poly> v1 name x y v2 1 2 3 rho 4 hvector(9,9,2) <coord> 0,0 1,0 1,1 </coord> </poly>")));
  ASSERT_EQ(f.raw.wire_blocks.size(), 1u);
  EXPECT_EQ(f.raw.wire_blocks[0].name, "");
  EXPECT_DOUBLE_EQ(f.raw.wire_blocks[0].prism().top.value, 2);
  // an outline that cannot be repaired gives no piece and a warning only
  parse_fixture g;
  ASSERT_TRUE(g.parse(conductor("<poly> <coord> 0,0 1,0 2,0 </coord> </poly> <poly> </poly>")));
  EXPECT_TRUE(g.raw.wire_blocks.empty());
  EXPECT_EQ(g.raw.wire_nets.size(), 1u);
  EXPECT_NE(g.log.warning(), "");
  EXPECT_EQ(g.log.error(), "");
  // outside a conductor and a medium a polygon is ignored
  parse_fixture h;
  ASSERT_TRUE(h.parse("<cap3d> <poly> <coord> 0,0 1,0 1,1 </coord> </poly> </cap3d>\n"));
  EXPECT_TRUE(h.raw.wire_blocks.empty());
  EXPECT_TRUE(h.raw.medium_blocks.empty());
  EXPECT_EQ(h.log.error(), "");
}

TEST(BothFlags, ABlockCountsAsMediumAndAPolyAsConductor) {
  parse_fixture f;
  f.slices = 3;
  ASSERT_TRUE(f.parse("<cap3d> <conductor> <medium> name m\n"
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

// The bundled example of shapes reads cleanly into what its comments say: a
// tapered wire in slices, a via cylinder, a U in convex pieces, a cap
// dielectric with a leaning block and polygons as they stand.
TEST(Example, ShapesLayoutReadsIntoItsShapes) {
  const char* source = std::getenv("TORVA_SOURCE_DIR");
  ASSERT_NE(source, nullptr);
  _WIRE_BLOCK_LAYER_NAME_.clear();
  testing::log_capture log;
  circuit_layout::raw raw;
  ASSERT_TRUE(Cap3dParser(raw, 2, true, false).parse(std::string(source) + "/examples/shapes.cap3d", ""));
  EXPECT_EQ(log.error() + log.warning(), "");
  ASSERT_EQ(raw.wire_nets.size(), 2u);
  const wire_net& net1 = raw.wire_nets[0];
  ASSERT_EQ(net1.blocks.size(), 4u);  // two slices, the via, the pad
  expect_cuboid_shape(*net1.blocks[0], 1.05, 3.55, 1.5, 6.95, 4.45, 2.0);
  expect_cuboid_shape(*net1.blocks[1], 0.95, 3.45, 2.0, 7.05, 4.55, 2.5);
  ASSERT_EQ(net1.blocks[2]->shape_kind, shape_cylinder);
  expect_box(net1.blocks[2]->outer_box, 3.75, 3.75, 2.5, 4.25, 4.25, 3.5);
  EXPECT_EQ(_WIRE_BLOCK_LAYER_NAME_, (std::deque<std::string>{"M1", "V1", "M2"}));
  ASSERT_GE(raw.wire_nets[1].blocks.size(), 2u);
  for (const wire_block* b : raw.wire_nets[1].blocks) EXPECT_LE(b->prism().size, 4u);
  ASSERT_EQ(raw.medium_nets.size(), 2u);  // the plate's body first, then the cap
  const medium_net& cap = raw.medium_nets[1];
  ASSERT_EQ(cap.blocks.size(), 3u);
  EXPECT_DOUBLE_EQ(cap.blocks[0]->side_tan, 0.1);
  expect_vertices(cap.blocks[1]->prism(), {{0, 0}, {4, 1}, {8, 0}, {4, 4}});  // concave, as it stands
  expect_vertices(cap.blocks[2]->prism(), {{0, 8}, {4, 5}, {8, 8}, {0, 8}});
  _WIRE_BLOCK_LAYER_NAME_.clear();
}

}  // namespace
}  // namespace torva
