// torva: reads, converts, generates and indexes cap3d layouts, queries the
// nearest conductor, measures the search strategies, loads tables and
// extracts capacitance, all through the library as a solver would use it.
//
// The program also takes its older command line, `torva -f LAYOUT -p 0.005
// -c 0.05 -n 4 --out-file F --log-file L -spice`, as the extract subcommand,
// and `torva -h` prints the usage text of that command line.
#include <cstdio>
#include <exception>
#include <new>
#include <string>
#include <vector>

#include <CLI/CLI.hpp>

#include "cli_common.h"
#include "commands.h"
#include "memory_budget.h"
#include "torva/foundation/errors.h"
#include "torva/foundation/usage.h"

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

// The subcommands, and the options of the program that take a value (so
// their values are not mistaken for a subcommand's name).
const char* const subcommand_names[] = {"info",  "convert", "gen",     "index", "query",
                                        "bench", "tables",  "extract", "check",   "import"};
bool is_subcommand(const std::string& a) {
  for (const char* name : subcommand_names)
    if (a == name) return true;
  return false;
}
bool takes_value(const std::string& a) { return a == "--log-file" || a == "--progress" || a == "--memory-limit"; }

// The arguments as CLI11 should see them. `-f LAYOUT` before any subcommand
// names the layout of an extract run; `-spice` (CLI11 allows one letter after
// a single dash) becomes --spice, and a 0 or 1 after it is its value.
// Sets `usage` when the older command line asks for its help.
std::vector<std::string> arguments(int argc, char** argv, bool& usage) {
  std::vector<std::string> in(argv + 1, argv + argc);
  usage = in.size() == 1 && in[0] == "-h";
  if (usage) return in;
  bool older = false, extract = false;
  for (std::size_t i = 0; i < in.size(); ++i) {
    if (in[i] == "-f") {
      older = true;
      break;
    }
    if (is_subcommand(in[i])) {
      extract = in[i] == "extract";
      break;
    }
    if (takes_value(in[i])) ++i;
  }
  if (!older && !extract) return in;

  std::vector<std::string> out;
  if (older) out.push_back("extract");
  for (std::size_t i = 0; i < in.size(); ++i) {
    if (older && in[i] == "-h") usage = true;
    if (older && in[i] == "-f") continue;  // the layout that follows is the positional argument
    if (in[i] == "-spice") {
      if (i + 1 < in.size() && (in[i + 1] == "0" || in[i + 1] == "1")) {
        out.push_back(in[i + 1] == "1" ? "--spice=true" : "--spice=false");
        ++i;
      } else {
        out.push_back("--spice");
      }
      continue;
    }
    out.push_back(in[i]);
  }
  return out;
}

int run(int argc, char** argv) {
  bool usage = false;
  std::vector<std::string> args = arguments(argc, argv, usage);
  if (usage) {
    for (const std::string& line : torva::sea::config_impl::verbose_usage) std::printf("%s\n", line.c_str());
    return exit_ok;
  }
  std::vector<char*> args_v{argv[0]};
  for (std::string& a : args) args_v.push_back(a.data());
  args_v.push_back(nullptr);

  CLI::App app{"torva: read, convert, generate and index cap3d layouts, import GDS cells, load capacitance tables, "
               "and extract capacitance"};
  app.name("torva");
  app.require_subcommand(1);
  app.fallthrough();
  run_options& opt = options();
  app.add_flag("-v,--verbose", opt.verbose, "Show the library's progress and detail lines on standard error");
  app.add_option("--log-file", opt.log_file, "Also write all log lines (info, detail, warning, error) to this file");
  app.add_option("--progress", opt.progress, "Progress bar on standard error: auto (when it is a terminal), always, never")
      ->check(CLI::IsMember({"auto", "always", "never"}));
  app.add_option("--memory-limit", opt.memory_limit,
                 "Memory a search structure may take, as 512M, 4G or bytes (0: no limit; default: half the "
                 "machine's memory); a pair estimated beyond it is not built")
      ->check([](const std::string& text) {
        try {
          parse_size(text);
          return std::string();
        } catch (const input_error& e) {
          return std::string(e.what());
        }
      });
  app.add_flag("--strict", opt.strict,
               "A layout word that is not wholly a number (\"12abc\" reads as 12) ends the run instead of a warning");

  std::vector<command> commands = {add_info(app),  add_convert(app), add_gen(app),     add_index(app),
                                   add_query(app), add_bench(app),   add_tables(app), add_extract(app),
                                   add_check(app), add_import(app)};
  std::vector<command> live;
  for (auto& c : commands)
    if (c.app != nullptr) live.push_back(c);

  try {
    app.parse(int(args_v.size()) - 1, args_v.data());
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
    for (auto& c : live)
      if (c.app->parsed()) {
        if (!c.own_log) {
          // The log file is opened (and emptied) only once it is known to be
          // none of the files the run reads or writes.
          run_files f;
          if (c.files) f = c.files();
          if (!opt.log_file.empty()) f.outputs.push_back({"log file", opt.log_file});
          refuse_clashes(f.inputs, f.outputs);
          install_logger();
        }
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
