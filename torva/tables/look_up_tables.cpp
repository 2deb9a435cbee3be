// The first table and the lookup tables that turn a sampled cell into a
// point on the surface of the cube [-1, 1]^3 by indexed reads alone.
#include <algorithm>
#include <cmath>

#include "torva/foundation/logger.h"
#include "torva/tables/internal/first_table.h"
#include "torva/tables/table_database.h"

namespace torva {

static_assert(table_database::single_oct_face_group::size == internal::first_table_size);

void table_database::single_oct_face_group::fill_first_table() {
  std::copy(internal::first_table_values, internal::first_table_values + size, first_table);
}

namespace {

using point_rows = std::vector<std::vector<std::vector<double>>>;

void resize_rows(point_rows& rows, std::size_t count, std::size_t points) {
  rows.assign(count, std::vector<std::vector<double>>(points, std::vector<double>(3)));
}

void set(std::vector<double>& point, double x, double y, double z) {
  point[0] = x;
  point[1] = y;
  point[2] = z;
}

void progress(const char* line) { logger::instance().info->print(line).write('\n').flush(); }

// Cell centres of a face of 24 x 24 cells, for index 0..23 of a row or column.
constexpr double minus_one_24th = -0.041666666666666664;
constexpr double twenty_three_24ths = 0.9583333333333334;
double centre(std::size_t index) { return 2.0 * static_cast<double>(index) / 24.0 - twenty_three_24ths; }

}  // namespace

void table_database::init_look_up_tables() {
  // Stage 1: the 24 images of each cell of the first table's quarter face.
  resize_rows(first_lookup, 1024, 24);
  for (std::size_t e = 0; e < 1024; ++e) {
    const double a = (static_cast<double>(e % 32) + 0.5) * 0.03125;
    const double b = (static_cast<double>(e / 32) + 0.5) * 0.03125;
    const double p = 1 - a, q = a - 1, r = 1 - b, s = b - 1;
    const double images[24][3] = {
        {q, s, -1}, {-1, q, s}, {q, -1, s}, {p, s, -1}, {p, -1, s}, {1, q, s}, {p, r, -1}, {1, r, q},
        {p, 1, s},  {q, r, -1}, {-1, r, q}, {s, 1, q},  {-1, r, p}, {s, 1, p}, {s, p, 1},  {1, r, p},
        {r, 1, p},  {r, p, 1},  {r, -1, p}, {1, s, p},  {p, s, 1},  {-1, s, p}, {s, -1, p}, {s, q, 1},
    };
    for (std::size_t i = 0; i < 24; ++i) set(first_lookup[e][i], images[i][0], images[i][1], images[i][2]);
  }

  // Stage 2: a z row, the surface reduced by the eight symmetries about z.
  // Rows 0-77 bottom (a triangle of the quarter face), 78-365 the side ring,
  // 366-443 top.
  progress("cmprz");
  resize_rows(cmprz_lookup, 444, 8);
  cmprz_flip_z.assign(444, 0);
  for (std::uint32_t i = 0; i < 78; ++i) cmprz_flip_z[i] = i + 366;
  for (std::uint32_t i = 0; i < 288; ++i) cmprz_flip_z[i + 78] = 354 - 12 * (i / 12) + (i % 12);
  for (std::uint32_t i = 0; i < 78; ++i) cmprz_flip_z[i + 366] = i;
  for (std::size_t t = 0; t < 78; ++t) {
    const std::size_t n = static_cast<std::size_t>(std::floor((std::sqrt(8.0 * t + 1) - 1) * 0.5));
    const std::size_t m = t - n * (n + 1) / 2;
    const double u = minus_one_24th - 2.0 * static_cast<double>(m) / 24.0;
    const double v = minus_one_24th - 2.0 * static_cast<double>(n) / 24.0;
    auto& row = cmprz_lookup[t];
    set(row[0], u, v, -1);
    set(row[1], -u, v, -1);
    set(row[2], -v, u, -1);
    set(row[3], -v, -u, -1);
    set(row[4], -u, -v, -1);
    set(row[5], u, -v, -1);
    set(row[6], v, -u, -1);
    set(row[7], v, u, -1);
  }
  for (std::size_t i = 0; i < 288; ++i) {
    const double h = centre(i / 12), w = centre(i % 12);
    auto& row = cmprz_lookup[78 + i];
    set(row[0], w, -1, h);
    set(row[1], -w, -1, h);
    set(row[2], 1, w, h);
    set(row[3], 1, -w, h);
    set(row[4], -w, 1, h);
    set(row[5], w, 1, h);
    set(row[6], -1, -w, h);
    set(row[7], -1, w, h);
  }
  for (std::size_t t = 0; t < 78; ++t) {
    const double x = cmprz_lookup[t][0][0], y = cmprz_lookup[t][0][1], z = cmprz_lookup[t][0][2];
    auto& row = cmprz_lookup[366 + t];
    set(row[0], x, y, -z);
    set(row[1], -x, y, -z);
    set(row[2], -y, x, -z);
    set(row[3], -y, -x, -z);
    set(row[4], -x, -y, -z);
    set(row[5], x, -y, -z);
    set(row[6], y, -x, -z);
    set(row[7], y, x, -z);
  }

  // Stage 3: XY rows, the surface reduced by the four mirror symmetries in x
  // and y. Rows 0-143 bottom, 144-431 the y faces, 432-719 the x faces,
  // 720-863 top.
  progress("cmprxy");
  resize_rows(cmprxy_lookup, 864, 4);
  for (std::size_t i = 0; i < 144; ++i) {
    const double h = centre(i / 12), w = centre(i % 12);
    auto& row = cmprxy_lookup[i];
    set(row[0], w, h, -1);
    set(row[1], -w, h, -1);
    set(row[2], -w, -h, -1);
    set(row[3], w, -h, -1);
  }
  for (std::size_t i = 0; i < 288; ++i) {
    const double h = centre(i / 12), w = centre(i % 12);
    auto& y_row = cmprxy_lookup[144 + i];
    set(y_row[0], w, -1, h);
    set(y_row[1], -w, -1, h);
    set(y_row[2], -w, 1, h);
    set(y_row[3], w, 1, h);
    auto& x_row = cmprxy_lookup[432 + i];
    set(x_row[0], -1, w, h);
    set(x_row[1], 1, w, h);
    set(x_row[2], 1, -w, h);
    set(x_row[3], -1, -w, h);
  }
  for (std::size_t t = 0; t < 144; ++t) {
    const double x = cmprxy_lookup[t][0][0], y = cmprxy_lookup[t][0][1], z = cmprxy_lookup[t][0][2];
    auto& row = cmprxy_lookup[720 + t];
    set(row[0], x, y, -z);
    set(row[1], -x, y, -z);
    set(row[2], -x, -y, -z);
    set(row[3], x, -y, -z);
  }

  cmprxy_flip_z.assign(288, 0);
  cmprxy_flip_rows.assign(288, 0);
  cmprxy_swap_xy.assign(288, 0);
  cmprxy_swap_halves.assign(288, 0);
  for (std::uint32_t i = 0; i < 144; ++i) cmprxy_flip_z[i] = i + 720;
  for (std::uint32_t i = 0; i < 72; ++i) cmprxy_flip_z[144 + i] = 420 - 12 * (i / 12) + (i % 12);
  for (std::uint32_t i = 0; i < 72; ++i) cmprxy_flip_z[216 + i] = 708 - 12 * (i / 12) + (i % 12);
  for (std::uint32_t i = 0; i < 144; ++i) cmprxy_flip_rows[i] = i + 12 * (11 - 2 * (i / 12));
  for (std::uint32_t i = 0; i < 144; ++i) cmprxy_flip_rows[144 + i] = (i % 12) + 12 * (11 - (i / 12)) + 144;
  for (std::uint32_t i = 0; i < 144; ++i) cmprxy_swap_xy[i] = (i / 12) + 12 * (i % 12);
  for (std::uint32_t i = 0; i < 72; ++i) cmprxy_swap_xy[144 + i] = i + 216;
  for (std::uint32_t i = 0; i < 72; ++i) cmprxy_swap_xy[216 + i] = i + 144;
  for (std::uint32_t i = 0; i < 144; ++i) cmprxy_swap_halves[i] = i + 144;
  for (std::uint32_t i = 0; i < 144; ++i) cmprxy_swap_halves[144 + i] = i;

  progress("finish");
}

}  // namespace torva
