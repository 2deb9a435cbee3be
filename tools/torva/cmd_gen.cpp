// torva gen KIND OUT: writes a synthetic layout of the library's generator.
// An existing OUT is replaced only with --force, as by convert, and then only
// once the new file is whole.
#include <chrono>
#include <cstdio>
#include <map>
#include <memory>
#include <string>

#include "cli_common.h"
#include "commands.h"
#include "output_files.h"
#include "torva/layout/generator.h"

#include "torva/layout/binary_writer.h"

namespace torva::cli {

namespace {

// The options fill the generator's parameters directly, so that their
// defaults are the generator's own.
struct gen_args {
  std::string kind;
  std::string out;
  generator_params params;
  bool binary = false;
  bool force = false;
};

int run_gen(gen_args a) {
  static const std::map<std::string, layout_kind> kinds = {
      {"bus", layout_kind::bus}, {"crossing", layout_kind::crossing}, {"mixed", layout_kind::mixed}};
  a.params.kind = kinds.at(a.kind);  // checked by the option

  refuse_overwrite(a.out, a.force);
  const auto start = std::chrono::steady_clock::now();
  const generated_layout layout = generate_layout(a.params);
  staged_output staged(a.out);
  if (a.binary) {
    write_binary_file(layout, staged.temp_path());
  } else {
    write_text_file(layout, staged.temp_path());
  }
  staged.commit();
  std::printf("wrote %s: %s layout, %zu conductors, %zu solids, %zu media, %zu plate media, %s, in %s\n",
              a.out.c_str(), a.kind.c_str(), layout.conductors.size(), layout.solids.size(), layout.media.size(),
              layout.plates.size(), a.binary ? "binary" : "text", format_seconds(seconds_since(start)).c_str());
  return exit_ok;
}

}  // namespace

command add_gen(CLI::App& app) {
  auto* sub = app.add_subcommand("gen", "Write a synthetic layout: straight wires on metal layers");
  auto a = std::make_shared<gen_args>();
  sub->add_option("KIND", a->kind,
                  "bus: all layers along x; crossing: layers alternate x and y; mixed: crossing with random widths, "
                  "spacings and lengths")
      ->required()
      ->check(CLI::IsMember({"bus", "crossing", "mixed"}));
  sub->add_option("OUT", a->out, "The file to write")->required();
  sub->add_flag("--force", a->force, "Replace OUT if it exists");
  generator_params& p = a->params;
  sub->add_option("-n,--size", p.blocks, "Conductor segments to make (a polygon may become several blocks)")
      ->capture_default_str()
      ->check(CLI::Range(std::uint64_t{1}, std::uint64_t{100000000}));
  sub->add_option("--layers", p.layers, "Metal layers")->capture_default_str()->check(CLI::Range(1, 1000));
  sub->add_option("--polygons", p.polygon_share, "Share of segments written as polygons")
      ->capture_default_str()
      ->check(CLI::Range(0.0, 1.0));
  sub->add_option("--cylinders", p.cylinder_share, "Share of segments that are cylinders")
      ->capture_default_str()
      ->check(CLI::Range(0.0, 1.0));
  sub->add_option("--inclines", p.incline_share, "Share of segments with a side slope")
      ->capture_default_str()
      ->check(CLI::Range(0.0, 1.0));
  sub->add_flag("--media", p.media, "Add plate media and dielectric bodies");
  sub->add_option("--seed", p.seed, "Seed of the random choices")->capture_default_str();
  sub->add_option("--tasks", p.tasks, "Conductors named in <task>")->capture_default_str();
  sub->add_flag("--binary", a->binary,
                "Write the binary form instead of text (cylinders become blocks of equal area: it has none)");
  return {sub, [a] { return run_gen(*a); }, false, [a] { return run_files{{}, {{"output", a->out}}}; }};
}

}  // namespace torva::cli
