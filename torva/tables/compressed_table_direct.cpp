// The direct reader of the compressed set: no staging arrays and no copy of a
// whole file. Rows go in batches of 64. This thread puts the groups into the
// store in row order, as the staged reader does; meanwhile a second thread
// makes the nodes of the last batches ahead (in maps of their own, from which
// they are moved into the store in their turn), so that both threads fault in
// the groups' fresh memory, which is most of a load. Then both read the six
// files' rows of a batch at a time and finish them straight into the groups
// made for them. At its peak the load holds the groups and two batches of
// rows.
#include <fcntl.h>
#include <sys/stat.h>
#include <unistd.h>

#include <algorithm>
#include <atomic>
#include <cerrno>
#include <memory>
#include <thread>
#include <vector>

#include "torva/tables/internal/compressed_set.h"
#include "torva/tables/internal/table_reading.h"

namespace torva::internal {

namespace {

constexpr std::size_t row_count = compressed_rows;
constexpr std::size_t batch_rows = 64;  // a multiple of 8
constexpr std::size_t file_count = 6;

std::size_t record_bytes(std::size_t file) { return compressed_header + 4 * compressed_files[file].row_size; }

struct file_set {
  int fd[file_count] = {-1, -1, -1, -1, -1, -1};
  ~file_set() {
    for (int f : fd) {
      if (f >= 0) ::close(f);
    }
  }

  // True if every file opens at its own path as a plain file of its length.
  bool open_all(const std::string& dir) {
    for (std::size_t f = 0; f < file_count; ++f) {
      fd[f] = ::open((dir + compressed_files[f].name).c_str(), O_RDONLY | O_CLOEXEC);
      struct stat info {};
      if (fd[f] < 0 || ::fstat(fd[f], &info) != 0 || !S_ISREG(info.st_mode) ||
          static_cast<std::size_t>(info.st_size) != row_count * record_bytes(f))
        return false;
    }
    return true;
  }
};

bool read_at(int fd, char* into, std::size_t bytes, std::size_t offset) {
  while (bytes > 0) {
    const ssize_t got = ::pread(fd, into, bytes, static_cast<off_t>(offset));
    if (got < 0 && errno == EINTR) continue;
    if (got <= 0) return false;
    into += got;
    bytes -= static_cast<std::size_t>(got);
    offset += static_cast<std::size_t>(got);
  }
  return true;
}

// Reads the rows of one batch and finishes them into the groups that own
// them; a row whose group was made by an earlier row is finished into scratch
// space, which only its total outlives.
class finisher {
 public:
  // Totals go to b_totals[row] and xy_b_totals[row].
  finisher(const file_set& files, cmpr_equal_layer_cube_group* const* owners, double* b_totals, double* xy_b_totals)
      : files_(files), owners_(owners), b_totals_(b_totals), xy_b_totals_(xy_b_totals) {
    for (std::size_t f = 0; f < file_count; ++f) buffers_[f].resize(batch_rows * record_bytes(f));
  }

  bool batch(std::size_t first, std::size_t rows) {
    for (std::size_t f = 0; f < file_count; ++f) {
      if (!read_at(files_.fd[f], buffers_[f].data(), rows * record_bytes(f), first * record_bytes(f))) return false;
    }
    for (std::size_t r0 = 0; r0 < rows; r0 += 8) {
      const std::size_t n = std::min<std::size_t>(8, rows - r0);
      finish<0, &cmpr_equal_layer_cube_group::gft_a>(first, r0, n, nullptr, 0.0f);
      finish<1, &cmpr_equal_layer_cube_group::gft_b>(first, r0, n, b_totals_, 8.0f);
      finish<2, &cmpr_equal_layer_cube_group::gft_is_z>(first, r0, n, nullptr, 0.0f);
      finish<3, &cmpr_equal_layer_cube_group::gft_is_xy_a>(first, r0, n, nullptr, 0.0f);
      finish<4, &cmpr_equal_layer_cube_group::gft_is_xy_b>(first, r0, n, xy_b_totals_, 4.0f);
      for (std::size_t k = 0; k < n; ++k) {
        if (cmpr_equal_layer_cube_group* group = owners_[first + r0 + k]) {
          std::memcpy(group->weights, buffers_[5].data() + (r0 + k) * record_bytes(5) + compressed_header,
                      sizeof group->weights);
          make_absolute(group->weights, cmpr_equal_layer_cube_group::weights_size);
        }
      }
    }
    return true;
  }

 private:
  template <std::size_t File, auto Member>
  void finish(std::size_t first, std::size_t r0, std::size_t n, double* totals, float scale) {
    constexpr std::size_t size = compressed_files[File].row_size;
    float* out[8];
    float sum[8];
    for (std::size_t k = 0; k < n; ++k) {
      cmpr_equal_layer_cube_group* group = owners_[first + r0 + k];
      out[k] = group != nullptr ? (group->*Member) : scratch_[k];
    }
    const std::size_t stride = record_bytes(File);
    finish_rows<size>(buffers_[File].data() + r0 * stride + compressed_header, stride, n, out, sum);
    if (totals != nullptr) {
      for (std::size_t k = 0; k < n; ++k) totals[first + r0 + k] = static_cast<double>(sum[k] * scale);
    }
  }

  const file_set& files_;
  cmpr_equal_layer_cube_group* const* owners_;
  double* b_totals_;
  double* xy_b_totals_;
  std::vector<char> buffers_[file_count];
  float scratch_[8][cmpr_equal_layer_cube_group::gft_is_z_size];
};

using group_map = decltype(cmpr_equal_layer_database::groups);

constexpr std::size_t batch_count = (row_count + batch_rows - 1) / batch_rows;
constexpr std::size_t half_rows = row_count / 2;

std::size_t rows_of(std::size_t batch) { return std::min(batch_rows, row_count - batch * batch_rows); }

// What the two threads share. Groups are made batch by batch in row order by
// this thread; the other one makes the nodes of batches from the last one
// down, ahead, until the two meet (a batch is claimed by one of them), so
// that both fault in fresh memory. Then both finish batches as they come.
struct load_state {
  // Per batch: 0 unclaimed, 1 made here, 2 being made ahead, 3 made ahead.
  enum : int { unclaimed = 0, here = 1, being_made_ahead = 2, made_ahead = 3 };
  std::atomic<int> claims[batch_count];
  group_map ahead[batch_count];
  // owners[row]: the group the row made, null where an earlier row (or an
  // earlier load) made it. Published for a batch by `made`.
  std::vector<cmpr_equal_layer_cube_group*> owners = std::vector<cmpr_equal_layer_cube_group*>(row_count);
  std::atomic<std::size_t> made{0};
  std::atomic<std::size_t> next_batch{0};  // the next batch to finish
  std::atomic<bool> failed{false};

  load_state() {
    for (std::atomic<int>& c : claims) c.store(unclaimed, std::memory_order_relaxed);
  }

  void make_ahead(const compressed_grid& grid) {
    for (std::size_t b = batch_count; b-- > 0 && !failed.load(std::memory_order_relaxed);) {
      int expected = unclaimed;
      if (!claims[b].compare_exchange_strong(expected, being_made_ahead, std::memory_order_acq_rel)) break;
      bool out_of_memory = false;
      try {
        ahead[b].reserve(rows_of(b));
        for (std::size_t row = b * batch_rows; row < b * batch_rows + rows_of(b); ++row) {
          // A row of the second half whose key is that of its twin in the
          // first half finds its group made: no node for it.
          const diel_tuple<4> key = grid.key(row);
          if (row >= half_rows && key == grid.key(row - half_rows)) continue;
          ahead[b].try_emplace(key);
        }
      } catch (...) {
        out_of_memory = true;  // the rows whose nodes are missing are made there
      }
      claims[b].store(made_ahead, std::memory_order_release);
      claims[b].notify_all();
      if (out_of_memory) break;
    }
  }

  // Finishes batches until none is left, or until a read fails (`failed`).
  void finish_batches(finisher& reader) {
    for (;;) {
      const std::size_t b = next_batch.fetch_add(1, std::memory_order_relaxed);
      if (b >= batch_count) return;
      const std::size_t first = b * batch_rows, rows = rows_of(b);
      for (std::size_t now = made.load(std::memory_order_acquire); now < first + rows && !failed.load();
           now = made.load(std::memory_order_acquire))
        made.wait(now, std::memory_order_acquire);
      if (failed.load(std::memory_order_relaxed)) return;
      if (!reader.batch(first, rows)) {
        failed.store(true, std::memory_order_relaxed);
        return;
      }
    }
  }
};

}  // namespace

bool load_compressed_direct(table_loader& loader, cmpr_equal_layer_database& store, const std::string& dir,
                            bool threaded) {
  file_set files;
  if (!files.open_all(dir)) return false;

  const std::size_t old_order = store.order.size();
  const std::size_t old_mix = loader.mix.size();
  const std::size_t old_b = loader.b_totals.size();
  const std::size_t old_xy_b = loader.xy_b_totals.size();
  store.groups.reserve(store.groups.size() + row_count);
  store.order.reserve(old_order + row_count);
  loader.mix.reserve(old_mix + row_count);
  loader.b_totals.resize(old_b + row_count);
  loader.xy_b_totals.resize(old_xy_b + row_count);

  const compressed_grid grid;
  auto shared = std::make_unique<load_state>();
  load_state& st = *shared;
  auto here = std::make_unique<finisher>(files, st.owners.data(), loader.b_totals.data() + old_b,
                                         loader.xy_b_totals.data() + old_xy_b);
  auto there = std::make_unique<finisher>(files, st.owners.data(), loader.b_totals.data() + old_b,
                                          loader.xy_b_totals.data() + old_xy_b);

  // The other thread runs while this one makes the groups; if making them
  // throws, it is stopped and joined before anything it uses goes.
  struct helper_thread {
    std::thread thread;
    load_state& st;
    ~helper_thread() {
      if (!thread.joinable()) return;
      st.failed.store(true);
      st.made.store(row_count, std::memory_order_release);
      st.made.notify_all();
      thread.join();
    }
  } helper{std::thread(), st};
  if (threaded) {
    helper.thread = std::thread([&] {
      st.make_ahead(grid);
      st.finish_batches(*there);
    });
  }

  for (std::size_t b = 0; b < batch_count; ++b) {
    int expected = load_state::unclaimed;
    const bool mine = st.claims[b].compare_exchange_strong(expected, load_state::here, std::memory_order_acq_rel);
    if (!mine) {
      for (int now = st.claims[b].load(std::memory_order_acquire); now != load_state::made_ahead;
           now = st.claims[b].load(std::memory_order_acquire))
        st.claims[b].wait(now, std::memory_order_acquire);
    }
    for (std::size_t row = b * batch_rows; row < b * batch_rows + rows_of(b); ++row) {
      const diel_tuple<4> key = grid.key(row);
      cmpr_equal_layer_cube_group* group;
      auto found = mine ? store.groups.end() : store.groups.find(key);
      if (found != store.groups.end()) {
        group = &found->second;
      } else if (group_map::node_type node = mine ? group_map::node_type() : st.ahead[b].extract(key); !node.empty()) {
        group = &store.groups.insert(std::move(node)).position->second;
        st.owners[row] = group;
      } else {
        auto [it, inserted] = store.groups.try_emplace(key);
        group = &it->second;
        if (inserted) st.owners[row] = group;
      }
      store.order.push_back(group);
      loader.mix.push_back(mixing_weight(key));
    }
    st.made.store(b * batch_rows + rows_of(b), std::memory_order_release);
    st.made.notify_all();
  }
  st.finish_batches(*here);
  if (threaded) helper.thread.join();
  if (!st.failed.load()) return true;

  // Undo, so that the staged reader finds the store and the loader as they were.
  for (std::size_t row = 0; row < row_count; ++row) {
    if (st.owners[row] != nullptr) store.groups.erase(grid.key(row));
  }
  store.order.resize(old_order);
  loader.mix.resize(old_mix);
  loader.b_totals.resize(old_b);
  loader.xy_b_totals.resize(old_xy_b);
  return false;
}

}  // namespace torva::internal
