// Writes a synthetic cap3d text layout, for benchmarks and trials by hand.
//
//   cap3d_generate [--kind bus|crossing|mixed] [--blocks N] [--layers N]
//                  [--polygons F] [--cylinders F] [--inclines F] [--media]
//                  [--seed N] [--tasks N] [--binary] -o FILE
//
// With --binary the layout is written in the binary form instead.
#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <memory>
#include <string>

#include "torva/foundation/errors.h"
#include "torva/foundation/logger.h"
#include "torva/layout/binary_writer.h"
#include "torva/layout/generator.h"

namespace {

int usage() {
  std::fputs(
      "usage: cap3d_generate [--kind bus|crossing|mixed] [--blocks N] [--layers N]\n"
      "                      [--polygons F] [--cylinders F] [--inclines F] [--media]\n"
      "                      [--seed N] [--tasks N] [--binary] -o FILE\n",
      stderr);
  return 2;
}

}  // namespace

int main(int argc, char** argv) {
  using namespace torva;
  generator_params p;
  std::string out;
  bool binary = false;
  for (int i = 1; i < argc; ++i) {
    const std::string a = argv[i];
    const bool has_value = i + 1 < argc;
    if (a == "--media") {
      p.media = true;
    } else if (a == "--binary") {
      binary = true;
    } else if (!has_value) {
      return usage();
    } else if (a == "--kind") {
      const std::string k = argv[++i];
      if (k == "bus") p.kind = layout_kind::bus;
      else if (k == "crossing") p.kind = layout_kind::crossing;
      else if (k == "mixed") p.kind = layout_kind::mixed;
      else return usage();
    } else if (a == "--blocks") {
      p.blocks = std::strtoull(argv[++i], nullptr, 10);
    } else if (a == "--layers") {
      p.layers = std::atoi(argv[++i]);
    } else if (a == "--polygons") {
      p.polygon_share = std::strtod(argv[++i], nullptr);
    } else if (a == "--cylinders") {
      p.cylinder_share = std::strtod(argv[++i], nullptr);
    } else if (a == "--inclines") {
      p.incline_share = std::strtod(argv[++i], nullptr);
    } else if (a == "--seed") {
      p.seed = std::strtoull(argv[++i], nullptr, 10);
    } else if (a == "--tasks") {
      p.tasks = std::strtoull(argv[++i], nullptr, 10);
    } else if (a == "-o") {
      out = argv[++i];
    } else {
      return usage();
    }
  }
  if (out.empty()) return usage();
  auto& log = logger::instance();
  log.set_info(std::make_unique<sea::file_writer>(stdout));
  log.set_detail(std::make_unique<sea::file_writer>(stderr));
  log.set_warning(std::make_unique<sea::file_writer>(stderr));
  log.set_error(std::make_unique<sea::file_writer>(stderr));
  try {
    const generated_layout layout = generate_layout(p);
    if (binary) write_binary_file(layout, out);
    else write_text_file(layout, out);
    std::printf("%zu conductors, %zu solids written to %s\n", layout.conductors.size(), layout.solids.size(),
                out.c_str());
  } catch (const sea::base_error& e) {
    return 1;
  }
  return 0;
}
