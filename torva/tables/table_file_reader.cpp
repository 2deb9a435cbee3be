// table_loader::load_file and table_loader::preload_approx: reading one table
// file, in either encoding, and reading a compressed file whole.
#include <cerrno>
#include <cmath>
#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <memory>

#include "torva/foundation/errors.h"
#include "torva/foundation/file_pool.h"
#include "torva/foundation/logger.h"
#include "torva/tables/internal/table_reading.h"
#include "torva/tables/table_loader.h"

namespace torva {

namespace internal {

namespace {

// Message buffers are 1024 bytes; longer texts are cut there.
constexpr std::size_t message_size = 1024;

const char* base_name(const char* path) {
  const char* slash = std::strrchr(path, '/');
  return slash != nullptr ? slash + 1 : path;
}

// fread of exactly `count` items, or the errno failure. A short read that the
// system gives no reason for (the file shrank under us) is reported as EIO.
void read_exactly(void* into, std::size_t item, std::size_t count, FILE* file) {
  errno = 0;
  if (std::fread(into, item, count, file) != count) {
    if (errno == 0) errno = EIO;
    throw_errno();
  }
}

void seek_to(FILE* file, long offset, int whence) {
  if (std::fseek(file, offset, whence) != 0) throw_errno();
}

long length_of(FILE* file) {
  seek_to(file, 0, SEEK_END);
  const long length = std::ftell(file);
  if (length < 0) throw_errno();
  return length;
}

// Narrowing that stays defined for doubles beyond the float range: what
// rounds to nearest past FLT_MAX becomes an infinity, as the hardware does.
float narrow(double v) {
  constexpr double overflow = 0x1.ffffffp127;  // FLT_MAX plus half its last place
  if (v >= overflow) return HUGE_VALF;
  if (v <= -overflow) return -HUGE_VALF;
  return static_cast<float>(v);
}

}  // namespace

std::shared_ptr<FILE> open_table_file(const char* path, bool error_prefix) {
  if (path == nullptr) path = "";
  if (FILE* file = std::fopen(path, "rb")) return std::shared_ptr<FILE>(file, file_deleter{});
  // A private copy under the home directory serves when the installed one is
  // missing. Without HOME there is nowhere to look.
  if (const char* home = std::getenv("HOME")) {
    const char* rest = std::strstr(path, "Torva_tables");
    if (rest == nullptr) rest = path;
    char second[message_size];
    std::snprintf(second, sizeof second, "%s/%s", home, rest);
    if (FILE* file = std::fopen(second, "rb")) {
      std::shared_ptr<FILE> held(file, file_deleter{});
      logger::instance().info->print("use user-specific tables").write('\n').flush();
      return held;
    }
  }
  char text[message_size];
  if (error_prefix) {
    std::snprintf(text, sizeof text, "ERROR: cannot open \"%s\", please register correct GFT/WVTs\n",
                  base_name(path));
  } else {
    std::snprintf(text, sizeof text, "cannot open \"%s\", please register correct GFT/WVTs\n", base_name(path));
  }
  logger::instance().error->print(text).flush();
  throw sea::file_error(text);
}

void throw_errno() {
  char text[message_size];
  std::snprintf(text, sizeof text, "%s", std::strerror(errno));
  logger::instance().error->print(text).write('\n').flush();
  throw sea::fatal_error(text);
}

void throw_wrong_size(const char* thrown) {
  logger::instance().error->print("ERROR: incorrect table file size.").write('\n').flush();
  throw sea::file_error(thrown);
}

}  // namespace internal

template <class F>
void table_loader::load_file(F& table, const char* path) {
  constexpr long header = static_cast<long>(F::header);
  constexpr long elements = static_cast<long>(F::elements);
  std::shared_ptr<FILE> held = internal::open_table_file(path, false);
  FILE* file = held.get();
  const long length = internal::length_of(file);
  if (length == header + 4 * elements) {
    // A float file goes into its final place with one read.
    internal::seek_to(file, header, SEEK_SET);
    internal::read_exactly(table.values, sizeof(float), elements, file);
  } else if (length - header == 8 * elements) {
    logger::instance().info->print("table type not matched, reload as double table.").write('\n').flush();
    internal::seek_to(file, header, SEEK_SET);
    std::unique_ptr<double[]> wide(new double[elements]);
    internal::read_exactly(wide.get(), sizeof(double), elements, file);
    for (long i = 0; i < elements; ++i) table.values[i] = internal::narrow(wide[i]);
  } else {
    internal::throw_wrong_size("iSYSTEM ERROR. ");
  }
  if constexpr (F::type == cumulative_table) {
    for (std::size_t r = 0; r < F::count; ++r) internal::make_cumulative(table.row(r), F::row_size);
  } else if constexpr (F::type == absolute_table) {
    internal::make_absolute(table.values, F::elements);
  }
}

template <class F>
void table_loader::preload_approx(int n, char*& buffer, const char* path) {
  static_assert(F::count == 1 && F::header == 36, "a compressed file holds records of one row");
  if (buffer != nullptr) {
    std::puts("ERROR: buffer non null");
    std::exit(1);
  }
  std::shared_ptr<FILE> held = internal::open_table_file(path, true);
  FILE* file = held.get();
  const long length = internal::length_of(file);
  const long record = static_cast<long>(F::float_file_bytes);
  if (length != static_cast<long>(n) * record) internal::throw_wrong_size("SYSTEM ERROR. \n");
  buffer = static_cast<char*>(std::malloc(length > 0 ? length : 1));
  if (buffer == nullptr) {
    std::fputs("Memory error", stderr);
    std::exit(1);
  }
  std::rewind(file);
  internal::read_exactly(buffer, 1, static_cast<std::size_t>(length), file);
}

template void table_loader::load_file(two_layer_wvt_is_table&, const char*);
template void table_loader::load_file(two_layer_gft_table&, const char*);
template void table_loader::load_file(two_layer_gft_is_table&, const char*);
template void table_loader::load_file(half_layer_wvt_is_table&, const char*);
template void table_loader::load_file(half_layer_gft_table&, const char*);
template void table_loader::load_file(half_layer_gft_is_table&, const char*);
template void table_loader::load_file(three_layer_wvt_is_table&, const char*);
template void table_loader::load_file(three_layer_gft_table&, const char*);
template void table_loader::load_file(three_layer_gft_is_table&, const char*);
template void table_loader::load_file(four_layer_gft_table&, const char*);

template void table_loader::preload_approx<cmpr_gft_a_record>(int, char*&, const char*);
template void table_loader::preload_approx<cmpr_gft_b_record>(int, char*&, const char*);
template void table_loader::preload_approx<cmpr_gft_is_z_record>(int, char*&, const char*);
template void table_loader::preload_approx<cmpr_gft_is_xy_a_record>(int, char*&, const char*);
template void table_loader::preload_approx<cmpr_gft_is_xy_b_record>(int, char*&, const char*);
template void table_loader::preload_approx<cmpr_wvt_is_record>(int, char*&, const char*);

}  // namespace torva
