// Importing cells on the sky130A stack: block volumes against the drawn
// areas, arrays and placements, nets through vias and their names, the
// written forms, and bad input (the dielectric bodies as the walk sees them are
// checked with the extractor, in tests/gds_import_physics_test.cpp).
#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <algorithm>
#include <cmath>
#include <map>

#include "torva/foundation/errors.h"
#include "torva/layout/text_writer.h"
#include "torva/import/gds_import.h"
#include "torva/import/gds_path.h"
#include "torva/layout/binary_writer.h"
#include "torva/layout/cap3d_parser.h"
#include "torva_testing/gds_writer.h"
#include "torva_testing/log_capture.h"

namespace torva {
namespace {

using testing::gds_writer;
using ::testing::HasSubstr;

// sky130A's GDS pairs, as its stack file names them.
enum : int { diff = 65, poly = 66, li1 = 67, met1 = 68, met2 = 69, met3 = 70, met4 = 71, met5 = 72, nsdm = 93 };
constexpr int drawing = 20, label = 5, cut = 44;

const process_stack& sky130() {
  static const process_stack s = load_stack("sky130A");
  return s;
}

// Writes one cell TOP (with optional leaf cells before it) and imports it.
struct cell_test : ::testing::Test {
  testing::log_capture log;
  gds_writer w;
  cell_test() { w.begin_library(); }

  import_result import(const import_options& o = {}) {
    w.end_library();
    gds_flatten_options f;
    f.top = "TOP";
    return import_cell(flatten_gds(read_gds_bytes(w.bytes, "cell.gds"), f), sky130(), o);
  }
};

// Volume of the blocks of one layer id (from the blocks' solids themselves).
double layer_volume(const circuit_layout& l, short layer) {
  double v = 0;
  for (const wire_block& b : l.data.wire_blocks) {
    if (b.layer != layer) continue;
    if (b.shape_kind == shape_cuboid) {
      const cuboid_t& c = b.cuboid();
      v += (c.upper[0].value - c.lower[0].value) * (c.upper[1].value - c.lower[1].value) *
           (c.upper[2].value - c.lower[2].value);
    } else {
      const nprism_t& p = b.prism();
      double twice = 0;
      for (std::uint64_t i = 0; i < p.size; ++i) {
        const auto& a = p.points[i];
        const auto& c = p.points[(i + 1) % p.size];
        twice += a[0].value * c[1].value - c[0].value * a[1].value;
      }
      EXPECT_GT(twice, 0) << "prism not anticlockwise";
      v += twice / 2 * (p.top.value - p.bottom.value);
    }
  }
  return v;
}

short layer_id(const std::string& name) {
  const auto& s = sky130();
  const std::size_t c = s.conductor_index(name);
  return short(c != process_stack::npos ? c : s.conductors.size() + s.via_index(name));
}

double thickness(const std::string& name) { return sky130().conductors[sky130().conductor_index(name)].thickness; }

const import_net* net_named(const import_report& r, const std::string& name) {
  for (const import_net& n : r.nets)
    if (n.name == name) return &n;
  return nullptr;
}

TEST_F(cell_test, BlockVolumesAreTheDrawnAreasTimesTheThickness) {
  w.begin_cell("L").boundary(met4, drawing, {{0, 0}, {3000, 0}, {3000, 1000}, {1000, 1000}, {1000, 2000}, {0, 2000}}).end_cell();
  w.begin_cell("TOP");
  w.rectangle(met1, drawing, 0, 0, 10000, 10000);        // a plate
  w.rectangle(met1, drawing, 5000, 5000, 15000, 8000);   // overlapping it: union 100 + 15 um^2
  // A comb on met2: a spine and four teeth that abut it, 5 blocks at best.
  w.rectangle(met2, drawing, 0, 20000, 20000, 21000);
  for (int k = 0; k < 4; ++k) w.rectangle(met2, drawing, k * 5000, 21000, k * 5000 + 1000, 30000);
  // A 45-degree path on met3 (its outline's area is read back from the flattened cell).
  w.path(met3, drawing, 400, 0, {{30000, 0}, {40000, 10000}});
  // The L rotated by 90 degrees and mirrored, on met4: 4 um^2 wherever it goes.
  w.sref("L", {50000, 0}, {true, 1.0, 90.0});
  w.end_cell();
  const import_result r = import();
  const circuit_layout& l = *r.layout;

  EXPECT_NEAR(layer_volume(l, layer_id("met1")), 115 * thickness("met1"), 1e-9);
  EXPECT_NEAR(layer_volume(l, layer_id("met2")), (20 + 4 * 9) * thickness("met2"), 1e-9);
  EXPECT_NEAR(layer_volume(l, layer_id("met4")), 4 * thickness("met4"), 1e-9);
  gds_flatten_options f;
  f.top = "TOP";
  const gds_flat_cell flat = flatten_gds(read_gds_bytes(w.bytes, "cell.gds"), f);
  double path_area = 0;
  const gds_polygons* path = flat.find({met3, drawing});
  ASSERT_NE(path, nullptr);
  for (std::size_t i = 0; i < path->size(); ++i) path_area += gds_area(path->polygon(i)) * 1e-6;
  EXPECT_NEAR(layer_volume(l, layer_id("met3")), path_area * thickness("met3"), 1e-9);

  // Four nets (the plate, the comb, the path, the L) and the substrate; the comb in five blocks.
  ASSERT_EQ(r.report.nets.size(), 5u);
  const import_net* comb = net_named(r.report, "met2_0_20");
  ASSERT_NE(comb, nullptr);
  EXPECT_EQ(comb->blocks, 5u);
  EXPECT_TRUE(r.report.nets.back().substrate);
  // The mirrored, rotated L lies at x in [50, 52], y in [0, 3]: its lowest-left vertex names it.
  EXPECT_NE(net_named(r.report, "met4_50_0"), nullptr);
  // One warning: the coat over the slanted path is taken as boxes.
  EXPECT_THAT(log.warning(), HasSubstr("layer met3: 1 pieces are not Manhattan; the dielectric capild"));
  EXPECT_EQ(std::count(log.warning().begin(), log.warning().end(), '\n'), 1);
}

TEST_F(cell_test, AnArrayOfNInstancesGivesNTimesTheBlocksAndNets) {
  w.begin_cell("LEAF");
  w.boundary(met1, drawing, {{0, 0}, {2000, 0}, {2000, 500}, {500, 500}, {500, 2000}, {0, 2000}});
  w.rectangle(met1, cut, 100, 100, 250, 250);  // via
  w.rectangle(met2, drawing, 0, 0, 400, 3000);
  w.end_cell();
  w.begin_cell("ONE").sref("LEAF", {0, 0}).end_cell();
  w.begin_cell("TOP").aref("LEAF", 3, 2, {0, 0}, {3 * 5000, 0}, {0, 2 * 6000}).end_cell();
  const import_result many = import();

  gds_flatten_options f;
  f.top = "ONE";
  const import_result one = import_cell(flatten_gds(read_gds_bytes(w.bytes, "cell.gds"), f), sky130());
  // Nets and blocks without the substrate, whose holes and blocks do not scale.
  EXPECT_EQ(many.report.nets.size() - 1, 6 * (one.report.nets.size() - 1));
  EXPECT_EQ(many.layout->data.wire_blocks.size() - many.report.nets.back().blocks,
            6 * (one.layout->data.wire_blocks.size() - one.report.nets.back().blocks));
  EXPECT_EQ(one.report.nets.size(), 2u);  // the via joins met1 and met2
}

TEST_F(cell_test, AViaStackFromLi1ToMet5IsOneNetNamedByItsLabel) {
  w.begin_cell("TOP");
  const int layers[] = {li1, met1, met2, met3, met4, met5};
  for (int m : layers) w.rectangle(m, drawing, 0, 0, 4000, 4000);
  for (int v : {li1, met1, met2, met3, met4}) w.rectangle(v, cut, 1000, 1000, 2000, 2000);  // mcon .. via4
  w.text(met5, label, {3000, 3000}, "top");
  // A second plate on met1 away from the stack, labelled off its shape.
  w.rectangle(met1, drawing, 10000, 0, 12000, 2000);
  w.text(met1, label, {13000, 1000}, "lost");
  w.end_cell();
  const import_result r = import();
  ASSERT_EQ(r.report.nets.size(), 3u);
  const import_net* top = net_named(r.report, "top");
  ASSERT_NE(top, nullptr);
  EXPECT_TRUE(top->labelled);
  EXPECT_EQ(top->layers, (std::vector<std::string>{"li1", "met1", "met2", "met3", "met4", "met5", "mcon", "via",
                                                   "via2", "via3", "via4"}));
  // The label off its shape names nothing: the plate is named by where it lies.
  EXPECT_NE(net_named(r.report, "met1_10_0"), nullptr);
  EXPECT_THAT(log.warning(), HasSubstr("label \"lost\" at (13, 1) um"));
  // Via blocks span from the top of the layer below to the bottom of the one above.
  for (const wire_block& b : r.layout->data.wire_blocks)
    if (b.layer == layer_id("via2")) {
      EXPECT_DOUBLE_EQ(b.cuboid().lower[2].value, sky130().conductors[sky130().conductor_index("met2")].top());
      EXPECT_DOUBLE_EQ(b.cuboid().upper[2].value, sky130().conductors[sky130().conductor_index("met3")].z);
    }
}

TEST_F(cell_test, LabelsThatDisagreeWarnWithBothPlaces) {
  w.begin_cell("TOP");
  w.rectangle(met1, drawing, 0, 0, 1000, 1000);
  w.text(met1, label, {100, 100}, "a");
  w.text(met1, label, {900, 900}, "b");
  w.rectangle(met1, drawing, 5000, 0, 6000, 1000);
  w.text(met1, label, {5500, 500}, "a");
  // Corner to corner with the first: one net with it.
  w.rectangle(met1, drawing, 1000, 1000, 2000, 2000);
  w.text(met1, label, {1500, 1500}, "a");
  w.end_cell();
  const import_result r = import();
  EXPECT_THAT(log.warning(), HasSubstr("labels \"a\" at (0.1, 0.1) and \"b\" at (0.9, 0.9) um stand on one net"));
  EXPECT_THAT(log.warning(), HasSubstr("the second is named a#2"));
  ASSERT_EQ(r.report.nets.size(), 3u);
  EXPECT_EQ(r.report.nets[0].name, "a");
  EXPECT_EQ(r.report.nets[1].name, "a#2");
}

TEST_F(cell_test, UnknownLayersAreSkippedWithOneWarningAndAnEmptyCellIsRefused) {
  w.begin_cell("TOP");
  w.rectangle(1, 0, 0, 0, 1000, 1000);
  w.rectangle(1, 0, 2000, 0, 3000, 1000);
  w.text(235, 4, {0, 0}, "x");
  w.rectangle(64, 20, 0, 0, 5000, 5000);  // nwell: known, not a conductor
  w.end_cell();
  try {
    import();
    FAIL() << "a cell with no conductor shapes was imported";
  } catch (const sea::file_error&) {
  }
  EXPECT_THAT(log.error(), HasSubstr("has no shapes on the conductor layers of stack sky130A"));
  EXPECT_THAT(log.warning(), HasSubstr("does not know the GDS layers 1/0 (2 shapes), 235/4 (1 label)"));
  EXPECT_EQ(std::count(log.warning().begin(), log.warning().end(), '\n'), 1);
}

TEST_F(cell_test, DiffusionIsCutByPolyAndTheSubstrateOpensUnderIt) {
  w.begin_cell("TOP");
  w.rectangle(diff, drawing, 0, 0, 4000, 1000);
  w.rectangle(nsdm, cut, -500, -500, 4500, 1500);
  w.rectangle(poly, drawing, 1500, -500, 2000, 1500);  // the gate splits source from drain
  w.end_cell();
  const import_result r = import();
  const circuit_layout& l = *r.layout;
  // Source, drain, gate, substrate.
  ASSERT_EQ(r.report.nets.size(), 4u);
  EXPECT_NEAR(layer_volume(l, layer_id("nsd")), 3.5 * thickness("nsd"), 1e-9);
  // The substrate spans the window less the diffusion grown by 1 um: (4 + 2) x (1 + 2) less the gate's gap.
  const auto& win = l.data.window;
  const double floor = (win.upper[0].value - win.lower[0].value) * (win.upper[1].value - win.lower[1].value);
  const auto& sub = sky130().substrate;
  EXPECT_NEAR(layer_volume(l, short(sky130().conductors.size() + sky130().vias.size())),
              (floor - 6 * 3) * (sub.z_top - sub.z_bottom), 1e-9);
  EXPECT_DOUBLE_EQ(win.lower[2].value, sub.z_bottom);
  EXPECT_DOUBLE_EQ(win.lower[0].value, 0 - sky130().window_margin);
}


TEST_F(cell_test, TheWrittenFormsReadBackAsTheSameLayout) {
  w.begin_cell("TOP");
  w.rectangle(met1, drawing, 0, 0, 3000, 1000);
  w.path(met2, drawing, 200, 0, {{0, 0}, {2000, 2000}});
  w.rectangle(met1, cut, 100, 100, 250, 250);  // via
  w.text(met1, label, {500, 500}, "in");
  w.end_cell();
  const import_result r = import();
  testing::temp_dir dir;
  const std::string text = dir.file("cell.cap3d"), binary = dir.file("cell.bin");
  const text_write_summary written = write_text_file(r.layout->data, text, "imported");
  // A box is written as a corner and its edges, which may miss the far corner
  // by an ulp; nothing else may be lost.
  for (const std::string& loss : written.losses)
    EXPECT_NE(loss.find("to the last bit"), std::string::npos) << loss;
  write_binary_file(r.layout->data, binary);
  for (const std::string& path : {text, binary}) {
    circuit_layout back;
    Cap3dParser parser(back.data, 4, true, false);
    ASSERT_TRUE(parser.parse(path, "")) << log.error();
    const auto& a = r.layout->data;
    const auto& b = back.data;
    ASSERT_EQ(b.wire_nets.size(), a.wire_nets.size()) << path;
    ASSERT_EQ(b.wire_blocks.size(), a.wire_blocks.size()) << path;
    ASSERT_EQ(b.medium_blocks.size(), a.medium_blocks.size()) << path;
    EXPECT_EQ(b.plate_mediums.size(), a.plate_mediums.size()) << path;
    EXPECT_EQ(b.capacitance_tasks, a.capacitance_tasks) << path;
    for (std::size_t i = 0; i < a.wire_nets.size(); ++i) EXPECT_EQ(b.wire_nets[i].name, a.wire_nets[i].name);
    for (std::size_t i = 0; i < a.wire_blocks.size(); ++i) {
      EXPECT_EQ(b.wire_blocks[i].shape_kind, a.wire_blocks[i].shape_kind);
      EXPECT_EQ(b.wire_blocks[i].layer, a.wire_blocks[i].layer);
      for (int k = 0; k < 3; ++k) {
        EXPECT_NEAR(b.wire_blocks[i].outer_box.lower[k].value, a.wire_blocks[i].outer_box.lower[k].value, 1e-12);
        EXPECT_NEAR(b.wire_blocks[i].outer_box.upper[k].value, a.wire_blocks[i].outer_box.upper[k].value, 1e-12);
      }
    }
  }
}

TEST_F(cell_test, OddOutlinesKeepTheirArea) {
  w.begin_cell("TOP");
  // A frame drawn as one keyhole outline (GDS has no holes): 6 x 6 less 4 x 4.
  w.boundary(met1, drawing, {{0, 0}, {6000, 0}, {6000, 6000}, {1000, 6000}, {1000, 5000}, {5000, 5000},
                             {5000, 1000}, {1000, 1000}, {1000, 6000}, {0, 6000}});
  // An octagon with an octagonal hole, on met2: two outlines, the hole drawn over by none.
  const std::vector<testing::gds_xy> outer{{2000, 0}, {4000, 0}, {6000, 2000}, {6000, 4000},
                                           {4000, 6000}, {2000, 6000}, {0, 4000}, {0, 2000}};
  w.boundary(met2, drawing, {{2000, 0}, {4000, 0}, {6000, 2000}, {6000, 4000}, {4000, 6000}, {2000, 6000},
                             {0, 4000}, {0, 2000}, {2000, 0}, {2500, 1500}, {1500, 2500}, {1500, 3500}, {2500, 4500},
                             {3500, 4500}, {4500, 3500}, {4500, 2500}, {3500, 1500}, {2500, 1500}});
  // A bow tie on met3 (its two lobes of 1 um^2 each) and a sliver of no area.
  w.boundary(met3, drawing, {{0, 0}, {2000, 2000}, {2000, 0}, {0, 2000}});
  w.boundary(met3, drawing, {{5000, 0}, {6000, 0}, {7000, 0}});
  w.end_cell();
  const import_result r = import();
  EXPECT_NEAR(layer_volume(*r.layout, layer_id("met1")), 20 * thickness("met1"), 1e-9);
  // Octagon 36 - 4 x 2 = 28; its hole 3 x 3 less four corners of 0.5: 7.
  EXPECT_NEAR(layer_volume(*r.layout, layer_id("met2")), 21 * thickness("met2"), 1e-9);
  EXPECT_NEAR(layer_volume(*r.layout, layer_id("met3")), 2 * thickness("met3"), 1e-9);
  EXPECT_EQ(net_named(r.report, "met1_0_0")->blocks, 4u);  // the frame: four bars
}

TEST_F(cell_test, NetsAskedForMustExist) {
  w.begin_cell("TOP").rectangle(met1, drawing, 0, 0, 1000, 1000).text(met1, label, {500, 500}, "in").end_cell();
  import_options o;
  o.nets = {"in", "out"};
  EXPECT_THROW(import(o), sea::file_error);
  EXPECT_THAT(log.error(), HasSubstr("has no net named out (its nets: in)"));
}

}  // namespace
}  // namespace torva
