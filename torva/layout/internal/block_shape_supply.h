// The shapes of a mapped binary file's block records, made ahead on a second
// thread.
//
// Most of a large binary read goes to allocating the records and faulting in
// their fresh memory. A block's shape owns a solid and two lists of one box,
// all three made from the record's bytes alone, so another thread can make
// them ahead of the reader: it walks the same records, makes the shape of
// every block record in turn (in its own heap and store of solids) and hands
// them over in batches. The reader takes the shape made for the record in
// hand, checked by the record's address, and never touches its memory, so the
// two threads don't share cache lines but for the hand-over. Any other record
// the reader reads as ever.
#pragma once

#include <atomic>
#include <cstddef>
#include <thread>
#include <vector>

#include "torva/solids/solids.h"

namespace torva::internal {

// The box of a block record: the low corner, then the low corner plus the
// three lengths, all read from the payload.
cuboid_t block_record_box(const char* payload) noexcept;

class block_shape_supply {
 public:
  // Starts the thread on the records of `file` (`size` bytes) from `first`
  // on, integers byte-swapped when `swap`, and installs the supply on the
  // calling thread. Throws std::system_error if no thread can be started.
  block_shape_supply(const char* file, std::size_t size, std::size_t first, bool swap);
  // Stops the thread, frees the lists not taken and uninstalls the supply.
  ~block_shape_supply();
  block_shape_supply(const block_shape_supply&) = delete;
  block_shape_supply& operator=(const block_shape_supply&) = delete;

  // The supply installed on this thread, or null.
  static block_shape_supply* installed() noexcept;

  // Fills `shape` with the shape made ahead for the block record whose
  // payload is at `payload`, of box `box`; false if there is none (the
  // threads have parted ways, or the other one stopped), and `shape` is left
  // alone. The shape is the plain cuboid shape: both boxes the cuboid, one
  // piece each.
  bool take(const char* payload, const cuboid_t& box, shape_t& shape);

 private:
  static constexpr std::size_t batch_size = 4096;
  static constexpr std::size_t slot_count = 4;
  enum : int { slot_empty = 0, slot_full = 1 };

  struct made_shape {
    const char* payload = nullptr;
    const cuboid_t* solid = nullptr;
    std::vector<cuboid_t> inner;
    std::vector<cuboid_t> outer;
  };
  struct slot {
    std::vector<made_shape> shapes;
    std::size_t count = 0;   // shapes made; below batch_size in the last batch
    bool last = false;       // no batch follows
    std::atomic<int> state{slot_empty};
  };

  bool next_batch();
  void make();

  const char* file_;
  std::size_t size_;
  std::size_t first_;
  bool swap_;
  slot slots_[slot_count];
  std::size_t slot_ = slot_count - 1;  // the slot the reader takes from
  std::size_t at_ = 0;                 // its next shape
  bool held_ = false;                  // the reader holds slot_
  bool done_ = false;                  // nothing more to take
  std::atomic<bool> stop_{false};
  block_shape_supply* outer_ = nullptr;
  std::thread maker_;
};

}  // namespace torva::internal
