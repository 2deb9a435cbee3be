// The program under a user's mistakes and hostile files: nothing lost in a
// conversion, nothing read that is not a regular file, no word that was not
// wholly a number passed over in silence, no layout that means nothing
// extracted, no search structure built past its memory budget.
#include "cli_test_support.h"

#include <signal.h>

#include <cmath>
#include <sys/stat.h>

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

// Pipes, devices and directories are refused before a byte is read; a file
// that another process keeps writing is read as it was when it was opened.
TEST_F(cli, layouts_are_read_only_from_regular_files_and_as_they_were_when_opened) {
  const std::string pipe = dir.file("pipe.cap3d");
  ASSERT_EQ(mkfifo(pipe.c_str(), 0600), 0);
  expect_one_line_failure({"info", pipe}, "is a pipe, not a regular file");
  expect_one_line_failure({"index", "/dev/zero"}, "is a character device, not a regular file");
  expect_one_line_failure({"convert", "/dev/urandom", dir.file("x.bin")}, "not a regular file");
  expect_one_line_failure({"extract", dir.path.string()}, "is a directory");

  const std::string growing = dir.file("growing.cap3d");
  write_file(growing, "<cap3d>\n<conductor>\nname a\n");
  const pid_t writer = fork();
  if (writer == 0) {
    const int fd = open(growing.c_str(), O_WRONLY | O_APPEND);
    const std::string words(4096, 'w');
    for (int i = 0; i < (1 << 18) && fd >= 0; ++i)
      if (write(fd, (words + "\n").data(), words.size() + 1) < 0) break;
    _exit(0);
  }
  const outcome r = run({"info", growing});
  kill(writer, SIGKILL);
  waitpid(writer, nullptr, 0);
  EXPECT_EQ(r.status, 1) << r.err;
  EXPECT_THAT(r.err, HasSubstr("rejected the file"));
}

// A byte-order mark and a missing final line feed are an ordinary file.
TEST_F(cli, a_byte_order_mark_and_a_missing_final_line_feed_are_read_as_an_ordinary_file) {
  std::string text = slurp(bus);
  ASSERT_EQ(text.back(), '\n');
  text.pop_back();
  write_file(dir.file("marked.cap3d"), "\xEF\xBB\xBF" + text);
  const outcome plain = run_ok({"info", bus}), marked = run_ok({"info", dir.file("marked.cap3d")});
  EXPECT_EQ(marked.out.substr(marked.out.find('\n')), plain.out.substr(plain.out.find('\n')));
  EXPECT_TRUE(marked.err.empty()) << marked.err;
}

// A word that was not wholly a number: a warning with its line and word by
// default, whatever the command; an error that ends the run under --strict.
TEST_F(cli, numbers_that_were_not_wholly_numbers_are_warned_about_and_refused_under_strict) {
  std::string text = slurp(bus);
  const std::size_t at = text.find("basepoint(1,2,2)");
  ASSERT_NE(at, std::string::npos);
  text.replace(at, 16, "basepoint(1,2abc,2)");
  const std::string path = dir.file("loose.cap3d");
  write_file(path, text);
  const std::string line = "line " + std::to_string(std::count(text.begin(), text.begin() + long(at), '\n') + 1);
  const std::string said = ": " + line + ": basepoint \"2abc\" is not wholly a number: read as 2";
  EXPECT_THAT(run_ok({"info", path}).err, HasSubstr("torva: warning: " + path + said));
  EXPECT_THAT(run_ok({"index", path, "--check", "10"}).err, HasSubstr("torva: warning: " + path + said));
  const outcome strict = run({"--strict", "query", path, "5", "3.7", "2.5"});
  EXPECT_EQ(strict.status, 1);
  EXPECT_THAT(strict.err, HasSubstr("torva: error: " + path + said));
  EXPECT_THAT(strict.err, ::testing::EndsWith("end the run under --strict (the first at " + line + ")\n"));
}

// Structure no user means: check lists it with places and fails on errors,
// info shows it, extract refuses the layout before it walks.
TEST_F(cli, layouts_no_user_means_are_listed_by_check_shown_by_info_and_refused_by_extract) {
  const std::string path = dir.file("flawed.cap3d");
  write_file(path, "<cap3d>\n<window> v1(0,0,0) v2(4,4,4) dirichlet </window>\n"
                   "<conductor> name a <block> basepoint(0,0,0) v1(2,0,0) v2(0,2,0) hvector(0,0,1) </block>\n"
                   "<conductor> name b <block> basepoint(1,1,0.5) v1(2,0,0) v2(0,2,0) hvector(0,0,1) </block>\n"
                   "</conductor>\n"
                   "<conductor> name c <block> basepoint(3,3,3.8) v1(0.5,0,0) v2(0,0.5,0) hvector(0,0,0.5) </block>\n"
                   "</conductor>\n<task> <capacitance> a </capacitance> </task>\n</cap3d>\n");
  const outcome check = run({"check", path});
  EXPECT_EQ(check.status, 1) << check.err;
  expect_all(check.out, {"flawed.cap3d: 2 errors, 1 warning\n",
                         "error    line 4: a <conductor> inside the <conductor> of line 3",
                         "error    the tasks: a task that names no conductor: a",
                         "warning  conductor c (line 6), block #1: a block that reaches beyond the window along z"});
  EXPECT_EQ(count_lines(check.out), 4u) << check.out;
  const outcome info = run_ok({"info", path});
  expect_all(info.out, {"checks       2 errors, 1 warning\n", "               error    line 4: a <conductor> inside"});
  expect_one_line_failure({"extract", path, "--max-walks", "100"}, "2 errors make an extraction meaningless");
  EXPECT_FALSE(std::filesystem::exists(path + ".out"));
  EXPECT_EQ(run({"check", bus}).out, bus + ": none found\n");
}

// A round pad cut into slivers that meet at a point makes the hybrid trees
// split to their depth limit: its estimate passes a small budget, so the
// automatic choice takes the plain grid and a pair asked for is refused,
// before anything is built. Blocks in one place are merged or refused first.
TEST_F(cli, a_search_structure_beyond_the_memory_limit_is_not_built) {
  const std::string wires = dir.file("wires.cap3d");
  run_ok({"gen", "bus", "--size", "300", wires});
  auto with = [&](const std::string& name, const std::string& extra) {
    std::string text = slurp(wires);
    text.insert(text.rfind("</cap3d>"), extra);
    write_file(dir.file(name), text);
    return dir.file(name);
  };
  std::string outline;
  for (int k = 0; k < 64; ++k)
    outline += " " + std::to_string(2 * std::cos(k * M_PI / 32)) + "," + std::to_string(2 * std::sin(k * M_PI / 32));
  const std::string pad = with("pad.cap3d", "<conductor> name pad <poly> basepoint(8,8,1.9) hvector(0,0,0.3) <coord>" +
                                                outline + " </coord> </poly> </conductor>\n");
  const outcome chosen = run_ok({"--memory-limit", "160M", "index", pad, "--check", "50", "--samples", "50"});
  EXPECT_THAT(chosen.err, HasSubstr("the search pair hybrid-none (5) would take more than 160.0 MiB, beyond the "
                                    "memory limit of 160.0 MiB: the plain grid (grid-none-nd, 9) is built instead"));
  EXPECT_THAT(chosen.out, HasSubstr("(chosen by size): grid-none-nd"));
  expect_one_line_failure({"--memory-limit", "160M", "query", "-s", "5", pad, "8", "8", "1"},
                          "beyond the memory limit of 160.0 MiB (give --memory-limit to allow more, or --strategy 9)");
  expect_one_line_failure({"--memory-limit", "160M", "extract", pad, "--strategy", "5"}, "beyond the memory limit");
  expect_usage_errors({{"--memory-limit", "lots", "index", pad}});

  const std::string block = "<block> basepoint(8,8,2.2) v1(1,0,0) v2(0,1,0) hvector(0,0,0.2) </block>";
  const std::string repeated = with("repeated.cap3d", "<conductor> name via " + block + " " + block + " </conductor>\n");
  EXPECT_THAT(run_ok({"index", repeated, "--check", "10"}).err,
              HasSubstr("1 blocks repeat another block of their conductor; they are merged into it"));
  const std::string shared =
      with("shared.cap3d", "<conductor> name v1 " + block + " </conductor> <conductor> name v2 " + block + " </conductor>\n");
  expect_one_line_failure({"index", shared}, "conductors v1 and v2 have blocks in the same place");
}

// Hybrid-grid may answer more than the clearance near a slanted prism (its
// flat cells measure a prism by its box): query and index --check label such
// answers of that pair rather than fail, and still fail a pair that may not.
TEST_F(cli, answers_beyond_the_clearance_are_labelled_for_hybrid_grid_only) {
  const std::string polygons = example("polygons.cap3d");
  const outcome index = run_ok({"index", polygons, "-s", "7", "--check", "5000", "--samples", "100"});
  EXPECT_TRUE(std::regex_search(index.out, std::regex(", 0 disagree, [1-9][0-9]* answer more than the clearance, "
                                                      "which hybrid-grid \\(7\\) is allowed to do\n")))
      << index.out;
  // Beside the slanted wire, where the grid's cell answers past it.
  const outcome query = run_ok({"query", "-s", "7", polygons, "16.0666", "6.30573", "1.70999"});
  EXPECT_TRUE(std::regex_search(query.out, std::regex("brute force  slant/slant at [0-9.]+: answers more than the "
                                                      "clearance, which hybrid-grid \\(7\\) is allowed to do\n")))
      << query.out;
  EXPECT_TRUE(std::regex_search(run_ok({"query", "-s", "5", polygons, "16.0666", "6.30573", "1.70999"}).out,
                                std::regex("brute force  slant/slant at [0-9.]+: agrees\n")));
}

}  // namespace torva_cli_test
