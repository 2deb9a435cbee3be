// table_loader::load_approxc: the compressed set of four-value groups, six
// files of 13718 rows each spread over the groups of a 19-value grid.
#include <algorithm>
#include <cstdlib>
#include <cstring>
#include <string>
#include <vector>

#include "torva/foundation/logger.h"
#include "torva/tables/internal/table_reading.h"
#include "torva/tables/table_loader.h"

namespace torva {

namespace {

constexpr int grid_size = 19;
constexpr int row_count = 2 * grid_size * grid_size * grid_size;  // 13718

// Frees the raw block of a file on every way out; the block lives only while
// its rows are copied.
struct raw_block {
  ~raw_block() { std::free(data); }
  char* data = nullptr;
};

// Reads one compressed file into a fresh staging array of row_count rows.
// Rows of the distribution kinds are staged already finished (running
// single-precision sum, divided by the total, last element 1), since a group
// holds them only in that form; the running sums of eight rows are kept at
// once, which hides the latency of the additions in the long chain of one
// row. For the kinds whose totals are kept, each row's total (the last
// running sum, the same single-precision sum as adding the row up) times
// `scale` is appended to `totals`. Weight rows are staged as they are.
template <class F>
void stage(table_loader& loader, const std::string& path, float*& staging, std::vector<double>* totals,
           float scale) {
  constexpr std::size_t size = F::row_size;
  constexpr std::size_t record = F::float_file_bytes;
  raw_block raw;
  loader.preload_approx<F>(row_count, raw.data, path.c_str());
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
    constexpr std::size_t block = 8;
    for (std::size_t r0 = 0; r0 < row_count; r0 += block) {
      const std::size_t rows = std::min(block, row_count - r0);
      float sum[block] = {};
      const char* in = first + r0 * record;
      float* out = staging + r0 * size;
      if (rows == block) {
        for (std::size_t i = 0; i < size; ++i) {
          for (std::size_t k = 0; k < block; ++k) {
            float v;
            std::memcpy(&v, in + k * record + i * sizeof(float), sizeof v);
            sum[k] += v;
            out[k * size + i] = sum[k];
          }
        }
      } else {
        for (std::size_t i = 0; i < size; ++i) {
          for (std::size_t k = 0; k < rows; ++k) {
            float v;
            std::memcpy(&v, in + k * record + i * sizeof(float), sizeof v);
            sum[k] += v;
            out[k * size + i] = sum[k];
          }
        }
      }
      for (std::size_t k = 0; k < rows; ++k) {
        if (totals != nullptr) totals->push_back(static_cast<double>(sum[k] * scale));
        float* row = out + k * size;
        const float total = sum[k];
        for (std::size_t i = 0; i < size; ++i) row[i] /= total;
        row[size - 1] = 1.0f;
      }
    }
  }
}

template <std::size_t Size>
void take_row(float (&into)[Size], const float* staging, std::size_t row) {
  std::memcpy(into, staging + row * Size, Size * sizeof(float));
}

}  // namespace

void table_loader::load_approxc(cmpr_equal_layer_database& store, const std::string& prefix) {
  logger::instance().info->print("in load_approxc").write('\n').flush();
  const std::string dir = prefix + "Approx4equal/";
  stage<cmpr_gft_a_record>(*this, dir + "GFT/NumGFT_A.db", raw_a, nullptr, 0.0f);
  stage<cmpr_gft_b_record>(*this, dir + "GFT/NumGFT_B.db", raw_b, &b_totals, 8.0f);
  stage<cmpr_gft_is_z_record>(*this, dir + "GFT/NumGFT_IS_Z.db", raw_z, nullptr, 0.0f);
  stage<cmpr_gft_is_xy_a_record>(*this, dir + "GFT/NumGFT_IS_XY_A.db", raw_xy_a, nullptr, 0.0f);
  stage<cmpr_gft_is_xy_b_record>(*this, dir + "GFT/NumGFT_IS_XY_B.db", raw_xy_b, &xy_b_totals, 4.0f);
  stage<cmpr_wvt_is_record>(*this, dir + "WVT/NumWVT_IS.db", raw_wvt, nullptr, 0.0f);

  double r[grid_size];
  for (int i = 0; i < 9; ++i) r[i] = i * 0.05 + 0.1;
  for (int i = 0; i < 10; ++i) r[9 + i] = i * 0.05 + 0.55;

  store.groups.reserve(store.groups.size() + row_count);
  store.order.reserve(store.order.size() + row_count);
  mix.reserve(mix.size() + row_count);
  std::size_t row = 0;
  for (int pos = 0; pos < 2; ++pos) {
    for (int j = 0; j < grid_size; ++j) {
      for (int k = 0; k < grid_size; ++k) {
        for (int l = 0; l < grid_size; ++l, ++row) {
          // One of the first two values is always 1; where r[j] is 1 too, the
          // second half repeats a key of the first and its row goes unused.
          const diel_tuple<4> key = pos == 0 ? diel_tuple<4>{{1.0, r[j], r[k], r[l]}}
                                             : diel_tuple<4>{{r[j], 1.0, r[k], r[l]}};
          auto [it, inserted] = store.groups.try_emplace(key);
          cmpr_equal_layer_cube_group& group = it->second;
          if (inserted) {
            take_row(group.gft_is_xy_a, raw_xy_a, row);
            take_row(group.gft_is_xy_b, raw_xy_b, row);
            take_row(group.gft_is_z, raw_z, row);
            take_row(group.gft_a, raw_a, row);
            take_row(group.gft_b, raw_b, row);
            std::memcpy(group.weights, raw_wvt + row * 2, sizeof group.weights);
            internal::make_absolute(group.weights, 2);
          }
          store.order.push_back(&group);
          const double k0 = key[0], k1 = key[1], k2 = key[2], k3 = key[3];
          mix.push_back(1 / ((k3 * k2) * (k0 + k1) / (k0 * k1 * (k3 + k2)) + 1));
        }
      }
    }
  }
  for (float** staging : {&raw_a, &raw_b, &raw_z, &raw_wvt, &raw_xy_a, &raw_xy_b}) {
    delete[] *staging;
    *staging = nullptr;
  }
}

table_loader::~table_loader() {
  for (float* staging : {raw_a, raw_b, raw_z, raw_wvt, raw_xy_a, raw_xy_b}) delete[] staging;
}

}  // namespace torva
