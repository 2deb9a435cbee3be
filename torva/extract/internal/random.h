// The random numbers of the walks: one stream per block of walks, keyed by
// the run's seed, the master and the block's number, so that a block draws
// the same numbers whichever thread runs it and however many threads there are.
#pragma once

#include <cstdint>

namespace torva::internal {

inline std::uint64_t splitmix64(std::uint64_t& x) noexcept {
  std::uint64_t z = (x += 0x9E3779B97F4A7C15ull);
  z = (z ^ (z >> 30)) * 0xBF58476D1CE4E5B9ull;
  z = (z ^ (z >> 27)) * 0x94D049BB133111EBull;
  return z ^ (z >> 31);
}

// xoshiro256++, seeded through splitmix64 from the stream's key.
struct walk_random {
  std::uint64_t s[4];

  walk_random(std::uint64_t seed, std::uint64_t master, std::uint64_t block) noexcept {
    std::uint64_t x = seed;
    std::uint64_t k = splitmix64(x) ^ master;
    k = splitmix64(k) ^ block;
    for (std::uint64_t& word : s) word = splitmix64(k);
  }

  std::uint64_t next() noexcept {
    const std::uint64_t result = rotl(s[0] + s[3], 23) + s[0];
    const std::uint64_t t = s[1] << 17;
    s[2] ^= s[0];
    s[3] ^= s[1];
    s[1] ^= s[2];
    s[0] ^= s[3];
    s[2] ^= t;
    s[3] = rotl(s[3], 45);
    return result;
  }

  // Uniform in [0, 1), 53 bits.
  double uniform() noexcept { return double(next() >> 11) * 0x1.0p-53; }

 private:
  static std::uint64_t rotl(std::uint64_t x, int k) noexcept { return (x << k) | (x >> (64 - k)); }
};

}  // namespace torva::internal
