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

// Before an extraction: ends the run (input_error) with the first error and
// their count; otherwise gives the warnings, said on standard error when `say`
// (the first process of a run), as lines for the log. Repeated blocks and
// floating conductors are the extractor's to merge and to refuse.
void refuse_meaningless_layout(const std::string& path, const loaded_layout& in, bool say,
                               std::vector<std::string>& warnings);

}  // namespace torva::cli
