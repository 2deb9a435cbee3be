// Writes the seed corpus of the GDS reader's fuzzing harness into
// DIR/gds_reader/: small streams from the test writer with every element
// kind, a hierarchy of rotated, mirrored and arrayed references, paths of
// every end, and a few broken ones.
//
//   gds_fuzz_seeds DIR
#include <cstdio>
#include <filesystem>
#include <string>

#include "torva_testing/gds_writer.h"

int main(int argc, char** argv) {
  using namespace torva::testing;
  if (argc != 2) {
    std::fprintf(stderr, "usage: gds_fuzz_seeds DIR\n");
    return 2;
  }
  const std::filesystem::path dir = std::filesystem::path(argv[1]) / "gds_reader";
  std::filesystem::create_directories(dir);
  auto save = [&](const gds_writer& w, const char* name) { w.save((dir / name).string()); };

  gds_writer kinds;
  kinds.begin_library("KINDS").begin_cell("TOP");
  kinds.boundary(68, 20, {{0, 0}, {0, 200}, {100, 200}, {100, 0}}).property(1, "p");
  kinds.box(2, 3, 10, 20, 30, 40);
  kinds.text(68, 5, {50, 60}, "vdd");
  kinds.node(7, {1, 1});
  kinds.end_cell().end_library();
  save(kinds, "element_kinds.gds");

  gds_writer paths;
  paths.begin_library("PATHS").begin_cell("TOP");
  for (int type : {0, 1, 2, 4})
    paths.path(10 + type, 0, 40, type, {{0, 0}, {400, 0}, {600, 200}, {600, 500}, {100, 500}}, 30, -10);
  paths.path(20, 0, 40, 0, {{0, 0}, {400, 0}, {100, 10}});  // a sharp turn
  paths.path(21, 0, 0, 0, {{0, 0}, {400, 0}});               // zero width
  paths.end_cell().end_library();
  save(paths, "paths.gds");

  gds_writer tree;
  tree.begin_library("TREE");
  tree.begin_cell("LEAF").boundary(1, 0, {{0, 0}, {30, 0}, {30, 10}, {10, 10}, {10, 20}, {0, 20}}).end_cell();
  tree.begin_cell("MID").sref("LEAF", {10, 0}, {true, 2.0, 90.0}).aref("LEAF", 3, 2, {0, 0}, {90, 30}, {-20, 80});
  tree.end_cell();
  tree.begin_cell("TOP").sref("MID", {100, 0}, {false, 1.5, 30.0}).aref("MID", 2, 2, {0, 0}, {0, 900}, {900, 0},
                                                                       {true, 1.0, 270.0});
  tree.text(3, 0, {5, 5}, "out").end_cell().end_library();
  save(tree, "hierarchy.gds");

  gds_writer cycle;
  cycle.begin_library("CYCLE");
  cycle.begin_cell("A").rectangle(1, 0, 0, 0, 5, 5).sref("B", {0, 0}).end_cell();
  cycle.begin_cell("B").sref("A", {1, 0}).end_cell().end_library();
  save(cycle, "cycle.gds");

  gds_writer cut = tree;
  cut.bytes.resize(cut.bytes.size() / 2);
  save(cut, "truncated.gds");
  return 0;
}
