// torva tables --mode M --dir DIR --diels a,b,c: loads the Green's function
// and weight tables a walk over this dielectric stack needs, and says what
// came in.
//
// torva tables --generate --diels a,b,c [--dir DIR]: computes the two-layer
// and half-layer tables of every pair of adjacent layers (bottom to top) and
// writes them where the loader looks for them (default $HOME/Torva_tables).
//
// The stack is given as its real dielectric values, bottom layer first; the
// program puts the five filler entries in front and the six behind that the
// table database expects (their value, 1.0, is never read).
#include <algorithm>
#include <chrono>
#include <cmath>
#include <cstdlib>
#include <cstdio>
#include <filesystem>
#include <thread>
#include <utility>
#include <memory>
#include <string>
#include <vector>

#include "cli_common.h"
#include "commands.h"
#include "torva/foundation/configure.h"
#include "torva/extract/layered_tables.h"
#include "torva/foundation/errors.h"
#include "torva/tables/tables.h"

namespace torva::cli {

namespace {

struct tables_args {
  unsigned mode = 2;
  std::string dir;
  std::string dir_two, dir_multi, dir_equal;
  std::vector<double> diels;
  unsigned walk_scheme = 0;
  bool force = false;
  bool generate = false;
  std::vector<std::string> pairs;  // more pairs "below/above" to generate
  int refine = 2;
  int threads = 0;
};

// "below/above", two positive numbers.
std::pair<double, double> parse_pair(const std::string& text) {
  const std::size_t slash = text.find('/');
  double v[2] = {0, 0};
  bool ok = slash != std::string::npos;
  for (int i = 0; i < 2 && ok; ++i) {
    const std::string part = i == 0 ? text.substr(0, slash) : text.substr(slash + 1);
    char* end = nullptr;
    v[i] = std::strtod(part.c_str(), &end);
    ok = !part.empty() && end == part.c_str() + part.size() && v[i] > 0 && std::isfinite(v[i]);
  }
  if (!ok) throw input_error("--pairs: \"" + text + "\" is no pair of positive permittivities below/above");
  return {v[0], v[1]};
}

// Writes the tables of each pair of adjacent layers, and of each pair given, once.
int run_generate(const tables_args& a) {
  const std::string dir = a.dir.empty() ? default_table_dir() : a.dir;
  table_generation settings;
  settings.refine = a.refine;
  settings.threads = a.threads > 0 ? a.threads : int(std::max(1u, std::thread::hardware_concurrency()));
  std::vector<std::pair<double, double>> pairs;
  const auto add = [&](const std::pair<double, double>& p) {
    if (std::find(pairs.begin(), pairs.end(), p) == pairs.end()) pairs.push_back(p);
  };
  for (std::size_t i = 0; i + 1 < a.diels.size(); ++i) add({a.diels[i], a.diels[i + 1]});
  for (const std::string& text : a.pairs) add(parse_pair(text));
  // A folder that cannot be made is said before the minutes of work, not after.
  for (const char* sub : {"Multiple/GFT", "Multiple/WVT"}) {
    std::error_code ec;
    const std::filesystem::path folder = std::filesystem::path(dir) / sub;
    std::filesystem::create_directories(folder, ec);
    if (ec) throw input_error("cannot make the folder \"" + folder.string() + "\": " + ec.message());
  }
  std::printf("generating   two-layer and half-layer tables of %zu pairs under %s (grid %d and %d intervals a cell, "
              "%d threads)\n",
              pairs.size(), dir.c_str(), settings.refine, 2 * settings.refine, settings.threads);
  const auto start = std::chrono::steady_clock::now();
  double bytes = 0.0;
  for (const auto& [below, above] : pairs) {
    const auto t0 = std::chrono::steady_clock::now();
    const layered_pair_tables t = generate_layered_pair(below, above, settings);
    write_layered_pair(dir, t);
    double pair_bytes = 0.0;
    for (const std::string& f : layered_pair_files(dir, below, above)) {
      std::error_code ec;
      const auto size = std::filesystem::file_size(f, ec);
      if (!ec) pair_bytes += double(size);
    }
    bytes += pair_bytes;
    std::printf("  %g below, %g above: 6 files, %s, %s\n", below, above, format_bytes(pair_bytes).c_str(),
                format_seconds(seconds_since(t0)).c_str());
  }
  std::printf("wrote        %zu files, %s, in %s\n", 6 * pairs.size(), format_bytes(bytes).c_str(),
              format_seconds(seconds_since(start)).c_str());
  return exit_ok;
}

const char* mode_name(unsigned mode) {
  switch (mode) {
    case 0: return "none (first table only)";
    case 1: return "Multiple, up to two layers";
    case 3: return "compressed";
    case 4: return "approximate, geometric ratio grid";
    case 5: return "approximate, linear ratio grid";
    default: return "Multiple, up to four layers";
  }
}

template <class Store>
void print_store(const char* name, const Store& store) {
  if (store.groups.empty() && store.order.empty()) return;
  const double bytes = double(sizeof(typename Store::group_type)) * double(store.groups.size());
  std::printf("  %-18s %6zu groups, %6zu uses, %s\n", name, store.groups.size(), store.order.size(),
              format_bytes(bytes).c_str());
}

int run_tables(const tables_args& a) {
  configure config;
  config.table_mode = a.mode;
  config.walk_scheme = a.walk_scheme;
  config.table_dir = a.dir;
  config.table_dir_two = a.dir_two.empty() ? a.dir : a.dir_two;
  config.table_dir_multi = a.dir_multi.empty() ? a.dir : a.dir_multi;
  config.table_dir_equal = a.dir_equal.empty() ? a.dir : a.dir_equal;

  dielectric_layers layers;
  if (!a.diels.empty()) {
    layers.diels.assign(5, 1.0);
    layers.diels.insert(layers.diels.end(), a.diels.begin(), a.diels.end());
    layers.diels.insert(layers.diels.end(), 6, 1.0);
    layers.layer_slots.assign(layers.diels.size(), 0.0);
  }
  // The compressed set does not depend on the stack, so it loads without one.
  const bool force = a.force || (a.mode == 3 && a.diels.empty());

  // The database is large (its first table and stores are inline members): on the heap.
  auto db = std::make_unique<table_database>();
  take_info();
  const std::uint64_t before = resident_bytes();
  const auto start = std::chrono::steady_clock::now();
  {
    progress_bar bar("loading tables", 0, {});
    try {
      db->load(config, layers, force);
    } catch (const sea::base_error& e) {
      bar.finish();
      const std::string lines = take_errors();
      throw input_error("tables of mode " + std::to_string(a.mode) + " under \"" + a.dir +
                        "\": " + (lines.empty() ? std::string(e.what()) : lines));
    }
  }
  const double seconds = seconds_since(start);
  const std::string log = take_info();
  const std::uint64_t after = resident_bytes();

  std::printf("mode         %u: %s\n", a.mode, mode_name(a.mode));
  std::printf("stack        %zu layers", a.diels.size());
  for (std::size_t i = 0; i < a.diels.size(); ++i) std::printf("%s %g", i == 0 ? ":" : ",", a.diels[i]);
  std::printf("\n");
  std::printf("loaded in    %s, resident memory grew by %s\n", format_seconds(seconds).c_str(),
              format_bytes(after > before ? double(after - before) : 0.0).c_str());
  std::size_t lines = 0;
  for (char c : log) lines += c == '\n';
  std::printf("log          %zu lines\n", lines);
  if (options().verbose == false && !log.empty()) {
    // The library's own lines: which groups it loaded and from where.
    std::size_t shown = 0, pos = 0;
    while (pos < log.size() && shown < 12) {
      const std::size_t end = log.find('\n', pos);
      std::printf("  | %s\n", log.substr(pos, end - pos).c_str());
      pos = end == std::string::npos ? log.size() : end + 1;
      ++shown;
    }
    if (pos < log.size()) std::printf("  | ...\n");
  }
  std::printf("first table  %zu cells, last %g\n", table_database::single_oct_face_group::size,
              db->first_group.first_table[table_database::single_oct_face_group::size - 1]);
  std::printf("groups\n");
  print_store("two-layer", db->two_layer);
  print_store("half-layer", db->half_layer);
  print_store("three-layer", db->three_layer);
  print_store("four-layer", db->four_layer);
  print_store("compressed", db->cmpr_equal_layer);
  if (db->two_layer.groups.empty() && db->half_layer.groups.empty() && db->three_layer.groups.empty() &&
      db->four_layer.groups.empty() && db->cmpr_equal_layer.groups.empty())
    std::printf("  none\n");
  if (!db->pair_index.empty()) {
    std::printf("brackets     %zu:", db->pair_index.size());
    for (std::size_t i = 0; i < db->pair_index.size() && i < 8; ++i)
      std::printf(" [%lu, w %.4f]", db->pair_index[i], db->pair_weight[i]);
    std::printf(db->pair_index.size() > 8 ? " ...\n" : "\n");
  }
  if (!db->first_lookup.empty() || !db->cmprz_lookup.empty())
    std::printf("lookup       first %zu, z rows %zu, xy rows %zu\n", db->first_lookup.size(), db->cmprz_lookup.size(),
                db->cmprxy_lookup.size());
  return exit_ok;
}

}  // namespace

command add_tables(CLI::App& app) {
  auto* sub = app.add_subcommand("tables", "Load the Green's function and weight tables for a dielectric stack");
  auto a = std::make_shared<tables_args>();
  sub->add_option("-m,--mode", a->mode,
                  "Table set: 0 none, 1 Multiple up to two layers, 2 Multiple up to four layers, 3 compressed, "
                  "4 approximate (geometric grid), 5 approximate (linear grid)")
      ->check(CLI::Range(0u, 5u));
  sub->add_option("-d,--dir", a->dir,
                  "Table directory, holding Multiple/ or Approx4equal/ (with --generate: where the tables go, "
                  "default $HOME/Torva_tables)");
  sub->add_flag("--generate", a->generate,
                "Compute and write the two-layer and half-layer tables of each pair of adjacent layers of --diels");
  sub->add_option("--pairs", a->pairs,
                  "With --generate: more pairs of permittivities below/above a horizontal face, e.g. 7/2,2/3.9")
      ->delimiter(',');
  sub->add_option("--refine", a->refine,
                  "With --generate: grid intervals per table cell (and twice as many for the extrapolation)")
      ->check(CLI::Range(2, 64))
      ->capture_default_str();
  sub->add_option("-n,--threads", a->threads, "With --generate: threads (0: all cores)")->capture_default_str();
  sub->add_option("--dir-two", a->dir_two, "Directory of the two-layer, half-layer and approximate tables (default: --dir)");
  sub->add_option("--dir-multi", a->dir_multi, "Directory of the three- and four-layer tables (default: --dir)");
  sub->add_option("--dir-equal", a->dir_equal, "Directory of the compressed set (default: --dir)");
  sub->add_option("--diels", a->diels, "Dielectric values of the stack, bottom first, e.g. 3.9,2.5,7")
      ->delimiter(',')
      ->check(CLI::PositiveNumber);
  sub->add_option("--walk-scheme", a->walk_scheme, "Walk scheme; above 2 only the first table is taken")
      ->capture_default_str();
  sub->add_flag("--force", a->force, "Go on with an empty stack");
  // Loading needs a mode and a folder; generating needs a stack of two layers or more.
  sub->parse_complete_callback([a, sub] {
    if (a->generate) {
      if (a->diels.size() < 2 && a->pairs.empty())
        throw CLI::ValidationError("--diels", "--generate needs two layers or more, or --pairs");
      if (a->refine % 2 != 0) throw CLI::ValidationError("--refine", "must be even");
    } else {
      if (sub->count("--mode") == 0) throw CLI::RequiredError("--mode");
      if (sub->count("--dir") == 0) throw CLI::RequiredError("--dir");
    }
  });
  // Its inputs are folders of tables: a log file named as one cannot be opened.
  return {sub, [a] { return a->generate ? run_generate(*a) : run_tables(*a); }, false, {}};
}

}  // namespace torva::cli
