// table_loader::load_approxc: the compressed set of four-value groups, six
// files of 13718 rows each spread over the groups of a 19-value grid; and its
// staged reader, which holds each file whole in a staging array first.
#include <algorithm>
#include <cstdlib>
#include <cstring>
#include <string>
#include <thread>
#include <vector>

#include "torva/foundation/logger.h"
#include "torva/tables/internal/compressed_set.h"
#include "torva/tables/internal/table_reading.h"
#include "torva/tables/table_loader.h"

namespace torva {

namespace internal {

namespace {

constexpr std::size_t row_count = compressed_rows;

// Frees the raw block of a file on every way out; the block lives only while
// its rows are copied.
struct raw_block {
  ~raw_block() { std::free(data); }
  char* data = nullptr;
};

// Reads one compressed file into a fresh staging array of row_count rows.
// Rows of the distribution kinds are staged already finished (finish_rows),
// since a group holds them only in that form. For the kinds whose totals are
// kept, each row's total (the last running sum, the same single-precision sum
// as adding the row up) times `scale` is appended to `totals`. Weight rows are
// staged as they are.
template <class F>
void stage(table_loader& loader, const std::string& path, float*& staging, std::vector<double>* totals,
           float scale) {
  constexpr std::size_t size = F::row_size;
  constexpr std::size_t record = F::float_file_bytes;
  raw_block raw;
  loader.preload_approx<F>(static_cast<int>(row_count), raw.data, path.c_str());
  delete[] staging;
  staging = nullptr;
  staging = new float[row_count * size];
  if (totals != nullptr) totals->reserve(totals->size() + row_count);
  const char* first = raw.data + F::header;
  if constexpr (F::type == absolute_table) {
    for (std::size_t r = 0; r < row_count; ++r) {
      std::memcpy(staging + r * size, first + r * record, size * sizeof(float));
    }
  } else {
    for (std::size_t r0 = 0; r0 < row_count; r0 += 8) {
      const std::size_t rows = std::min<std::size_t>(8, row_count - r0);
      float* out[8];
      float sum[8];
      for (std::size_t k = 0; k < rows; ++k) out[k] = staging + (r0 + k) * size;
      finish_rows<size>(first + r0 * record, record, rows, out, sum);
      if (totals != nullptr) {
        for (std::size_t k = 0; k < rows; ++k) totals->push_back(static_cast<double>(sum[k] * scale));
      }
    }
  }
}

template <std::size_t Size>
void take_row(float (&into)[Size], const float* staging, std::size_t row) {
  std::memcpy(into, staging + row * Size, Size * sizeof(float));
}

}  // namespace

void load_compressed_staged(table_loader& loader, cmpr_equal_layer_database& store, const std::string& dir) {
  stage<cmpr_gft_a_record>(loader, dir + "GFT/NumGFT_A.db", loader.raw_a, nullptr, 0.0f);
  stage<cmpr_gft_b_record>(loader, dir + "GFT/NumGFT_B.db", loader.raw_b, &loader.b_totals, 8.0f);
  stage<cmpr_gft_is_z_record>(loader, dir + "GFT/NumGFT_IS_Z.db", loader.raw_z, nullptr, 0.0f);
  stage<cmpr_gft_is_xy_a_record>(loader, dir + "GFT/NumGFT_IS_XY_A.db", loader.raw_xy_a, nullptr, 0.0f);
  stage<cmpr_gft_is_xy_b_record>(loader, dir + "GFT/NumGFT_IS_XY_B.db", loader.raw_xy_b, &loader.xy_b_totals, 4.0f);
  stage<cmpr_wvt_is_record>(loader, dir + "WVT/NumWVT_IS.db", loader.raw_wvt, nullptr, 0.0f);

  const compressed_grid grid;
  store.groups.reserve(store.groups.size() + row_count);
  store.order.reserve(store.order.size() + row_count);
  loader.mix.reserve(loader.mix.size() + row_count);
  for (std::size_t row = 0; row < row_count; ++row) {
    // One of the first two values is always 1; where r[j] is 1 too, the
    // second half repeats a key of the first and its row goes unused.
    const diel_tuple<4> key = grid.key(row);
    auto [it, inserted] = store.groups.try_emplace(key);
    cmpr_equal_layer_cube_group& group = it->second;
    if (inserted) {
      take_row(group.gft_is_xy_a, loader.raw_xy_a, row);
      take_row(group.gft_is_xy_b, loader.raw_xy_b, row);
      take_row(group.gft_is_z, loader.raw_z, row);
      take_row(group.gft_a, loader.raw_a, row);
      take_row(group.gft_b, loader.raw_b, row);
      std::memcpy(group.weights, loader.raw_wvt + row * 2, sizeof group.weights);
      make_absolute(group.weights, 2);
    }
    store.order.push_back(&group);
    loader.mix.push_back(mixing_weight(key));
  }
  for (float** staging : {&loader.raw_a, &loader.raw_b, &loader.raw_z, &loader.raw_wvt, &loader.raw_xy_a,
                          &loader.raw_xy_b}) {
    delete[] *staging;
    *staging = nullptr;
  }
}

}  // namespace internal

void table_loader::load_approxc(cmpr_equal_layer_database& store, const std::string& prefix) {
  logger::instance().info->print("in load_approxc").write('\n').flush();
  const std::string dir = prefix + "Approx4equal/";
  const bool threaded = std::thread::hardware_concurrency() > 1;
  if (!internal::load_compressed_direct(*this, store, dir, threaded)) internal::load_compressed_staged(*this, store, dir);
}

table_loader::~table_loader() {
  for (float* staging : {raw_a, raw_b, raw_z, raw_wvt, raw_xy_a, raw_xy_b}) delete[] staging;
}

}  // namespace torva
