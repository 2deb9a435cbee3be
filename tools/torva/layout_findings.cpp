#include "layout_findings.h"

#include <cstdio>

#include "torva/check/layout_check.h"

namespace torva::cli {

std::vector<finding> layout_findings(const loaded_layout& in) {
  std::vector<finding> all = in.scan_findings;
  std::vector<finding> record = check_layout(in.layout->data, in.binary ? nullptr : &in.places);
  all.insert(all.end(), std::make_move_iterator(record.begin()), std::make_move_iterator(record.end()));
  return all;
}

std::string findings_summary(const std::vector<finding>& findings) {
  if (findings.empty()) return "none found";
  const std::size_t errors = count_errors(findings), warnings = findings.size() - errors;
  return std::to_string(errors) + (errors == 1 ? " error, " : " errors, ") + std::to_string(warnings) +
         (warnings == 1 ? " warning" : " warnings");
}

void print_finding_lines(const std::vector<finding>& findings, const char* indent) {
  for (const finding& f : findings) {
    const std::string place = f.where.empty() ? std::string() : f.where + ": ";
    std::printf("%s%-8s %s%s\n", indent, severity_name(f.severity), place.c_str(), f.what.c_str());
  }
}

// The layout's checks (torva/check) before anything is set up: an error makes
// the matrix meaningless and ends the run with the first of them; the
// warnings are said on standard error (by the first process) and kept for the
// log. Blocks that repeat one of their net and floating conductors are left
// to the extractor, which merges the one and refuses the other itself.
void refuse_meaningless_layout(const std::string& path, const loaded_layout& in, bool say,
                               std::vector<std::string>& warnings) {
  std::vector<finding> kept;
  for (const finding& f : in.number_findings) warnings.push_back(f.where + ": " + f.what);
  for (finding& f : layout_findings(in))
    if (f.kind != finding_kind::repeated_block && f.kind != finding_kind::floating) kept.push_back(std::move(f));
  const std::size_t errors = count_errors(kept);
  if (errors != 0) {
    const finding* first = nullptr;
    for (const finding& f : kept)
      if (!first && f.severity == severity::error) first = &f;
    throw input_error(path + ": " + std::to_string(errors) + (errors == 1 ? " error makes" : " errors make") +
                      " an extraction meaningless (torva check lists them all); the first: " +
                      (first->where.empty() ? "" : first->where + ": ") + first->what);
  }
  for (const finding& f : kept) warnings.push_back((f.where.empty() ? "" : f.where + ": ") + f.what);
  if (say) print_findings(stderr, path, kept);
}

}  // namespace torva::cli
