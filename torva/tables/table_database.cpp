// table_database::load: which tables a run needs, by table mode and stack.
#include "torva/tables/table_database.h"

#include <string>
#include <utility>

#include "torva/foundation/logger.h"
#include "torva/foundation/path.h"
#include "torva/tables/internal/stack.h"
#include "torva/tables/table_loader.h"

namespace torva {

namespace {

// Multiple family: every run of N consecutive layers of the stack (diels[i]
// onward, i from 5) is one use of the group keyed by their values; each
// distinct key is loaded once.
template <class G, std::size_t N>
void load_runs(table_loader& loader, group_database<G, N>& store, const std::string& prefix, long n,
               const std::vector<double>& diels) {
  for (long i = 5; i <= n - 6 - static_cast<long>(N); ++i) {
    diel_tuple<N> key;
    for (std::size_t e = 0; e < N; ++e) key[e] = diels[i + e];
    auto [it, inserted] = store.groups.try_emplace(key);
    if (inserted) loader.load_group(it->second, prefix, key);
    store.order.push_back(&it->second);
  }
}

}  // namespace

void table_database::load(const configure& config, const dielectric_layers& layers, bool force) {
  table_loader loader(&layers, &pair_index, &pair_weight);
  std::string prefix = sea::path::join(config.table_dir, "");
  first_group.fill_first_table();
  if (config.walk_scheme > 2 || config.table_mode == 0) return;
  if (layers.diels.size() < 12 && !force) return;

  if (config.table_mode == 3) {
    prefix = sea::path::join(config.table_dir_equal, "");
    loader.load_approxc(cmpr_equal_layer, prefix);
    std::swap(loader.xy_b_totals, xy_b_totals);
    std::swap(loader.b_totals, b_totals);
    std::swap(loader.mix, mix);
    init_look_up_tables();
    return;
  }

  if (config.table_mode == 4 || config.table_mode == 5) {
    prefix = sea::path::join(config.table_dir_two, "");
    fill_diel_ratios(config.table_mode);
    loader.load_approx2(two_layer, prefix);
    loader.load_approx2(half_layer, prefix);
    return;
  }

  const long n = internal::stack_size(&layers);
  prefix = sea::path::join(config.table_dir_two, "");
  if (n != 12) {
    load_runs(loader, two_layer, prefix, n, layers.diels);
    load_runs(loader, half_layer, prefix, n, layers.diels);
  }
  if (config.table_mode == 1) return;
  prefix = sea::path::join(config.table_dir_multi, "");
  if (n - 12 >= 2) load_runs(loader, three_layer, prefix, n, layers.diels);
  if (n - 12 >= 3) load_runs(loader, four_layer, prefix, n, layers.diels);
  logger::instance().info->format("table_path:%s", prefix.c_str()).write('\n').flush();
}

}  // namespace torva
