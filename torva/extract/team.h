// A run of the extractor shared by processes (on one machine or many), each of
// which reads the same layout, sets up on its own and calls extract with the
// same options. The library does not know how the processes talk: a caller
// that runs several (the torva program built with MPI) implements these few
// collective operations, and the library stays free of any such dependency.
//
// Every member must call each operation in the same order; the extractor does.
#pragma once

#include <vector>

namespace torva {

class extract_team {
 public:
  virtual ~extract_team() = default;

  virtual int rank() const noexcept = 0;  // 0 .. size-1; member 0 holds the whole result
  virtual int size() const noexcept = 0;

  // Every member says whether its setup succeeded; the answer, the same on
  // every member, is the lowest rank that failed, or size() when none did.
  // Also the point from which members count their time limits.
  virtual int first_failed(bool ok) = 0;

  // Member 0 receives every member's values, concatenated in rank order;
  // the others receive nothing.
  virtual std::vector<double> gather(const std::vector<double>& mine) = 0;

  // Member 0's values, on every member (the others' sizes are overwritten).
  virtual void broadcast(std::vector<double>& values) = 0;
};

// How a team shares the work of a run.
enum class team_split {
  automatic,  // masters when there are at least team_masters_per_member per member, else blocks
  masters,    // member r runs alone the masters whose index is r modulo the team's size
  blocks,     // every master together: member r walks the blocks r modulo the size of each round
};

// With this many masters per member or more, sharing out whole masters keeps
// every member busy with no exchange but the last; with fewer, one member with
// a master more than another would leave the rest idle, and the blocks of each
// master are shared instead.
inline constexpr int team_masters_per_member = 4;

}  // namespace torva
