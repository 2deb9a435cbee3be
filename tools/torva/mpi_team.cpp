#include "mpi_team.h"

#include <mpi.h>

#include <chrono>
#include <climits>
#include <cstdint>
#include <cstdio>
#include <cstdlib>
#include <stdexcept>
#include <vector>

namespace torva::cli {
namespace {

double now() { return MPI_Wtime(); }

class mpi_team final : public process_team {
 public:
  explicit mpi_team(bool split_waiting) : split_waiting_(split_waiting) {
    int provided = 0;
    // Only the thread that calls extract talks to MPI; its walking threads never do.
    MPI_Init_thread(nullptr, nullptr, MPI_THREAD_FUNNELED, &provided);
    MPI_Comm_rank(MPI_COMM_WORLD, &rank_);
    MPI_Comm_size(MPI_COMM_WORLD, &size_);
  }
  ~mpi_team() override { MPI_Finalize(); }

  int rank() const noexcept override { return rank_; }
  int size() const noexcept override { return size_; }

  int lowest_failed(bool ok) override {
    int mine = ok ? size_ : rank_, lowest = 0;
    MPI_Allreduce(&mine, &lowest, 1, MPI_INT, MPI_MIN, MPI_COMM_WORLD);
    return lowest;
  }

  int first_failed(bool ok) override {
    asked_ = true;
    answered_ = lowest_failed(ok);
    return answered_;
  }
  bool asked() const noexcept override { return asked_; }
  int answered() const noexcept override { return answered_; }

  std::vector<double> gather(const std::vector<double>& mine) override {
    wait();
    const double start = now();
    if (mine.size() > std::size_t(INT_MAX)) too_large();
    const int count = int(mine.size());
    std::vector<int> counts(rank_ == 0 ? std::size_t(size_) : 0), offsets(counts.size());
    MPI_Gather(&count, 1, MPI_INT, counts.data(), 1, MPI_INT, 0, MPI_COMM_WORLD);
    std::vector<double> all;
    if (rank_ == 0) {
      long long total = 0;
      for (int r = 0; r < size_; ++r) {
        offsets[std::size_t(r)] = int(total);
        total += counts[std::size_t(r)];
        if (total > INT_MAX) too_large();
      }
      all.resize(std::size_t(total));
    }
    MPI_Gatherv(mine.data(), count, MPI_DOUBLE, all.data(), counts.data(), offsets.data(), MPI_DOUBLE, 0,
                MPI_COMM_WORLD);
    ++gathers_;
    bytes_ += double(all.size()) * sizeof(double);
    busy_ += now() - start;
    return all;
  }

  void broadcast(std::vector<double>& values) override {
    wait();
    const double start = now();
    if (values.size() > std::size_t(INT_MAX)) too_large();
    int count = int(values.size());
    MPI_Bcast(&count, 1, MPI_INT, 0, MPI_COMM_WORLD);
    values.resize(std::size_t(count));
    MPI_Bcast(values.data(), count, MPI_DOUBLE, 0, MPI_COMM_WORLD);
    ++broadcasts_;
    busy_ += now() - start;
  }

  [[noreturn]] void abort(int status) override {
    MPI_Abort(MPI_COMM_WORLD, status);
    std::_Exit(status);  // MPI_Abort does not return; this is for the compiler
  }

  std::string costs() const override {
    char line[320];
    std::snprintf(line, sizeof line,
                  "processes: %d; %llu gathers (%.3g MB to process 0) and %llu broadcasts took %.3g s on process 0%s",
                  size_, (unsigned long long)gathers_, bytes_ / 1e6, (unsigned long long)broadcasts_, busy_,
                  split_waiting_ ? "" : ", waiting for the slowest process included");
    std::string s = line;
    if (split_waiting_) {
      std::snprintf(line, sizeof line, ", after %.3g s waiting for the slowest at the barriers before them; "
                    "%.3g ms per round (a gather and a broadcast)",
                    waiting_, gathers_ ? 1e3 * busy_ / double(gathers_) : 0.0);
      s += line;
    }
    return s;
  }

 private:
  void wait() {
    if (!split_waiting_) return;
    const double start = now();
    MPI_Barrier(MPI_COMM_WORLD);
    waiting_ += now() - start;
  }
  [[noreturn]] static void too_large() {
    throw std::length_error("an exchange between the processes exceeds 2^31 values");
  }

  bool split_waiting_;
  int rank_ = 0, size_ = 1;
  bool asked_ = false;
  int answered_ = 0;
  std::uint64_t gathers_ = 0, broadcasts_ = 0;
  double bytes_ = 0.0, busy_ = 0.0, waiting_ = 0.0;
};

bool launched_by_mpi() {
  for (const char* v : {"OMPI_COMM_WORLD_SIZE", "PMIX_RANK", "PMI_RANK"})
    if (std::getenv(v) != nullptr) return true;
  return false;
}

}  // namespace

std::unique_ptr<process_team> join_mpi_team(bool split_waiting) {
  if (!launched_by_mpi()) return nullptr;
  return std::make_unique<mpi_team>(split_waiting);
}

}  // namespace torva::cli
