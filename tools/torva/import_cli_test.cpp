// torva import and torva extract run as processes on GDS cells written here:
// one cell for each shipped stack (two plates on two metals of the stack, a
// via, labels), imported to text and binary and extracted under a walk
// limit; and the bad input of the two commands.
#include <fstream>
#include <string>
#include <vector>

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include "cli_test_support.h"
#include "torva/import/process_stack.h"
#include "torva/layout/cap3d_parser.h"
#include "torva_testing/gds_writer.h"
#include "torva_testing/log_capture.h"

namespace {

using ::testing::HasSubstr;
using ::testing::MatchesRegex;

using torva_cli_test::outcome;
using torva_cli_test::slurp;

class import_cli : public torva_cli_test::cli {
 protected:
  // Two plates on the two metals of the stack's first via between metals:
  // "a" below with a via up to a pad, "b" beside the pad above; 1 nm units.
  std::string cell_for(const torva::process_stack& s) {
    using torva::conductor_kind;
    for (const torva::via_layer& v : s.vias) {
      const torva::via_target& t = v.targets.front();
      const auto &lo = s.conductors[t.below], &hi = s.conductors[t.above];
      if (lo.kind != conductor_kind::metal || hi.kind != conductor_kind::metal || lo.drawing.derived() ||
          hi.drawing.derived() || v.drawing.derived())
        continue;
      auto text_pair = [](const torva::conductor_layer& c) { return c.has_label ? c.label : c.drawing.pair; };
      torva::testing::gds_writer w;
      w.begin_library().begin_cell("plates_" + s.name);
      w.rectangle(lo.drawing.pair.layer, lo.drawing.pair.datatype, 0, 0, 4000, 4000);
      w.text(text_pair(lo).layer, text_pair(lo).datatype, {3000, 3000}, "a");
      w.rectangle(v.drawing.pair.layer, v.drawing.pair.datatype, 1000, 1000, 1300, 1300);
      w.rectangle(hi.drawing.pair.layer, hi.drawing.pair.datatype, 800, 800, 1500, 1500);
      w.rectangle(hi.drawing.pair.layer, hi.drawing.pair.datatype, 2000, 0, 8000, 4000);
      w.text(text_pair(hi).layer, text_pair(hi).datatype, {7000, 2000}, "b");
      w.end_cell().end_library();
      const std::string path = dir.file(s.name + ".gds");
      w.save(path);
      return path;
    }
    ADD_FAILURE() << "stack " << s.name << " has no via between two drawn metals";
    return "";
  }
};

class shipped_stack : public import_cli, public ::testing::WithParamInterface<std::string> {};

TEST_P(shipped_stack, ACellImportsToTextAndBinaryAndExtracts) {
  const torva::process_stack stack = torva::load_stack(GetParam());
  const std::string cell = cell_for(stack);
  for (const char* form : {"cell.cap3d", "cell.bin"}) {
    const outcome r = run({"import", cell, "--stack", GetParam(), dir.file(form)});
    ASSERT_EQ(r.status, 0) << r.err;
    EXPECT_THAT(r.out, HasSubstr("nets         2 (2 named by labels, 0 by where they lie), and the grounded substrate"));
    EXPECT_THAT(r.out, HasSubstr("wrote        " + dir.file(form)));
    torva::testing::log_capture log;
    torva::circuit_layout back;
    torva::Cap3dParser parser(back.data, 4, true, false);
    ASSERT_TRUE(parser.parse(dir.file(form), "")) << log.error();
    ASSERT_EQ(back.data.wire_nets.size(), 3u);
    EXPECT_EQ(back.data.wire_nets[0].name, "a");
    EXPECT_EQ(back.data.wire_nets[1].name, "b");
    EXPECT_EQ(back.data.wire_nets[2].name, stack.substrate.net);
  }
  const outcome x = run({"extract", cell, "--stack", GetParam(), "--max-walks", "600", "-n", "1", "--out-file",
                         dir.file("cell.out"), "--log-file", dir.file("cell.log")});
  ASSERT_EQ(x.status, 0) << x.err;
  EXPECT_THAT(x.out, MatchesRegex("(.|\n)*\n +a +b +VSUBS +GROUND\n  a +[0-9.]+ +-[0-9.]+(.|\n)*"));
}

INSTANTIATE_TEST_SUITE_P(Stacks, shipped_stack,
                         ::testing::Values("sky130A", "ihp-sg13g2", "ihp-sg13cmos5l", "gf180mcuD"),
                         [](const auto& info) {
                           std::string n = info.param;
                           for (char& c : n)
                             if (c == '-') c = '_';
                           return n;
                         });

TEST_F(import_cli, BadInputEndsWithOneLineAndStatusOne) {
  const std::string cell = cell_for(torva::load_stack("sky130A"));
  auto expect_refused = [&](std::vector<std::string> args, const std::string& what) {
    const outcome r = run(args);
    EXPECT_EQ(r.status, 1) << ::testing::PrintToString(args) << r.err;
    EXPECT_THAT(r.err, HasSubstr(what)) << ::testing::PrintToString(args);
    EXPECT_THAT(r.err, MatchesRegex("(.|\n)*torva: error: [^\n]*\n$"));
  };
  expect_refused({"import", cell, "--stack", "sky130A", dir.file("out.txt")}, "must end in .cap3d (text) or .bin");
  expect_refused({"import", cell, "--stack", "sky130B", dir.file("out.cap3d")}, "sky130A");
  expect_refused({"extract", cell, "--out-file", dir.file("x.out")}, "is a GDS cell: --stack names its process stack");
  // A stream cut short.
  const std::string bytes = slurp(cell);
  std::ofstream(dir.file("cut.gds"), std::ios::binary) << bytes.substr(0, bytes.size() / 2);
  expect_refused({"import", dir.file("cut.gds"), "--stack", "sky130A", dir.file("cut.cap3d")}, "cut.gds");
  // A cell on layers the stack does not know at all.
  torva::testing::gds_writer w;
  w.begin_library().begin_cell("TOP").rectangle(1, 0, 0, 0, 100, 100).end_cell().end_library();
  w.save(dir.file("alien.gds"));
  expect_refused({"import", dir.file("alien.gds"), "--stack", "sky130A", dir.file("alien.cap3d")},
                 "no shapes on the conductor layers");
  // An output that exists is kept without --force.
  ASSERT_EQ(run({"import", cell, "--stack", "sky130A", dir.file("once.cap3d")}).status, 0);
  expect_refused({"import", cell, "--stack", "sky130A", dir.file("once.cap3d")}, "--force");
}

}  // namespace
