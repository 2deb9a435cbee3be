#include "torva/space/cell_array.h"

#include <gtest/gtest.h>

#include <cstdint>
#include <vector>

#include "torva/space/base_grid_node.h"

namespace torva {
namespace {

struct counted {
  static inline int alive = 0;
  std::uint64_t value;  // value-initialisation must leave it zero
  std::vector<int> storage{1, 2, 3};
  counted() : value() { ++alive; }
  ~counted() { --alive; }
};

TEST(CellArray, CellsAreValueInitialisedAndDestroyedOnceForSmallAndHugeArrays) {
  for (std::size_t count : {std::size_t(0), std::size_t(3), huge_page_bytes / sizeof(counted) + 7}) {
    SCOPED_TRACE(count);
    {
      cell_array<counted> cells = make_cell_array<counted>(count);
      EXPECT_EQ(counted::alive, int(count));
      for (std::size_t i = 0; i < count; ++i) ASSERT_EQ(cells[i].value, 0u);
      if (count * sizeof(counted) >= huge_page_bytes)
        EXPECT_EQ(reinterpret_cast<std::uintptr_t>(cells.get()) % huge_page_bytes, 0u);
    }
    EXPECT_EQ(counted::alive, 0);
  }
}

TEST(CellArray, GridCellsStartZeroedAsTheBuildExpects) {
  cell_array<base_grid_node<5>> cells = make_cell_array<base_grid_node<5>>(4);
  for (int i = 0; i < 4; ++i) {
    EXPECT_EQ(cells[i].level, 0);
    EXPECT_FALSE(cells[i].may_decrease);
    EXPECT_TRUE(cells[i].list.candidates.empty());
  }
}

TEST(CellArray, ACountBeyondTheAddressSpaceThrowsBeforeAllocating) {
  EXPECT_THROW(make_cell_array<base_grid_node<5>>(SIZE_MAX / 2), std::bad_array_new_length);
}

}  // namespace
}  // namespace torva
