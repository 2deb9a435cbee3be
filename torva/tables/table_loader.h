// The readers of table files and the drivers that fill the stores of a
// table_database. A table_loader lives on the stack for one run of loading.
//
// Opening a table file: the path as given, and failing that the same path
// looked up under the home directory, from its "Torva_tables" component on
// (or the whole path when it has none). Without "HOME" in the environment the
// second try is skipped and the failure is the ordinary cannot-open failure.
// Files are opened with fopen and held by a shared handle with file_deleter,
// not through sea::file_pool: a table file is read once and closed at once,
// while the pool keeps its streams for the life of the process.
//
// A read that comes up short without the system naming a cause reports
// strerror(EIO) rather than "Success".
#pragma once

#include <string>
#include <vector>

#include "torva/foundation/errors.h"
#include "torva/tables/dielectric_layers.h"
#include "torva/tables/diel_tuple.h"
#include "torva/tables/table_groups.h"

namespace torva {

// The ratio grid of the approximate modes, filled by table_database::load.
// Ascending, except that in the linear grid entry 49 (the sum of 50 steps of
// 0.02) lies one unit in the last place above entry 50, which is exactly 1.
inline constexpr int diel_ratio_count = 51;
extern double diel_ratios[diel_ratio_count];

// Fills diel_ratios for table mode 4 (geometric, factor 50^(1/50)) or any
// other value (linear, steps of 0.02), and sets entry 50 to 1.0.
void fill_diel_ratios(unsigned mode);

struct table_loader {
  table_loader(const dielectric_layers* layers, std::vector<unsigned long>* pair_index,
               std::vector<double>* pair_weight)
      : layers(layers), pair_index(pair_index), pair_weight(pair_weight) {}
  ~table_loader();  // returns any staging array still held
  table_loader(const table_loader&) = delete;
  table_loader& operator=(const table_loader&) = delete;

  // Reads one table file into `table` and finishes it by the kind's type code:
  // rows of cumulative kinds become distributions ending on exactly 1.0, and
  // absolute kinds lose their signs. The float form is read in place; a file
  // of the double form's length is narrowed. Any other length is refused
  // (sea::file_error "iSYSTEM ERROR. "); a missing file throws sea::file_error
  // with the message printed; a failed system call throws sea::fatal_error.
  template <class F>
  void load_file(F& table, const char* path);

  // Reads a compressed file of n records of kind F whole into a new block
  // from malloc, which the caller frees. `buffer` must come in null: the
  // process ends with status 1 otherwise, and also when the block can't be
  // allocated.
  template <class F>
  void preload_approx(int n, char*& buffer, const char* path);

  // Loads the files of a group of the Multiple family named by key, under
  // prefix + "Multiple/", after the "loading table: " line: gft_is, gft and
  // wvt_is for the two-layer, half-layer and three-layer kinds, the one gft
  // file for the four-layer kind.
  template <class G, std::size_t N>
  void load_group(G& group, const std::string& prefix, const diel_tuple<N>& key);

  // Brackets the ratio of each interface of the stack between two groups of
  // the grid diel_ratios, loading each grid group once, and appends to
  // pair_index and pair_weight. A ratio at or below 0.02 (or not a number) is
  // refused with sea::fatal_error.
  template <class Store>
  void load_approx2(Store& store, const std::string& prefix);

  // Reads the six compressed files under prefix + "Approx4equal/" and spreads
  // their 13718 rows over the groups of the 19-value grid, filling b_totals,
  // xy_b_totals and mix on the way.
  void load_approxc(cmpr_equal_layer_database& store, const std::string& prefix);

  const dielectric_layers* layers;
  std::vector<unsigned long>* pair_index;
  std::vector<double>* pair_weight;
  // Staging arrays of the compressed set: 13718 rows each.
  float* raw_a = nullptr;
  float* raw_b = nullptr;
  float* raw_z = nullptr;
  float* raw_wvt = nullptr;
  float* raw_xy_a = nullptr;
  float* raw_xy_b = nullptr;
  std::vector<double> xy_b_totals;
  std::vector<double> b_totals;
  std::vector<double> mix;
};

}  // namespace torva
