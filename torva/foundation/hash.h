// Hash functors of the library's hash maps.
#pragma once

#include <cstdint>

namespace torva::sea {

template <class T>
struct hash;

// The key itself, so that an inode number picks its own bucket.
template <>
struct hash<unsigned long> {
  unsigned long operator()(unsigned long key) const noexcept { return key; }
};

}  // namespace torva::sea
