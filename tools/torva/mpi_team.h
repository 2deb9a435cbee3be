// The processes of an mpirun as the extractor's team (built with TORVA_MPI).
#pragma once

#include <memory>

#include "process_team.h"

namespace torva::cli {

// Starts MPI when the program was started by an MPI launcher (mpirun, or
// srun with PMIx) and returns the team of its processes; null otherwise, so
// that the MPI build run by itself behaves as the plain one. MPI ends with
// the team. With `split_waiting`, every exchange starts with a barrier, timed
// apart, so that its cost is told from the wait for the slowest process.
std::unique_ptr<process_team> join_mpi_team(bool split_waiting);

}  // namespace torva::cli
