// The program under a user's mistakes and hostile files: nothing lost in a
// conversion, nothing read that is not a regular file, no word that was not
// wholly a number passed over in silence, no layout that means nothing
// extracted, no search structure built past its memory budget.
#include "cli_test_support.h"

namespace torva_cli_test {

// Text to binary to text to binary gives the same bytes: the text writer
// keeps all the binary form holds (boundaries, shortest numbers, names).
TEST_F(cli, convert_round_trips_every_example_and_generated_layout_to_the_same_bytes) {
  std::vector<std::string> sources;
  for (const char* name : {"bus.cap3d", "polygons.cap3d", "shapes.cap3d", "stack.cap3d", "crossing.bin"})
    sources.push_back(example(name));
  for (const char* kind : {"bus", "crossing", "mixed"}) {
    sources.push_back(dir.file("gen_" + std::string(kind) + ".cap3d"));
    run_ok({"gen", kind, "--media", "--size", "300", "--polygons", "0.3", "--cylinders", "0.1", "--inclines", "0.2",
            sources.back()});
  }
  for (const std::string& source : sources) {
    const std::string stem = dir.file(std::filesystem::path(source).filename().string());
    std::vector<std::string> chain = {source};
    for (const char* step : {".1", ".2", ".3", ".4"}) {
      chain.push_back(stem + step);
      run_ok({"convert", chain[chain.size() - 2], chain.back()});
    }
    // A binary source starts the chain one step ahead.
    const std::size_t first_binary = slurp(source).compare(0, 12, "CAP3D_BINARY") == 0 ? 0 : 1;
    EXPECT_EQ(slurp(chain[first_binary]), slurp(chain[first_binary + 2])) << source;
    EXPECT_EQ(slurp(chain[first_binary + 1]), slurp(chain[first_binary + 3])) << source;
  }
  // What the reader's dump dropped: the Neumann window and the full digits.
  const std::string text = slurp(dir.file("shapes.cap3d.2"));
  expect_all(text, {"neumann", "diel 11.899999618530273"});
}

}  // namespace torva_cli_test
