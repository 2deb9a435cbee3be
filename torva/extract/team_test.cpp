// A run shared by a team of members against the same run in one process. The
// members here are threads of the test, each with its own copy of the layout
// and a team whose collective operations meet at a barrier: what the library
// asks of a team, without the processes (the torva program's MPI team is
// checked by its own test against the examples).
#include <gtest/gtest.h>

#include <barrier>
#include <cstdarg>
#include <cstdio>
#include <fstream>
#include <memory>
#include <mutex>
#include <string>
#include <thread>
#include <vector>

#include "torva/extract/extractor.h"
#include "torva/foundation/errors.h"
#include "torva/foundation/logger.h"
#include "torva/foundation/writer.h"
#include "torva/layout/cap3d_parser.h"
#include "torva_testing/log_capture.h"

namespace torva {
namespace {

// The members print on one logger at once.
class locked_writer final : public sea::writer {
 public:
  sea::writer& write(char c) override {
    std::lock_guard lock(mutex_);
    text_ += c;
    return *this;
  }
  sea::writer& write(const void* data, unsigned long size) override {
    std::lock_guard lock(mutex_);
    text_.append(static_cast<const char*>(data), size);
    return *this;
  }
  sea::writer& vformat(const char* format, va_list args) override {
    char buf[1024];
    std::vsnprintf(buf, sizeof buf, format, args);
    std::lock_guard lock(mutex_);
    text_ += buf;
    return *this;
  }
  sea::writer& flush() override { return *this; }

 private:
  std::mutex mutex_;
  std::string text_;
};

struct team_room {
  explicit team_room(int n) : size(n), sync(n), slots(std::size_t(n)), ok(std::size_t(n), 1) {}
  int size;
  std::barrier<> sync;
  std::vector<std::vector<double>> slots;
  std::vector<char> ok;
};

class thread_team final : public extract_team {
 public:
  thread_team(team_room& room, int rank) : room_(room), rank_(rank) {}
  int rank() const noexcept override { return rank_; }
  int size() const noexcept override { return room_.size; }
  int first_failed(bool ok) override {
    asked = true;
    room_.ok[std::size_t(rank_)] = ok;
    room_.sync.arrive_and_wait();
    int failed = room_.size;
    for (int r = room_.size - 1; r >= 0; --r)
      if (!room_.ok[std::size_t(r)]) failed = r;
    room_.sync.arrive_and_wait();
    return failed;
  }
  std::vector<double> gather(const std::vector<double>& mine) override {
    room_.slots[std::size_t(rank_)] = mine;
    room_.sync.arrive_and_wait();
    std::vector<double> all;
    if (rank_ == 0)
      for (const auto& s : room_.slots) all.insert(all.end(), s.begin(), s.end());
    room_.sync.arrive_and_wait();
    return all;
  }
  void broadcast(std::vector<double>& values) override {
    if (rank_ == 0) room_.slots[0] = values;
    room_.sync.arrive_and_wait();
    if (rank_ != 0) values = room_.slots[0];
    room_.sync.arrive_and_wait();
  }
  bool asked = false;

 private:
  team_room& room_;
  int rank_;
};

std::string block(const std::string& net, double x, double y, double z, double dx, double dy, double dz) {
  char buf[512];
  std::snprintf(buf, sizeof buf,
                "<conductor> name %s <block> basepoint(%.17g,%.17g,%.17g) v1(%.17g,0,0) v2(0,%.17g,0) "
                "hvector(0,0,%.17g) </block> </conductor>\n",
                net.c_str(), x, y, z, dx, dy, dz);
  return buf;
}

// Three wires over a plane in a grounded window: four masters.
const std::string wires = "<window> v1(0,0,0) v2(10,10,10) dirichlet </window>\n" +
                          block("plane", 0.5, 0.5, 0.5, 9, 9, 0.5) + block("a", 1, 3, 2, 8, 1, 1) +
                          block("b", 1, 4.6, 2, 8, 1, 1) + block("c", 1, 6.2, 2.5, 8, 1, 1);

struct member_run {
  extract_result result;
  std::string error;  // what extract threw, if it did
  bool team_asked = false;
};

struct team_runs : ::testing::Test {
  testing::log_capture log;
  testing::temp_dir dir;

  team_runs() {
    auto& l = logger::instance();
    l.set_info(std::make_unique<locked_writer>());
    l.set_detail(std::make_unique<locked_writer>());
    l.set_warning(std::make_unique<locked_writer>());
    l.set_error(std::make_unique<locked_writer>());
  }

  std::unique_ptr<circuit_layout> layout(const std::string& body) {
    const std::string path = dir.file("layout.cap3d");
    std::ofstream(path) << "<cap3d>\n" << body << "</cap3d>\n";
    auto l = std::make_unique<circuit_layout>();
    Cap3dParser parser(l->data, 4, true, false);
    EXPECT_TRUE(parser.parse(path, ""));
    return l;
  }

  extract_result alone(const std::string& body, extract_options o) { return extract(*layout(body), o); }

  // Every member extracts its own copy of its layout (bodies[r], or the
  // first for all); a member that throws still answers the setup check, as
  // the program's team does for it.
  std::vector<member_run> together(const std::vector<std::string>& bodies, int size, extract_options o) {
    std::vector<std::unique_ptr<circuit_layout>> layouts;
    for (int r = 0; r < size; ++r) layouts.push_back(layout(bodies[std::size_t(r) < bodies.size() ? r : 0]));
    team_room room(size);
    std::vector<member_run> runs(static_cast<std::size_t>(size));
    std::vector<std::thread> members;
    for (int r = 0; r < size; ++r)
      members.emplace_back([&, r] {
        thread_team team(room, r);
        extract_options mine = o;
        mine.team = &team;
        try {
          runs[std::size_t(r)].result = extract(*layouts[std::size_t(r)], mine);
        } catch (const std::exception& e) {
          runs[std::size_t(r)].error = e.what();
          if (!team.asked) team.first_failed(false);
        }
        runs[std::size_t(r)].team_asked = team.asked;
      });
    for (std::thread& t : members) t.join();
    return runs;
  }
};

void expect_same_run(const extract_result& a, const extract_result& b, const std::string& what) {
  EXPECT_EQ(a.masters, b.masters) << what;
  EXPECT_EQ(a.matrix, b.matrix) << what;
  EXPECT_EQ(a.stderr_matrix, b.stderr_matrix) << what;
  EXPECT_EQ(a.walks, b.walks) << what;
  EXPECT_EQ(a.hops, b.hops) << what;
  EXPECT_EQ(a.self_error, b.self_error) << what;
  EXPECT_EQ(a.master_stopped_by, b.master_stopped_by) << what;
  EXPECT_EQ(a.stopped_by, b.stopped_by) << what;
}

// Two and three members, with one and two threads each, sharing masters or
// blocks, give the matrix of one process bit for bit; so do runs whose
// masters end at a walk limit that cuts a block short. Member 0 alone holds
// the rows.
TEST_F(team_runs, any_team_gives_the_matrix_of_one_process) {
  extract_options o;
  o.self_precision = 0.02;
  o.coupling_precision = 0.1;
  o.seed = 11;
  o.threads = 2;
  for (std::uint64_t max_walks : {std::uint64_t(0), std::uint64_t(5000)}) {
    o.max_walks = max_walks;
    o.team = nullptr;
    const extract_result one = alone(wires, o);
    ASSERT_EQ(one.masters.size(), 4u);
    if (max_walks) {
      EXPECT_EQ(one.stopped_by, "walks");
    }
    for (team_split split : {team_split::masters, team_split::blocks, team_split::automatic})
      for (int size : {2, 3})
        for (int threads : {1, 2}) {
          const std::string what = "max walks " + std::to_string(max_walks) + ", split " +
                                   std::to_string(int(split)) + ", " + std::to_string(size) + " members x " +
                                   std::to_string(threads) + " threads";
          o.split = split;
          o.threads = threads;
          const std::vector<member_run> runs = together({wires}, size, o);
          for (const member_run& m : runs) EXPECT_EQ(m.error, "") << what;
          expect_same_run(runs[0].result, one, what);
          EXPECT_EQ(runs[0].result.ranks, size) << what;
          // Four masters on two or three members are too few to share out whole.
          EXPECT_EQ(runs[0].result.split, split == team_split::masters ? "masters" : "blocks") << what;
          for (std::size_t r = 1; r < runs.size(); ++r) EXPECT_TRUE(runs[r].result.matrix.empty()) << what;
        }
    o.threads = 2;
  }
}

// A member that cannot set up ends every member's run, none waits for it,
// and the others' message names it.
TEST_F(team_runs, a_member_that_fails_its_setup_ends_the_run) {
  extract_options o;
  o.self_precision = 0.02;
  o.seed = 3;
  const std::string shorted = wires + block("d", 1, 3, 2, 8, 1, 1);  // on top of a
  for (team_split split : {team_split::masters, team_split::blocks}) {
    o.split = split;
    const std::vector<member_run> runs = together({wires, shorted, wires}, 3, o);
    EXPECT_NE(runs[1].error.find("coincident blocks"), std::string::npos) << runs[1].error;
    EXPECT_FALSE(runs[1].result.matrix.size());
    for (int r : {0, 2}) {
      EXPECT_EQ(runs[std::size_t(r)].error, "process 1 of the run could not set up");
      EXPECT_TRUE(runs[std::size_t(r)].team_asked);
    }
  }
}

// A time limit far short of the precision stops every master of every member
// by time, the members together (a member that stopped alone would leave the
// others waiting for it).
TEST_F(team_runs, a_time_limit_stops_the_members_together) {
  extract_options o;
  o.self_precision = 1e-5;
  o.coupling_precision = 1e-5;
  o.time_limit = 0.3;
  o.threads = 1;
  for (team_split split : {team_split::masters, team_split::blocks}) {
    o.split = split;
    const std::vector<member_run> runs = together({wires}, 2, o);
    for (const member_run& m : runs) EXPECT_EQ(m.error, "");
    const extract_result& r = runs[0].result;
    ASSERT_EQ(r.masters.size(), 4u);
    EXPECT_EQ(r.stopped_by, "time");
    for (const std::string& s : r.master_stopped_by) EXPECT_EQ(s, "time");
    EXPECT_LT(runs[1].result.seconds, 10.0);
  }
}

}  // namespace
}  // namespace torva
