#include "torva/layout/internal/block_shape_supply.h"

#include <cstdint>
#include <cstring>

#include "torva/layout/internal/binary_fields.h"

namespace torva::internal {

namespace {

thread_local block_shape_supply* current_supply = nullptr;

constexpr unsigned char block_record = 10;

}  // namespace

cuboid_t block_record_box(const char* payload) noexcept {
  point3 low;
  double len[3];
  for (int c = 0; c < 3; ++c) {
    double v;
    std::memcpy(&v, payload + 8 * c, sizeof v);
    low[c] = v;
  }
  std::memcpy(len, payload + 24, sizeof len);
  return cuboid_t{low, point3{low[0] + len[0], low[1] + len[1], low[2] + len[2]}};
}

block_shape_supply::block_shape_supply(const char* file, std::size_t size, std::size_t first, bool swap)
    : file_(file), size_(size), first_(first), swap_(swap) {
  for (slot& s : slots_) s.shapes.resize(batch_size);
  maker_ = std::thread([this] { make(); });
  outer_ = current_supply;
  current_supply = this;
}

block_shape_supply::~block_shape_supply() {
  current_supply = outer_;
  stop_.store(true, std::memory_order_release);
  // Wakes the maker wherever it waits; it sees the stop before it touches a
  // slot again. The shapes not taken go with the slots.
  for (slot& s : slots_) {
    s.state.store(slot_empty, std::memory_order_release);
    s.state.notify_all();
  }
  maker_.join();
}

block_shape_supply* block_shape_supply::installed() noexcept { return current_supply; }

bool block_shape_supply::take(const char* payload, const cuboid_t& box, shape_t& shape) {
  if (done_) return false;
  if (!held_ || at_ == slots_[slot_].count) {
    if (!next_batch()) return false;
  }
  made_shape& made = slots_[slot_].shapes[at_];
  if (made.payload != payload) {
    done_ = true;  // not the record the maker saw: the reader goes on alone
    return false;
  }
  ++at_;
  shape.solid = made.solid;
  shape.inner_box = box;
  shape.outer_box = box;
  shape.inner_pieces = std::move(made.inner);
  shape.outer_pieces = std::move(made.outer);
  shape.shape_kind = shape_cuboid;
  return true;
}

bool block_shape_supply::next_batch() {
  if (held_) {
    slot& done = slots_[slot_];
    if (done.last) {
      done_ = true;
      return false;
    }
    done.state.store(slot_empty, std::memory_order_release);
    done.state.notify_one();
  }
  slot_ = (slot_ + 1) % slot_count;
  slot& s = slots_[slot_];
  s.state.wait(slot_empty, std::memory_order_acquire);
  held_ = true;
  at_ = 0;
  if (s.count == 0) {
    done_ = true;
    return false;
  }
  return true;
}

void block_shape_supply::make() {
  // The frame as the reader walks it; the walk ends where the reader's would.
  std::size_t next = first_;
  bool ended = false;
  for (std::size_t i = 0; !ended; i = (i + 1) % slot_count) {
    slot& s = slots_[i];
    s.state.wait(slot_full, std::memory_order_acquire);
    if (stop_.load(std::memory_order_acquire)) return;
    std::size_t count = 0;
    try {
      while (count < batch_size) {
        if (size_ - next < 2) {
          ended = true;
          break;
        }
        std::uint16_t bits;
        std::memcpy(&bits, file_ + next, sizeof bits);
        if (swap_) bits = __builtin_bswap16(bits);
        const short length = static_cast<short>(bits);
        next += 2;
        const std::size_t rest = length > 2 ? static_cast<std::size_t>(length - 2) : 0;
        if (length < 2 || size_ - next < rest) {
          ended = true;
          break;
        }
        const char* record = file_ + next;
        next += rest;
        if (length == 2 || static_cast<unsigned char>(record[0]) != block_record) continue;
        if (!binary_payload_fits(static_cast<short>(length - 3), 50)) {
          ended = true;  // the reader stops at this record
          break;
        }
        const cuboid_t box = block_record_box(record + 1);
        made_shape& made = s.shapes[count];
        made.payload = record + 1;
        made.solid = new_solid(box);
        made.inner = {box};
        made.outer = {box};
        ++count;
      }
    } catch (...) {
      ended = true;  // out of memory here: the reader makes the rest itself
    }
    s.count = count;
    s.last = ended;
    s.state.store(slot_full, std::memory_order_release);
    s.state.notify_one();
  }
}

}  // namespace torva::internal
