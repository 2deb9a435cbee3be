// torva: reads, converts, generates and indexes cap3d layouts, queries the
// nearest conductor, measures the search strategies and loads tables, all
// through the library as a solver would use it.
#include <cstdio>
#include <exception>
#include <new>
#include <string>
#include <vector>

#include <CLI/CLI.hpp>

#include "cli_common.h"
#include "commands.h"
#include "torva/foundation/errors.h"

namespace {

using namespace torva::cli;

// One line, never a stack trace: the message up to its first line end.
void print_error(const std::string& message) {
  std::string line = message;
  for (char& c : line)
    if (c == '\n' || c == '\r') c = ' ';
  while (!line.empty() && line.back() == ' ') line.pop_back();
  std::fprintf(stderr, "torva: error: %s\n", line.c_str());
}

int run(int argc, char** argv) {
  CLI::App app{"torva: read, convert, generate and index cap3d layouts, and load capacitance tables"};
  app.name("torva");
  app.require_subcommand(1);
  app.fallthrough();
  run_options& opt = options();
  app.add_flag("-v,--verbose", opt.verbose, "Show the library's progress and detail lines on standard error");
  app.add_option("--log-file", opt.log_file, "Also write all log lines (info, detail, warning, error) to this file");
  app.add_option("--progress", opt.progress, "Progress bar on standard error: auto (when it is a terminal), always, never")
      ->check(CLI::IsMember({"auto", "always", "never"}));

  std::vector<command> commands = {add_info(app),  add_convert(app), add_gen(app),   add_index(app),
                                   add_query(app), add_bench(app),   add_tables(app)};
  std::vector<command> live;
  for (auto& c : commands)
    if (c.app != nullptr) live.push_back(c);

  try {
    app.parse(argc, argv);
  } catch (const CLI::CallForHelp& e) {
    return app.exit(e);
  } catch (const CLI::CallForAllHelp& e) {
    return app.exit(e);
  } catch (const CLI::ParseError& e) {
    if (e.get_exit_code() == 0) return app.exit(e);
    std::string where = "torva";
    for (const CLI::App* sub : app.get_subcommands()) where += " " + sub->get_name();
    print_error(e.what());
    std::fprintf(stderr, "Run '%s --help' for usage.\n", where.c_str());
    return exit_usage;
  }

  try {
    install_logger();
    for (auto& c : live)
      if (c.app->parsed()) {
        const int status = c.run();
        flush_errors();
        std::fflush(stdout);
        return status;
      }
    return exit_usage;
  } catch (const input_error& e) {
    print_error(e.what());
    return exit_bad_input;
  } catch (const torva::sea::base_error& e) {
    const std::string lines = take_errors();
    print_error(lines.empty() ? std::string(e.what()) : lines);
    return exit_bad_input;
  } catch (const std::bad_alloc&) {
    print_error("out of memory");
    return exit_bad_input;
  } catch (const std::exception& e) {
    const std::string lines = take_errors();
    print_error(lines.empty() ? std::string(e.what()) : lines + " (" + e.what() + ")");
    return exit_bad_input;
  }
}

}  // namespace

int main(int argc, char** argv) { return run(argc, argv); }
