// torva check LAYOUT: every finding of the layout's checks (torva/check), one
// a line with its place; the status is 1 when any is an error, that is when an
// extraction would refuse the layout.
#include <cstdio>
#include <memory>
#include <string>

#include "cli_common.h"
#include "commands.h"
#include "layout_findings.h"

namespace torva::cli {

command add_check(CLI::App& app) {
  auto* sub = app.add_subcommand(
      "check", "List what in a layout no user means (structure, numbers, overlaps), with where it is; status 1 on errors");
  auto path = std::make_shared<std::string>();
  auto how = std::make_shared<read_options>();
  sub->add_option("LAYOUT", *path, "A cap3d layout file, text or binary")->required();
  sub->add_option("--incline-slices", how->incline_slices, "Slices of a conductor block with a side slope")
      ->capture_default_str();
  return {sub,
          [path, how] {
            const loaded_layout in = read_layout(*path, *how);
            const std::vector<finding> findings = layout_findings(in);
            std::printf("%s: %s\n", path->c_str(), findings_summary(findings).c_str());
            print_finding_lines(findings, "");
            return count_errors(findings) == 0 ? exit_ok : exit_bad_input;
          },
          false, [path] { return run_files{{{"layout file", *path}}, {}}; }};
}

}  // namespace torva::cli
