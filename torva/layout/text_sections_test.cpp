// The sections with plain keys: window, parameter, layer, task, plate medium;
// and the syntax errors of every section's keys.
#include <gtest/gtest.h>

#include <map>
#include <string>
#include <unordered_map>
#include <unordered_set>

#include "torva/layout/cap3d_parser.h"
#include "torva/layout/internal/parse_fixture.h"

namespace torva {
namespace {

using internal::parse_fixture;

std::string root(const std::string& body) { return "<cap3d>\n" + body + "\n</cap3d>\n"; }

void expect_point(const point3& p, double x, double y, double z) {
  EXPECT_EQ(p[0].value, x);
  EXPECT_EQ(p[1].value, y);
  EXPECT_EQ(p[2].value, z);
}

TEST(Window, NameCornersAndBoundary) {
  parse_fixture f;
  ASSERT_TRUE(f.parse(root("<window> name w v1(0,0,0) v2(10,10,10) dirichlet </window>")));
  EXPECT_EQ(f.raw.window_name, "w");
  EXPECT_EQ(f.raw.boundary, 1);
  expect_point(f.raw.window.lower, 0, 0, 0);
  expect_point(f.raw.window.upper, 10, 10, 10);
  // an empty window is neumann and zero; the corners are not ordered
  ASSERT_TRUE(f.parse(root("<window> </window>")));
  EXPECT_EQ(f.raw.boundary, 2);
  expect_point(f.raw.window.upper, 0, 0, 0);
  ASSERT_TRUE(f.parse(root("<window> v2 1 2 3 dirichlet neumann v1(5,-6,7.5) </window>")));
  EXPECT_EQ(f.raw.boundary, 2);
  expect_point(f.raw.window.lower, 5, -6, 7.5);
  expect_point(f.raw.window.upper, 1, 2, 3);
  // a value that is a keyword is taken as a value
  ASSERT_TRUE(f.parse(root("<window> name dirichlet </window>")));
  EXPECT_EQ(f.raw.window_name, "dirichlet");
  EXPECT_EQ(f.raw.boundary, 2);
}

TEST(Window, ErrorKeepsTheOldBoxButNotNameOrBoundary) {
  parse_fixture f;
  ASSERT_TRUE(f.parse(root("<window> name old v2(1,1,1) dirichlet </window>")));
  EXPECT_FALSE(f.parse(root("<window> name new v2(9,9,9) oops </window>")));
  EXPECT_EQ(f.log.error(), "ERROR: (Syntax) \"oops\".\n");
  EXPECT_EQ(f.raw.window_name, "new");
  EXPECT_EQ(f.raw.boundary, 2);
  expect_point(f.raw.window.upper, 1, 1, 1);
}

TEST(Parameter, EveryKeyLandsInItsField) {
  parse_fixture f;
  ASSERT_TRUE(f.parse(root(
      "<parameter>\n c-ratio 1.5 b-ratio 2.5 b-net-ratio 3.5 self-precision 0.01 coupling-precision 0.02\n"
      " blk-self-precision 0.03 blk-coupling-precision 0.04 thread-num 8 log-file run.log\n"
      " out-file run.out seed 42 spice on walk-type 3 outmincap 1e-18\n</parameter>")));
  const circuit_layout::raw& r = f.raw;
  EXPECT_EQ(r.c_ratio, 1.5);
  EXPECT_EQ(r.b_ratio, 2.5);
  EXPECT_EQ(r.b_net_ratio, 3.5);
  EXPECT_EQ(r.self_precision, 0.01);
  EXPECT_EQ(r.coupling_precision, 0.02);
  EXPECT_EQ(r.blk_self_precision, 0.03);
  EXPECT_EQ(r.blk_coupling_precision, 0.04);
  EXPECT_EQ(r.thread_num, 8);
  EXPECT_EQ(r.log_file, "run.log");
  EXPECT_EQ(r.out_file, "run.out");
  EXPECT_EQ(r.seed, 42);
  EXPECT_EQ(r.spice, 1);
  EXPECT_EQ(r.walk_type, 3);
  EXPECT_EQ(r.outmincap, 1e-18);
}

TEST(Parameter, KeysLeftOutStayTheLastValueWinsAndBadNumbersAreSilent) {
  parse_fixture f;
  f.raw.seed = 99;
  f.raw.spice = 1;
  ASSERT_TRUE(f.parse(root("<parameter> thread-num 2 thread-num 5 spice off </parameter>")));
  EXPECT_EQ(f.raw.seed, 99);
  EXPECT_EQ(f.raw.thread_num, 5);
  EXPECT_EQ(f.raw.spice, 0);
  // numbers are zero or truncated without a word
  ASSERT_TRUE(f.parse(root("<parameter> thread-num 4.7 seed abc c-ratio 2.5x self-precision -x </parameter>")));
  EXPECT_EQ(f.raw.thread_num, 4);
  EXPECT_EQ(f.raw.seed, 0);
  EXPECT_EQ(f.raw.c_ratio, 2.5);
  EXPECT_EQ(f.raw.self_precision, 0.0);
  EXPECT_EQ(f.log.error(), "");
}

TEST(Parameter, SpiceMustBeOnOrOffAndWhatCameBeforeStays) {
  parse_fixture f;
  f.raw.seed = 1;
  EXPECT_FALSE(f.parse(root("<parameter> seed 3 spice maybe seed 4 </parameter>")));
  EXPECT_EQ(f.log.error(), "ERROR: (Syntax) \"maybe\".\n");
  EXPECT_EQ(f.raw.seed, 3);
}

TEST(Layer, TypeWminAndIdWithMinusOneForNoneAndTheFirstComerStaying) {
  parse_fixture f;
  ASSERT_TRUE(f.parse(root("<layer> name M1 type interconnect wmin 0.1 flat MIN thickness 2 id 3 </layer>\n"
                           "<layer> name M1 type via wmin 0.2 id 2 </layer>\n"  // the first type of a name stays
                           "<layer> name M9 type via id 3 </layer>\n"           // the first name of an id stays
                           "<layer> name N1 type interconnect wmin -1 </layer>\n"
                           "<layer> name V1 type via id -1 </layer>\n"
                           "<layer> name M2 type interconnect wmin 0 </layer>\n"
                           "<layer> name big type via id 65537 </layer>")));  // the id is cut to a short
  EXPECT_EQ(f.raw.layer_types,
            (std::unordered_map<std::string, std::string>{{"M1", "interconnect"}, {"M9", "via"}, {"N1", "interconnect"},
                                                          {"V1", "via"}, {"M2", "interconnect"}, {"big", "via"}}));
  ASSERT_EQ(f.raw.layer_wmins.size(), 3u);
  EXPECT_EQ(f.raw.layer_wmins[0].value, 0.1);
  EXPECT_EQ(f.raw.layer_wmins[1].value, 0.2);
  EXPECT_EQ(f.raw.layer_wmins[2].value, 0.0);
  EXPECT_EQ(f.raw.layer_names, (std::map<short, std::string>{{1, "big"}, {2, "M1"}, {3, "M1"}}));
}

TEST(Task, CapacitanceElementsAddToOneSetOfOneNameEach) {
  parse_fixture f;
  ASSERT_TRUE(f.parse(root("<task> <capacitance> net1 </capacitance> <capacitance> net2 </capacitance> </task>\n"
                           "<task> <capacitance> net1 </capacitance> </task> <task> </task>")));
  EXPECT_EQ(f.raw.capacitance_tasks, (std::unordered_set<std::string>{"net1", "net2"}));
  // a second name fails without a line, the first already stored
  EXPECT_FALSE(f.parse(root("<task> <capacitance> a b </capacitance> </task>")));
  EXPECT_EQ(f.log.error(), "");
  EXPECT_EQ(f.raw.capacitance_tasks.count("a"), 1u);
}

TEST(PlateMedium, AlsoStandsAsAnEmptyBody) {
  parse_fixture f;
  ASSERT_TRUE(f.parse(root("<plate_medium> name ox z_top 4.5 diel 3.9 </plate_medium>\n"
                           "<plate_medium> name bare </plate_medium>")));
  ASSERT_EQ(f.raw.plate_mediums.size(), 2u);
  EXPECT_EQ(f.raw.plate_mediums[0].name, "ox");
  EXPECT_EQ(f.raw.plate_mediums[0].z_top.value, 4.5);
  EXPECT_EQ(f.raw.plate_mediums[0].diel.value, 3.9);
  EXPECT_EQ(f.raw.plate_mediums[1].z_top.value, 0.0);
  EXPECT_EQ(f.raw.plate_mediums[1].diel.value, 0.0);
  ASSERT_EQ(f.raw.medium_nets.size(), 2u);
  EXPECT_EQ(f.raw.medium_nets[0].name, "ox");
  EXPECT_EQ(f.raw.medium_nets[0].diel.value, 3.9);
  EXPECT_TRUE(f.raw.medium_nets[0].blocks.empty());
}

TEST(Sections, MayStandInsideAConductorAndInAnyOrder) {
  parse_fixture f;
  ASSERT_TRUE(f.parse(root("<task> </task> <conductor> name c <window> name w </window> </conductor>\n"
                           "<parameter> seed 5 </parameter>")));
  EXPECT_EQ(f.raw.window_name, "w");
  EXPECT_EQ(f.raw.wire_nets.at(0).name, "c");
  EXPECT_EQ(f.raw.seed, 5);
}

// A key a section does not know, or one of another section's, is a syntax
// error on that word; nothing of the section is stored.
TEST(Sections, BadKeysAreSyntaxErrorsOnTheWord) {
  const std::pair<std::string, std::string> cases[] = {
      {root("<parameter> threads 4 </parameter>"), "threads"},
      {"<cap3d> <parameter> log-file </parameter>\n", "</parameter>"},  // the tag became the value
      {root("<plate_medium> name ox thickness 2 </plate_medium>"), "thickness"},
      {root("<layer> name M1 wmin 0.5 id 4 </layer>"), "</layer>"},  // name and type are required
      {root("<layer> type via id 4 </layer>"), "</layer>"},
      {root("<task> net </task>"), "net"},
      {root("<medium> <block> rho 1 </block> </medium>"), "rho"},  // conductor-only keys
      {root("<medium> <block> radius 1 </block> </medium>"), "radius"},
      {root("<medium> <block> height 1 </block> </medium>"), "height"},
      {root("<medium> <poly> rho 2 </poly> </medium>"), "rho"},
      {root("<conductor> <block> width 1 </block> </conductor>"), "width"},
      {root("<conductor> <block> <coord> 1 2 </coord> </block> </conductor>"), "<coord>"},
      {root("<conductor> <poly> <coord> 0,0 1 </coord> </poly> </conductor>"), "</coord>"},  // an odd count
      {root("<conductor> <poly> radius 2 </poly> </conductor>"), "radius"},
  };
  for (const auto& [text, word] : cases) {
    SCOPED_TRACE(text);
    parse_fixture f;
    EXPECT_FALSE(f.parse(text));
    EXPECT_EQ(f.log.error(), "ERROR: (Syntax) \"" + word + "\".\n");
    EXPECT_TRUE(f.raw.plate_mediums.empty() && f.raw.layer_types.empty() && f.raw.layer_wmins.empty() &&
                f.raw.layer_names.empty() && f.raw.wire_blocks.empty() && f.raw.medium_blocks.empty());
  }
}

TEST(Numbers, IntegersStopAtTheFirstNonDigitAndStringsStayWhole) {
  EXPECT_EQ(Cap3dParser::parseInt("42x"), 42);
  EXPECT_EQ(Cap3dParser::parseInt("x"), 0);
  EXPECT_EQ(Cap3dParser::parseInt("-7.9"), -7);
  EXPECT_EQ(Cap3dParser::parseString("a@b"), "a@b");
}

}  // namespace
}  // namespace torva
