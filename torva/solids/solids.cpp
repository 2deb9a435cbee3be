#include "torva/solids/solids.h"

#include <sys/mman.h>

#include <algorithm>
#include <cstddef>
#include <mutex>
#include <new>
#include <vector>

namespace torva {

namespace {

// Solids are never released, so they are cut from large chunks one after the
// other rather than allocated one by one: each thread bumps a pointer through
// a chunk of its own, with no lock and no per-solid bookkeeping. A thread's
// chunks grow with what it has taken (a reader of a large layout soon works
// in chunks of many megabytes, which the kernel is asked to back with huge
// pages: faulting in fresh memory page by page is much of a large read's
// cost). A thread that ends leaves the rest of its chunk to the next thread
// that needs one. Every chunk stays listed in a process-wide store, so leak
// checkers see it as in use.
constexpr std::size_t first_chunk = std::size_t(64) << 10;
constexpr std::size_t huge_chunk = std::size_t(2) << 20;
constexpr std::size_t largest_chunk = std::size_t(64) << 20;

struct chunk_store {
  std::mutex lock;
  std::vector<void*> chunks;
  char* spare_next = nullptr;  // the largest rest of a chunk that a thread left
  char* spare_end = nullptr;
};

chunk_store& store() {
  static chunk_store* chunks = new chunk_store;  // never destroyed: solids outlive everything
  return *chunks;
}

struct solid_chunk {
  char* next = nullptr;
  char* end = nullptr;
  std::size_t taken = 0;  // bytes of all the chunks this thread has had

  ~solid_chunk() {
    chunk_store& s = store();
    std::lock_guard<std::mutex> guard(s.lock);
    if (end - next > s.spare_end - s.spare_next) {
      s.spare_next = next;
      s.spare_end = end;
    }
  }

  // Room for `bytes`, a multiple of 8, at 8-byte alignment.
  void* allocate(std::size_t bytes) {
    if (static_cast<std::size_t>(end - next) < bytes) refill(bytes);
    void* at = next;
    next += bytes;
    return at;
  }

  void refill(std::size_t bytes) {
    std::size_t size = std::max(std::clamp(taken, first_chunk, largest_chunk), bytes);
    chunk_store& s = store();
    {
      std::lock_guard<std::mutex> guard(s.lock);
      if (static_cast<std::size_t>(s.spare_end - s.spare_next) >= std::max(bytes, first_chunk / 4)) {
        next = s.spare_next;
        end = s.spare_end;
        s.spare_next = s.spare_end = nullptr;
        return;
      }
    }
    void* chunk;
    if (size >= huge_chunk) {
      size = (size + huge_chunk - 1) / huge_chunk * huge_chunk;
      chunk = ::operator new(size, std::align_val_t(huge_chunk));
      ::madvise(chunk, size, MADV_HUGEPAGE);  // advice only: failure leaves small pages
    } else {
      chunk = ::operator new(size);
    }
    {
      std::lock_guard<std::mutex> guard(s.lock);
      s.chunks.push_back(chunk);
    }
    next = static_cast<char*>(chunk);
    end = next + size;
    taken += size;
  }
};

thread_local solid_chunk current_chunk;

template <class T>
T* keep(const T& value) {
  static_assert(alignof(T) <= 8 && sizeof(T) % 8 == 0);
  return ::new (current_chunk.allocate(sizeof(T))) T(value);
}

}  // namespace

cuboid_t* new_solid(const cuboid_t& c) { return keep(c); }
cylinder_t* new_solid(const cylinder_t& c) { return keep(c); }
nprism_t* new_solid(const nprism_t& p) { return keep(p); }

shape_t make_cuboid_shape(const cuboid_t& c) {
  shape_t s;
  s.solid = new_solid(c);
  s.inner_box = c;
  s.outer_box = c;
  s.inner_pieces = {c};
  s.outer_pieces = {c};
  s.shape_kind = shape_cuboid;
  return s;
}

sea::writer& cuboid_t::write_to(sea::writer& out) const {
  lower.write_to(out);
  out(":");
  upper.write_to(out);
  out(", xlen: ");
  out.format("%.12f", double(upper[0] - lower[0]));
  out(", ylen: ");
  out.format("%.12f", double(upper[1] - lower[1]));
  out(", zlen: ");
  return out.format("%.12f", double(upper[2] - lower[2]));
}

sea::writer& nprism_t::write_to(sea::writer& out) const {
  for (std::uint64_t i = 0; i < size && i < 8; ++i) {
    out("(");
    out.format("%.12f", double(points[i][0]));
    out(", ");
    out.format("%.12f", double(points[i][1]));
    out(") ");
  }
  out.format("%.12f", double(bottom));
  out(" ");
  return out.format("%.12f", double(top));
}

}  // namespace torva
