// Runs the built torva program as a process, as a user would: every
// subcommand on the bundled examples and on generated layouts, bad files,
// wrong arguments, exit codes and messages.
#include <fcntl.h>
#include <sys/wait.h>
#include <unistd.h>

#include <cstdlib>
#include <filesystem>
#include <fstream>
#include <regex>
#include <sstream>
#include <string>
#include <vector>

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include "torva/tables/internal/test_table_files.h"
#include "torva_testing/log_capture.h"

#ifndef TORVA_CLI_PATH
#error "TORVA_CLI_PATH must name the built torva program"
#endif
#ifndef TORVA_EXAMPLES_DIR
#error "TORVA_EXAMPLES_DIR must name the examples folder"
#endif

namespace {

using ::testing::HasSubstr;
using ::testing::Not;
using ::testing::StartsWith;

struct outcome {
  int status = -1;  // exit status, or 128 + signal
  std::string out;
  std::string err;
};

std::string slurp(const std::string& path) {
  std::ifstream in(path, std::ios::binary);
  std::ostringstream s;
  s << in.rdbuf();
  return s.str();
}

// Runs torva with `args`; standard output and error go to files of `dir`.
outcome run(const std::vector<std::string>& args, const torva::testing::temp_dir& dir) {
  const std::string out_path = dir.file("stdout.txt");
  const std::string err_path = dir.file("stderr.txt");
  std::vector<char*> argv;
  std::string program = TORVA_CLI_PATH;
  argv.push_back(program.data());
  std::vector<std::string> copies = args;
  for (std::string& a : copies) argv.push_back(a.data());
  argv.push_back(nullptr);

  const pid_t pid = fork();
  if (pid == 0) {
    const int o = open(out_path.c_str(), O_WRONLY | O_CREAT | O_TRUNC, 0644);
    const int e = open(err_path.c_str(), O_WRONLY | O_CREAT | O_TRUNC, 0644);
    const int in = open("/dev/null", O_RDONLY);
    if (o < 0 || e < 0 || in < 0) _exit(127);
    dup2(o, 1);
    dup2(e, 2);
    dup2(in, 0);
    execv(argv[0], argv.data());
    _exit(127);
  }
  outcome r;
  int wstatus = 0;
  if (pid < 0 || waitpid(pid, &wstatus, 0) != pid) return r;
  r.status = WIFEXITED(wstatus) ? WEXITSTATUS(wstatus) : 128 + WTERMSIG(wstatus);
  r.out = slurp(out_path);
  r.err = slurp(err_path);
  return r;
}

std::string example(const std::string& name) { return std::string(TORVA_EXAMPLES_DIR) + "/" + name; }

void write_file(const std::string& path, const std::string& text) {
  std::ofstream out(path, std::ios::binary);
  out << text;
}

std::size_t count_lines(const std::string& s) {
  std::size_t n = 0;
  for (char c : s) n += c == '\n';
  return n;
}

// A failure of bad input: status 1 and exactly one line on standard error,
// which starts with the program's name and holds `what`.
void expect_one_line_failure(const outcome& r, const std::string& what) {
  EXPECT_EQ(r.status, 1) << r.err;
  EXPECT_EQ(count_lines(r.err), 1u) << r.err;
  EXPECT_THAT(r.err, StartsWith("torva: error: "));
  EXPECT_THAT(r.err, HasSubstr(what));
  EXPECT_THAT(r.err, Not(HasSubstr("terminate")));
}

class cli : public ::testing::Test {
 protected:
  torva::testing::temp_dir dir;
  outcome run(const std::vector<std::string>& args) { return ::run(args, dir); }
};

// ------------------------------------------------------------------ usage

TEST_F(cli, usage_errors_exit_with_two_and_point_at_help) {
  const outcome none = run({});
  EXPECT_EQ(none.status, 2);
  EXPECT_THAT(none.err, HasSubstr("subcommand"));
  EXPECT_THAT(none.err, HasSubstr("--help"));

  const outcome unknown = run({"frobnicate"});
  EXPECT_EQ(unknown.status, 2);

  const outcome missing = run({"info"});
  EXPECT_EQ(missing.status, 2);
  EXPECT_THAT(missing.err, HasSubstr("LAYOUT"));
  EXPECT_THAT(missing.err, HasSubstr("torva info --help"));

  const outcome bad_option = run({"info", "--no-such-option", example("bus.cap3d")});
  EXPECT_EQ(bad_option.status, 2);
  EXPECT_THAT(bad_option.err, HasSubstr("--no-such-option"));

  const outcome bad_progress = run({"--progress", "sometimes", "info", example("bus.cap3d")});
  EXPECT_EQ(bad_progress.status, 2);
}

TEST_F(cli, help_of_the_program_and_of_each_subcommand_exits_with_zero) {
  const outcome top = run({"--help"});
  EXPECT_EQ(top.status, 0);
  for (const char* sub : {"info", "index", "query", "bench", "convert", "gen", "tables"}) {
    EXPECT_THAT(top.out, HasSubstr(sub));
    const outcome help = run({sub, "--help"});
    EXPECT_EQ(help.status, 0) << sub;
    EXPECT_THAT(help.out, HasSubstr(std::string("torva ") + sub)) << sub;
    EXPECT_TRUE(help.err.empty()) << sub << ": " << help.err;
  }
}

// ------------------------------------------------------------------ info

TEST_F(cli, info_summarises_the_bus_example) {
  const outcome r = run({"info", example("bus.cap3d")});
  ASSERT_EQ(r.status, 0) << r.err;
  EXPECT_TRUE(r.err.empty()) << r.err;
  // Four conductors (ground and three wires); the L-shaped wire is cut into two prisms.
  EXPECT_THAT(r.out, HasSubstr("conductors   4 (0 floating), 5 blocks: 3 cuboid, 2 prism"));
  EXPECT_THAT(r.out, HasSubstr("bus_window (0, 0, 0) to (10, 10, 6), dirichlet"));
  EXPECT_THAT(r.out, HasSubstr("oxide (z_top 4, diel 3.9)"));
  EXPECT_THAT(r.out, HasSubstr("passivation (diel 7, 1 blocks)"));
  EXPECT_THAT(r.out, HasSubstr("M1 (id 1, interconnect)"));
  EXPECT_THAT(r.out, HasSubstr("OX (dielectric)"));
  EXPECT_THAT(r.out, HasSubstr("self-precision 0.01"));
  EXPECT_THAT(r.out, HasSubstr("thread-num 2"));
  EXPECT_THAT(r.out, HasSubstr("tasks        3: bus0 bus1 bus2"));
  EXPECT_TRUE(std::regex_search(r.out, std::regex(R"(\(text, [0-9.]+ KiB\), read in [0-9.]+ (ns|us|ms|s)\n)")))
      << r.out;
}

TEST_F(cli, info_with_cuboids_only_reads_polygon_pieces_as_boxes) {
  const outcome r = run({"info", "--cuboids-only", example("bus.cap3d")});
  ASSERT_EQ(r.status, 0) << r.err;
  EXPECT_THAT(r.out, HasSubstr("5 blocks: 5 cuboid"));
}

TEST_F(cli, info_refuses_bad_files_with_one_line_and_status_one) {
  expect_one_line_failure(run({"info", dir.file("missing.cap3d")}), "no such file");
  expect_one_line_failure(run({"info", dir.path.string()}), "is a directory");

  write_file(dir.file("empty.cap3d"), "");
  expect_one_line_failure(run({"info", dir.file("empty.cap3d")}), "empty.cap3d");

  write_file(dir.file("prose.cap3d"), "this is a letter, not a layout\n");
  expect_one_line_failure(run({"info", dir.file("prose.cap3d")}), "prose.cap3d");

  // A syntax error: the reader's own line, with the word it stopped at.
  write_file(dir.file("syntax.cap3d"),
             "<cap3d>\n<conductor>\nname a\n<block>\nbasepoint(0,0,0)\nv1(1,0,0)\nv2(0,1,0)\nhvector(0,0,1)\n"
             "wobble 3\n</block>\n</conductor>\n</cap3d>\n");
  const outcome syntax = run({"info", dir.file("syntax.cap3d")});
  expect_one_line_failure(syntax, "syntax.cap3d: ERROR: (Syntax) \"wobble\".");

  // Binary by its flag, then cut short.
  write_file(dir.file("short.bin"), std::string("CAP3D_BINARY") + std::string("\x01\x00\x00", 3));
  expect_one_line_failure(run({"info", dir.file("short.bin")}), "short.bin");

  // Random bytes never crash the program.
  std::string noise;
  unsigned x = 12345;
  for (int i = 0; i < 5000; ++i) {
    x = x * 1103515245u + 12345u;
    noise.push_back(static_cast<char>(x >> 16));
  }
  write_file(dir.file("noise.cap3d"), noise);
  const outcome n = run({"info", dir.file("noise.cap3d")});
  write_file(dir.file("noise.bin"), "CAP3D_BINARY" + noise);
  const outcome nb = run({"info", dir.file("noise.bin")});
  for (const outcome* o : {&n, &nb}) {
    EXPECT_TRUE(o->status == 0 || o->status == 1) << o->status << " " << o->err;
    // Warnings may come first; a failure ends in the program's one line.
    if (o->status == 1) {
      EXPECT_TRUE(std::regex_search(o->err, std::regex("(^|\n)torva: error: [^\n]*\n$"))) << o->err;
    }
    EXPECT_THAT(o->err, Not(HasSubstr("Sanitizer")));
  }
}

// ------------------------------------------------------------------ logging

TEST_F(cli, log_file_receives_the_library_lines_and_verbose_shows_them) {
  const std::string log = dir.file("run.log");
  write_file(dir.file("syntax.cap3d"), "<cap3d>\n<window>\nv1(0,0,0)\nv2(1,1,1)\n</window>\n<bogus>\n</cap3d>\n");
  const outcome r = run({"--log-file", log, "info", dir.file("syntax.cap3d")});
  EXPECT_EQ(r.status, 1);
  // The reader's error line is in the file, and is the heart of the one line on the console.
  EXPECT_THAT(slurp(log), HasSubstr("ERROR: (Syntax) \"<bogus>\"."));
  EXPECT_THAT(r.err, HasSubstr("ERROR: (Syntax) \"<bogus>\"."));
  EXPECT_EQ(count_lines(r.err), 1u);

  const outcome bad_log = run({"--log-file", dir.file("no/such/dir/x.log"), "info", example("bus.cap3d")});
  expect_one_line_failure(bad_log, "log file");
}

TEST_F(cli, progress_always_draws_and_wipes_a_bar_on_standard_error) {
  const outcome r = run({"--progress", "always", "info", example("bus.cap3d")});
  ASSERT_EQ(r.status, 0) << r.err;
  EXPECT_THAT(r.out, Not(HasSubstr("\r")));
  // Drawn at least once however short the read, and wiped at the end.
  EXPECT_THAT(r.err, StartsWith("\rreading bus.cap3d ["));
  EXPECT_TRUE(r.err.size() >= 4 && r.err.substr(r.err.size() - 4) == "\r\033[K") << r.err;
  const outcome build = run({"--progress", "always", "index", "--check", "10", example("bus.cap3d")});
  ASSERT_EQ(build.status, 0) << build.err;
  EXPECT_THAT(build.err, HasSubstr("\rbuilding index "));
  const outcome never = run({"--progress", "never", "info", example("bus.cap3d")});
  EXPECT_EQ(never.status, 0);
  EXPECT_TRUE(never.err.empty());
}

// ------------------------------------------------------------------ gen

TEST_F(cli, gen_writes_layouts_that_info_reads_back) {
  const std::string path = dir.file("mixed.cap3d");
  const outcome g = run({"gen", "mixed", "--size", "300", "--polygons", "0.3", "--cylinders", "0.2", "--media", path});
  ASSERT_EQ(g.status, 0) << g.err;
  EXPECT_THAT(g.out, HasSubstr("300 solids"));
  const outcome i = run({"info", path});
  ASSERT_EQ(i.status, 0) << i.err;
  EXPECT_THAT(i.out, HasSubstr("cylinder"));
  EXPECT_THAT(i.out, HasSubstr("prism"));
  EXPECT_THAT(i.out, HasSubstr("plate media  3"));

  // The same parameters give the same file.
  const std::string again = dir.file("again.cap3d");
  ASSERT_EQ(run({"gen", "mixed", "--size", "300", "--polygons", "0.3", "--cylinders", "0.2", "--media", again}).status,
            0);
  EXPECT_EQ(slurp(path), slurp(again));
}

TEST_F(cli, gen_refuses_bad_arguments_and_unwritable_places) {
  EXPECT_EQ(run({"gen", "spiral", dir.file("x.cap3d")}).status, 2);
  EXPECT_EQ(run({"gen", "bus", "--size", "0", dir.file("x.cap3d")}).status, 2);
  EXPECT_EQ(run({"gen", "bus", "--polygons", "1.5", dir.file("x.cap3d")}).status, 2);
  EXPECT_EQ(run({"gen", "bus"}).status, 2);
  expect_one_line_failure(run({"gen", "bus", dir.file("no/such/dir/x.cap3d")}), "no/such/dir/x.cap3d");
}

}  // namespace

// ------------------------------------------------------------------ tables

namespace {

TEST_F(cli, tables_loads_multiple_groups_for_a_stack) {
  const std::string root = dir.file("tables/");
  torva::testing::write_two_layer(root, 3.9, 2.5, 1);
  torva::testing::write_half_layer(root, 3.9, 2.5, 2);
  const outcome two = run({"tables", "--mode", "1", "--dir", root, "--diels", "3.9,2.5"});
  ASSERT_EQ(two.status, 0) << two.err;
  EXPECT_THAT(two.out, HasSubstr("two-layer               1 groups,      1 uses"));
  EXPECT_THAT(two.out, HasSubstr("half-layer              1 groups,      1 uses"));
  EXPECT_THAT(two.out, Not(HasSubstr("three-layer")));
  EXPECT_THAT(two.out, HasSubstr("loading table: (3.900000000000, 2.500000000000)"));

  // Three layers in mode 2: two interfaces and one run of three, no run of four.
  torva::testing::write_two_layer(root, 2.5, 7, 3);
  torva::testing::write_half_layer(root, 2.5, 7, 4);
  torva::testing::write_three_layer(root, 3.9, 2.5, 7, 5);
  const outcome three = run({"tables", "-m", "2", "-d", root, "--diels", "3.9,2.5,7"});
  ASSERT_EQ(three.status, 0) << three.err;
  EXPECT_THAT(three.out, HasSubstr("two-layer               2 groups,      2 uses"));
  EXPECT_THAT(three.out, HasSubstr("three-layer             1 groups,      1 uses"));
  EXPECT_THAT(three.out, Not(HasSubstr("four-layer")));
  EXPECT_THAT(three.out, HasSubstr("table_path:"));

  // A repeated stack loads each group once and uses it again: (2.5, 7) serves two interfaces.
  torva::testing::write_two_layer(root, 7, 2.5, 6);
  torva::testing::write_half_layer(root, 7, 2.5, 7);
  const outcome repeat = run({"tables", "-m", "1", "-d", root, "--diels", "3.9,2.5,7,2.5,7"});
  ASSERT_EQ(repeat.status, 0) << repeat.err;
  EXPECT_THAT(repeat.out, HasSubstr("two-layer               3 groups,      4 uses"));
}

TEST_F(cli, tables_with_mode_zero_or_a_high_walk_scheme_take_only_the_first_table) {
  for (const std::vector<std::string>& args :
       {std::vector<std::string>{"tables", "-m", "0", "-d", dir.file("none"), "--diels", "3.9,2.5"},
        std::vector<std::string>{"tables", "-m", "1", "-d", dir.file("none"), "--diels", "3.9,2.5", "--walk-scheme",
                                 "3"}}) {
    const outcome r = run(args);
    ASSERT_EQ(r.status, 0) << r.err;
    EXPECT_THAT(r.out, HasSubstr("first table  1024 cells, last 1\n"));
    EXPECT_THAT(r.out, HasSubstr("groups\n  none\n"));
  }
}

TEST_F(cli, tables_fail_with_one_line_on_missing_files_and_refused_ratios) {
  expect_one_line_failure(run({"tables", "-m", "1", "-d", dir.file("empty/"), "--diels", "3.9,2.5"}),
                          "NumGFT_IS3.9_2.5_23.db");
  expect_one_line_failure(run({"tables", "-m", "3", "-d", dir.file("empty/")}), "cannot open");
  // A ratio of 0.01 is below what the approximate grid covers.
  expect_one_line_failure(run({"tables", "-m", "5", "-d", dir.file("empty/"), "--diels", "1,100"}),
                          "ERROR: diel ratio not supported.");

  EXPECT_EQ(run({"tables", "-m", "9", "-d", dir.file("x"), "--diels", "1,2"}).status, 2);
  EXPECT_EQ(run({"tables", "-m", "1", "-d", dir.file("x"), "--diels", "1,glass"}).status, 2);
  EXPECT_EQ(run({"tables", "-m", "1", "-d", dir.file("x"), "--diels", "1,-2"}).status, 2);
  EXPECT_EQ(run({"tables", "-d", dir.file("x")}).status, 2);
}

}  // namespace

// ------------------------------------------------------------------ index, query, bench

namespace {

// A generated layout with every kind of solid, written once per test.
std::string mixed_layout(const torva::testing::temp_dir& dir, const std::string& size = "400") {
  const std::string path = dir.file("mixed" + size + ".cap3d");
  const outcome g = run({"gen", "mixed", "--size", size, "--polygons", "0.25", "--cylinders", "0.15", "--inclines",
                         "0.1", "--media", "--layers", "3", path},
                        dir);
  EXPECT_EQ(g.status, 0) << g.err;
  return path;
}

TEST_F(cli, index_reads_and_indexes_the_bus_example_and_agrees_with_brute_force) {
  const outcome r = run({"index", example("bus.cap3d")});
  ASSERT_EQ(r.status, 0) << r.err;
  EXPECT_TRUE(r.err.empty()) << r.err;
  EXPECT_THAT(r.out, HasSubstr("blocks       5 conductor blocks: 3 cuboid, 2 other"));
  // Fewer than 50 blocks: the automatic choice is the single list.
  EXPECT_THAT(r.out, HasSubstr("strategy     10 (chosen by size): simple-none"));
  EXPECT_THAT(r.out, HasSubstr("| prism size: 2, cuboid size: 3"));
  EXPECT_THAT(r.out, HasSubstr("| using simple-none space manager"));
  EXPECT_THAT(r.out, HasSubstr("| Don't use critical box."));
  EXPECT_THAT(r.out, HasSubstr("first : 1 distinct lists; length min 5, median 5"));
  EXPECT_THAT(r.out, HasSubstr("2000 of 2000 agree"));
  EXPECT_THAT(r.out, HasSubstr(", 0 disagree\n"));
  EXPECT_TRUE(std::regex_search(r.out, std::regex(R"(built in +[0-9.]+ (ns|us|ms|s) .*heap [0-9.]+ (B|KiB|MiB))")))
      << r.out;
}

TEST_F(cli, index_agrees_with_brute_force_for_every_pair_on_a_mixed_layout) {
  const std::string path = mixed_layout(dir);
  for (int s = 0; s <= 10; ++s) {
    const outcome r = run({"index", "--strategy", std::to_string(s), "--threads", "2", "--check", "400", "--samples",
                           "2000", path});
    ASSERT_EQ(r.status, 0) << "strategy " << s << ": " << r.err;
    EXPECT_THAT(r.out, HasSubstr("400 of 400 agree")) << "strategy " << s << "\n" << r.out;
    EXPECT_THAT(r.out, HasSubstr("0 disagree")) << "strategy " << s;
  }
  // The critical box of a Dirichlet window: points beyond it are answered by the wall.
  const outcome c = run({"index", "--critical-box", "-s", "4", "--check", "400", path});
  ASSERT_EQ(c.status, 0) << c.err;
  EXPECT_THAT(c.out, HasSubstr("| use critical box."));
  EXPECT_THAT(c.out, HasSubstr("400 of 400 agree"));
}

TEST_F(cli, verbose_puts_the_library_progress_lines_on_standard_error) {
  const outcome quiet = run({"index", example("bus.cap3d")});
  EXPECT_THAT(quiet.err, Not(HasSubstr("space manager")));
  const outcome loud = run({"--verbose", "index", example("bus.cap3d")});
  ASSERT_EQ(loud.status, 0) << loud.err;
  EXPECT_THAT(loud.err, HasSubstr("using simple-none space manager\n"));
  const std::string log = dir.file("index.log");
  ASSERT_EQ(run({"--log-file", log, "index", example("bus.cap3d")}).status, 0);
  EXPECT_THAT(slurp(log), HasSubstr("using simple-none space manager\n"));
}

TEST_F(cli, index_refuses_bad_input) {
  EXPECT_EQ(run({"index", "--strategy", "11", example("bus.cap3d")}).status, 2);
  EXPECT_EQ(run({"index", "--threads", "-3", example("bus.cap3d")}).status, 2);
  expect_one_line_failure(run({"index", dir.file("none.cap3d")}), "no such file");
  write_file(dir.file("dielectric_only.cap3d"),
             "<cap3d>\n<window>\nv1(0,0,0)\nv2(1,1,1)\ndirichlet\n</window>\n"
             "<plate_medium>\nname ox\nz_top 1\ndiel 3.9\n</plate_medium>\n</cap3d>\n");
  expect_one_line_failure(run({"index", dir.file("dielectric_only.cap3d")}), "no conductor blocks");
}

TEST_F(cli, query_names_the_nearest_block_with_its_distance_and_reach) {
  // Between wire w0 (y 2..3) and w1 (y 4.5..5.5), 0.7 above w0's side.
  const outcome r = run({"query", example("bus.cap3d"), "5", "3.7", "2.5"});
  ASSERT_EQ(r.status, 0) << r.err;
  EXPECT_THAT(r.out, HasSubstr("nearest      net bus0, block w0 (cuboid"));
  EXPECT_THAT(r.out, HasSubstr("distance     0.700000000000\n"));
  EXPECT_THAT(r.out, HasSubstr("brute force  bus0/w0 at 0.700000000000: agrees\n"));

  // Above the L-shaped wire's long arm (y 7..8), nearer than the wall at y 10.
  const outcome poly = run({"query", "-s", "0", example("bus.cap3d"), "5", "8.6", "2.5"});
  ASSERT_EQ(poly.status, 0) << poly.err;
  EXPECT_THAT(poly.out, HasSubstr("nearest      net bus2, block w2 (prism"));
  EXPECT_THAT(poly.out, HasSubstr("distance     0.600000000000\n"));

  // Inside a conductor the answer is 0.
  const outcome inside = run({"query", example("bus.cap3d"), "5", "2.5", "2.5"});
  ASSERT_EQ(inside.status, 0) << inside.err;
  EXPECT_THAT(inside.out, HasSubstr("distance     0.000000000000\n"));
  EXPECT_THAT(inside.out, HasSubstr("block w0"));

  // A limit below the nearest block cuts the answer.
  const outcome limited = run({"query", "--limit", "0.25", example("bus.cap3d"), "5", "3.7", "2.5"});
  ASSERT_EQ(limited.status, 0) << limited.err;
  EXPECT_THAT(limited.out, HasSubstr("distance     0.250000000000\n"));
}

TEST_F(cli, query_refuses_points_outside_and_words_for_numbers) {
  expect_one_line_failure(run({"query", example("bus.cap3d"), "-1", "-2", "3"}), "outside the search space");
  EXPECT_EQ(run({"query", example("bus.cap3d"), "5", "north", "3"}).status, 2);
  EXPECT_EQ(run({"query", example("bus.cap3d"), "5", "3"}).status, 2);
  EXPECT_EQ(run({"query", "--limit", "0", example("bus.cap3d"), "5", "3", "3"}).status, 2);
}

TEST_F(cli, bench_times_every_pair_beside_brute_force) {
  const std::string path = mixed_layout(dir, "300");
  const outcome r = run({"bench", path, "--queries", "3000", "--repeat", "1"});
  ASSERT_EQ(r.status, 0) << r.err;
  EXPECT_THAT(r.out, HasSubstr("walk         3000 queries in "));
  const char* pairs[] = {"simple-simple", "octree-octree", "hybrid-hybrid", "simple-none",  "octree-none",
                         "hybrid-none",   "hybrid-simple", "hybrid-grid",   "hybrid-grid-nd", "grid-none-nd"};
  for (int s = 0; s < 10; ++s) {
    const std::regex row("\\n +" + std::to_string(s) + "  " + pairs[s] +
                         " +[0-9.]+ (ns|us|ms|s) +[0-9.]+ (B|KiB|MiB) +[0-9.]+ +[0-9.]+ +[0-9.]+x\\n");
    EXPECT_TRUE(std::regex_search(r.out, row)) << pairs[s] << "\n" << r.out;
  }
  const outcome one = run({"bench", example("bus.cap3d"), "-s", "3", "-q", "500"});
  ASSERT_EQ(one.status, 0) << one.err;
  EXPECT_THAT(one.out, HasSubstr("simple-none"));
  EXPECT_THAT(one.out, Not(HasSubstr("octree")));

  EXPECT_EQ(run({"bench", example("bus.cap3d"), "-s", "some"}).status, 2);
  EXPECT_EQ(run({"bench", example("bus.cap3d"), "-q", "0"}).status, 2);
}

}  // namespace

// ------------------------------------------------------------------ convert

namespace {

// The lines of `info` from the second on: everything but the file's name, form and time.
std::string body_of_info(const std::string& out) { return out.substr(out.find('\n') + 1); }

std::string line_starting(const std::string& text, const std::string& head) {
  const std::size_t at = text.find("\n" + head);
  if (at == std::string::npos) return "";
  return text.substr(at + 1, text.find('\n', at + 1) - at - 1);
}

TEST_F(cli, convert_text_to_binary_and_back_keeps_the_layout) {
  const std::string bin = dir.file("bus.bin");
  const outcome to_bin = run({"convert", example("bus.cap3d"), bin});
  ASSERT_EQ(to_bin.status, 0) << to_bin.err;
  EXPECT_THAT(to_bin.out, HasSubstr("binary form of"));
  EXPECT_EQ(slurp(bin).substr(0, 12), "CAP3D_BINARY");

  const outcome text_info = run({"info", example("bus.cap3d")});
  const outcome bin_info = run({"info", bin});
  ASSERT_EQ(bin_info.status, 0) << bin_info.err;
  EXPECT_THAT(bin_info.out, HasSubstr("(binary, "));
  EXPECT_EQ(body_of_info(bin_info.out), body_of_info(text_info.out));

  // Back to text by the reader's dump: the same conductors, media and tasks.
  const std::string txt = dir.file("bus_again.cap3d");
  const outcome to_text = run({"convert", bin, txt});
  ASSERT_EQ(to_text.status, 0) << to_text.err;
  EXPECT_THAT(to_text.out, HasSubstr("text dump of the binary"));
  const outcome again = run({"info", txt});
  ASSERT_EQ(again.status, 0) << again.err;
  for (const char* head : {"conductors", "media", "plate media", "tasks", "layers"})
    EXPECT_EQ(line_starting(again.out, head), line_starting(text_info.out, head)) << head;

  // The binary example indexes like the text one.
  const outcome idx = run({"index", bin});
  ASSERT_EQ(idx.status, 0) << idx.err;
  EXPECT_THAT(idx.out, HasSubstr("2000 of 2000 agree"));
}

TEST_F(cli, convert_refuses_to_overwrite_and_cleans_up_after_a_failed_read) {
  const std::string bin = dir.file("bus.bin");
  ASSERT_EQ(run({"convert", example("bus.cap3d"), bin}).status, 0);
  expect_one_line_failure(run({"convert", example("bus.cap3d"), bin}), "--force");
  EXPECT_EQ(run({"convert", "--force", example("bus.cap3d"), bin}).status, 0);
  expect_one_line_failure(run({"convert", "--force", bin, bin}), "same file");

  // A binary file cut in the middle of a record: no dump is left behind.
  const std::string whole = slurp(bin);
  const std::string cut = dir.file("cut.bin");
  write_file(cut, whole.substr(0, whole.size() / 2 + 3));
  const std::string out = dir.file("cut.cap3d");
  const outcome r = run({"convert", cut, out});
  EXPECT_EQ(r.status, 1) << r.out;
  EXPECT_FALSE(std::filesystem::exists(out));

  expect_one_line_failure(run({"convert", dir.file("missing.cap3d"), dir.file("x.bin")}), "no such file");
  EXPECT_EQ(run({"convert", example("bus.cap3d")}).status, 2);
}

TEST_F(cli, gen_binary_writes_the_binary_form) {
  const std::string bin = dir.file("gen.bin");
  const outcome g = run({"gen", "crossing", "--size", "200", "--binary", bin});
  ASSERT_EQ(g.status, 0) << g.err;
  const outcome i = run({"info", bin});
  ASSERT_EQ(i.status, 0) << i.err;
  EXPECT_THAT(i.out, HasSubstr("(binary, "));
  EXPECT_THAT(i.out, HasSubstr("200 blocks: 200 cuboid"));
}

}  // namespace
