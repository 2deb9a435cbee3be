// Table groups: the tables that serve one tuple of dielectric values, and the
// stores that own them.
#pragma once

#include <cstddef>
#include <unordered_map>
#include <vector>

#include "torva/tables/diel_tuple.h"
#include "torva/tables/table_file.h"

namespace torva {

// One store of groups of kind G keyed by N values. The map owns the groups;
// its nodes never move, so a group's address is fixed once inserted. `order`
// holds one pointer per use, in order of use, and may name a group many times.
template <class G, std::size_t N>
struct group_database {
  using group_type = G;
  using key_type = diel_tuple<N>;
  static constexpr std::size_t key_size = N;

  std::unordered_map<diel_tuple<N>, G, sea::hash<diel_tuple<N>>> groups;
  std::vector<G*> order;
};

// Groups are plain aggregates: a freshly inserted group is value-initialised,
// which makes every table zero until its file arrives.

struct two_layer_cube_group {
  two_layer_wvt_is_table wvt_is;
  two_layer_gft_table gft;
  two_layer_gft_is_table gft_is;
};

struct half_layer_cube_group {
  half_layer_wvt_is_table wvt_is;
  half_layer_gft_table gft;
  half_layer_gft_is_table gft_is;
};

struct three_layer_cube_group {
  three_layer_wvt_is_table wvt_is;
  three_layer_gft_table gft;
  three_layer_gft_is_table gft_is;
};

struct four_layer_cube_group {
  four_layer_gft_table gft;
};

// A four-value group of the compressed set: rows taken from six shared files.
// The five rows are cumulative distributions, the two weights absolute values.
struct cmpr_equal_layer_cube_group {
  static constexpr std::size_t weights_size = 2;
  static constexpr std::size_t gft_b_size = 144;
  static constexpr std::size_t gft_a_size = 150;
  static constexpr std::size_t gft_is_z_size = 444;
  static constexpr std::size_t gft_is_xy_b_size = 288;
  static constexpr std::size_t gft_is_xy_a_size = 288;

  float weights[weights_size];          // from NumWVT_IS
  float gft_b[gft_b_size];              // the NumGFT_B row
  float gft_a[gft_a_size];              // the NumGFT_A row
  float gft_is_z[gft_is_z_size];        // the z row, from NumGFT_IS_Z
  float gft_is_xy_b[gft_is_xy_b_size];  // the XY_B row, from NumGFT_IS_XY_B
  float gft_is_xy_a[gft_is_xy_a_size];  // the XY_A row, from NumGFT_IS_XY_A
};

using two_layer_database = group_database<two_layer_cube_group, 2>;
using half_layer_database = group_database<half_layer_cube_group, 2>;
using three_layer_database = group_database<three_layer_cube_group, 3>;
using four_layer_database = group_database<four_layer_cube_group, 4>;
using cmpr_equal_layer_database = group_database<cmpr_equal_layer_cube_group, 4>;

}  // namespace torva
