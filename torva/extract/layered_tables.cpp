#include "torva/extract/layered_tables.h"

#include <algorithm>
#include <atomic>
#include <cerrno>
#include <cmath>
#include <cstdint>
#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <filesystem>
#include <stdexcept>
#include <thread>

#include "torva/extract/internal/layer_cells.h"
#include "torva/extract/internal/layered_cube.h"
#include "torva/extract/staged_file.h"
#include "torva/foundation/errors.h"
#include "torva/foundation/path.h"
#include "torva/tables/internal/table_reading.h"

namespace torva {
namespace {

constexpr std::size_t two_row = two_layer_gft_table::row_size;   // 3174
constexpr std::size_t half_row = half_layer_gft_table::row_size;  // 3456
constexpr int positions = internal::two_layer_positions;

// One cube's rows into the places of its position: the probabilities, then
// |d/dx0|, the positive and the negative part of d/dz0, and their totals.
void store(const internal::layered_cube_cells& c, float* gft, float* gft_is, float* wvt) {
  const std::size_t size = c.density.size();
  double totals[3] = {0, 0, 0};
  for (std::size_t e = 0; e < size; ++e) {
    // The extrapolation could in principle dip a vanishing cell below zero; a
    // cumulative row must not fall.
    gft[e] = float(std::max(c.density[e], 0.0));
    const double x = std::abs(c.dx[e]), up = std::max(c.dz[e], 0.0), down = std::max(-c.dz[e], 0.0);
    gft_is[e] = float(x);
    gft_is[size + e] = float(up);
    gft_is[2 * size + e] = float(down);
    totals[0] += x;
    totals[1] += up;
    totals[2] += down;
  }
  for (int r = 0; r < 3; ++r) wvt[r] = float(totals[r]);
}

void check(double below, double above, const table_generation& s) {
  if (!(below > 0) || !(above > 0) || !std::isfinite(below) || !std::isfinite(above))
    throw std::invalid_argument("permittivities must be positive and finite");
  if (s.refine < 2 || s.refine % 2 != 0 || s.refine > 64)
    throw std::invalid_argument("the grid refinement must be even, from 2 to 64");
}

struct file_part {
  const char* stem;
  std::uint32_t type;
  std::uint32_t count, size;
  const std::vector<float> layered_pair_tables::*rows;
};

const file_part parts[6] = {
    {"GFT/NumGFT_IS", cumulative_table, 66, two_row, &layered_pair_tables::gft_is},
    {"GFT/NumGFT", cumulative_table, 22, two_row, &layered_pair_tables::gft},
    {"WVT/NumWVT_IS", absolute_table, 22, 3, &layered_pair_tables::wvt_is},
    {"GFT/hNumGFT_IS", cumulative_table, 3, half_row, &layered_pair_tables::half_gft_is},
    {"GFT/hNumGFT", cumulative_table, 1, half_row, &layered_pair_tables::half_gft},
    {"WVT/hNumWVT_IS", absolute_table, 1, 3, &layered_pair_tables::half_wvt_is},
};

std::string file_name(const std::string& dir, const char* stem, double below, double above) {
  // As the loader composes it: the prefix is the folder with one slash.
  char name[1024];
  std::snprintf(name, sizeof name, "%sMultiple/%s%g_%g_%d.db", sea::path::join(dir, "").c_str(), stem, below, above, 23);
  return name;
}

}  // namespace

layered_pair_tables generate_layered_pair(double below, double above, const table_generation& settings) {
  check(below, above, settings);
  layered_pair_tables t;
  t.below = below;
  t.above = above;
  t.refine = settings.refine;
  t.gft.assign(positions * two_row, 0.0f);
  t.gft_is.assign(3 * positions * two_row, 0.0f);
  t.wvt_is.assign(3 * positions, 0.0f);
  t.half_gft.assign(half_row, 0.0f);
  t.half_gft_is.assign(3 * half_row, 0.0f);
  t.half_wvt_is.assign(3, 0.0f);

  // Jobs 0..21 are the two-layer positions, job 22 the half-layer cube.
  std::atomic<int> next{0};
  auto work = [&] {
    for (int job; (job = next.fetch_add(1)) <= positions;) {
      if (job < positions) {
        const internal::layered_cube_setup setup{internal::two_layer_cells, job + 1, below, above};
        store(internal::layered_cube_tables(setup, settings.refine, settings.extrapolate), &t.gft[std::size_t(job) * two_row],
              &t.gft_is[std::size_t(3 * job) * two_row], &t.wvt_is[std::size_t(3 * job)]);
      } else {
        const internal::layered_cube_setup setup{internal::half_layer_cells, internal::half_layer_cells / 2, below, above};
        store(internal::layered_cube_tables(setup, settings.refine, settings.extrapolate), t.half_gft.data(),
              t.half_gft_is.data(), t.half_wvt_is.data());
      }
    }
  };
  const int threads = std::clamp(settings.threads, 1, positions + 1);
  std::vector<std::thread> pool;
  for (int i = 1; i < threads; ++i) pool.emplace_back(work);
  work();
  for (std::thread& th : pool) th.join();
  return t;
}

std::vector<std::string> layered_pair_files(const std::string& dir, double below, double above) {
  std::vector<std::string> out;
  for (const file_part& p : parts) out.push_back(file_name(dir, p.stem, below, above));
  return out;
}

void write_layered_pair(const std::string& dir, const layered_pair_tables& tables) {
  for (const file_part& p : parts) {
    const std::string path = file_name(dir, p.stem, tables.below, tables.above);
    const std::vector<float>& rows = tables.*p.rows;
    if (rows.size() != std::size_t(p.count) * p.size) fail_to_write(path, "the table has the wrong size");
    std::error_code ec;
    std::filesystem::create_directories(std::filesystem::path(path).parent_path(), ec);
    if (ec) fail_to_write(path, "cannot make its folder: " + ec.message());
    staged_file staged(path);
    FILE* f = std::fopen(staged.temp_path().c_str(), "wb");
    if (f == nullptr) fail_to_write(path, std::strerror(errno));
    // The loader skips the header unread; it says what the file is to a reader.
    const std::uint32_t header[6] = {0x54565254u /* "TRVT" */, p.type, p.count, p.size, std::uint32_t(tables.refine), 0};
    const bool ok = std::fwrite(header, sizeof header, 1, f) == 1 &&
                    std::fwrite(rows.data(), sizeof(float), rows.size(), f) == rows.size();
    const int saved = errno;
    if (std::fclose(f) != 0 || !ok) fail_to_write(path, std::strerror(ok ? errno : saved));
    staged.commit();
  }
}

void fill_layered_groups(const layered_pair_tables& t, two_layer_cube_group& two, half_layer_cube_group& half) {
  auto cumulative = [](auto& table, const std::vector<float>& rows) {
    std::copy(rows.begin(), rows.end(), table.begin());
    for (std::size_t r = 0; r < table.count; ++r) internal::make_cumulative(table.row(r), table.row_size);
  };
  auto absolute = [](auto& table, const std::vector<float>& rows) {
    std::copy(rows.begin(), rows.end(), table.begin());
    internal::make_absolute(table.values, table.elements);
  };
  cumulative(two.gft, t.gft);
  cumulative(two.gft_is, t.gft_is);
  absolute(two.wvt_is, t.wvt_is);
  cumulative(half.gft, t.half_gft);
  cumulative(half.gft_is, t.half_gft_is);
  absolute(half.wvt_is, t.half_wvt_is);
}

std::string default_table_dir() {
  const char* home = std::getenv("HOME");
  return home != nullptr && *home != '\0' ? sea::path::join(home, "Torva_tables") : std::string("Torva_tables");
}

bool table_file_reachable(const std::string& path) {
  std::error_code ec;
  if (std::filesystem::is_regular_file(path, ec)) return true;
  // The loader's second try: the home directory, from "Torva_tables" on (or the whole path).
  const char* home = std::getenv("HOME");
  if (home == nullptr) return false;
  const std::size_t at = path.find("Torva_tables");
  const std::string rest = at == std::string::npos ? path : path.substr(at);
  return std::filesystem::is_regular_file(std::string(home) + "/" + rest, ec);
}

}  // namespace torva
