#include <gtest/gtest.h>

#include <memory>

#include "torva/tables/table_database.h"

namespace torva {
namespace {

TEST(FirstTable, MatchesTheKnownSamples) {
  auto group = std::make_unique<table_database::single_oct_face_group>();
  group->fill_first_table();
  const double* t = group->first_table;
  EXPECT_EQ(t[0], 1.09281e-06);
  EXPECT_EQ(t[1], 4.37123e-06);
  EXPECT_EQ(t[2], 9.83521e-06);
  EXPECT_EQ(t[31], 0.00101573);
  EXPECT_EQ(t[32], 0.00101901);
  EXPECT_EQ(t[512], 0.263668);
  EXPECT_EQ(t[1022], 0.997113);
  EXPECT_EQ(t[1023], 1.0);
}

TEST(FirstTable, IsAStrictlyRisingDistribution) {
  table_database::single_oct_face_group group{};
  group.fill_first_table();
  EXPECT_GT(group.first_table[0], 0.0);
  for (std::size_t e = 1; e < 1024; ++e) ASSERT_LT(group.first_table[e - 1], group.first_table[e]) << e;
  // The cube is symmetric under x <-> y, so the cell mass in row 0 up to
  // column 31 equals that of column 0 up to row 31: the first row's total is
  // the share of the first column.
  double column = 0.0;
  for (std::size_t row = 0; row < 32; ++row) {
    const std::size_t e = row * 32;
    column += group.first_table[e] - (e == 0 ? 0.0 : group.first_table[e - 1]);
  }
  EXPECT_NEAR(column, group.first_table[31], 1e-5);
  // A quarter face holds a quarter of the face's share, so cells near the
  // face centre (e = 1023) weigh more than corner cells (e = 0).
  EXPECT_GT(group.first_table[1023] - group.first_table[1022], group.first_table[0]);
}

}  // namespace
}  // namespace torva
