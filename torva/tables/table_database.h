// The single store of all tables of a run. The client builds it empty, calls
// load once, and from then on every walker thread reads it without a lock.
#pragma once

#include <cstddef>
#include <cstdint>
#include <vector>

#include "torva/foundation/configure.h"
#include "torva/foundation/errors.h"
#include "torva/tables/dielectric_layers.h"
#include "torva/tables/table_groups.h"

namespace torva {

class table_database {
 public:
  // The first table: the cumulative distribution of a walk step from the
  // centre of a homogeneous cube over the 32 x 32 cells of a quarter face,
  // cell e at row e / 32, column e % 32. A constant of the library.
  struct single_oct_face_group {
    static constexpr std::size_t size = 1024;
    void fill_first_table();
    double first_table[size];
  };

  // Takes the tables the run needs, by configure::table_mode and the stack.
  // `force` goes on with an empty stack, which serves the compressed set.
  // Failures are thrown as sea::file_error or sea::fatal_error; whatever was
  // loaded before the failure stays.
  void load(const configure& config, const dielectric_layers& layers, bool force);

  // Computes the lookup tables and index maps below, each brought to its
  // exact size whatever it held before.
  void init_look_up_tables();

  // Surface points (x, y, z) of the cells of the first table, 1024 x 24 x 3:
  // the 24 images of each cell in the 24 quarter faces of the cube.
  std::vector<std::vector<std::vector<double>>> first_lookup;
  // Points of the cells of a compressed z row, 444 x 8 x 3.
  std::vector<std::vector<std::vector<double>>> cmprz_lookup;
  // Points of the cells of a compressed XY row, 864 x 4 x 3.
  std::vector<std::vector<std::vector<double>>> cmprxy_lookup;
  std::vector<std::uint32_t> cmprz_flip_z;        // 444: z row mirrored in z
  std::vector<std::uint32_t> cmprxy_flip_z;       // 288: XY row cell to its z-mirror in cmprxy_lookup
  std::vector<std::uint32_t> cmprxy_flip_rows;    // 288
  std::vector<std::uint32_t> cmprxy_swap_xy;      // 288
  std::vector<std::uint32_t> cmprxy_swap_halves;  // 288
  std::vector<double> xy_b_totals;  // per compressed row: XY_B row total times 4
  std::vector<double> b_totals;     // per compressed row: NumGFT_B row total times 8
  std::vector<double> mix;          // per compressed group use: mixing weight of its key
  // Approximate modes: for interface j, the groups order[pair_index[j]] and
  // order[pair_index[j] + 1] bracket its ratio; |pair_weight[j]| is the share
  // of the upper one and the sign tells a swapped interface.
  std::vector<unsigned long> pair_index;
  std::vector<double> pair_weight;

  single_oct_face_group first_group;
  two_layer_database two_layer;
  half_layer_database half_layer;
  three_layer_database three_layer;
  four_layer_database four_layer;
  cmpr_equal_layer_database cmpr_equal_layer;
};

}  // namespace torva
