// Blocks in the same place: the same solid (kind, box and, for a cylinder or a
// prism, its own figures) given twice. A block that repeats another of its net
// adds nothing but depth to a search tree, which cannot split them apart and
// may split without end around them; blocks of two nets in one place short the
// nets. The extractor and the program find them here before a search
// structure is built.
#pragma once

#include <cstddef>
#include <utility>
#include <vector>

#include "torva/layout/records.h"

namespace torva {

// Same kind, same box, and for a cylinder the same radius and half height, for
// a prism the same vertices (plain comparisons: a copy, not a near miss).
bool same_solid(const wire_block& a, const wire_block& b);

struct coincident_blocks {
  std::vector<const wire_block*> kept;  // every block but the repeats, in order
  std::size_t repeats = 0;              // blocks that repeat an earlier block of their net
  // Pairs of blocks of two nets in one place (the earlier first), at most the
  // number asked for, and how many there are in all.
  std::vector<std::pair<const wire_block*, const wire_block*>> across;
  std::size_t across_count = 0;
};

coincident_blocks find_coincident_blocks(const std::vector<const wire_block*>& blocks, std::size_t max_pairs = 1);

}  // namespace torva
