// The layout generator: what it promises of the description, and that the
// direct build is what the reader makes of the text.
#include "torva/layout/generator.h"

#include <gtest/gtest.h>

#include <algorithm>
#include <fstream>
#include <sstream>
#include <string>

#include "torva/foundation/errors.h"
#include "torva/layout/cap3d_parser.h"
#include "torva/layout/internal/binary_test_support.h"
#include "torva_testing/log_capture.h"

namespace torva {
namespace {

struct extent {
  std::int64_t lo[3], hi[3];
};

// The footprint box of a generated solid, in length units.
extent extent_of(const generated_layout& g, const generated_solid& s) {
  if (s.form == generated_form::box) return {{s.x, s.y, s.z}, {s.x + s.dx, s.y + s.dy, s.z + s.dz}};
  if (s.form == generated_form::cylinder)
    return {{s.x - s.dx, s.y - s.dx, s.z - s.dz / 2}, {s.x + s.dx, s.y + s.dx, s.z + s.dz / 2}};
  extent e{{INT64_MAX, INT64_MAX, s.z}, {INT64_MIN, INT64_MIN, s.z + s.dz}};
  for (std::uint32_t v = 0; v < s.vertex_count; ++v) {
    for (int a = 0; a < 2; ++a) {
      e.lo[a] = std::min<std::int64_t>(e.lo[a], (a ? s.y : s.x) + g.vertices[s.first_vertex + v][a]);
      e.hi[a] = std::max<std::int64_t>(e.hi[a], (a ? s.y : s.x) + g.vertices[s.first_vertex + v][a]);
    }
  }
  return e;
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
      for (std::size_t j = i + 1; j < boxes.size(); ++j) {
        bool apart = false;
        for (int a = 0; a < 3; ++a) apart |= boxes[i].hi[a] <= boxes[j].lo[a] || boxes[j].hi[a] <= boxes[i].lo[a];
        ASSERT_TRUE(apart) << "segments " << i << " and " << j;
      }
  }
}

TEST(Generator, BusRunsAlongXAndCrossingAlternates) {
  generator_params p;
  p.blocks = 400;
  p.layers = 4;
  for (layout_kind kind : {layout_kind::bus, layout_kind::crossing}) {
    p.kind = kind;
    for (const generated_solid& s : generate_layout(p).solids) {
      ASSERT_EQ(s.form, generated_form::box);
      EXPECT_EQ(s.dx > s.dy, kind == layout_kind::bus || s.layer % 2 == 0) << int(s.layer);
      EXPECT_EQ(std::min(s.dx, s.dy), 200);
    }
  }
}

// What the reader makes of the text is what the builder makes directly, to the
// last bit, with and without cuboids-only.
TEST(Generator, TheReaderOfTheTextBuildsTheSameRecords) {
  const generated_layout g = generate_layout(mixed_params(1500, 3));
  testing::temp_dir dir;
  const std::string path = dir.file("mixed.cap3d");
  write_text_file(g, path);
  std::stringstream written;
  written << std::ifstream(path, std::ios::binary).rdbuf();
  EXPECT_EQ(written.str(), to_text(g));
  for (bool cuboids_only : {false, true}) {
    SCOPED_TRACE(cuboids_only);
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
    internal::layout_match exact;
    exact.tolerance = 0.0;
    exact.parameters = false;
    internal::expect_same_layout(parsed, built, exact);
    for (std::size_t n = 0; n < built.medium_nets.size(); ++n)
      EXPECT_EQ(parsed.medium_nets[n].diel.value, built.medium_nets[n].diel.value);
    for (std::size_t n = 0; n < built.plate_mediums.size(); ++n)
      EXPECT_EQ(parsed.plate_mediums[n].diel.value, built.plate_mediums[n].diel.value);
  }
}

TEST(Generator, CircuitBuildCountsTheBlocksAndTakesTheWindowAsCriticalBox) {
  const generated_layout g = generate_layout(mixed_params(800, 3));
  circuit_layout circuit;
  build_circuit(g, circuit);
  const circuit_layout::raw& raw = circuit.data;
  EXPECT_EQ(circuit.blocks.size(), raw.wire_blocks.size());
  EXPECT_EQ(std::size_t(circuit.cuboid_size + circuit.prism_size), raw.wire_blocks.size());
  EXPECT_GT(circuit.prism_size, 0);
  for (int a = 0; a < 3; ++a) {
    EXPECT_EQ(raw.critical_box.lower[a].value, raw.window.lower[a].value);
    EXPECT_EQ(raw.critical_box.upper[a].value, raw.window.upper[a].value);
  }
}

TEST(Generator, SharesAndLayersAreClamped) {
  generator_params p;
  p.blocks = 50;
  p.layers = -3;
  p.polygon_share = -1.0;
  p.cylinder_share = 7.0;
  const generated_layout g = generate_layout(p);
  EXPECT_EQ(g.layer_names.size(), 1u);
  for (const generated_solid& s : g.solids) EXPECT_EQ(s.form, generated_form::cylinder);
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
