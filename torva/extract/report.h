// The reports of an extraction: the out-file, the JSON for scripts, and the
// SPICE capacitor netlist. Each writes to a temporary beside the path and
// renames it into place only when the whole file was written.
#pragma once

#include <cstddef>
#include <string>

#include "torva/extract/extractor.h"

namespace torva {

// Settings, one row per master (value, standard error, walks, hops per walk,
// relative error reached), the matrix in fF and why the run stopped.
void write_out_file(const std::string& path, const std::string& layout_path, const extract_result& result);

// {"unit": "fF", "nets": [...], "masters": [...], "matrix": [[...]], "stderr": [[...]],
//  "walks": [...], "hops": [...], "seconds": x, "stopped_by": "..."}
void write_json(const std::string& path, const extract_result& result);

// A capacitor netlist in farads: each coupling once (the mean of C_ij and C_ji
// where both were extracted), a ground capacitor per master where the window
// is Dirichlet. Couplings below `outmincap` fF in magnitude are left out; the
// count left out is returned.
std::size_t write_spice(const std::string& path, const std::string& layout_path, const extract_result& result,
                        double outmincap);

}  // namespace torva
