// Group loading of the Multiple and approximate table sets: file names, the
// loading line, and the bracketing of interface ratios on the ratio grid.
#include "torva/tables/table_loader.h"

#include <algorithm>
#include <cstdio>
#include <cstdlib>
#include <map>
#include <type_traits>

#include "torva/foundation/errors.h"
#include "torva/foundation/logger.h"
#include "torva/tables/internal/stack.h"

namespace torva {

double diel_ratios[diel_ratio_count];

void fill_diel_ratios(unsigned mode) {
  diel_ratios[0] = 0.02;
  for (int i = 1; i < diel_ratio_count; ++i) {
    diel_ratios[i] = mode == 4 ? diel_ratios[i - 1] * 1.0813826568002933 : diel_ratios[i - 1] + 0.02;
  }
  diel_ratios[diel_ratio_count - 1] = 1.0;
}

namespace {

constexpr std::size_t name_size = 1024;

// File stems of the three-file group kinds, in loading order (gft_is, gft,
// wvt_is), and the constant that ends their names.
template <class G>
struct group_files;

template <>
struct group_files<two_layer_cube_group> {
  static constexpr const char* stems[3] = {"GFT/NumGFT_IS", "GFT/NumGFT", "WVT/NumWVT_IS"};
  static constexpr int number = 23;
};

template <>
struct group_files<half_layer_cube_group> {
  static constexpr const char* stems[3] = {"GFT/hNumGFT_IS", "GFT/hNumGFT", "WVT/hNumWVT_IS"};
  static constexpr int number = 23;
};

template <>
struct group_files<three_layer_cube_group> {
  static constexpr const char* stems[3] = {"GFT/NumGFT_IS", "GFT/NumGFT", "WVT/NumWVT_IS"};
  static constexpr int number = 24;
};

void compose(char (&name)[name_size], const std::string& prefix, const char* stem, const diel_tuple<2>& key,
             int number) {
  std::snprintf(name, name_size, "%sMultiple/%s%g_%g_%d.db", prefix.c_str(), stem, key[0], key[1], number);
}

void compose(char (&name)[name_size], const std::string& prefix, const char* stem, const diel_tuple<3>& key,
             int number) {
  std::snprintf(name, name_size, "%sMultiple/%s%g_%g_%g_%d.db", prefix.c_str(), stem, key[0], key[1], key[2],
                number);
}

template <std::size_t N>
void log_loading(const diel_tuple<N>& key) {
  sea::writer& info = *logger::instance().info;
  info.print("loading table: ").print("(");
  for (std::size_t i = 0; i < N; ++i) {
    if (i != 0) info.print(", ");
    info.format("%.12f", key[i]);
  }
  info.print(")").write('\n').flush();
}

[[noreturn]] void refuse_ratio() {
  logger::instance().error->print("ERROR: diel ratio not supported.").write('\n').flush();
  throw sea::fatal_error("SYSTEM ERROR. \n");
}

}  // namespace

namespace internal {

long stack_size(const dielectric_layers* layers) {
  if (layers == nullptr) return 0;
  const long n = static_cast<long>(layers->layer_slots.size());
  // Interfaces read diels up to index n - 7.
  if (n >= 13 && static_cast<long>(layers->diels.size()) < n - 6) {
    logger::instance().error->print("ERROR: dielectric stack shorter than its layer slots.").write('\n').flush();
    throw sea::fatal_error("SYSTEM ERROR. \n");
  }
  return n;
}

}  // namespace internal

template <class G, std::size_t N>
void table_loader::load_group(G& group, const std::string& prefix, const diel_tuple<N>& key) {
  log_loading(key);
  char name[name_size];
  if constexpr (std::is_same_v<G, four_layer_cube_group>) {
    std::snprintf(name, name_size, "%sMultiple/GFT/NumGFT%g_%g_%g_%g_%d.db", prefix.c_str(), key[0], key[1], key[2],
                  key[3], 24);
    load_file(group.gft, name);
  } else {
    using files = group_files<G>;
    compose(name, prefix, files::stems[0], key, files::number);
    load_file(group.gft_is, name);
    compose(name, prefix, files::stems[1], key, files::number);
    load_file(group.gft, name);
    compose(name, prefix, files::stems[2], key, files::number);
    load_file(group.wvt_is, name);
  }
}

template <class Store>
void table_loader::load_approx2(Store& store, const std::string& prefix) {
  logger::instance().info->print("in load_approx2").write('\n').flush();
  const long n = internal::stack_size(layers);
  if (n > 12) {
    pair_index->reserve(static_cast<std::size_t>(n - 12));
    pair_weight->reserve(static_cast<std::size_t>(n - 12));
  }
  if (n <= 12) return;
  const std::vector<double>& diels = layers->diels;
  std::map<long, unsigned long> seen;  // grid index -> position in order
  unsigned long next = 0;
  for (long i = 5; i <= n - 8; ++i) {
    double ratio = diels[i + 1] / diels[i];
    bool swapped = false;
    if (ratio > 1.0) {
      ratio = 1.0 / ratio;
      swapped = true;
    }
    // Not-a-number is refused too: it has no place on the grid.
    if (!(ratio > 0.02)) refuse_ratio();
    const double* hit = std::lower_bound(diel_ratios, diel_ratios + diel_ratio_count, ratio);
    const long hi = hit - diel_ratios;
    // Only an unfilled grid leaves the ratio outside it.
    if (hi == 0 || hi == diel_ratio_count) refuse_ratio();
    const long lo = hi - 1;
    double t = (ratio - diel_ratios[lo]) / (diel_ratios[hi] - diel_ratios[lo]);
    if (swapped) t = -t;
    pair_weight->push_back(t);
    if (auto it = seen.find(lo); it != seen.end()) {
      pair_index->push_back(it->second);
      continue;
    }
    for (long g = lo; g <= lo + 1; ++g) {
      const diel_tuple<2> key{{1.0, diel_ratios[g]}};
      auto [it, inserted] = store.groups.try_emplace(key);
      if (inserted) load_group(it->second, prefix, key);
      store.order.push_back(&it->second);
    }
    pair_index->push_back(next);
    seen.emplace(lo, next);
    next += 2;
  }
}

template void table_loader::load_group(two_layer_cube_group&, const std::string&, const diel_tuple<2>&);
template void table_loader::load_group(half_layer_cube_group&, const std::string&, const diel_tuple<2>&);
template void table_loader::load_group(three_layer_cube_group&, const std::string&, const diel_tuple<3>&);
template void table_loader::load_group(four_layer_cube_group&, const std::string&, const diel_tuple<4>&);
template void table_loader::load_approx2(two_layer_database&, const std::string&);
template void table_loader::load_approx2(half_layer_database&, const std::string&);

}  // namespace torva
