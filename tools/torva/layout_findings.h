// The findings of a read layout as the commands show them: those of the scan
// of its file (but the numbers, which the read has said already) and those of
// the checks of its record (torva/check).
#pragma once

#include <string>
#include <vector>

#include "cli_common.h"
#include "torva/check/findings.h"

namespace torva::cli {

std::vector<finding> layout_findings(const loaded_layout& in);

// "N errors, M warnings" (or "none found").
std::string findings_summary(const std::vector<finding>& findings);

// One line per finding on standard output: the indent, the severity, the
// place and what was found.
void print_finding_lines(const std::vector<finding>& findings, const char* indent);

}  // namespace torva::cli
