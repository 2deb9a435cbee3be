// The processes that share one extract run, as the program sees them: the
// extractor's team operations, and what the program itself needs to end a
// shared run cleanly. The MPI build implements it (mpi_team.cpp); the plain
// build never makes one.
#pragma once

#include <string>

#include "torva/extract/team.h"

namespace torva::cli {

class process_team : public extract_team {
 public:
  // Every process says whether it got this far; the lowest rank that did not
  // (size() when all did), the same on every process.
  virtual int lowest_failed(bool ok) = 0;
  // Whether first_failed was called, and what it answered.
  virtual bool asked() const noexcept = 0;
  virtual int answered() const noexcept = 0;
  // Ends every process of the run with this status, now.
  [[noreturn]] virtual void abort(int status) = 0;
  // One line on what the exchanges cost, for the log.
  virtual std::string costs() const = 0;
};

}  // namespace torva::cli
