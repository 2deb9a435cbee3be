// Test helpers: table files made at run time with known contents.
#pragma once

#include <cstdint>
#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <filesystem>
#include <functional>
#include <optional>
#include <string>
#include <type_traits>
#include <vector>

#include <gtest/gtest.h>

namespace torva::testing {

enum class encoding { single, wide };

inline void write_bytes(const std::string& path, const void* data, std::size_t size) {
  std::filesystem::create_directories(std::filesystem::path(path).parent_path());
  FILE* f = std::fopen(path.c_str(), "wb");
  if (f == nullptr) throw std::runtime_error("cannot write " + path);
  if (size != 0 && std::fwrite(data, 1, size, f) != size) throw std::runtime_error("short write " + path);
  std::fclose(f);
}

// A header of `header` bytes of junk (the readers never look at it) followed
// by the elements value(row, column) of F in the chosen encoding.
template <class F>
std::vector<unsigned char> table_bytes(const std::function<double(std::size_t, std::size_t)>& value,
                                       encoding enc = encoding::single, std::size_t header = F::header) {
  const std::size_t width = enc == encoding::single ? 4 : 8;
  std::vector<unsigned char> bytes(header + F::elements * width);
  for (std::size_t i = 0; i < header; ++i) bytes[i] = static_cast<unsigned char>(0xA5 ^ i);
  unsigned char* out = bytes.data() + header;
  for (std::size_t r = 0; r < F::count; ++r) {
    for (std::size_t c = 0; c < F::row_size; ++c) {
      const double v = value(r, c);
      if (enc == encoding::single) {
        const float f = static_cast<float>(v);
        std::memcpy(out, &f, 4);
      } else {
        std::memcpy(out, &v, 8);
      }
      out += width;
    }
  }
  return bytes;
}

template <class F>
void write_table(const std::string& path, const std::function<double(std::size_t, std::size_t)>& value,
                 encoding enc = encoding::single, std::size_t header = F::header) {
  const auto bytes = table_bytes<F>(value, enc, header);
  write_bytes(path, bytes.data(), bytes.size());
}

// Sets an environment variable (or unsets it, for nullopt) for the life of the
// object and puts the old value back.
struct scoped_env {
  scoped_env(const char* name, std::optional<std::string> value) : name(name) {
    if (const char* old = std::getenv(name)) saved = old;
    if (value) ::setenv(name, value->c_str(), 1);
    else ::unsetenv(name);
  }
  ~scoped_env() {
    if (saved) ::setenv(name, saved->c_str(), 1);
    else ::unsetenv(name);
  }
  const char* name;
  std::optional<std::string> saved;
};

// The expected cumulative row of raw values, by the finishing rule: running
// single-precision sum, divided by the total, last element exactly 1.
inline std::vector<float> cumulative_of(const std::vector<float>& raw) {
  std::vector<float> out(raw.size());
  float sum = 0.0f;
  for (std::size_t i = 0; i < raw.size(); ++i) out[i] = sum += raw[i];
  for (float& v : out) v /= sum;
  if (!out.empty()) out.back() = 1.0f;
  return out;
}

}  // namespace torva::testing

#include "torva/tables/table_groups.h"

namespace torva::testing {

// Group files carry a marker m: weight values -m, and every distribution row
// (m, 1, 1, ..., 1), so that a loaded group shows which files it came from.
inline double marked(double m, std::size_t, std::size_t c) { return c == 0 ? m : 1.0; }

template <class F>
void write_marked(const std::string& path, double m) {
  if constexpr (F::type == absolute_table) {
    write_table<F>(path, [m](std::size_t, std::size_t) { return -m; });
  } else {
    write_table<F>(path, [m](std::size_t r, std::size_t c) { return marked(m, r, c); });
  }
}

// The first element of a loaded distribution row made from marker m.
template <class F>
float marked_first(double m) {
  return float(m) / float(m + double(F::row_size - 1));
}

inline std::string group_name(const std::string& prefix, const char* stem, std::vector<double> key, int number) {
  char name[1024];
  if (key.size() == 2) {
    std::snprintf(name, sizeof name, "%sMultiple/%s%g_%g_%d.db", prefix.c_str(), stem, key[0], key[1], number);
  } else if (key.size() == 3) {
    std::snprintf(name, sizeof name, "%sMultiple/%s%g_%g_%g_%d.db", prefix.c_str(), stem, key[0], key[1], key[2],
                  number);
  } else {
    std::snprintf(name, sizeof name, "%sMultiple/%s%g_%g_%g_%g_%d.db", prefix.c_str(), stem, key[0], key[1], key[2],
                  key[3], number);
  }
  return name;
}

inline void write_two_layer(const std::string& prefix, double a, double b, double m) {
  write_marked<two_layer_gft_is_table>(group_name(prefix, "GFT/NumGFT_IS", {a, b}, 23), m);
  write_marked<two_layer_gft_table>(group_name(prefix, "GFT/NumGFT", {a, b}, 23), m);
  write_marked<two_layer_wvt_is_table>(group_name(prefix, "WVT/NumWVT_IS", {a, b}, 23), m);
}

inline void write_half_layer(const std::string& prefix, double a, double b, double m) {
  write_marked<half_layer_gft_is_table>(group_name(prefix, "GFT/hNumGFT_IS", {a, b}, 23), m);
  write_marked<half_layer_gft_table>(group_name(prefix, "GFT/hNumGFT", {a, b}, 23), m);
  write_marked<half_layer_wvt_is_table>(group_name(prefix, "WVT/hNumWVT_IS", {a, b}, 23), m);
}

inline void write_three_layer(const std::string& prefix, double a, double b, double c, double m) {
  write_marked<three_layer_gft_is_table>(group_name(prefix, "GFT/NumGFT_IS", {a, b, c}, 24), m);
  write_marked<three_layer_gft_table>(group_name(prefix, "GFT/NumGFT", {a, b, c}, 24), m);
  write_marked<three_layer_wvt_is_table>(group_name(prefix, "WVT/NumWVT_IS", {a, b, c}, 24), m);
}

inline void write_four_layer(const std::string& prefix, double a, double b, double c, double d, double m) {
  write_marked<four_layer_gft_table>(group_name(prefix, "GFT/NumGFT", {a, b, c, d}, 24), m);
}

// Whether every table of a group was loaded from the files of marker m.
template <class G>
::testing::AssertionResult loaded_with(const G& g, double m) {
  auto check = [&](const auto& table) -> bool {
    using F = std::decay_t<decltype(table)>;
    const float want = F::type == absolute_table ? float(m) : marked_first<F>(m);
    for (std::size_t r = 0; r < F::count; ++r) {
      if (table.row(r)[0] != want) return false;
      if (F::type != absolute_table && table.row(r)[F::row_size - 1] != 1.0f) return false;
    }
    return true;
  };
  bool ok = check(g.gft);
  if constexpr (requires { g.gft_is; }) ok = ok && check(g.gft_is) && check(g.wvt_is);
  if (ok) return ::testing::AssertionSuccess();
  return ::testing::AssertionFailure() << "group not loaded with marker " << m;
}

}  // namespace torva::testing
