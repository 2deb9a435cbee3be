// Capacitance extraction by the floating random walk.
//
// For each master conductor a Gaussian surface is built around it (the union
// of its blocks' boxes, each grown by a share of its clearance to other
// conductors and to the window). Walks start on that surface: the first hop
// samples the exit point of a transition cube centred on the surface point and
// carries the weight of the field's flux through the surface; later hops jump
// in the largest conductor-free cube that the search structure guarantees,
// until the walker comes within the stop distance of a conductor (or of a
// Dirichlet wall, which is ground). C_ij is the mean weight of the walks from
// master i that end on conductor j.
//
// Units: lengths in micrometres, capacitance in femtofarads.
#pragma once

#include <cstdint>
#include <functional>
#include <string>
#include <vector>

#include "torva/extract/team.h"
#include "torva/layout/records.h"

namespace torva {

// What a run reports while it goes, from the thread that called extract.
struct extract_progress {
  std::size_t master = 0;          // index into the run's masters
  std::size_t master_count = 0;
  std::uint64_t walks = 0;         // walks of this master so far
  double self_error = 0.0;         // relative standard error of its self capacitance so far
  double goal = 0.0;               // the relative error it must reach
  double seconds = 0.0;            // since the run began
};

// How walks cross the planes of a stack of dielectric layers: `table` lets a
// cube straddle one plane, drawn from the two-layer tables; `step` keeps
// cubes off every interface and steps across.
enum class interface_walk { step, table };

struct extract_options {
  std::vector<std::string> masters;   // net names; empty: the layout's tasks, else every net
  double self_precision = 0.01;       // relative standard error of each C_ii
  double coupling_precision = 0.05;   // relative error of the couplings that make 95% of C_ii
  int threads = 1;                    // walking threads (below 1: the hardware's count)
  std::uint64_t seed = 1;
  std::uint64_t max_walks = 0;        // per master; 0: no limit
  double time_limit = 0.0;            // seconds for the whole run; 0: no limit
  double gauss_ratio = 0.5;           // Gaussian surface at this share of the clearance (0 < r < 1)
  double stop_ratio = 1e-3;           // stop distance as a share of the smallest block edge
  bool importance_first_hop = true;   // draw the first hop by the field's strength (false: by the first table)
  int spacemgr_type = -1;             // search pair; -1: chosen by the layout among the exact ones
  bool allow_unsafe_search = false;   // let spacemgr_type name a pair or settings that may over-answer
  bool group_dominance = false;       // unsafe dominance modes, for measuring what they cost
  bool group_optimize = false;
  bool double_incline_ratio = false;
  // Dielectric interfaces: the step a walker takes across one, as a share of
  // its distance to the nearest conductor (the bias it costs falls with it).
  double interface_step = 0.2;
  double uniform_permittivity = 0.0;   // above 0: this relative permittivity everywhere, the layout's media ignored
  bool keep_equal_interfaces = false;  // keep interfaces with the same permittivity on both sides (to check the steps)
  interface_walk walk = interface_walk::table;
  // The two-layer tables are looked for here first, then under
  // $HOME/Torva_tables (empty: $HOME/Torva_tables alone); pairs found nowhere
  // are generated for the run on a grid of this refinement (even, from 2).
  std::string table_dir;
  int table_refine = 2;
  std::function<void(const extract_progress&)> progress;  // may be empty
  // Processes that share the run (not owned; null: this process alone). Each
  // member walks with its own `threads`; the matrix is that of one process
  // with the same seed, bit for bit, whatever the team's size and threads.
  extract_team* team = nullptr;
  team_split split = team_split::automatic;
};

// The defaults of a layout's <parameter> section: self-precision,
// coupling-precision, thread-num, seed and c-ratio where they are set.
extract_options extract_options_from_layout(const circuit_layout& layout);

struct extract_result {
  std::vector<std::string> nets;      // matrix columns: every conductor, then "GROUND" when the window is Dirichlet
  bool has_ground = false;
  std::vector<std::string> masters;   // matrix rows
  std::vector<std::vector<double>> matrix;  // Maxwell entries in fF: C_ii > 0, couplings < 0, rows sum to 0
  std::vector<std::vector<double>> stderr_matrix;  // standard error of each entry, fF
  std::vector<std::uint64_t> walks;   // per master
  std::vector<double> hops;           // mean hops per walk, per master
  std::vector<double> self_error;     // relative standard error of C_ii reached, per master
  std::vector<std::string> master_stopped_by;  // "precision", "walks" or "time", per master
  std::string stopped_by;             // the first of "time", "walks", "precision" that any master reports
  double seconds = 0.0;               // walking time of the whole run
  double setup_seconds = 0.0;         // deriving, search structure, Gaussian surfaces
  // Settings the run used, for the reports.
  double permittivity = 1.0;          // relative, when one permittivity fills the window; else 0
  std::string dielectric;             // what the walks cross: "uniform 3.9", or the layers and boxes
  double stop_distance = 0.0;         // um
  double self_precision = 0.0;
  double coupling_precision = 0.0;
  int threads = 1;                    // per member of the team
  int ranks = 1;                      // members of the team that shared the run
  std::string split;                  // "masters" or "blocks" when a team shared the run
  std::uint64_t seed = 0;
  std::uint32_t spacemgr_type = 0;
  std::vector<std::string> warnings;  // also written on logger::warning
};

// Derives the layout's fields and runs the extraction. Under a team, every
// member calls it; member 0 returns the whole result, the others only their
// settings and an empty matrix. Throws
// sea::fatal_error with a clear message for a layout it cannot extract
// (an unknown master, conductors that touch, a floating conductor).
extract_result extract(circuit_layout& layout, const extract_options& options);

}  // namespace torva
