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

}  // namespace torva::cli
