// torva extract LAYOUT: the capacitance matrix of a layout by the floating
// random walk, written to the out-file (and on request as JSON and as a SPICE
// netlist), with a summary on standard output.
//
// Where the files go:
// - out-file: --out-file, else the layout's out-file parameter, else
//   <layout>.out. A relative out-file parameter is taken from the layout's
//   folder, as the layout names its outputs beside itself and the run should
//   not depend on the folder it is started from.
// - log file: --log-file (before or after the subcommand), else the layout's
//   log-file parameter (from the layout's folder likewise), else <layout>.log.
// - SPICE netlist (-spice, or the layout's spice parameter on): the out-file
//   with its ".out" ending replaced by ".sp", or with ".sp" added when it has
//   no such ending.
// - JSON: only where --json names it.
// None of them may be the layout itself or one another; the run checks that
// before it opens anything.
#include <sched.h>
#include <unistd.h>

#include <algorithm>
#include <chrono>
#include <cmath>
#include <cstdio>
#include <exception>
#include <new>
#include <filesystem>
#include <memory>
#include <string>
#include <vector>

#include "cli_common.h"
#include "cmd_import.h"
#include "extract_display.h"
#include "commands.h"
#include "output_files.h"
#include "layout_findings.h"
#include "memory_budget.h"
#include "torva/extract/extractor.h"
#include "torva/extract/report.h"
#include "torva/foundation/errors.h"
#include "torva/foundation/logger.h"
#include "process_team.h"
#ifdef TORVA_MPI
#include "mpi_team.h"
#endif

namespace torva::cli {

namespace {

struct extract_args {
  std::string layout;
  double self_precision = 0.0;
  double coupling_precision = 0.0;
  int threads = 0;
  std::uint64_t seed = 0;
  std::string out_file;
  std::string log_file;
  bool spice = false;
  std::string json;
  std::uint64_t max_walks = 0;
  double time_limit = 0.0;
  std::vector<std::string> masters;
  int strategy = -1;
  double stop_ratio = 0.0;
  double gauss_ratio = 0.0;
  bool unsafe_search = false;
  bool group_dominance = false;
  bool group_optimize = false;
  bool double_incline_ratio = false;
  bool table_first_hop = false;
  double interface_step = 0.2;
  double permittivity = 0.0;
  std::string dielectric_walk = "table";
  std::string table_dir;
  std::string split = "auto";   // how processes under mpirun share the run
  bool mpi_timing = false;
  gds_args gds;  // a GDS cell on a process stack instead of a cap3d layout
  // The options given on the command line, which override the layout's values.
  CLI::Option* given_p = nullptr;
  CLI::Option* given_c = nullptr;
  CLI::Option* given_n = nullptr;
  CLI::Option* given_seed = nullptr;
  CLI::Option* given_spice = nullptr;
  CLI::Option* given_strategy = nullptr;
  CLI::Option* given_stop = nullptr;
  CLI::Option* given_gauss = nullptr;
};

bool given(const CLI::Option* o) { return o != nullptr && o->count() > 0; }

// `name` as the layout means it: a relative path from the layout's folder.
std::string beside_layout(const std::string& layout, const std::string& name) {
  const std::filesystem::path p(name);
  if (p.is_absolute()) return name;
  return (std::filesystem::path(layout).parent_path() / p).string();
}

std::string spice_path_of(const std::string& out_file) {
  const std::string ending = ".out";
  if (out_file.size() > ending.size() && out_file.compare(out_file.size() - ending.size(), ending.size(), ending) == 0)
    return out_file.substr(0, out_file.size() - ending.size()) + ".sp";
  return out_file + ".sp";
}

// The one line a process other than the first says when it fails: what the
// plain run would say, and which process it was.
std::string failure_text(std::exception_ptr failure) {
  try {
    std::rethrow_exception(failure);
  } catch (const std::bad_alloc&) {
    return "out of memory";
  } catch (const sea::base_error& e) {
    const std::string lines = take_errors();
    return lines.empty() ? std::string(e.what()) : lines;
  } catch (const std::exception& e) {
    return e.what();
  }
  return "unknown failure";
}

// A process of a shared run that cannot go on: the lowest such process says
// why (the first process as the plain run would, another with its number),
// the others end quietly with the same status.
int end_together(const process_team& team, int failed, std::exception_ptr failure) {
  if (failed != team.rank() || !failure) return exit_bad_input;
  if (team.rank() == 0) std::rethrow_exception(failure);
  throw input_error("process " + std::to_string(team.rank()) + " of " + std::to_string(team.size()) + ": " +
                    failure_text(failure));
}

// The extraction, by this process alone (team null) or as one of a team of
// processes: every process reads the layout and sets up; the first alone
// opens the log, shows progress and writes the reports.
int run_extract_on(const extract_args& a, process_team* team) {
  const bool first = team == nullptr || team->rank() == 0;
  // Nothing is opened for writing before the outputs are checked against the
  // layout: the log file too waits for its check.
  const std::string log_before = options().log_file;
  options().log_file.clear();
  if (first) {
    install_logger();
  } else {
    options().verbose = false;
    install_quiet_logger();
  }

  // Every process reads the layout; the first checks the outputs too. A
  // process that fails here ends the run of all before any of them walks.
  loaded_layout in;
  std::vector<std::string> warnings;
  std::string out_file, log_file;
  bool spice = false;
  std::exception_ptr failure;
  try {
    in = a.gds.stack.empty() && !looks_like_gds(a.layout) ? read_layout(a.layout) : import_layout(a.layout, a.gds);
    refuse_meaningless_layout(a.layout, in, first, warnings);
    const circuit_layout::raw& d = in.layout->data;
    out_file = !a.out_file.empty()    ? a.out_file
               : !d.out_file.empty() ? beside_layout(a.layout, d.out_file)
                                     : a.layout + ".out";
    log_file = !a.log_file.empty()    ? a.log_file
               : !log_before.empty()  ? log_before
               : !d.log_file.empty()  ? beside_layout(a.layout, d.log_file)
                                      : a.layout + ".log";
    spice = given(a.given_spice) ? a.spice : d.spice != 0;
    if (first) {
      std::vector<named_file> outputs = {{"out-file", out_file}, {"log file", log_file}};
      if (!a.json.empty()) outputs.push_back({"JSON file", a.json});
      if (spice) outputs.push_back({"SPICE file", spice_path_of(out_file)});
      refuse_clashes({{"layout file", a.layout}}, outputs);
      check_folders(outputs);
    }
  } catch (...) {
    if (team == nullptr) throw;
    failure = std::current_exception();
  }
  if (team) {
    const int failed = team->lowest_failed(!failure);
    if (failed < team->size()) return end_together(*team, failed, failure);
  }
  circuit_layout& layout = *in.layout;
  const circuit_layout::raw& d = layout.data;

  // What the reader said before the log was open goes first into it.
  const std::string reading = take_info();
  if (first) {
    options().log_file = log_file;
    install_logger();
    log_line("torva extract " + a.layout);
    if (!reading.empty()) log_line(reading.back() == '\n' ? reading.substr(0, reading.size() - 1) : reading);
    for (const std::string& w : warnings) log_line("warning: " + w);
  }

  extract_options o = extract_options_from_layout(layout);
  if (given(a.given_p)) o.self_precision = a.self_precision;
  if (given(a.given_c)) o.coupling_precision = a.coupling_precision;
  if (given(a.given_n)) o.threads = a.threads;
  // A GDS cell carries no thread count of its own: it walks on every core.
  else if (!a.gds.stack.empty() || looks_like_gds(a.layout)) o.threads = usable_cores();
  if (given(a.given_seed)) o.seed = a.seed;
  if (given(a.given_strategy)) o.spacemgr_type = a.strategy;
  if (given(a.given_stop)) o.stop_ratio = a.stop_ratio;
  if (given(a.given_gauss)) o.gauss_ratio = a.gauss_ratio;
  o.max_walks = a.max_walks;
  o.allow_unsafe_search = a.unsafe_search;
  o.group_dominance = a.group_dominance;
  o.group_optimize = a.group_optimize;
  o.double_incline_ratio = a.double_incline_ratio;
  if (a.table_first_hop) o.importance_first_hop = false;
  o.interface_step = a.interface_step;
  o.uniform_permittivity = a.permittivity;
  o.walk = a.dielectric_walk == "step" ? interface_walk::step : interface_walk::table;
  o.table_dir = a.table_dir;
  o.time_limit = a.time_limit;
  o.masters = a.masters;
  if (team) {
    o.team = team;
    o.split = a.split == "masters" ? team_split::masters
              : a.split == "blocks" ? team_split::blocks
                                    : team_split::automatic;
    // "All cores" for a process that shares the machine means the cores the
    // launcher bound it to, not every core of the node.
    if (o.threads <= 0) o.threads = usable_cores();
  }

  const std::string unused = unused_parameters(d);
  const std::string unused_line =
      unused.empty() ? std::string() : "the layout sets parameters this extractor does not use: " + unused;
  if (first && !unused_line.empty()) log_line(unused_line);

  // The progress names the masters by index; the extractor settles them, so
  // the names shown are those asked for, or the nets in the layout's order.
  std::vector<std::string> names = o.masters;
  if (names.empty())
    for (const wire_net& n : d.wire_nets)
      if (d.capacitance_tasks.empty() || d.capacitance_tasks.count(n.name) != 0) names.push_back(n.name);

  extract_result result;
  try {
    fit_extraction_to_budget(layout, o);
    progress_display display(first ? names : std::vector<std::string>{});
    if (first) o.progress = [&display](const extract_progress& p) { display(p); };
    const memory_watch watch("the extraction's search structure");
    result = extract(layout, o);
    o.progress = nullptr;
  } catch (...) {
    if (team == nullptr) throw;
    failure = std::current_exception();
    // Failed in its setup: the others wait for word of it before they walk.
    if (!team->asked()) return end_together(*team, team->first_failed(false), failure);
    // Another process failed its setup, and that one says why.
    if (team->answered() < team->size()) return exit_bad_input;
    // Failed while the others walk: they may be waiting in an exchange, so all end now.
    std::fprintf(stderr, "torva: error: process %d of %d: %s\n", team->rank(), team->size(),
                 failure_text(failure).c_str());
    std::fflush(stderr);
    team->abort(exit_bad_input);
  }
  if (!first) return exit_ok;
  if (!unused_line.empty()) result.warnings.push_back(unused_line);
  if (team) log_line(team->costs());

  for (std::size_t i = 0; i < result.masters.size(); ++i) {
    char line[256];
    std::snprintf(line, sizeof line, "master %s: %llu walks, %.4g hops per walk, error %s (goal %s), stopped by %s",
                  result.masters[i].c_str(), (unsigned long long)result.walks[i], result.hops[i],
                  error_text(i < result.self_error.size() ? result.self_error[i] : NAN).c_str(),
                  error_text(result.self_precision).c_str(),
                  i < result.master_stopped_by.size() ? result.master_stopped_by[i].c_str() : "?");
    log_line(line);
  }

  // The reports are rewritten on every run without --force: a run names them
  // beside its layout and is meant to refresh them (the library stages each
  // one and renames it into place, so a failed write keeps the old one).
  std::vector<std::string> written;
  write_out_file(out_file, a.layout, result);
  written.push_back(out_file);
  if (!a.json.empty()) {
    write_json(a.json, result);
    written.push_back(a.json);
  }
  std::size_t left_out = 0;
  if (spice) {
    const std::string sp = spice_path_of(out_file);
    left_out = write_spice(sp, a.layout, result, d.outmincap);
    written.push_back(sp);
  }
  for (const std::string& w : written) log_line("wrote " + w);

  std::uint64_t walks = 0;
  for (std::uint64_t w : result.walks) walks += w;
  std::string workers = std::to_string(result.threads) + (result.threads == 1 ? " thread" : " threads");
  if (result.ranks > 1)
    workers = std::to_string(result.ranks) + " processes x " + workers + " (" + result.split + " shared)";
  std::printf("layout       %s: %zu nets%s, %zu masters\n", a.layout.c_str(),
              result.nets.size() - (result.has_ground ? 1 : 0), result.has_ground ? " and the grounded window" : "",
              result.masters.size());
  std::printf("run          %llu walks in %s (setup %s) on %s, seed %llu, stopped by %s\n",
              (unsigned long long)walks, format_seconds(result.seconds).c_str(),
              format_seconds(result.setup_seconds).c_str(), workers.c_str(), (unsigned long long)result.seed,
              result.stopped_by.c_str());
  std::printf("capacitance  Maxwell matrix in fF (rows: masters, columns: nets)\n");
  print_matrix(result);
  for (const std::string& w : written) std::printf("wrote        %s\n", w.c_str());
  if (spice && left_out != 0)
    std::printf("             %zu couplings below outmincap %g fF left out of the netlist\n", left_out, d.outmincap);
  std::printf("log          %s\n", log_file.c_str());
  return exit_ok;
}

int run_extract(const extract_args& a) {
#ifdef TORVA_MPI
  // Under mpirun every process runs this; a team of one is a plain run.
  const std::unique_ptr<process_team> team = join_mpi_team(a.mpi_timing);
  if (team && team->size() > 1) return run_extract_on(a, team.get());
#endif
  return run_extract_on(a, nullptr);
}

}  // namespace

command add_extract(CLI::App& app) {
  auto* sub = app.add_subcommand(
      "extract", "Extract the capacitance matrix of a layout by the floating random walk (values in fF)");
  auto a = std::make_shared<extract_args>();
  sub->add_option("LAYOUT", a->layout, "A cap3d layout file, text or binary, or a GDS cell with --stack")->required();
  add_gds_options(sub, a->gds, false);
  a->given_p = sub->add_option("-p", a->self_precision,
                               "Relative standard error each self capacitance must reach (default: the layout's "
                               "self-precision, else 0.01)")
                   ->check(CLI::PositiveNumber);
  a->given_c = sub->add_option("-c", a->coupling_precision,
                               "Relative error of the couplings that make 95% of the self capacitance (default: the "
                               "layout's coupling-precision, else 0.05)")
                   ->check(CLI::PositiveNumber);
  a->given_n = sub->add_option("-n", a->threads, "Walking threads (0: all cores; default: the layout's thread-num, all cores for a GDS cell)")
                   ->check(CLI::Range(0, 4096));
  a->given_seed = sub->add_option("--seed", a->seed, "Seed of the walks (default: the layout's seed, else 1)");
  sub->add_option("--out-file", a->out_file,
                  "The report (default: the layout's out-file, from its folder, else LAYOUT.out)");
  sub->add_option("--log-file", a->log_file,
                  "The log (default: the layout's log-file, from its folder, else LAYOUT.log)");
  a->given_spice = sub->add_flag("--spice", a->spice,
                                 "Also write a SPICE capacitor netlist beside the out-file, its .out ending made .sp "
                                 "(-spice works too)");
  sub->add_option("--json", a->json, "Also write the matrix as JSON to this file");
  sub->add_option("--max-walks", a->max_walks, "Walks per master at most (0: no limit)")->capture_default_str();
  sub->add_option("--time-limit", a->time_limit, "Seconds of walking at most for the whole run (0: no limit)")
      ->check(CLI::NonNegativeNumber)
      ->capture_default_str();
  sub->add_option("--masters", a->masters, "The nets to extract, by name (default: the layout's tasks, else all)")
      ->delimiter(',')
      ->allow_extra_args(false);
  a->given_strategy = sub->add_option("--strategy", a->strategy,
                                      "Search pair (0..10, as index --strategy; default: chosen among the exact ones)")
                          ->check(CLI::Range(0, 10));
  a->given_stop = sub->add_option("--stop-ratio", a->stop_ratio,
                                  "Stop distance as a share of the smallest block edge (default 1e-3)");
  a->given_gauss = sub->add_option("--gauss-ratio", a->gauss_ratio,
                                   "Gaussian surface at this share of the clearance (default: the layout's c-ratio, "
                                   "else 0.5)");
  // Settings that may let the search answer more than the clearance, kept to
  // measure what they cost; refused without --unsafe-search.
  sub->add_flag("--unsafe-search", a->unsafe_search, "Allow a search pair or settings that may over-answer the clearance");
  sub->add_flag("--group-dominance", a->group_dominance, "Dominance piece by piece (unsafe)");
  sub->add_flag("--group-optimize", a->group_optimize, "Dominance by merged intervals (unsafe)");
  sub->add_flag("--double-incline-ratio", a->double_incline_ratio, "Ratio 2 for non-cuboid candidates (unsafe)");
  sub->add_flag("--table-first-hop", a->table_first_hop,
                "Draw the first hop from the first table instead of by the field's strength");
  sub->add_option("--interface-step", a->interface_step,
                  "Step across a dielectric interface, as a share of the distance to the nearest conductor "
                  "(default 0.2; smaller costs hops, larger costs bias)")
      ->check(CLI::Range(1e-6, 0.999));
  sub->add_option("--permittivity", a->permittivity,
                  "One relative permittivity everywhere, the layout's media ignored")
      ->check(CLI::PositiveNumber);
  sub->add_option("--dielectric-walk", a->dielectric_walk,
                  "How walks cross the planes of a layer stack: table (cubes straddling a plane, from the two-layer "
                  "tables) or step (cubes kept off the planes, steps across)")
      ->check(CLI::IsMember({"table", "step"}))
      ->capture_default_str();
  sub->add_option("--table-dir", a->table_dir,
                  "Folder of the two-layer tables (default: $HOME/Torva_tables, where the loader also looks); pairs "
                  "with no tables are generated for the run");
#ifdef TORVA_MPI
  sub->add_option("--split", a->split,
                  "Under mpirun: share out whole masters among the processes, or the blocks of walks of each master "
                  "(auto: masters when there are at least " +
                      std::to_string(team_masters_per_member) + " per process)")
      ->check(CLI::IsMember({"auto", "masters", "blocks"}))
      ->capture_default_str();
  sub->add_flag("--mpi-timing", a->mpi_timing,
                "Under mpirun: a barrier before every exchange, so that the log tells its cost from the wait for "
                "the slowest process");
#endif
  return {sub, [a] { return run_extract(*a); }, true, {}};
}

}  // namespace torva::cli
