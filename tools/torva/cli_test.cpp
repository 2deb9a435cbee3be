// Runs the built torva program as a process, as a user would: every
// subcommand on the bundled examples and on generated layouts, bad files,
// wrong arguments, exit codes (0 done, 1 bad input, 2 bad usage) and messages.
#include "cli_test_support.h"

namespace torva_cli_test {

TEST_F(cli, usage_errors_exit_with_two_and_help_with_zero) {
  const outcome none = run({});
  EXPECT_EQ(none.status, 2);
  expect_all(none.err, {"subcommand", "--help"});
  const outcome missing = run({"info"});
  EXPECT_EQ(missing.status, 2);
  expect_all(missing.err, {"LAYOUT", "torva info --help"});
  const outcome bad_option = run({"info", "--no-such-option", bus});
  EXPECT_EQ(bad_option.status, 2);
  EXPECT_THAT(bad_option.err, HasSubstr("--no-such-option"));
  expect_usage_errors({{"frobnicate"}, {"--progress", "sometimes", "info", bus}});

  const outcome top = run({"--help"});
  EXPECT_EQ(top.status, 0);
  for (const char* sub : {"info", "index", "query", "bench", "convert", "gen", "tables", "extract"})
    EXPECT_THAT(top.out, HasSubstr(sub));
  // -h alone is the older command line's usage text, line for line.
  std::string usage;
  for (const std::string& line : torva::sea::config_impl::verbose_usage) usage += line + "\n";
  const outcome h = run({"-h"});
  EXPECT_EQ(h.status, 0);
  EXPECT_THAT(h.out, StartsWith("The syntax:\n"));
  EXPECT_EQ(h.out, usage);
  const outcome help = run({"query", "--help"});
  EXPECT_EQ(help.status, 0);
  EXPECT_THAT(help.out, HasSubstr("torva query"));
  EXPECT_TRUE(help.err.empty()) << help.err;
}

TEST_F(cli, info_summarises_the_bus_example) {
  const outcome r = run_ok({"info", bus});
  EXPECT_TRUE(r.err.empty()) << r.err;
  // Four conductors (ground and three wires); the L-shaped wire is cut into two prisms.
  expect_all(r.out, {"conductors   4 (0 floating), 5 blocks: 3 cuboid, 2 prism",
                     "bus_window (0, 0, 0) to (10, 10, 6), dirichlet", "oxide (z_top 4, diel 3.9)",
                     "passivation (diel 7, 1 blocks)", "M1 (id 1, interconnect)", "OX (dielectric)",
                     "self-precision 0.01", "thread-num 2", "tasks        3: bus0 bus1 bus2"});
  EXPECT_TRUE(std::regex_search(r.out, std::regex(R"(\(text, [0-9.]+ KiB\), read in [0-9.]+ (ns|us|ms|s)\n)")))
      << r.out;
  EXPECT_THAT(run({"info", "--cuboids-only", bus}).out, HasSubstr("5 blocks: 5 cuboid"));
}

TEST_F(cli, info_refuses_bad_files_with_one_line_and_status_one) {
  expect_one_line_failure({"info", dir.file("missing.cap3d")}, "no such file");
  expect_one_line_failure({"info", dir.path.string()}, "is a directory");
  // A syntax error: the reader's own line, with the word it stopped at.
  write_file(dir.file("syntax.cap3d"),
             "<cap3d>\n<conductor>\nname a\n<block>\nbasepoint(0,0,0)\nv1(1,0,0)\nv2(0,1,0)\nhvector(0,0,1)\n"
             "wobble 3\n</block>\n</conductor>\n</cap3d>\n");
  expect_one_line_failure({"info", dir.file("syntax.cap3d")}, "syntax.cap3d: ERROR: (Syntax) \"wobble\".");
  // Binary by its flag, then cut short.
  write_file(dir.file("short.bin"), std::string("CAP3D_BINARY") + std::string("\x01\x00\x00", 3));
  expect_one_line_failure({"info", dir.file("short.bin")}, "short.bin");

  // Random bytes, as text and as binary, never crash the program.
  std::string noise;
  for (unsigned i = 0, x = 12345; i < 5000; ++i) noise.push_back(static_cast<char>((x = x * 1103515245u + 12345u) >> 16));
  for (auto [name, text] : {std::pair{"noise.cap3d", noise}, {"noise.bin", "CAP3D_BINARY" + noise}}) {
    write_file(dir.file(name), text);
    const outcome o = run({"info", dir.file(name)});
    EXPECT_TRUE(o.status == 0 || o.status == 1) << o.status << " " << o.err;
    // Warnings may come first; a failure ends in the program's one line.
    if (o.status == 1) {
      EXPECT_TRUE(std::regex_search(o.err, std::regex("(^|\n)torva: error: [^\n]*\n$"))) << o.err;
    }
    // A sanitizer's report also ends with status 1: make sure that is not what happened.
    EXPECT_THAT(o.err, Not(HasSubstr("Sanitizer")));
    EXPECT_THAT(o.err, Not(HasSubstr("runtime error")));
  }
}

TEST_F(cli, log_file_and_progress_put_the_library_lines_where_asked) {
  const std::string log = dir.file("run.log");
  write_file(dir.file("syntax.cap3d"), "<cap3d>\n<window>\nv1(0,0,0)\nv2(1,1,1)\n</window>\n<bogus>\n</cap3d>\n");
  // The reader's error line is in the file, and is the heart of the one line on the console.
  expect_one_line_failure({"--log-file", log, "info", dir.file("syntax.cap3d")}, "ERROR: (Syntax) \"<bogus>\".");
  EXPECT_THAT(slurp(log), HasSubstr("ERROR: (Syntax) \"<bogus>\"."));

  const outcome r = run_ok({"--progress", "always", "info", bus});
  EXPECT_THAT(r.out, Not(HasSubstr("\r")));
  // Drawn at least once however short the read, and wiped at the end.
  EXPECT_THAT(r.err, StartsWith("\rreading bus.cap3d ["));
  EXPECT_THAT(r.err, ::testing::EndsWith("\r\033[K"));
}

TEST_F(cli, gen_writes_layouts_that_info_reads_back_the_same_every_time) {
  const std::vector<std::string> args = {"gen", "mixed", "--size", "300", "--polygons", "0.3", "--cylinders", "0.2",
                                         "--media"};
  auto with = [&](const std::string& path) {
    std::vector<std::string> a = args;
    a.push_back(path);
    return a;
  };
  const outcome g = run_ok(with(dir.file("mixed.cap3d")));
  EXPECT_THAT(g.out, HasSubstr("300 solids"));
  const outcome i = run_ok({"info", dir.file("mixed.cap3d")});
  expect_all(i.out, {"cylinder", "prism", "plate media  3"});
  run_ok(with(dir.file("again.cap3d")));
  EXPECT_EQ(slurp(dir.file("mixed.cap3d")), slurp(dir.file("again.cap3d")));

  run_ok({"gen", "crossing", "--size", "200", "--binary", dir.file("gen.bin")});
  expect_all(run({"info", dir.file("gen.bin")}).out, {"(binary, ", "200 blocks: 200 cuboid"});

  expect_usage_errors({{"gen", "spiral", dir.file("x.cap3d")}, {"gen", "bus", "--polygons", "1.5", dir.file("x.cap3d")}});
  expect_one_line_failure({"gen", "bus", dir.file("no/such/dir/x.cap3d")}, "no/such/dir/x.cap3d");
}

TEST_F(cli, tables_reports_the_groups_a_stack_loads) {
  const std::string root = dir.file("tables/");
  for (auto [a, b] : {std::pair{3.9, 2.5}, {2.5, 7.0}}) {
    torva::testing::write_two_layer(root, a, b, 1);
    torva::testing::write_half_layer(root, a, b, 2);
  }
  torva::testing::write_three_layer(root, 3.9, 2.5, 7, 5);
  // Three layers in mode 2: two interfaces and one run of three, no run of four.
  const outcome r = run_ok({"tables", "--mode", "2", "--dir", root, "--diels", "3.9,2.5,7"});
  expect_all(r.out, {"two-layer               2 groups,      2 uses", "half-layer              2 groups,      2 uses",
                     "three-layer             1 groups,      1 uses", "loading table: (3.900000000000, 2.500000000000)",
                     "table_path:"});
  EXPECT_THAT(r.out, Not(HasSubstr("four-layer")));
  // A walk scheme above 2 takes the first table only.
  const outcome f = run_ok({"tables", "-d", dir.file("none"), "--diels", "3.9,2.5", "-m", "1", "--walk-scheme", "3"});
  expect_all(f.out, {"first table  1024 cells, last 1\n", "groups\n  none\n"});
  expect_one_line_failure({"tables", "-m", "1", "-d", dir.file("empty/"), "--diels", "3.9,2.5"},
                          "NumGFT_IS3.9_2.5_23.db");
  expect_one_line_failure({"tables", "-m", "3", "-d", dir.file("empty/")}, "cannot open");
  // A ratio of 0.01 is below what the approximate grid covers.
  expect_one_line_failure({"tables", "-m", "5", "-d", dir.file("empty/"), "--diels", "1,100"},
                          "ERROR: diel ratio not supported.");
  expect_usage_errors({{"tables", "-m", "9", "-d", dir.file("x"), "--diels", "1,2"},
                       {"tables", "-m", "1", "-d", dir.file("x"), "--diels", "1,glass"},
                       {"tables", "-d", dir.file("x"), "--diels", "1,2"},
                       {"tables", "--generate", "--diels", "3.9"}});

  // Generated tables are what the loader reads: a stack of three layers, two pairs.
  const std::string made = dir.file("made");
  const outcome g = run_ok({"tables", "--generate", "--diels", "3.9,2.5,3.9", "--dir", made, "-n", "2"});
  expect_all(g.out, {"3.9 below, 2.5 above: 6 files, 1.1 MiB", "2.5 below, 3.9 above: 6 files", "wrote        12 files"});
  const outcome l = run_ok({"tables", "-m", "1", "-d", made, "--diels", "3.9,2.5,3.9"});
  expect_all(l.out, {"two-layer               2 groups,      2 uses", "half-layer              2 groups,      2 uses"});
  expect_one_line_failure({"tables", "--generate", "--pairs", "7/glass", "--dir", made}, "7/glass");
}

TEST_F(cli, index_agrees_with_brute_force_for_every_strategy) {
  const outcome r = run_ok({"index", bus});
  EXPECT_TRUE(r.err.empty()) << r.err;
  // Fewer than 50 blocks: the automatic choice is the single list.
  expect_all(r.out, {"blocks       5 conductor blocks: 3 cuboid, 2 other",
                     "strategy     10 (chosen by size): simple-none", "| prism size: 2, cuboid size: 3",
                     "| using simple-none space manager",
                     "| Don't use critical box.", "first : 1 distinct lists; length min 5, median 5",
                     "2000 of 2000 agree", ", 0 disagree\n"});
  EXPECT_TRUE(std::regex_search(r.out, std::regex(R"(built in +[0-9.]+ (ns|us|ms|s) .*heap [0-9.]+ (B|KiB|MiB))")))
      << r.out;

  const std::string path = mixed_layout("400");
  for (int s = 0; s <= 10; ++s) {
    const outcome m = run({"index", "--strategy", std::to_string(s), "--threads", "2", "--check", "400", "--samples",
                           "2000", path});
    ASSERT_EQ(m.status, 0) << "strategy " << s << ": " << m.err;
    EXPECT_THAT(m.out, HasSubstr("400 of 400 agree")) << "strategy " << s << "\n" << m.out;
    EXPECT_THAT(m.out, HasSubstr("0 disagree")) << "strategy " << s;
  }
  // The critical box of a Dirichlet window: points beyond it are answered by the wall.
  const outcome c = run_ok({"index", "--critical-box", "-s", "4", "--check", "400", path});
  expect_all(c.out, {"| use critical box.", "400 of 400 agree"});

  expect_usage_errors({{"index", "--strategy", "11", bus}});
  expect_one_line_failure({"index", dir.file("none.cap3d")}, "no such file");
  write_file(dir.file("dielectric_only.cap3d"),
             "<cap3d>\n<window>\nv1(0,0,0)\nv2(1,1,1)\ndirichlet\n</window>\n"
             "<plate_medium>\nname ox\nz_top 1\ndiel 3.9\n</plate_medium>\n</cap3d>\n");
  expect_one_line_failure({"index", dir.file("dielectric_only.cap3d")}, "no conductor blocks");
}

TEST_F(cli, query_names_the_nearest_block_with_its_distance) {
  // Between wire w0 (y 2..3) and w1 (y 4.5..5.5), 0.7 above w0's side.
  const outcome r = run_ok({"query", bus, "5", "3.7", "2.5"});
  expect_all(r.out, {"nearest      net bus0, block w0 (cuboid", "distance     0.700000000000\n",
                     "brute force  bus0/w0 at 0.700000000000: agrees\n"});
  // Above the L-shaped wire's long arm (y 7..8), nearer than the wall at y 10.
  expect_all(run({"query", "-s", "0", bus, "5", "8.6", "2.5"}).out,
             {"nearest      net bus2, block w2 (prism", "distance     0.600000000000\n"});
  // Inside a conductor the answer is 0; a limit below the nearest block cuts it.
  expect_all(run({"query", bus, "5", "2.5", "2.5"}).out, {"distance     0.000000000000\n", "block w0"});
  EXPECT_THAT(run({"query", "--limit", "0.25", bus, "5", "3.7", "2.5"}).out, HasSubstr("distance     0.250000000000\n"));

  expect_one_line_failure({"query", bus, "-1", "-2", "3"}, "outside the search space");
  expect_usage_errors({{"query", bus, "5", "north", "3"}});
}

TEST_F(cli, bench_times_every_pair_beside_brute_force) {
  const std::string mixed = mixed_layout("300");
  const outcome r = run_ok({"bench", mixed, "--queries", "3000", "--repeat", "1"});
  EXPECT_THAT(r.out, HasSubstr("walk         3000 queries in "));
  const char* pairs[] = {"simple-simple", "octree-octree", "hybrid-hybrid", "simple-none",    "octree-none",
                         "hybrid-none",   "hybrid-simple", "hybrid-grid",   "hybrid-grid-nd", "grid-none-nd"};
  for (int s = 0; s < 10; ++s) {
    const std::regex row("\\n +" + std::to_string(s) + "  " + pairs[s] +
                         " +[0-9.]+ (ns|us|ms|s) +[0-9.]+ (B|KiB|MiB) +[0-9.]+ +[0-9.]+ +[0-9.]+x\\n");
    EXPECT_TRUE(std::regex_search(r.out, row)) << pairs[s] << "\n" << r.out;
  }
  // The compact index and Embree (where the program has it) on the same walk;
  // --stream walk starts the walks about one net.
  const std::string beside = " +[0-9.]+ (ns|us|ms|s) +[0-9.]+ (B|KiB|MiB) +[0-9.]+ +[0-9.]+ +[0-9.]+x\\n";
  const outcome walk = run_ok({"bench", mixed, "-s", "9", "--stream", "walk", "--queries", "2000", "--repeat", "1"});
  for (const std::string& out : {r.out, walk.out}) {
    EXPECT_TRUE(std::regex_search(out, std::regex("\\n +-  compact" + beside))) << out;
    EXPECT_TRUE(std::regex_search(out, std::regex("\\n +-  embree" + beside)) ||
                out.find("embree              not built in") != std::string::npos)
        << out;
  }
  EXPECT_THAT(walk.out, HasSubstr("stream       walks from a surface about net "));
  expect_usage_errors({{"bench", bus, "-q", "0"}, {"bench", bus, "--stream", "sideways"}});
}

TEST_F(cli, convert_round_trips_refuses_to_overwrite_and_cleans_up_after_a_failed_read) {
  // The lines of `info` from the second on: all but the file's name, form and time.
  auto body = [](const std::string& out) { return out.substr(out.find('\n') + 1); };
  const std::string bin = dir.file("bus.bin");
  const outcome to_bin = run_ok({"convert", bus, bin});
  EXPECT_THAT(to_bin.out, HasSubstr("binary form of"));
  EXPECT_EQ(slurp(bin).substr(0, 12), "CAP3D_BINARY");
  const outcome text_info = run({"info", bus}), bin_info = run_ok({"info", bin});
  EXPECT_THAT(bin_info.out, HasSubstr("(binary, "));
  EXPECT_EQ(body(bin_info.out), body(text_info.out));
  EXPECT_THAT(run({"index", bin}).out, HasSubstr("2000 of 2000 agree"));
  // Back to text by the text writer: the same conductors, media and tasks.
  const outcome to_text = run_ok({"convert", bin, dir.file("again.cap3d")});
  EXPECT_THAT(to_text.out, HasSubstr("text form of the binary"));
  const outcome again = run_ok({"info", dir.file("again.cap3d")});
  for (const char* head : {"\nconductors", "\nmedia", "\nplate media", "\ntasks", "\nlayers"}) {
    auto line = [&](const std::string& text) {
      const std::size_t at = text.find(head);
      return at == std::string::npos ? std::string() : text.substr(at + 1, text.find('\n', at + 1) - at - 1);
    };
    EXPECT_EQ(line(again.out), line(text_info.out)) << head;
  }

  expect_one_line_failure({"convert", bus, bin}, "--force");
  run_ok({"convert", "--force", bus, bin});
  expect_one_line_failure({"convert", "--force", bin, bin}, "same file");
  // A binary file cut in the middle of a record: no dump is left behind.
  const std::string whole = slurp(bin);
  write_file(dir.file("cut.bin"), whole.substr(0, whole.size() / 2 + 3));
  EXPECT_EQ(run({"convert", dir.file("cut.bin"), dir.file("cut.cap3d")}).status, 1);
  EXPECT_FALSE(std::filesystem::exists(dir.file("cut.cap3d")));
  expect_one_line_failure({"convert", dir.file("missing.cap3d"), dir.file("x.bin")}, "no such file");
  expect_usage_errors({{"convert", bus}});
}

TEST_F(cli, a_failed_convert_keeps_the_file_it_would_replace) {
  const std::string bin = dir.file("bus.bin"), out = dir.file("kept.cap3d");
  run_ok({"convert", bus, bin});
  const std::string whole = slurp(bin);
  write_file(dir.file("cut.bin"), whole.substr(0, whole.size() / 2 + 3));
  write_file(out, "the old contents\n");
  const outcome r = run({"convert", dir.file("cut.bin"), out, "--force"});
  EXPECT_EQ(r.status, 1) << r.err;
  EXPECT_EQ(slurp(out), "the old contents\n");
  // A good input does replace it, through the same temporary.
  run_ok({"convert", bin, out, "--force"});
  EXPECT_THAT(slurp(out), Not(HasSubstr("the old contents")));
  std::vector<std::string> names;
  for (const auto& e : std::filesystem::directory_iterator(dir.path)) names.push_back(e.path().filename().string());
  std::sort(names.begin(), names.end());
  EXPECT_EQ(names, (std::vector<std::string>{"bus.bin", "cut.bin", "kept.cap3d", "stderr.txt", "stdout.txt"}))
      << "no temporary may be left behind";
}

TEST_F(cli, no_output_may_be_an_input_of_the_same_run) {
  const std::string layout = dir.file("bus.cap3d"), link = dir.file("link.cap3d");
  std::filesystem::copy_file(bus, layout);
  std::filesystem::create_symlink(layout, link);
  const std::string original = slurp(layout);
  const std::string dotted = (dir.path / "." / "bus.cap3d").string();
  for (const auto& args : std::vector<std::vector<std::string>>{{"--log-file", layout, "info", layout},
                                                                {"--log-file", link, "info", layout},
                                                                {"--log-file", dotted, "convert", layout, dir.file("b.bin")},
                                                                {"convert", "--force", layout, link}}) {
    expect_one_line_failure(args, "(the same file)");
    EXPECT_EQ(slurp(layout), original) << ::testing::PrintToString(args);
  }
  EXPECT_FALSE(std::filesystem::exists(dir.file("b.bin")));
}

TEST_F(cli, gen_replaces_an_existing_file_only_with_force) {
  const std::string out = dir.file("old.cap3d");
  write_file(out, "keep me\n");
  expect_one_line_failure({"gen", "bus", "--size", "10", out}, "old.cap3d\" exists; give --force");
  EXPECT_EQ(slurp(out), "keep me\n");
  run_ok({"gen", "bus", "--size", "10", "--force", out});
  EXPECT_THAT(run_ok({"info", out}).out, HasSubstr("10 blocks"));
}

TEST_F(cli, extract_writes_its_reports_and_the_older_command_line_is_the_same_run) {
  const std::string layout = dir.file("bus.cap3d");
  std::filesystem::copy_file(bus, layout);
  const outcome r = run_ok({"extract", layout, "--max-walks", "2000", "--json", dir.file("a.json"), "--out-file",
                            dir.file("a.out"), "--log-file", dir.file("a.log"), "-spice", "--seed", "3"});
  expect_all(r.out, {"Maxwell matrix in fF", "GROUND", "stopped by walks", "a.out", "a.json", "a.sp"});

  const std::string json = slurp(dir.file("a.json"));
  EXPECT_THAT(json, StartsWith("{\"unit\": \"fF\""));
  const std::vector<std::string> nets = json_names(json, "nets"), masters = json_names(json, "masters");
  const auto matrix = json_rows(json, "matrix"), errors = json_rows(json, "stderr");
  EXPECT_EQ(masters, (std::vector<std::string>{"bus0", "bus1", "bus2"}));
  ASSERT_EQ(nets.size(), 5u);
  ASSERT_EQ(nets.back(), "GROUND");
  ASSERT_EQ(matrix.size(), masters.size());
  ASSERT_EQ(errors.size(), masters.size());
  for (std::size_t i = 0; i < matrix.size(); ++i) {
    ASSERT_EQ(matrix[i].size(), nets.size());
    const std::size_t self = std::size_t(std::find(nets.begin(), nets.end(), masters[i]) - nets.begin());
    double sum = 0;
    for (std::size_t j = 0; j < nets.size(); ++j) {
      sum += matrix[i][j];
      // A coupling is negative; a faint one may come out above zero by noise, never by more than three errors.
      if (j == self)
        EXPECT_GT(matrix[i][j], 0.0) << masters[i];
      else
        EXPECT_LT(matrix[i][j], 3 * errors[i][j]) << masters[i] << " to " << nets[j];
      EXPECT_GE(errors[i][j], 0.0);
    }
    EXPECT_LT(matrix[i].back(), 0.0) << masters[i] << " to the grounded window";
    // With the window grounded every walk ends somewhere: a row sums to zero.
    EXPECT_NEAR(sum, 0.0, 1e-9 * matrix[i][self]) << masters[i];
  }

  // The netlist in farads: one ground capacitor per master with the GROUND
  // entry's magnitude, couplings as the mean of the two rows, and .end.
  const std::string spice = slurp(dir.file("a.sp"));
  EXPECT_THAT(spice, ::testing::EndsWith(".end\n"));
  EXPECT_THAT(spice, HasSubstr(layout));
  std::istringstream cards(spice);
  std::string line;
  std::size_t grounds = 0, couplings = 0;
  auto index_in = [](const std::vector<std::string>& v, const std::string& n) {
    return std::size_t(std::find(v.begin(), v.end(), n) - v.begin());
  };
  auto row_of = [&](const std::string& n) { return index_in(masters, n); };
  auto col_of = [&](const std::string& n) { return index_in(nets, n); };
  while (std::getline(cards, line)) {
    if (line.empty() || line[0] != 'C') continue;
    std::istringstream f(line);
    std::string name, a, b;
    double farads = 0;
    ASSERT_TRUE(f >> name >> a >> b >> farads) << line;
    const std::size_t i = row_of(a);
    ASSERT_LT(i, masters.size()) << line;
    double expected = 0;
    if (b == "0") {
      ++grounds;
      expected = std::fabs(matrix[i][nets.size() - 1]);
    } else {
      ++couplings;
      ASSERT_LT(col_of(b), nets.size()) << line;
      expected = std::fabs(matrix[i][col_of(b)]);
      if (row_of(b) < masters.size()) expected = 0.5 * (expected + std::fabs(matrix[row_of(b)][col_of(a)]));
    }
    EXPECT_NEAR(farads, expected * 1e-15, 1e-6 * expected * 1e-15) << line;
  }
  EXPECT_EQ(grounds, masters.size());
  // Three pairs of masters and each master with the ground plane, which is no master.
  EXPECT_EQ(couplings, 6u);

  const std::string report = slurp(dir.file("a.out"));
  expect_all(report, {"capacitance in fF", "lengths in um", "seed                3", "walk-type 1", "GROUND"});
  EXPECT_THAT(report, HasSubstr(layout));
  EXPECT_THAT(slurp(dir.file("a.log")), HasSubstr("master bus2: "));

  // The same run in the older spelling, on another number of threads: the same matrix to the last bit.
  run_ok({"-f", layout, "-p", "0.005", "-c", "0.05", "-n", "4", "--out-file", dir.file("b.out"), "--log-file",
          dir.file("b.log"), "-spice", "--max-walks", "2000", "--seed", "3", "--json", dir.file("b.json")});
  EXPECT_EQ(json_rows(slurp(dir.file("b.json")), "matrix"), matrix);
  EXPECT_TRUE(std::filesystem::exists(dir.file("b.sp")));
}

TEST_F(cli, extract_never_writes_over_its_layout) {
  const std::string layout = dir.file("bus.cap3d");
  std::filesystem::copy_file(bus, layout);
  std::filesystem::create_symlink(layout, dir.file("link.cap3d"));
  const std::string original = slurp(layout);
  const std::string dotted = (dir.path / "." / "bus.cap3d").string();
  for (const auto& args : std::vector<std::vector<std::string>>{
           {"extract", layout, "--log-file", layout},
           {"extract", layout, "--out-file", dotted},
           {"extract", layout, "--json", dir.file("link.cap3d")},
           {"--log-file", dir.file("link.cap3d"), "extract", layout},
           {"-f", layout, "--out-file", dir.file("x.out"), "--log-file", dotted}}) {
    expect_one_line_failure(args, "it is the layout file");
    EXPECT_EQ(slurp(layout), original) << ::testing::PrintToString(args);
  }
  // Refused before anything was opened: no log, report or temporary beside the layout.
  EXPECT_EQ(std::distance(std::filesystem::directory_iterator(dir.path), {}), 4)
      << "bus.cap3d, link.cap3d, stdout.txt and stderr.txt only";
}

}  // namespace torva_cli_test
