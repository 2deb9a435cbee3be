// The compressed table set: its value grid, the key and mixing weight of each
// row, and its two readers. Both readers give the same groups, row vectors and
// messages; the direct one reads each file's rows straight into the groups.
#pragma once

#include <cstddef>
#include <cstring>
#include <string>

#include "torva/tables/table_groups.h"
#include "torva/tables/table_loader.h"

namespace torva::internal {

inline constexpr int compressed_grid_size = 19;
inline constexpr std::size_t compressed_rows = 2 * 19 * 19 * 19;  // 13718

// The 19 values of the grid: 0.1 to 0.5, then 0.55 to 1.0, by 0.05.
struct compressed_grid {
  double r[compressed_grid_size];
  compressed_grid() {
    for (int i = 0; i < 9; ++i) r[i] = i * 0.05 + 0.1;
    for (int i = 0; i < 10; ++i) r[9 + i] = i * 0.05 + 0.55;
  }

  // Row ((pos * 19 + j) * 19 + k) * 19 + l: (1, r[j], r[k], r[l]) for pos 0,
  // (r[j], 1, r[k], r[l]) for pos 1.
  diel_tuple<4> key(std::size_t row) const {
    const std::size_t pos = row / (19 * 19 * 19), j = row / (19 * 19) % 19, k = row / 19 % 19, l = row % 19;
    return pos == 0 ? diel_tuple<4>{{1.0, r[j], r[k], r[l]}} : diel_tuple<4>{{r[j], 1.0, r[k], r[l]}};
  }
};

// The share of the upper pair of layers in series with the lower pair.
inline double mixing_weight(const diel_tuple<4>& key) {
  const double k0 = key[0], k1 = key[1], k2 = key[2], k3 = key[3];
  return 1 / ((k3 * k2) * (k0 + k1) / (k0 * k1 * (k3 + k2)) + 1);
}

// The six files under the set's folder, in reading order, with their row sizes.
struct compressed_file {
  const char* name;
  std::size_t row_size;
};
inline constexpr compressed_file compressed_files[6] = {
    {"GFT/NumGFT_A.db", cmpr_equal_layer_cube_group::gft_a_size},
    {"GFT/NumGFT_B.db", cmpr_equal_layer_cube_group::gft_b_size},
    {"GFT/NumGFT_IS_Z.db", cmpr_equal_layer_cube_group::gft_is_z_size},
    {"GFT/NumGFT_IS_XY_A.db", cmpr_equal_layer_cube_group::gft_is_xy_a_size},
    {"GFT/NumGFT_IS_XY_B.db", cmpr_equal_layer_cube_group::gft_is_xy_b_size},
    {"WVT/NumWVT_IS.db", cmpr_equal_layer_cube_group::weights_size}};
inline constexpr std::size_t compressed_header = 36;

// Finishes up to eight rows of Size floats, row k read at in + k * stride
// (unaligned) and written to out[k]: the running single-precision sum, divided
// by the row's total, the last element exactly 1. totals[k] gets the total,
// the last running sum. Eight sums are kept at once, which hides the latency
// of the additions in the long chain of one row.
template <std::size_t Size>
void finish_rows(const char* in, std::size_t stride, std::size_t rows, float* const* out, float* totals) {
  constexpr std::size_t most = 8;
  float sum[most] = {};
  if (rows == most) {
    // Unrolled, so that the eight sums stay in registers.
    for (std::size_t i = 0; i < Size; ++i) {
#pragma GCC unroll 8
      for (std::size_t k = 0; k < most; ++k) {
        float v;
        std::memcpy(&v, in + k * stride + i * sizeof(float), sizeof v);
        sum[k] += v;
        out[k][i] = sum[k];
      }
    }
  } else {
    for (std::size_t i = 0; i < Size; ++i) {
      for (std::size_t k = 0; k < rows; ++k) {
        float v;
        std::memcpy(&v, in + k * stride + i * sizeof(float), sizeof v);
        sum[k] += v;
        out[k][i] = sum[k];
      }
    }
  }
  for (std::size_t k = 0; k < rows; ++k) {
    const float total = sum[k];
    float* row = out[k];
    for (std::size_t i = 0; i < Size; ++i) row[i] /= total;
    row[Size - 1] = 1.0f;
    totals[k] = total;
  }
}

// Each file whole into a staging array of the loader, then the rows spread
// over the groups. `dir` ends in "Approx4equal/".
void load_compressed_staged(table_loader& loader, cmpr_equal_layer_database& store, const std::string& dir);

// The rows of the six files read in batches straight into the groups, with
// `threaded` the work shared with a second thread. False, with
// the store and the loader as they were, when a file is not a plain file of
// its length at its path or a read fails: the staged reader then takes over,
// and says what it finds.
bool load_compressed_direct(table_loader& loader, cmpr_equal_layer_database& store, const std::string& dir,
                            bool threaded);

}  // namespace torva::internal
