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
  for (const char* sub : {"info", "gen"}) {
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
  // The bar may not get its turn on a file this small; when it draws, it wipes its line after.
  if (!r.err.empty()) {
    EXPECT_THAT(r.err, HasSubstr("reading bus.cap3d"));
    EXPECT_THAT(r.err, HasSubstr("\r\033[K"));
  }
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
