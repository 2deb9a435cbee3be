// torva import CELL.gds --stack NAME OUT: a GDS cell on a process stack made
// into a cap3d layout, text (OUT.cap3d) or binary (OUT.bin), with its nets,
// its blocks by layer and the warnings of the import on standard output.
#include "cmd_import.h"

#include <atomic>
#include <cstdio>
#include <filesystem>
#include <fstream>
#include <memory>
#include <string>

#include "commands.h"
#include "output_files.h"
#include "torva/foundation/errors.h"
#include "torva/layout/binary_writer.h"
#include "torva/layout/text_writer.h"

namespace torva::cli {

namespace {

bool ends_with(const std::string& s, const std::string& end) {
  return s.size() >= end.size() && s.compare(s.size() - end.size(), end.size(), end) == 0;
}

// One bar per stage of the import, fed from the importing thread.
class import_bars {
 public:
  void operator()(const char* stage, std::uint64_t done, std::uint64_t total) {
    if (stage_ != stage) {
      bar_.reset();
      stage_ = stage;
      done_ = 0;
      bar_ = std::make_unique<progress_bar>(std::string("importing: ") + stage, total, [this] { return done_.load(); });
    }
    done_ = done;
  }
  void finish() { bar_.reset(); }

 private:
  std::string stage_;
  std::atomic<std::uint64_t> done_{0};
  std::unique_ptr<progress_bar> bar_;
};

std::string fixed(double v, int digits = 3) {
  char b[64];
  std::snprintf(b, sizeof b, "%.*f", digits, v);
  return b;
}

void print_report(const import_report& r, const circuit_layout& layout, const std::string& stack_path) {
  const auto& w = layout.data.window;
  std::printf("cell         %s of %s: %llu polygons, %llu labels, database unit %g um\n", r.cell.c_str(),
              r.file.c_str(), (unsigned long long)r.polygons, (unsigned long long)r.labels, r.um_per_db);
  std::printf("stack        %s (%s)\n", r.stack.c_str(), stack_path.c_str());
  std::printf("window       (%g, %g, %g) to (%g, %g, %g) um, %g um past the cell, grounded\n", double(w.lower[0]),
              double(w.lower[1]), double(w.lower[2]), double(w.upper[0]), double(w.upper[1]), double(w.upper[2]),
              r.window_margin);
  std::size_t labelled = 0, cell_nets = 0;
  for (const import_net& n : r.nets)
    if (!n.substrate) ++cell_nets, labelled += n.labelled ? 1 : 0;
  std::printf("nets         %zu (%zu named by labels, %zu by where they lie)%s\n", cell_nets, labelled,
              cell_nets - labelled, cell_nets < r.nets.size() ? ", and the grounded substrate" : "");
  const std::size_t shown = 40;
  for (std::size_t i = 0; i < r.nets.size() && i < shown; ++i) {
    const import_net& n = r.nets[i];
    std::string layers;
    for (const std::string& l : n.layers) layers += (layers.empty() ? "" : " ") + l;
    std::printf("  %-24s %8zu blocks  %s%s\n", n.name.c_str(), n.blocks, layers.c_str(),
                n.substrate ? " (grounded)" : "");
  }
  if (r.nets.size() > shown) std::printf("  ... and %zu more\n", r.nets.size() - shown);
  std::printf("blocks by layer (volume in um^3)\n");
  for (const import_layer& l : r.layers) {
    if (l.blocks == 0 && l.pieces == 0) continue;
    std::printf("  %-12s %-10s %8zu pieces %9zu blocks %14s\n", l.name.c_str(), l.kind.c_str(), l.pieces, l.blocks,
                fixed(l.volume).c_str());
  }
  std::printf("plate media  %zu planar dielectrics\n", layout.data.plate_mediums.size());
  std::printf("time         %s: read %s, layers %s, nets %s, blocks %s, dielectrics and substrate %s\n",
              format_seconds(r.total_seconds).c_str(), format_seconds(r.read_seconds).c_str(),
              format_seconds(r.merge_seconds).c_str(), format_seconds(r.connect_seconds).c_str(),
              format_seconds(r.cut_seconds).c_str(), format_seconds(r.dielectric_seconds).c_str());
  std::printf("warnings     %zu\n", r.warnings.size());
  for (const std::string& m : r.warnings) std::printf("  %s\n", m.c_str());
}

struct import_args {
  std::string gds;
  std::string out;
  gds_args how;
  bool force = false;
};

int run_import(const import_args& a) {
  const bool binary = ends_with(a.out, ".bin");
  if (!binary && !ends_with(a.out, ".cap3d"))
    throw input_error("the output \"" + a.out + "\" must end in .cap3d (text) or .bin (binary)");
  refuse_overwrite(a.out, a.force);
  process_stack stack;
  const import_result r = import_cell_file(a.gds, a.how, stack);
  const auto start = std::chrono::steady_clock::now();
  staged_output staged(a.out);
  text_write_summary summary;
  try {
    if (binary)
      write_binary_file(r.layout->data, staged.temp_path());
    else
      summary = write_text_file(r.layout->data, staged.temp_path(),
                                "cell " + r.report.cell + " of " + a.gds + " on the stack " + stack.name +
                                    ", imported by torva; lengths in um");
  } catch (const sea::base_error& e) {
    const std::string lines = take_errors();
    throw input_error(a.out + ": " + (lines.empty() ? std::string(e.what()) : lines));
  }
  staged.commit();
  for (const std::string& loss : summary.losses) std::fprintf(stderr, "torva: warning: the text form: %s\n", loss.c_str());
  print_report(r.report, *r.layout, stack.path);
  std::error_code ec;
  const auto bytes = std::filesystem::file_size(a.out, ec);
  std::printf("wrote        %s: %s, %zu conductors, %zu blocks, %zu dielectric blocks, %s, in %s\n", a.out.c_str(),
              binary ? "binary" : "text", r.layout->data.wire_nets.size(), r.layout->data.wire_blocks.size(),
              r.layout->data.medium_blocks.size(), format_bytes(ec ? 0.0 : double(bytes)).c_str(),
              format_seconds(seconds_since(start)).c_str());
  return exit_ok;
}

}  // namespace

void add_gds_options(CLI::App* sub, gds_args& a, bool stack_required) {
  auto* stack = sub->add_option("--stack", a.stack,
                                "The process stack: a shipped one by name (sky130A, ihp-sg13g2, ihp-sg13cmos5l, "
                                "gf180mcuD; also looked for in $TORVA_STACK_PATH) or a stack file");
  if (stack_required) stack->required();
  sub->add_option("--top", a.top, "The GDS cell to take (default: the one cell no other references)");
  sub->add_option("--nets", a.nets, "The nets to extract, by label (default: every net of the cell)")
      ->delimiter(',')
      ->allow_extra_args(false);
  sub->add_option("--window-margin", a.window_margin,
                  "How far (um) the grounded window reaches past the cell (default: the stack's)")
      ->check(CLI::NonNegativeNumber);
}

bool looks_like_gds(const std::string& path) {
  std::ifstream in(path, std::ios::binary);
  unsigned char head[4] = {};
  in.read(reinterpret_cast<char*>(head), 4);
  return in.gcount() == 4 && head[0] == 0 && head[1] == 6 && head[2] == 0 && head[3] == 2;
}

import_result import_cell_file(const std::string& gds, const gds_args& a, process_stack& stack) {
  take_errors();
  if (a.stack.empty()) {
    std::string names;
    for (const std::string& n : shipped_stack_names()) names += (names.empty() ? "" : ", ") + n;
    throw input_error(gds + " is a GDS cell: --stack names its process stack (shipped: " + names + ")");
  }
  import_bars bars;
  try {
    stack = load_stack(a.stack);
    import_options o;
    o.top = a.top;
    o.nets = a.nets;
    o.window_margin = a.window_margin;
    o.progress = [&bars](const char* stage, std::uint64_t done, std::uint64_t total) { bars(stage, done, total); };
    import_result r = import_gds(gds, stack, o);
    bars.finish();
    flush_errors();
    return r;
  } catch (const sea::base_error& e) {
    bars.finish();
    std::string lines = take_errors();
    // The library's "ERROR: " would follow the program's own "error: ".
    for (std::size_t at = 0; (at = lines.find("ERROR: ", at)) != std::string::npos;)
      if (at == 0 || lines.compare(at - 2, 2, "; ") == 0) lines.erase(at, 7);
      else at += 7;
    throw input_error(lines.empty() ? std::string(e.what()) : lines);
  } catch (const std::bad_alloc&) {
    bars.finish();
    throw input_error(gds + ": out of memory while importing");
  }
}

loaded_layout import_layout(const std::string& gds, const gds_args& a) {
  process_stack stack;
  import_result r = import_cell_file(gds, a, stack);
  loaded_layout out;
  out.layout = std::move(r.layout);
  out.read_seconds = r.report.total_seconds;
  std::error_code ec;
  out.file_bytes = std::filesystem::file_size(gds, ec);
  return out;
}

command add_import(CLI::App& app) {
  auto* sub = app.add_subcommand("import",
                                 "Make a GDS cell on a process stack into a cap3d layout (lengths in um): nets by "
                                 "connectivity and labels, blocks, dielectrics, the grounded substrate");
  auto a = std::make_shared<import_args>();
  sub->add_option("CELL", a->gds, "A GDSII stream file")->required();
  sub->add_option("OUT", a->out, "The layout to write: OUT.cap3d as text, OUT.bin as binary")->required();
  add_gds_options(sub, a->how, true);
  sub->add_flag("--force", a->force, "Replace OUT if it exists");
  return {sub, [a] { return run_import(*a); }, false,
          [a] { return run_files{{{"GDS file", a->gds}}, {{"output", a->out}}}; }};
}

}  // namespace torva::cli
