#include "torva/layout/generator.h"

#include <gtest/gtest.h>

#include <algorithm>
#include <fstream>
#include <sstream>
#include <string>

#include "torva/foundation/errors.h"
#include "torva/geometry/convex_decomposition.h"
#include "torva/layout/cap3d_parser.h"
#include "torva_testing/log_capture.h"

namespace torva {
namespace {

std::size_t count_of(const std::string& text, const std::string& word) {
  std::size_t n = 0;
  for (std::size_t at = text.find(word); at != std::string::npos; at = text.find(word, at + word.size())) ++n;
  return n;
}

struct extent {
  std::int64_t lo[3], hi[3];
};

// The footprint box of a generated solid, in length units.
extent extent_of(const generated_layout& g, const generated_solid& s) {
  extent e{};
  if (s.form == generated_form::box) {
    e = {{s.x, s.y, s.z}, {s.x + s.dx, s.y + s.dy, s.z + s.dz}};
  } else if (s.form == generated_form::cylinder) {
    e = {{s.x - s.dx, s.y - s.dx, s.z - s.dz / 2}, {s.x + s.dx, s.y + s.dx, s.z + s.dz / 2}};
  } else {
    e = {{INT64_MAX, INT64_MAX, s.z}, {INT64_MIN, INT64_MIN, s.z + s.dz}};
    for (std::uint32_t v = 0; v < s.vertex_count; ++v) {
      for (int a = 0; a < 2; ++a) {
        e.lo[a] = std::min<std::int64_t>(e.lo[a], (a ? s.y : s.x) + g.vertices[s.first_vertex + v][a]);
        e.hi[a] = std::max<std::int64_t>(e.hi[a], (a ? s.y : s.x) + g.vertices[s.first_vertex + v][a]);
      }
    }
  }
  return e;
}

bool interiors_meet(const extent& a, const extent& b) {
  for (int i = 0; i < 3; ++i)
    if (a.hi[i] <= b.lo[i] || b.hi[i] <= a.lo[i]) return false;
  return true;
}

double signed_area(const generated_layout& g, const generated_solid& s) {
  double sum = 0.0;
  for (std::uint32_t v = 0; v < s.vertex_count; ++v) {
    const auto& a = g.vertices[s.first_vertex + v];
    const auto& b = g.vertices[s.first_vertex + (v + 1) % s.vertex_count];
    sum += double(a[0]) * b[1] - double(b[0]) * a[1];
  }
  return sum / 2;
}

generator_params mixed_params(std::uint64_t blocks, int layers) {
  generator_params p;
  p.kind = layout_kind::mixed;
  p.blocks = blocks;
  p.layers = layers;
  p.polygon_share = 0.2;
  p.cylinder_share = 0.1;
  p.incline_share = 0.1;
  p.media = true;
  p.seed = 11;
  return p;
}

TEST(Generator, MakesExactlyTheSegmentsAskedForAndIsDeterministic) {
  for (layout_kind kind : {layout_kind::bus, layout_kind::crossing, layout_kind::mixed}) {
    for (std::uint64_t blocks : {0u, 1u, 7u, 1000u}) {
      generator_params p = mixed_params(blocks, 3);
      p.kind = kind;
      const generated_layout g = generate_layout(p);
      EXPECT_EQ(g.solids.size(), blocks);
      std::uint64_t in_nets = 0;
      for (const generated_net& c : g.conductors) {
        EXPECT_GT(c.count, 0u);
        EXPECT_EQ(c.first, in_nets);  // nets are consecutive runs
        in_nets += c.count;
      }
      EXPECT_EQ(in_nets, blocks);
      EXPECT_EQ(to_text(g), generate_text(p));
    }
  }
}

TEST(Generator, SeedChangesAMixedLayout) {
  generator_params p = mixed_params(300, 2);
  const std::string a = generate_text(p);
  p.seed = 12;
  EXPECT_NE(a, generate_text(p));
}

TEST(Generator, SolidsAreNonDegenerateInsideTheWindowAndApart) {
  for (layout_kind kind : {layout_kind::bus, layout_kind::crossing, layout_kind::mixed}) {
    generator_params p = mixed_params(600, 3);
    p.kind = kind;
    const generated_layout g = generate_layout(p);
    std::vector<extent> boxes;
    for (const generated_solid& s : g.solids) {
      const extent e = extent_of(g, s);
      for (int a = 0; a < 3; ++a) {
        EXPECT_LT(e.lo[a], e.hi[a]);
        EXPECT_GT(e.lo[a], g.window_lower[a]);
        EXPECT_LT(e.hi[a], g.window_upper[a]);
      }
      boxes.push_back(e);
    }
    // Segments abut at most: no two share interior volume.
    for (std::size_t i = 0; i < boxes.size(); ++i)
      for (std::size_t j = i + 1; j < boxes.size(); ++j)
        ASSERT_FALSE(interiors_meet(boxes[i], boxes[j])) << "segments " << i << " and " << j;
  }
}

TEST(Generator, BusRunsAlongXAndCrossingAlternates) {
  generator_params p;
  p.blocks = 400;
  p.layers = 4;
  for (layout_kind kind : {layout_kind::bus, layout_kind::crossing}) {
    p.kind = kind;
    const generated_layout g = generate_layout(p);
    for (const generated_solid& s : g.solids) {
      ASSERT_EQ(s.form, generated_form::box);
      const bool along_x = s.dx > s.dy;
      EXPECT_EQ(along_x, kind == layout_kind::bus || s.layer % 2 == 0) << int(s.layer);
      EXPECT_EQ(std::min(s.dx, s.dy), 200);
    }
  }
}

TEST(Generator, ParallelWiresOfALayerKeepTheirSpacing) {
  generator_params p = mixed_params(500, 1);
  const generated_layout g = generate_layout(p);
  // Wires of the one layer run along x: successive wires are at least 0.15 apart in y.
  std::int64_t previous_top = INT64_MIN;
  for (const generated_net& c : g.conductors) {
    std::int64_t lo = INT64_MAX, hi = INT64_MIN;
    for (std::uint32_t i = 0; i < c.count; ++i) {
      const extent e = extent_of(g, g.solids[c.first + i]);
      lo = std::min(lo, e.lo[1]);
      hi = std::max(hi, e.hi[1]);
    }
    if (previous_top != INT64_MIN) {
      EXPECT_GE(lo - previous_top, 150);
    }
    previous_top = hi;
  }
}

TEST(Generator, PolygonsAreAnticlockwiseAndSplitWithoutWarnings) {
  generator_params p = mixed_params(2000, 2);
  p.polygon_share = 1.0;
  const generated_layout g = generate_layout(p);
  testing::log_capture log;
  int shapes[3] = {0, 0, 0};
  for (const generated_solid& s : g.solids) {
    ASSERT_EQ(s.form, generated_form::polygon);
    EXPECT_GT(signed_area(g, s), 0.0);
    ++shapes[s.vertex_count == 8 ? 0 : s.vertex_count == 5 ? 1 : 2];
  }
  for (int k = 0; k < 3; ++k) EXPECT_GT(shapes[k], 0) << k;  // all three outlines occur
  circuit_layout::raw raw;
  build_layout(g, raw);
  EXPECT_GT(raw.wire_blocks.size(), g.solids.size());  // notches and chamfers give several pieces
  EXPECT_EQ(log.warning(), "");
  for (const wire_block& b : raw.wire_blocks) {
    ASSERT_EQ(b.shape_kind, shape_prism);
    EXPECT_LE(b.prism().size, 4u);
  }
}

TEST(Generator, TextHasTheFrameAndOneSectionPerSolid) {
  const generated_layout g = generate_layout(mixed_params(500, 2));
  const std::string text = to_text(g);
  EXPECT_EQ(text.rfind("<cap3d>\n<window>\n", 0), 0u);
  ASSERT_GE(text.size(), 9u);
  EXPECT_EQ(text.substr(text.size() - 9), "</cap3d>\n");
  EXPECT_EQ(count_of(text, "<block>") + count_of(text, "<poly>"), g.solids.size() + g.medium_solids.size());
  EXPECT_EQ(count_of(text, "<conductor>"), g.conductors.size());
  EXPECT_EQ(count_of(text, "</conductor>"), g.conductors.size());
  EXPECT_EQ(count_of(text, "<medium>"), g.media.size());
  EXPECT_EQ(count_of(text, "<plate_medium>"), g.plates.size());
  EXPECT_EQ(count_of(text, "<capacitance>"), g.tasks.size());
  EXPECT_EQ(count_of(text, "<layer>"), 2u);
  // No word is glued to a tag: every tag stands between separators.
  EXPECT_EQ(count_of(text, ")<"), 0u);
  EXPECT_EQ(count_of(text, "><"), 0u);
}

TEST(Generator, TextSpellsTheSolidsAsTheReaderExpects) {
  generator_params p;
  p.blocks = 1;
  p.layers = 1;
  p.tasks = 1;
  EXPECT_EQ(generate_text(p),
            "<cap3d>\n<window>\n  name generated\n  v1(-2.000, -2.000, 0.000)\n  v2(6.000, 6.000, 1.850)\n"
            "  dirichlet\n</window>\n"
            "<layer> name M1 type interconnect wmin 0.200 id 0 </layer>\n"
            "<conductor>\n  name net0\n"
            "  <block> name b0@M1 layer 0 basepoint(0.000, 0.000, 0.500) v1(4.000, 0.000, 0.000) "
            "v2(0.000, 0.200, 0.000) hvector(0.000, 0.000, 0.300) </block>\n"
            "</conductor>\n<task>\n  <capacitance> net0 </capacitance>\n</task>\n</cap3d>\n");
  p.cylinder_share = 1.0;
  const std::string cylinder = generate_text(p);
  EXPECT_NE(cylinder.find("<block> name b0@M1 layer 0 basepoint(2.000, 0.100, 0.650) radius 0.100 height 0.300 "
                          "</block>"),
            std::string::npos)
      << cylinder;
  p.cylinder_share = 0.0;
  p.incline_share = 1.0;
  const std::string incline = generate_text(p);
  EXPECT_TRUE(incline.find(" side_tan 0.100 </block>") != std::string::npos ||
              incline.find(" side_tan -0.100 </block>") != std::string::npos)
      << incline;
}

TEST(Generator, BuiltRecordsMatchTheDescription) {
  const generated_layout g = generate_layout(mixed_params(800, 3));
  build_options o;
  o.incline_slices = 3;
  circuit_layout circuit;
  build_circuit(g, circuit, o);
  const circuit_layout::raw& raw = circuit.data;

  std::size_t expected_blocks = 0;
  for (const generated_solid& s : g.solids) {
    if (s.form == generated_form::polygon) {
      std::vector<nprism_large_t> pieces;
      nprism_large_t poly;
      for (std::uint32_t v = 0; v < s.vertex_count; ++v)
        poly.points.push_back(point2{{double(g.vertices[s.first_vertex + v][0]), double(g.vertices[s.first_vertex + v][1])}});
      poly.size = poly.points.size();
      convex_decomposition(poly, pieces);
      expected_blocks += pieces.size();
    } else {
      expected_blocks += (s.form == generated_form::box && s.side_tan != 0) ? 3 : 1;
    }
  }
  EXPECT_EQ(raw.wire_blocks.size(), expected_blocks);
  EXPECT_EQ(raw.wire_nets.size(), g.conductors.size());
  EXPECT_EQ(circuit.blocks.size(), raw.wire_blocks.size());
  EXPECT_EQ(std::size_t(circuit.cuboid_size + circuit.prism_size), raw.wire_blocks.size());
  EXPECT_GT(circuit.prism_size, 0);
  EXPECT_EQ(raw.boundary, 1);
  EXPECT_EQ(raw.window_name, "generated");
  EXPECT_EQ(raw.window.lower[0].value, g.window_lower[0] / 1000.0);
  EXPECT_EQ(raw.window.upper[2].value, g.window_upper[2] / 1000.0);
  EXPECT_EQ(circuit.data.critical_box.upper[1].value, raw.window.upper[1].value);
  EXPECT_EQ(raw.layer_names.size(), 3u);
  EXPECT_EQ(raw.layer_names.at(2), "M3");
  EXPECT_EQ(raw.layer_types.at("M1"), "interconnect");
  EXPECT_EQ(raw.layer_wmins.size(), 3u);
  EXPECT_EQ(raw.capacitance_tasks.size(), 4u);
  EXPECT_EQ(raw.capacitance_tasks.count("net0"), 1u);

  // Nets and blocks point at one another, blocks of a net adjacent and in order.
  std::size_t index = 0;
  for (const wire_net& net : raw.wire_nets) {
    EXPECT_FALSE(net.floating);
    for (const wire_block* b : net.blocks) {
      EXPECT_EQ(b, &raw.wire_blocks[index]);
      EXPECT_EQ(b->net, &net);
      ++index;
    }
  }
  EXPECT_EQ(index, raw.wire_blocks.size());

  // Every block lies inside the window and its inner box inside its outer box.
  for (const wire_block& b : raw.wire_blocks) {
    ASSERT_NE(b.solid, nullptr);
    ASSERT_LE(b.shape_kind, 2u);
    ASSERT_EQ(b.inner_pieces.size(), 1u);
    ASSERT_EQ(b.outer_pieces.size(), 1u);
    for (int a = 0; a < 3; ++a) {
      EXPECT_LT(b.outer_box.lower[a].value, b.outer_box.upper[a].value);
      EXPECT_GE(b.outer_box.lower[a].value, raw.window.lower[a].value);
      EXPECT_LE(b.outer_box.upper[a].value, raw.window.upper[a].value);
      EXPECT_GE(b.inner_box.lower[a].value, b.outer_box.lower[a].value);
      EXPECT_LE(b.inner_box.upper[a].value, b.outer_box.upper[a].value);
    }
    EXPECT_EQ(b.name[0], 'b');
    EXPECT_GE(b.layer, 0);
    EXPECT_LT(b.layer, 3);
  }

  // Media: a plate under every layer and over the last, each also a body; a
  // cap per layer and the trench polygon.
  EXPECT_EQ(raw.plate_mediums.size(), 4u);
  EXPECT_EQ(raw.medium_nets.size(), 4u + 3u + 1u);
  EXPECT_EQ(raw.medium_blocks.size(), 4u);
  EXPECT_EQ(raw.medium_blocks.back().shape_kind, shape_prism);
  EXPECT_EQ(raw.medium_blocks.back().prism().size, 4u);
  EXPECT_EQ(raw.medium_blocks.back().net, &raw.medium_nets.back());
  EXPECT_EQ(raw.medium_nets.back().name, "trench");
  EXPECT_TRUE(raw.medium_nets.front().blocks.empty());
}

TEST(Generator, SlicedBlocksFollowTheReadersFormula) {
  generator_params p;
  p.blocks = 1;
  p.layers = 1;
  p.incline_share = 1.0;
  const generated_layout g = generate_layout(p);
  ASSERT_EQ(g.solids.size(), 1u);
  const double t = g.solids[0].side_tan / 1000.0;
  circuit_layout::raw raw;
  build_options o;
  o.incline_slices = 2;
  build_layout(g, raw, o);
  ASSERT_EQ(raw.wire_blocks.size(), 2u);
  // Height 0.3 in two slices; the block is 4 by 0.2 at (0, 0, 0.5).
  const cuboid_t& first = raw.wire_blocks[0].cuboid();
  const cuboid_t& second = raw.wire_blocks[1].cuboid();
  EXPECT_NEAR(first.lower[0].value, 0.3 * t / 4, 1e-12);
  EXPECT_NEAR(first.upper[0].value, 4.0 - 0.3 * t / 4, 1e-12);
  EXPECT_NEAR(first.upper[2].value, 0.65, 1e-12);
  EXPECT_NEAR(second.lower[1].value, -0.3 * t / 4, 1e-12);
  EXPECT_NEAR(second.upper[1].value, 0.2 + 0.3 * t / 4, 1e-12);
  EXPECT_NEAR(second.upper[2].value, 0.8, 1e-12);
  o.incline_slices = 0;
  circuit_layout::raw none;
  build_layout(g, none, o);
  EXPECT_TRUE(none.wire_blocks.empty());
  EXPECT_EQ(none.wire_nets.size(), 1u);  // the conductor still stands
}

TEST(Generator, CuboidsOnlyLeavesNoCurvedOrSlantedSolid) {
  const generated_layout g = generate_layout(mixed_params(600, 2));
  build_options o;
  o.cuboids_only = true;
  circuit_layout::raw raw;
  build_layout(g, raw, o);
  for (const wire_block& b : raw.wire_blocks) EXPECT_EQ(b.shape_kind, shape_cuboid);
  // Cylinders become the square of equal area.
  generator_params p;
  p.blocks = 1;
  p.layers = 1;
  p.cylinder_share = 1.0;
  circuit_layout::raw one;
  build_layout(generate_layout(p), one, o);
  ASSERT_EQ(one.wire_blocks.size(), 1u);
  const cuboid_t& c = one.wire_blocks[0].cuboid();
  EXPECT_NEAR((c.upper[0] - c.lower[0]).value, 2 * 0.1 * 0.886226925452759, 1e-12);
}

TEST(Generator, CylindersStandInTheirSegment) {
  generator_params p;
  p.blocks = 10;
  p.layers = 2;
  p.kind = layout_kind::crossing;
  p.cylinder_share = 1.0;
  circuit_layout::raw raw;
  build_layout(generate_layout(p), raw);
  ASSERT_EQ(raw.wire_blocks.size(), 10u);
  for (const wire_block& b : raw.wire_blocks) {
    ASSERT_EQ(b.shape_kind, shape_cylinder);
    EXPECT_DOUBLE_EQ(b.cylinder().radius.value, 0.1);
    EXPECT_DOUBLE_EQ(b.cylinder().half_height.value, 0.15);
    EXPECT_DOUBLE_EQ((b.outer_box.upper[2] - b.outer_box.lower[2]).value, 0.3);
  }
}

TEST(Generator, SharesAreClampedAndLayersAtLeastOne) {
  generator_params p;
  p.blocks = 50;
  p.layers = -3;
  p.polygon_share = -1.0;
  p.cylinder_share = 7.0;
  const generated_layout g = generate_layout(p);
  EXPECT_EQ(g.layer_names.size(), 1u);
  for (const generated_solid& s : g.solids) EXPECT_EQ(s.form, generated_form::cylinder);
}

TEST(Generator, WritesTheSameTextToAFile) {
  testing::temp_dir dir;
  const generated_layout g = generate_layout(mixed_params(300, 2));
  const std::string path = dir.file("layout.cap3d");
  write_text_file(g, path);
  std::ifstream in(path, std::ios::binary);
  std::stringstream got;
  got << in.rdbuf();
  EXPECT_EQ(got.str(), to_text(g));
}

TEST(Generator, UnwritableFileIsReportedAndThrown) {
  testing::log_capture log;
  const generated_layout g = generate_layout(generator_params{});
  EXPECT_THROW(write_text_file(g, "/nonexistent-dir/x/layout.cap3d"), sea::file_error);
  EXPECT_EQ(log.error().rfind("ERROR: Failed to open \"/nonexistent-dir/x/layout.cap3d\"", 0), 0u) << log.error();
  log.clear();
  if (FILE* full = std::fopen("/dev/full", "wb")) {
    std::fclose(full);
    EXPECT_THROW(write_text_file(g, "/dev/full"), sea::file_error);
    EXPECT_EQ(log.error().rfind("ERROR: Failed to write \"/dev/full\"", 0), 0u) << log.error();
  }
}

}  // namespace
}  // namespace torva

namespace torva {
namespace {

void expect_same_box(const cuboid_t& a, const cuboid_t& b, const std::string& what) {
  for (int k = 0; k < 3; ++k) {
    EXPECT_EQ(a.lower[k].value, b.lower[k].value) << what;
    EXPECT_EQ(a.upper[k].value, b.upper[k].value) << what;
  }
}

void expect_same_shape(const shape_t& a, const shape_t& b, const std::string& what) {
  ASSERT_EQ(a.shape_kind, b.shape_kind) << what;
  expect_same_box(a.inner_box, b.inner_box, what + " inner");
  expect_same_box(a.outer_box, b.outer_box, what + " outer");
  ASSERT_EQ(a.inner_pieces.size(), b.inner_pieces.size()) << what;
  ASSERT_EQ(a.outer_pieces.size(), b.outer_pieces.size()) << what;
  if (a.shape_kind == shape_cuboid) expect_same_box(a.cuboid(), b.cuboid(), what + " solid");
  if (a.shape_kind == shape_cylinder) {
    EXPECT_EQ(a.cylinder().radius.value, b.cylinder().radius.value) << what;
    EXPECT_EQ(a.cylinder().half_height.value, b.cylinder().half_height.value) << what;
  }
  if (a.shape_kind == shape_prism) {
    ASSERT_EQ(a.prism().size, b.prism().size) << what;
    for (std::uint64_t v = 0; v < a.prism().size; ++v) {
      EXPECT_EQ(a.prism().points[v][0].value, b.prism().points[v][0].value) << what;
      EXPECT_EQ(a.prism().points[v][1].value, b.prism().points[v][1].value) << what;
    }
  }
}

// What the reader makes of the text is what the builder makes directly.
TEST(GeneratorAgainstReader, ParsedTextEqualsTheDirectBuild) {
  for (bool cuboids_only : {false, true}) {
    const generated_layout g = generate_layout(mixed_params(1500, 3));
    testing::temp_dir dir;
    const std::string path = dir.file("mixed.cap3d");
    write_text_file(g, path);

    testing::log_capture log;
    circuit_layout::raw parsed;
    Cap3dParser parser(parsed, 3, false, cuboids_only);
    ASSERT_TRUE(parser.parse(path, "")) << log.error();
    EXPECT_EQ(log.warning(), "");

    build_options o;
    o.incline_slices = 3;
    o.cuboids_only = cuboids_only;
    circuit_layout::raw built;
    build_layout(g, built, o);

    ASSERT_EQ(parsed.wire_blocks.size(), built.wire_blocks.size());
    ASSERT_EQ(parsed.wire_nets.size(), built.wire_nets.size());
    ASSERT_EQ(parsed.medium_blocks.size(), built.medium_blocks.size());
    ASSERT_EQ(parsed.medium_nets.size(), built.medium_nets.size());
    for (std::size_t b = 0; b < built.wire_blocks.size(); ++b) {
      const wire_block& x = parsed.wire_blocks[b];
      const wire_block& y = built.wire_blocks[b];
      EXPECT_EQ(x.name, y.name);
      EXPECT_EQ(x.layer, y.layer);
      EXPECT_EQ(x.net->name, y.net->name);
      expect_same_shape(x, y, "block " + std::to_string(b));
    }
    for (std::size_t b = 0; b < built.medium_blocks.size(); ++b) {
      expect_same_shape(parsed.medium_blocks[b], built.medium_blocks[b], "medium " + std::to_string(b));
      EXPECT_EQ(parsed.medium_blocks[b].side_tan, built.medium_blocks[b].side_tan);
      EXPECT_EQ(parsed.medium_blocks[b].net->name, built.medium_blocks[b].net->name);
    }
    for (std::size_t n = 0; n < built.medium_nets.size(); ++n) {
      EXPECT_EQ(parsed.medium_nets[n].name, built.medium_nets[n].name);
      EXPECT_EQ(parsed.medium_nets[n].diel.value, built.medium_nets[n].diel.value);
    }
    ASSERT_EQ(parsed.plate_mediums.size(), built.plate_mediums.size());
    for (std::size_t n = 0; n < built.plate_mediums.size(); ++n) {
      EXPECT_EQ(parsed.plate_mediums[n].name, built.plate_mediums[n].name);
      EXPECT_EQ(parsed.plate_mediums[n].z_top.value, built.plate_mediums[n].z_top.value);
      EXPECT_EQ(parsed.plate_mediums[n].diel.value, built.plate_mediums[n].diel.value);
    }
    expect_same_box(parsed.window, built.window, "window");
    EXPECT_EQ(parsed.window_name, built.window_name);
    EXPECT_EQ(parsed.boundary, built.boundary);
    EXPECT_EQ(parsed.layer_names, built.layer_names);
    EXPECT_EQ(parsed.layer_types, built.layer_types);
    ASSERT_EQ(parsed.layer_wmins.size(), built.layer_wmins.size());
    EXPECT_EQ(parsed.layer_wmins[0].value, built.layer_wmins[0].value);
    EXPECT_EQ(parsed.capacitance_tasks, built.capacitance_tasks);
  }
}

}  // namespace
}  // namespace torva
