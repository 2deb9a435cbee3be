// The direct reader of the compressed set: no staging arrays and no copy of a
// whole file. This thread makes the groups in row order, as the staged reader
// does; a second thread follows it batch by batch, reads the six files' rows
// of the batch and finishes them straight into the groups that were made for
// them. Most of a load is faulting in the groups' fresh memory and reading
// the files, and the two now overlap; at its peak the load holds the groups
// and a few batches of rows.
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
constexpr std::size_t batch_rows = 128;  // a multiple of 8
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
  finisher(const file_set& files, cmpr_equal_layer_cube_group* const* owners, table_loader& loader)
      : files_(files), owners_(owners), loader_(loader) {
    for (std::size_t f = 0; f < file_count; ++f) buffers_[f].resize(batch_rows * record_bytes(f));
  }

  bool batch(std::size_t first, std::size_t rows) {
    for (std::size_t f = 0; f < file_count; ++f) {
      if (!read_at(files_.fd[f], buffers_[f].data(), rows * record_bytes(f), first * record_bytes(f))) return false;
    }
    for (std::size_t r0 = 0; r0 < rows; r0 += 8) {
      const std::size_t n = std::min<std::size_t>(8, rows - r0);
      finish<0, &cmpr_equal_layer_cube_group::gft_a>(first, r0, n, nullptr, 0.0f);
      finish<1, &cmpr_equal_layer_cube_group::gft_b>(first, r0, n, &loader_.b_totals, 8.0f);
      finish<2, &cmpr_equal_layer_cube_group::gft_is_z>(first, r0, n, nullptr, 0.0f);
      finish<3, &cmpr_equal_layer_cube_group::gft_is_xy_a>(first, r0, n, nullptr, 0.0f);
      finish<4, &cmpr_equal_layer_cube_group::gft_is_xy_b>(first, r0, n, &loader_.xy_b_totals, 4.0f);
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
  void finish(std::size_t first, std::size_t r0, std::size_t n, std::vector<double>* totals, float scale) {
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
      for (std::size_t k = 0; k < n; ++k) totals->push_back(static_cast<double>(sum[k] * scale));
    }
  }

  const file_set& files_;
  cmpr_equal_layer_cube_group* const* owners_;
  table_loader& loader_;
  std::vector<char> buffers_[file_count];
  float scratch_[8][cmpr_equal_layer_cube_group::gft_is_z_size];
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
  loader.b_totals.reserve(old_b + row_count);
  loader.xy_b_totals.reserve(old_xy_b + row_count);

  // owners[row]: the group the row made, null where an earlier row made it.
  // A batch's entries are published by `made` once its groups stand.
  std::vector<cmpr_equal_layer_cube_group*> owners(row_count, nullptr);
  std::atomic<std::size_t> made{0};
  std::atomic<bool> failed{false};
  auto reader = std::make_unique<finisher>(files, owners.data(), loader);
  auto follow = [&] {
    for (std::size_t first = 0; first < row_count; first += batch_rows) {
      const std::size_t rows = std::min(batch_rows, row_count - first);
      for (std::size_t now = made.load(std::memory_order_acquire); now < first + rows;
           now = made.load(std::memory_order_acquire))
        made.wait(now, std::memory_order_acquire);
      if (failed.load(std::memory_order_relaxed)) return;
      if (!reader->batch(first, rows)) {
        failed.store(true, std::memory_order_relaxed);
        return;
      }
    }
  };

  // The follower runs while this thread makes the groups; if making them
  // throws, it is stopped and joined before anything it uses goes.
  struct follower_thread {
    std::thread thread;
    std::atomic<std::size_t>& made;
    std::atomic<bool>& failed;
    ~follower_thread() {
      if (!thread.joinable()) return;
      failed.store(true, std::memory_order_relaxed);
      made.store(row_count, std::memory_order_release);
      made.notify_one();
      thread.join();
    }
  } follower{std::thread(), made, failed};
  if (threaded) follower.thread = std::thread(follow);

  const compressed_grid grid;
  for (std::size_t row = 0; row < row_count; ++row) {
    const diel_tuple<4> key = grid.key(row);
    auto [it, inserted] = store.groups.try_emplace(key);
    if (inserted) owners[row] = &it->second;
    store.order.push_back(&it->second);
    loader.mix.push_back(mixing_weight(key));
    if ((row + 1) % batch_rows == 0 || row + 1 == row_count) {
      made.store(row + 1, std::memory_order_release);
      made.notify_one();
    }
  }
  if (threaded) {
    follower.thread.join();
  } else {
    follow();
  }
  if (!failed.load()) return true;

  // Undo, so that the staged reader finds the store and the loader as they were.
  for (std::size_t row = 0; row < row_count; ++row) {
    if (owners[row] != nullptr) store.groups.erase(grid.key(row));
  }
  store.order.resize(old_order);
  loader.mix.resize(old_mix);
  loader.b_totals.resize(old_b);
  loader.xy_b_totals.resize(old_xy_b);
  return false;
}

}  // namespace torva::internal
