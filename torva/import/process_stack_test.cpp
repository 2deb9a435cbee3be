// Process stacks: a small valid stack, and every way it can contradict itself
// refused with the field named; finding stacks by name and by path.
#include <gtest/gtest.h>
#include <unistd.h>

#include <cstdlib>
#include <filesystem>
#include <fstream>
#include <string>

#include "torva/foundation/errors.h"
#include "torva/import/process_stack.h"

namespace torva {
namespace {

const std::string mini = R"({"format": "torva-stack", "version": 1, "name": "mini",
 "gds": {"diff": [1, 0], "imp": [2, 0], "m1": [10, 0], "m1.label": [10, 5], "v1": [11, 0]},
 "conductors": [
  {"name": "sd", "kind": "diffusion", "drawing": {"and": ["diff", "imp"]}, "z": 0, "thickness": 0.1},
  {"name": "M1", "kind": "metal", "drawing": "m1", "label": "m1.label", "z": 1.0, "thickness": 0.3},
  {"name": "M2", "kind": "metal", "drawing": [12, 0], "z": 2.0, "thickness": 0.5}],
 "vias": [{"name": "V1", "drawing": "v1", "targets": [{"below": "M1", "above": "M2"}]},
          {"name": "CO", "drawing": [13, 0], "targets": [{"below": "sd", "above": "M1", "z": [0, 1.0]}]}],
 "dielectrics": [
  {"name": "ox", "kind": "planar", "z": [0, 1.5], "permittivity": 3.9},
  {"name": "ild", "kind": "planar", "z": [1.5, 3], "permittivity": 4.1},
  {"name": "liner", "kind": "conformal", "wraps": "M2", "over": 0.1, "sidewall": 0.05, "elsewhere": 0.02, "permittivity": 7},
  {"name": "spacer", "kind": "sidewall", "wraps": "liner", "width": 0.03, "above": 0, "permittivity": 5}],
 "substrate": {"kind": "plane", "top": 0},
 "notes": "free text", "corrections": ["one", {"any": "thing"}]})";

std::string replaced(std::string text, const std::string& from, const std::string& to) {
  const std::size_t at = text.find(from);
  EXPECT_NE(at, std::string::npos) << from;
  EXPECT_EQ(text.find(from, at + 1), std::string::npos) << "not unique: " << from;
  return at == std::string::npos ? text : text.replace(at, from.size(), to);
}

std::string refusal(const std::string& text) {
  try {
    parse_stack(text, "mini.json");
  } catch (const sea::file_error& e) {
    return e.what();
  }
  return "accepted";
}

TEST(process_stack, the_small_stack_reads_with_its_defaults) {
  const process_stack s = parse_stack(mini, "mini.json");
  ASSERT_EQ(s.conductors.size(), 3u);
  EXPECT_EQ(s.conductors[0].drawing.kind, layer_expr::op::intersection_of);
  EXPECT_EQ(s.conductors[1].label, (gds_pair{10, 5}));
  // A target without z spans from the top of the layer below to the bottom of the one above.
  EXPECT_DOUBLE_EQ(s.vias[0].targets[0].z_bottom, 1.3);
  EXPECT_DOUBLE_EQ(s.vias[0].targets[0].z_top, 2.0);
  EXPECT_EQ(s.corrections.size(), 2u);
  EXPECT_EQ(s.known_pairs().count(gds_pair{2, 0}), 1u);
  EXPECT_EQ(s.known_pairs().count(gds_pair{3, 0}), 0u);
  // The liner coats M2 (2 to 2.5) 0.1 over, 0.05 aside, with a 0.02 film; the
  // spacer rings the liner 0.03 wide, flush with its top, and adds no film.
  const auto shells = wrap_shells(s);
  ASSERT_EQ(shells.size(), 2u);
  EXPECT_DOUBLE_EQ(shells[1].inner_grow, 0.05);
  EXPECT_DOUBLE_EQ(shells[1].outer_grow, 0.08);
  EXPECT_DOUBLE_EQ(shells[1].outer_top, 2.6);
  EXPECT_DOUBLE_EQ(shells[1].field_bottom, 2.02);
  EXPECT_DOUBLE_EQ(shells[1].field_top, 2.02);
}

struct contradiction {
  const char* what;
  std::string from, to, message;
};

TEST(process_stack, every_contradiction_is_refused_naming_its_field) {
  const contradiction cases[] = {
      {"typo in a key", R"("thickness": 0.3)", R"("thikness": 0.3)", "conductors[1].thikness: unknown field"},
      {"negative thickness", R"("thickness": 0.3)", R"("thickness": -0.1)", "conductors[1].thickness: negative (-0.1)"},
      {"overlapping metals", R"("z": 2.0)", R"("z": 1.2)", "conductors[2].z: M2 (1.2 to 1.7) overlaps M1 (1 to 1.3)"},
      {"via to a missing layer", R"("above": "M2")", R"("above": "M3")",
       "vias[0].targets[0].above: no conductor layer \"M3\""},
      {"via into the metal above", R"("z": [0, 1.0])", R"("z": [0, 1.1])",
       "vias[1].targets[0].z: top 1.1 is not the bottom of M1 (1)"},
      {"via off its lower layer", R"("z": [0, 1.0])", R"("z": [0.2, 1.0])",
       "vias[1].targets[0].z: bottom 0.2 is not within sd (0 to 0.1)"},
      {"via upside down", R"({"below": "M1", "above": "M2"})", R"({"below": "M2", "above": "M1"})",
       "vias[0].targets[0].above: M1 (bottom 1) does not lie above M2 (top 2.5)"},
      {"target that gets nothing", R"("targets": [{"below": "M1", "above": "M2"}])",
       R"("targets": [{"below": "M1", "above": "M2"}, {"below": "M1", "above": "M2"}])",
       "vias[0].targets[1].below: M1 is already the lower layer of targets[0]"},
      {"gap between dielectrics", R"("z": [1.5, 3])", R"("z": [1.6, 3])", "dielectrics[1].z: a gap from 1.5 (top of ox) to 1.6"},
      {"overlapping dielectrics", R"("z": [1.5, 3])", R"("z": [1.4, 3])",
       "dielectrics[1].z: ild (1.4 to 3) overlaps ox (0 to 1.5)"},
      {"stack off the substrate", R"("top": 0)", R"("top": -0.2)",
       "dielectrics[0].z: the lowest planar layer starts at 0, not on the substrate's top (-0.2)"},
      {"metal above the stack", R"("z": [1.5, 3])", R"("z": [1.5, 2.4])",
       "conductors[2].z: M2 (2 to 2.5) is not within the planar dielectrics (0 to 2.4)"},
      {"permittivity below 1", R"("permittivity": 3.9)", R"("permittivity": 0.39)",
       "dielectrics[0].permittivity: below 1 (0.39)"},
      {"duplicate name", R"("name": "ild")", R"("name": "M1")", "dielectrics[1].name: \"M1\" is also the name of conductors[1]"},
      {"GDS pair drawn twice", R"("drawing": [13, 0])", R"("drawing": [12, 0])",
       "vias[1].drawing: 12/0 is also drawn by conductors[2].drawing (M2)"},
      {"coat of nothing", R"("wraps": "M2")", R"("wraps": "M9")",
       "dielectrics[2].wraps: no conductor or earlier coat named \"M9\""},
      {"conductor wrapped twice", R"("wraps": "liner")", R"("wraps": "M2")",
       "dielectrics[3].wraps: M2 is already wrapped by dielectrics[2]"},
      {"unknown GDS name", R"("imp"]})", R"("impl"]})", "conductors[0].drawing.and[1]: no GDS layer named \"impl\" in gds"},
      {"key given twice", R"("z": 1.0,)", R"("z": 1.0, "z": 1.1,)", "conductors[1].z: given twice"},
      {"wrong type", R"("thickness": 0.5)", R"("thickness": "0.5")", "conductors[2].thickness: not a number"},
      {"missing field", R"("name": "M2", "kind": "metal", )", R"("name": "M2", )", "conductors[2].kind: missing"},
      {"unknown kind", R"("kind": "plane")", R"("kind": "ground")", "substrate.kind: \"ground\" is none of conductor, plane"},
      {"ambiguous expression", R"({"and": ["diff", "imp"]})", R"({"and": ["diff"], "or": ["imp"]})",
       "conductors[0].drawing: needs one of \"or\" and \"and\""},
      {"not a stack", R"("torva-stack")", R"("other")", "format: not a torva stack"},
      {"not JSON", R"("corrections": ["one")", R"("corrections": ["one",,)", "not valid JSON: parse error at line 15"},
  };
  for (const contradiction& c : cases) {
    const std::string message = refusal(replaced(mini, c.from, c.to));
    EXPECT_NE(message.find("stack mini.json: " + c.message), std::string::npos)
        << c.what << "\n  got: " << message << "\n  expected: " << c.message;
  }
  // Two layers may draw on one pair when one of them says so.
  const std::string shared = replaced(mini, R"("drawing": [13, 0])", R"("drawing": [12, 0], "shares_gds_with": "M2")");
  EXPECT_EQ(refusal(shared), "accepted");
}

struct scratch_dir {
  std::filesystem::path path = std::filesystem::temp_directory_path() / ("torva_stacks_" + std::to_string(::getpid()));
  scratch_dir() { std::filesystem::create_directories(path); }
  ~scratch_dir() {
    std::filesystem::remove_all(path);
    ::unsetenv("TORVA_STACK_PATH");
  }
  std::string write(const std::string& name, const std::string& text) const {
    std::ofstream(path / name) << text;
    return (path / name).string();
  }
};

TEST(process_stack, stacks_are_found_by_path_then_by_name_along_the_search_path) {
  scratch_dir dir;
  const std::string own = dir.write("own.json", mini);
  EXPECT_EQ(find_stack(own), own);
  EXPECT_EQ(load_stack(own).path, own);
  // A directory of $TORVA_STACK_PATH comes before the shipped stacks.
  ::setenv("TORVA_STACK_PATH", ("/nonexistent:" + dir.path.string()).c_str(), 1);
  EXPECT_EQ(find_stack("own"), own);
  const std::string shadow = dir.write("sky130A.json", mini);
  EXPECT_EQ(find_stack("sky130A"), shadow);
  ::unsetenv("TORVA_STACK_PATH");
  EXPECT_NE(find_stack("sky130A"), shadow);
  for (const std::string& bad : {std::string("no-such-stack"), (dir.path / "missing.json").string()}) {
    try {
      find_stack(bad);
      ADD_FAILURE() << bad << " was found";
    } catch (const sea::file_error& e) {
      const std::string m = e.what();
      EXPECT_NE(m.find("stack " + bad + ": no such file"), std::string::npos) << m;
      EXPECT_NE(m.find("gf180mcuD, ihp-sg13cmos5l, ihp-sg13g2, sky130A"), std::string::npos) << m;
    }
  }
  EXPECT_THROW(read_stack_file(dir.path.string()), sea::file_error);
}

}  // namespace
}  // namespace torva
