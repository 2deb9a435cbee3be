// torva info LAYOUT: what a layout file holds, how long it took to read, and
// what its checks found.
#include <algorithm>
#include <cstdio>
#include <filesystem>
#include <memory>
#include <string>
#include <vector>

#include "cli_common.h"
#include "commands.h"
#include "layout_findings.h"
#include "torva/layout/records.h"

namespace torva::cli {

namespace {

std::string point_text(const point3& p) {
  char b[96];
  std::snprintf(b, sizeof b, "(%g, %g, %g)", double(p[0]), double(p[1]), double(p[2]));
  return b;
}

// "4 cuboid, 1 prism" over the kinds that occur.
template <class Blocks>
std::string kinds_text(const Blocks& blocks) {
  std::size_t count[3] = {0, 0, 0};
  std::size_t other = 0;
  for (const auto& b : blocks) {
    if (b.shape_kind < 3)
      ++count[b.shape_kind];
    else
      ++other;
  }
  std::string s;
  for (std::uint32_t k = 0; k < 3; ++k) {
    if (count[k] == 0) continue;
    if (!s.empty()) s += ", ";
    s += std::to_string(count[k]) + " " + solid_kind_name(k);
  }
  if (other != 0) s += (s.empty() ? "" : ", ") + std::to_string(other) + " other";
  return s.empty() ? "none" : s;
}

void print_info(const std::string& path, const loaded_layout& in) {
  const circuit_layout::raw& r = in.layout->data;
  std::printf("layout       %s (%s, %s), read in %s\n", path.c_str(), in.binary ? "binary" : "text",
              format_bytes(double(in.file_bytes)).c_str(), format_seconds(in.read_seconds).c_str());

  const char* boundary = r.boundary == 1 ? "dirichlet" : r.boundary == 2 ? "neumann" : "no boundary given";
  std::printf("window       %s %s to %s, %s\n", r.window_name.empty() ? "(unnamed)" : r.window_name.c_str(),
              point_text(r.window.lower).c_str(), point_text(r.window.upper).c_str(), boundary);

  std::size_t floating = 0;
  for (const wire_net& n : r.wire_nets) floating += n.floating ? 1 : 0;
  std::printf("conductors   %zu (%zu floating), %zu blocks: %s\n", r.wire_nets.size(), floating, r.wire_blocks.size(),
              kinds_text(r.wire_blocks).c_str());
  if (!r.wire_blocks.empty()) {
    cuboid_t box = r.wire_blocks.front().outer_box;
    for (const wire_block& b : r.wire_blocks) {
      box.lower = minimal(box.lower, b.outer_box.lower);
      box.upper = maximal(box.upper, b.outer_box.upper);
    }
    std::printf("             blocks span %s to %s\n", point_text(box.lower).c_str(), point_text(box.upper).c_str());
  }
  std::printf("media        %zu, %zu blocks: %s\n", r.medium_nets.size(), r.medium_blocks.size(),
              kinds_text(r.medium_blocks).c_str());
  // A plate medium also stands as a body without blocks; name the first few.
  const std::size_t shown = std::min<std::size_t>(r.medium_nets.size(), 8);
  for (std::size_t i = 0; i < shown; ++i) {
    const medium_net& m = r.medium_nets[i];
    std::printf("%s %s (diel %g, %zu blocks)", i == 0 ? "            " : ",", m.name.c_str(), double(m.diel),
                m.blocks.size());
  }
  if (r.medium_nets.size() > shown) std::printf(", ... %zu more", r.medium_nets.size() - shown);
  if (shown != 0) std::printf("\n");

  std::printf("plate media  %zu", r.plate_mediums.size());
  for (std::size_t i = 0; i < r.plate_mediums.size(); ++i) {
    const auto& p = r.plate_mediums[i];
    std::printf("%s %s (z_top %g, diel %g)", i == 0 ? ":" : ",", p.name.c_str(), double(p.z_top), double(p.diel));
  }
  std::printf("\n");

  std::printf("layers       %zu", std::max(r.layer_names.size(), r.layer_types.size()));
  bool first = true;
  for (const auto& [id, name] : r.layer_names) {
    auto type = r.layer_types.find(name);
    std::printf("%s %s (id %d%s%s)", first ? ":" : ",", name.c_str(), int(id), type == r.layer_types.end() ? "" : ", ",
                type == r.layer_types.end() ? "" : type->second.c_str());
    first = false;
  }
  // Layers with a type but no id (dielectric layers, say).
  std::vector<std::string> untyped;
  for (const auto& [name, type] : r.layer_types) {
    bool named = false;
    for (const auto& [id, n] : r.layer_names) named = named || n == name;
    if (!named) untyped.push_back(name + " (" + type + ")");
  }
  std::sort(untyped.begin(), untyped.end());
  for (const std::string& u : untyped) {
    std::printf("%s %s", first ? ":" : ",", u.c_str());
    first = false;
  }
  std::printf("\n");

  std::printf("parameters   self-precision %g, coupling-precision %g, thread-num %d, seed %d, walk-type %d, spice %d",
              r.self_precision, r.coupling_precision, r.thread_num, r.seed, r.walk_type, r.spice);
  if (!r.out_file.empty()) std::printf(", out-file %s", r.out_file.c_str());
  if (!r.log_file.empty()) std::printf(", log-file %s", r.log_file.c_str());
  std::printf("\n");

  std::vector<std::string> tasks(r.capacitance_tasks.begin(), r.capacitance_tasks.end());
  std::sort(tasks.begin(), tasks.end());
  std::printf("tasks        %zu", tasks.size());
  for (std::size_t i = 0; i < tasks.size(); ++i) std::printf("%s %s", i == 0 ? ":" : "", tasks[i].c_str());
  std::printf("\n");

  // What no user means, each with its place (torva check lists the same).
  const std::vector<finding> findings = layout_findings(in);
  std::printf("checks       %s\n", findings_summary(findings).c_str());
  print_finding_lines(findings, "               ");
}

}  // namespace

command add_info(CLI::App& app) {
  auto* sub = app.add_subcommand("info", "Read a layout (text or binary) and summarise what it holds");
  auto path = std::make_shared<std::string>();
  auto how = std::make_shared<read_options>();
  sub->add_option("LAYOUT", *path, "A cap3d layout file, text or binary")->required();
  sub->add_option("--incline-slices", how->incline_slices,
                  "Horizontal slices of a conductor block with a side slope (below 1: such blocks are dropped)")
      ->capture_default_str();
  sub->add_flag("--cuboids-only", how->cuboids_only, "Read cylinders and polygon pieces as their bounding boxes");
  return {sub, [path, how] {
            const loaded_layout in = read_layout(*path, *how);
            print_info(*path, in);
            return exit_ok;
          },
          false, [path] { return run_files{{{"layout file", *path}}, {}}; }};
}

}  // namespace torva::cli
