// The fixture of the program's process tests: runs the built torva program
// as a user would, with its output and status kept, and small helpers on
// files and reports.
#pragma once

#include <fcntl.h>
#include <sys/wait.h>
#include <unistd.h>

#include <algorithm>
#include <cmath>
#include <cstdlib>
#include <filesystem>
#include <fstream>
#include <regex>
#include <sstream>
#include <string>
#include <vector>

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include "torva/foundation/usage.h"
#include "torva/tables/internal/test_table_files.h"
#include "torva_testing/log_capture.h"

#ifndef TORVA_CLI_PATH
#error "TORVA_CLI_PATH must name the built torva program"
#endif
#ifndef TORVA_EXAMPLES_DIR
#error "TORVA_EXAMPLES_DIR must name the examples folder"
#endif

namespace torva_cli_test {

using ::testing::HasSubstr;
using ::testing::Not;
using ::testing::StartsWith;

struct outcome {
  int status = -1;  // exit status, or 128 + signal
  std::string out;
  std::string err;
};

inline std::string slurp(const std::string& path) {
  std::ifstream in(path, std::ios::binary);
  std::ostringstream s;
  s << in.rdbuf();
  return s.str();
}

inline void write_file(const std::string& path, const std::string& text) { std::ofstream(path, std::ios::binary) << text; }

inline std::string example(const std::string& name) { return std::string(TORVA_EXAMPLES_DIR) + "/" + name; }

inline std::size_t count_lines(const std::string& s) { return std::size_t(std::count(s.begin(), s.end(), '\n')); }

// Every one of `parts` stands in `text`.
inline void expect_all(const std::string& text, std::initializer_list<const char*> parts) {
  for (const char* p : parts) EXPECT_THAT(text, HasSubstr(p));
}

// The array of arrays of numbers under "key" in a JSON text (enough of JSON
// for the reports of extract: the key's value starts with "[[").
inline std::vector<std::vector<double>> json_rows(const std::string& text, const std::string& key) {
  std::vector<std::vector<double>> rows;
  std::size_t at = text.find("\"" + key + "\": [");
  if (at == std::string::npos) return rows;
  at = text.find('[', at) + 1;
  while (at < text.size()) {
    while (at < text.size() && (text[at] == ' ' || text[at] == ',' || text[at] == '\n')) ++at;
    if (text[at] != '[') break;
    std::vector<double> row;
    const char* p = text.c_str() + at + 1;
    for (;;) {
      while (*p == ' ' || *p == ',') ++p;
      if (*p == ']') break;
      char* end = nullptr;
      row.push_back(std::strtod(p, &end));
      if (end == p) return {};
      p = end;
    }
    rows.push_back(row);
    at = std::size_t(p - text.c_str()) + 1;
  }
  return rows;
}

// The strings of the array under "key" (names without escapes).
inline std::vector<std::string> json_names(const std::string& text, const std::string& key) {
  std::vector<std::string> names;
  const std::size_t at = text.find("\"" + key + "\": [");
  if (at == std::string::npos) return names;
  const std::size_t end = text.find(']', at);
  for (std::size_t q = text.find('"', text.find('[', at)); q < end; q = text.find('"', q + 1)) {
    const std::size_t close = text.find('"', q + 1);
    names.push_back(text.substr(q + 1, close - q - 1));
    q = close;
  }
  return names;
}

class cli : public ::testing::Test {
 protected:
  // Runs torva with `args`, standard input empty and its output in files of `dir`.
  outcome run(std::vector<std::string> args) {
    const std::string out_path = dir.file("stdout.txt"), err_path = dir.file("stderr.txt");
    std::string program = TORVA_CLI_PATH;
    std::vector<char*> argv{program.data()};
    for (std::string& a : args) argv.push_back(a.data());
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

  // Runs torva and expects it to succeed.
  outcome run_ok(std::vector<std::string> args) {
    outcome r = run(args);
    EXPECT_EQ(r.status, 0) << ::testing::PrintToString(args) << "\n" << r.err;
    return r;
  }

  // A failure of bad input: status 1 and exactly one line on standard error,
  // which starts with the program's name and holds `what`.
  void expect_one_line_failure(std::vector<std::string> args, const std::string& what) {
    const outcome r = run(std::move(args));
    EXPECT_EQ(r.status, 1) << r.err;
    EXPECT_EQ(count_lines(r.err), 1u) << r.err;
    EXPECT_THAT(r.err, StartsWith("torva: error: "));
    EXPECT_THAT(r.err, HasSubstr(what));
    EXPECT_THAT(r.err, Not(HasSubstr("terminate")));
  }

  // Each of the argument lists is refused as bad usage.
  void expect_usage_errors(std::initializer_list<std::vector<std::string>> calls) {
    for (const auto& args : calls) EXPECT_EQ(run(args).status, 2) << ::testing::PrintToString(args);
  }

  // A generated layout with every kind of solid.
  std::string mixed_layout(const std::string& size) {
    const std::string path = dir.file("mixed" + size + ".cap3d");
    run_ok({"gen", "mixed", "--size", size, "--polygons", "0.25", "--cylinders", "0.15", "--inclines", "0.1", "--media",
            "--layers", "3", path});
    return path;
  }

  torva::testing::temp_dir dir;
  const std::string bus = example("bus.cap3d");
};

}  // namespace torva_cli_test
