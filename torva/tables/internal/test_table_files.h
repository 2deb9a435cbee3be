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
#include <vector>

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
