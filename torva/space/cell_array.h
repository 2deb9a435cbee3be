// The cell array of a grid: one block of value-initialised cells. A grid of a
// million cells spans about a hundred megabytes that queries touch at random,
// so a large array is aligned to 2 MiB and offered to the kernel for huge
// pages; with 4 KiB pages nearly every query into it also misses the TLB.
// Where the kernel declines, the array simply stays on small pages.
#pragma once

#include <sys/mman.h>

#include <cstddef>
#include <cstdint>
#include <memory>
#include <new>

namespace torva {

inline constexpr std::size_t huge_page_bytes = std::size_t(2) << 20;

template <class Node>
struct cell_array_deleter {
  std::size_t count = 0;
  void operator()(Node* cells) const noexcept {
    for (std::size_t i = 0; i < count; ++i) cells[i].~Node();
    if (count * sizeof(Node) >= huge_page_bytes)
      ::operator delete(static_cast<void*>(cells), std::align_val_t(huge_page_bytes));
    else
      ::operator delete(static_cast<void*>(cells), std::align_val_t(alignof(Node)));
  }
};

template <class Node>
using cell_array = std::unique_ptr<Node[], cell_array_deleter<Node>>;

// `count` value-initialised cells, as `new Node[count]()` would give.
template <class Node>
cell_array<Node> make_cell_array(std::size_t count) {
  if (count > SIZE_MAX / sizeof(Node)) throw std::bad_array_new_length();
  const std::size_t bytes = count * sizeof(Node);
  void* raw;
  if (bytes >= huge_page_bytes) {
    const std::size_t rounded = (bytes + huge_page_bytes - 1) / huge_page_bytes * huge_page_bytes;
    raw = ::operator new(rounded, std::align_val_t(huge_page_bytes));
    ::madvise(raw, rounded, MADV_HUGEPAGE);  // advice only: failure leaves small pages
  } else {
    raw = ::operator new(bytes == 0 ? 1 : bytes, std::align_val_t(alignof(Node)));
  }
  Node* cells = static_cast<Node*>(raw);
  for (std::size_t i = 0; i < count; ++i) ::new (static_cast<void*>(cells + i)) Node();
  return cell_array<Node>(cells, cell_array_deleter<Node>{count});
}

}  // namespace torva
