// The tables of the straddling walk, found the way the library's loader
// looks for them: the configured folder, then the home directory's
// Torva_tables; the pairs found nowhere are generated for the run.
#include <algorithm>
#include <chrono>
#include <cmath>
#include <cstdio>
#include <limits>
#include <map>

#include "torva/extract/internal/refuse.h"
#include "torva/extract/internal/straddle.h"
#include "torva/foundation/configure.h"
#include "torva/foundation/path.h"
#include "torva/tables/table_loader.h"

namespace torva::internal {
namespace {

std::string number(double v) {
  char b[32];
  std::snprintf(b, sizeof b, "%g", v);
  return b;
}

void add_distinct(std::vector<std::pair<double, double>>& pairs, const std::pair<double, double>& p) {
  if (std::find(pairs.begin(), pairs.end(), p) == pairs.end()) pairs.push_back(p);
}

}  // namespace

std::vector<std::pair<double, double>> straddle_pairs(const dielectric_map& map) {
  std::vector<std::pair<double, double>> pairs;
  // The stack's own pairs, equal ones too (kept interfaces must find a table).
  for (std::size_t i = 0; i + 1 < map.layer_eps.size(); ++i) add_distinct(pairs, {map.layer_eps[i], map.layer_eps[i + 1]});
  for (const dielectric_box& b : map.boxes)
    for (const double z : {b.lo[2], b.hi[2]}) {
      if (!std::isfinite(z)) continue;
      // The face's centre and points near its corners, within the window
      // (which the boxes' grid spans) where the face reaches beyond it.
      double lo[2], hi[2];
      for (int k = 0; k < 2; ++k) {
        lo[k] = std::isfinite(b.lo[k]) ? b.lo[k] : map.origin[k];
        hi[k] = std::isfinite(b.hi[k]) ? b.hi[k] : map.origin[k] + map.n[k] * map.cell;
      }
      for (int s = 0; s < 5; ++s) {
        const double tx = s == 0 ? 0.5 : ((s & 1) ? 1e-3 : 1 - 1e-3);
        const double ty = s == 0 ? 0.5 : ((s & 2) ? 1e-3 : 1 - 1e-3);
        point3 q;
        q[0] = lo[0] + tx * (hi[0] - lo[0]);
        q[1] = lo[1] + ty * (hi[1] - lo[1]);
        q[2] = z;
        const double below = map.permittivity_at(q);
        q[2] = std::nextafter(z, std::numeric_limits<double>::infinity());
        const double above = map.permittivity_at(q);
        if (below != above) add_distinct(pairs, {below, above});
      }
    }
  return pairs;
}

straddle_tables load_straddle_tables(const dielectric_map& map, const straddle_settings& settings,
                                     std::vector<std::string>& warnings) {
  straddle_tables out;
  const std::vector<std::pair<double, double>> pairs = straddle_pairs(map);
  if (pairs.empty()) return out;
  const std::string dir = settings.dir.empty() ? default_table_dir() : settings.dir;
  out.database = std::make_unique<table_database>();
  table_database& db = *out.database;
  const std::size_t interfaces = map.planes.size();

  // The stack as the database reads it: five fillers, the layers bottom first, six fillers.
  dielectric_layers layers;
  if (interfaces > 0) {
    layers.diels.assign(5, 1.0);
    layers.diels.insert(layers.diels.end(), map.layer_eps.begin(), map.layer_eps.end());
    layers.diels.insert(layers.diels.end(), 6, 1.0);
    layers.layer_slots.assign(layers.diels.size(), 0.0);
  }
  configure config;
  config.table_mode = 1;
  config.table_dir = dir;
  config.table_dir_two = dir;

  std::map<std::pair<double, double>, layered_pair_tables> generated;
  std::string missing, stack, extra;
  for (std::size_t i = 0; i < pairs.size(); ++i) {
    bool found = true;
    for (const std::string& f : layered_pair_files(dir, pairs[i].first, pairs[i].second))
      found = found && table_file_reachable(f);
    if (!found) {
      generated.emplace(pairs[i], layered_pair_tables{});
      missing += (missing.empty() ? "" : ", ") + number(pairs[i].first) + "/" + number(pairs[i].second);
    }
  }
  for (std::size_t i = 0; i < map.layer_eps.size() && interfaces > 0; ++i)
    stack += (i ? "," : "") + number(map.layer_eps[i]);
  // The stack's distinct pairs come first in `pairs`, the boxes' after them.
  std::vector<std::pair<double, double>> stack_pairs;
  for (std::size_t i = 0; i < interfaces; ++i) add_distinct(stack_pairs, {map.layer_eps[i], map.layer_eps[i + 1]});
  const std::size_t from_stack = stack_pairs.size();
  for (std::size_t i = from_stack; i < pairs.size(); ++i)
    extra += (extra.empty() ? "" : ",") + number(pairs[i].first) + "/" + number(pairs[i].second);
  std::string command = "torva tables --generate";
  if (!stack.empty()) command += " --diels " + stack;
  if (!extra.empty()) command += " --pairs " + extra;
  if (!settings.dir.empty()) command += " --dir " + dir;

  const auto read_failed = [&](const sea::base_error& e) {
    refuse("the dielectric tables under " + dir + " could not be read (" + e.what() + "); `" + command +
           "` writes them anew");
  };
  table_loader loader(&layers, &db.pair_index, &db.pair_weight);
  const std::string prefix = sea::path::join(dir, "");
  // A group of a pair: from the generated rows, or by the loader from its files.
  const auto group_of = [&](const std::pair<double, double>& pair, bool push) {
    const diel_tuple<2> key{{pair.first, pair.second}};
    auto [two, new_two] = db.two_layer.groups.try_emplace(key);
    auto [half, new_half] = db.half_layer.groups.try_emplace(key);
    if (new_two || new_half) {
      auto g = generated.find(pair);
      if (g != generated.end()) {
        fill_layered_groups(g->second, two->second, half->second);
      } else {
        loader.load_group(two->second, prefix, key);
        loader.load_group(half->second, prefix, key);
      }
    }
    if (push) {
      db.two_layer.order.push_back(&two->second);
      db.half_layer.order.push_back(&half->second);
    }
  };

  try {
    if (generated.empty()) {
      // Every file is there: the stack the library's way, then the boxes' pairs.
      if (interfaces > 0) db.load(config, layers, false);
      for (std::size_t i = from_stack; i < pairs.size(); ++i) group_of(pairs[i], false);
      out.source = std::to_string(pairs.size()) + " pairs from tables under " + dir;
    } else {
      const auto start = std::chrono::steady_clock::now();
      for (auto& [key, tables] : generated) tables = generate_layered_pair(key.first, key.second, settings.generation);
      out.generation_seconds = std::chrono::duration<double>(std::chrono::steady_clock::now() - start).count();
      for (std::size_t i = 0; i < interfaces; ++i) group_of({map.layer_eps[i], map.layer_eps[i + 1]}, true);
      for (std::size_t i = from_stack; i < pairs.size(); ++i) group_of(pairs[i], false);
      char seconds[32];
      std::snprintf(seconds, sizeof seconds, "%.2f", out.generation_seconds);
      warnings.push_back("no dielectric tables for the pairs " + missing + " under " + dir +
                         ": generated for this run in " + seconds + " s; `" + command + "` writes them once");
      out.source = std::to_string(pairs.size()) + " pairs, " + std::to_string(generated.size()) +
                   " generated for the run in " + seconds + " s" +
                   (generated.size() < pairs.size() ? ", the others from tables under " + dir : "");
    }
  } catch (const sea::base_error& e) {
    read_failed(e);
  }

  out.pairs.resize(pairs.size());
  for (std::size_t i = 0; i < pairs.size(); ++i) {
    straddle_interface& t = out.pairs[i];
    t.below = pairs[i].first;
    t.above = pairs[i].second;
    const diel_tuple<2> key{{t.below, t.above}};
    t.two = &db.two_layer.groups.at(key);
    t.half = &db.half_layer.groups.at(key);
    constexpr int two_size = int(two_layer_gft_table::row_size), half_size = int(half_layer_gft_table::row_size);
    t.tilts.resize(2 * std::size_t(two_layer_positions) * two_size);
    for (int k = 0; k < two_layer_positions; ++k) {
      const float* row = t.two->gft.row(std::size_t(k));
      t.guides[std::size_t(k)].build(row, two_size);
      for (int e = 0; e < two_size; ++e)
        cell_tilt(row, two_layer_cells, k + 1, e, &t.tilts[2 * (std::size_t(k) * two_size + std::size_t(e))]);
    }
    t.half_guide.build(t.half->gft.row(0), half_size);
    t.half_tilts.resize(2 * std::size_t(half_size));
    for (int e = 0; e < half_size; ++e)
      cell_tilt(t.half->gft.row(0), half_layer_cells, half_layer_cells / 2, e, &t.half_tilts[2 * std::size_t(e)]);
  }
  return out;
}

}  // namespace torva::internal
