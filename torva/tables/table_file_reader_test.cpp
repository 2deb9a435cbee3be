#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <fcntl.h>
#include <sys/stat.h>
#include <unistd.h>

#include <cerrno>
#include <cmath>
#include <cstdlib>
#include <cstring>
#include <filesystem>
#include <limits>
#include <memory>

#include "torva/tables/internal/test_table_files.h"
#include "torva/tables/table_loader.h"
#include "torva_testing/log_capture.h"

namespace torva {
namespace {

using testing::encoding;
using testing::write_table;

// Heap-held tables: the largest kinds are megabytes.
template <class F>
std::unique_ptr<F> fresh_table(float fill = 42.0f) {
  auto t = std::make_unique<F>();
  for (float& v : *t) v = fill;
  return t;
}

template <class F>
void load(F& table, const std::string& path) {
  table_loader loader(nullptr, nullptr, nullptr);
  loader.load_file(table, path.c_str());
}

// Each kind reads files of exactly its two listed lengths. Cumulative kinds
// get row r = (r + 2, 1, 1, ..., 1), absolute kinds negative values.
template <class F>
void check_kind(std::size_t float_bytes, std::size_t double_bytes) {
  SCOPED_TRACE(::testing::Message() << "kind with header " << F::header << ", " << F::count << " x "
                                    << F::row_size << ", type " << F::type);
  testing::log_capture log;
  testing::temp_dir dir;
  const bool cumulative = F::type == cumulative_table;
  auto value = [&](std::size_t r, std::size_t c) -> double {
    if (cumulative) return c == 0 ? double(r + 2) : 1.0;
    return -(double(r) * 3 + double(c) + 0.5);
  };
  for (encoding enc : {encoding::single, encoding::wide}) {
    const auto bytes = testing::table_bytes<F>(value, enc);
    ASSERT_EQ(bytes.size(), enc == encoding::single ? float_bytes : double_bytes);
    const std::string path = dir.file("table.db");
    testing::write_bytes(path, bytes.data(), bytes.size());
    auto table = fresh_table<F>();
    log.clear();
    load(*table, path);
    EXPECT_EQ(log.info(), enc == encoding::single ? "" : "table type not matched, reload as double table.\n");
    for (std::size_t r : {std::size_t{0}, F::count - 1}) {
      const float* row = table->row(r);
      if (cumulative) {
        const float total = float(r + 1 + F::row_size);
        EXPECT_EQ(row[0], float(r + 2) / total);
        EXPECT_EQ(row[F::row_size - 2], float(r + F::row_size) / total);
        EXPECT_EQ(row[F::row_size - 1], 1.0f);
      } else {
        for (std::size_t c = 0; c < F::row_size; ++c) EXPECT_EQ(row[c], float(double(r) * 3 + double(c) + 0.5));
      }
    }
  }
}

TEST(TableKinds, TwoLayerKindsReadFilesOfTheirTwoLengths) {
  check_kind<two_layer_gft_is_table>(837960, 1675896);
  check_kind<two_layer_gft_table>(279336, 558648);
  check_kind<two_layer_wvt_is_table>(288, 552);
}

TEST(TableKinds, HalfLayerKindsReadFilesOfTheirTwoLengths) {
  check_kind<half_layer_gft_is_table>(41496, 82968);
  check_kind<half_layer_gft_table>(13848, 27672);
  check_kind<half_layer_wvt_is_table>(36, 48);
}

TEST(TableKinds, ThreeAndFourLayerKindsReadFilesOfTheirTwoLengths) {
  check_kind<three_layer_gft_is_table>(2280988, 4561948);
  check_kind<three_layer_gft_table>(760348, 1520668);
  check_kind<three_layer_wvt_is_table>(688, 1348);
  check_kind<four_layer_gft_table>(2280996, 4561956);
}

TEST(TableKinds, CompressedRecordsHaveTheirListedLengths) {
  EXPECT_EQ(cmpr_gft_a_record::float_file_bytes * 13718, 8724648u);
  EXPECT_EQ(cmpr_gft_b_record::float_file_bytes * 13718, 8395416u);
  EXPECT_EQ(cmpr_gft_is_z_record::float_file_bytes * 13718, 24857016u);
  EXPECT_EQ(cmpr_gft_is_xy_a_record::float_file_bytes * 13718, 16296984u);
  EXPECT_EQ(cmpr_gft_is_xy_b_record::float_file_bytes * 13718, 16296984u);
  EXPECT_EQ(cmpr_wvt_is_record::float_file_bytes * 13718, 603592u);
}

TEST(LoadFile, LengthAloneDecidesTheEncoding) {
  testing::log_capture log;
  testing::temp_dir dir;
  // 24 + 12 bytes is the float form of a 1 x 3 table, even when the payload
  // begins with the bits of a double: they are read as two floats.
  unsigned char bytes[36] = {};
  const double two = 2.0;
  const float three = 3.0f;
  std::memcpy(bytes + 24, &two, 8);
  std::memcpy(bytes + 32, &three, 4);
  testing::write_bytes(dir.file("t.db"), bytes, sizeof bytes);
  half_layer_wvt_is_table table{};
  load(table, dir.file("t.db"));
  EXPECT_EQ(log.info(), "");
  EXPECT_THAT(table.values, ::testing::ElementsAre(0.0f, 2.0f, 3.0f));
}

TEST(LoadFile, DoubleFormIsNarrowedToFloat) {
  testing::log_capture log;
  testing::temp_dir dir;
  // Just below the rounding point past the largest float, far beyond it, and
  // a tiny negative that narrows to -0 before the sign is cleared.
  const double values[3] = {0x1.fffffefp127, -1e300, -1e-300};
  write_table<half_layer_wvt_is_table>(dir.file("t.db"), [&](std::size_t, std::size_t c) { return values[c]; },
                                       encoding::wide);
  half_layer_wvt_is_table table{};
  load(table, dir.file("t.db"));
  EXPECT_EQ(log.info(), "table type not matched, reload as double table.\n");
  EXPECT_EQ(table.values[0], std::numeric_limits<float>::max());
  EXPECT_EQ(table.values[1], std::numeric_limits<float>::infinity());
  EXPECT_EQ(table.values[2], 0.0f);
  EXPECT_FALSE(std::signbit(table.values[2]));
}

TEST(LoadFile, RefusesEveryOtherLengthWithoutTouchingTheTable) {
  testing::log_capture log;
  testing::temp_dir dir;
  // The 1 x 3 kind with header 24: 36 and 48 bytes are its two forms.
  for (std::size_t length : {0u, 24u, 35u, 37u, 40u, 47u, 49u, 72u}) {
    SCOPED_TRACE(length);
    std::vector<unsigned char> bytes(length, 0x3f);
    testing::write_bytes(dir.file("t.db"), bytes.data(), bytes.size());
    half_layer_wvt_is_table table;
    for (float& v : table) v = 42.0f;
    log.clear();
    try {
      load(table, dir.file("t.db"));
      ADD_FAILURE() << "length accepted";
    } catch (const sea::file_error& e) {
      EXPECT_STREQ(e.what(), "iSYSTEM ERROR. ");
    }
    EXPECT_EQ(log.error(), "ERROR: incorrect table file size.\n");
    EXPECT_THAT(table.values, ::testing::Each(42.0f));
  }
}

TEST(LoadFile, WrongHeaderLengthIsRefusedThoughTheHeaderIsNeverRead) {
  testing::log_capture log;
  testing::temp_dir dir;
  auto ones = [](std::size_t, std::size_t) { return 1.0; };
  for (std::size_t header : {20u, 28u, 36u}) {
    write_table<two_layer_wvt_is_table>(dir.file("t.db"), ones, encoding::single, header);
    two_layer_wvt_is_table table{};
    EXPECT_THROW(load(table, dir.file("t.db")), sea::file_error) << header;
    write_table<two_layer_wvt_is_table>(dir.file("t.db"), ones, encoding::wide, header);
    EXPECT_THROW(load(table, dir.file("t.db")), sea::file_error) << header;
  }
}

TEST(LoadFile, CumulativeRowsKeepNegativesAndTurnZeroRowsToNotANumber) {
  testing::log_capture log;
  testing::temp_dir dir;
  // Row 0: 2, -1, 0, ..., 0, 7 (total 8). Row 1: all zero. Row 2: quarters.
  write_table<half_layer_gft_is_table>(dir.file("t.db"), [](std::size_t r, std::size_t c) -> double {
    if (r == 0) return c == 0 ? 2.0 : c == 1 ? -1.0 : c == 3455 ? 7.0 : 0.0;
    if (r == 1) return 0.0;
    return 0.25;
  });
  auto table = fresh_table<half_layer_gft_is_table>();
  load(*table, dir.file("t.db"));
  const float* row = table->row(0);
  EXPECT_EQ(row[0], 0.25f);
  EXPECT_EQ(row[1], 0.125f);  // the running sum went down: no absolute value here
  EXPECT_EQ(row[3454], 0.125f);
  EXPECT_EQ(row[3455], 1.0f);
  row = table->row(1);
  for (std::size_t c = 0; c < 3455; ++c) ASSERT_TRUE(std::isnan(row[c])) << c;
  EXPECT_EQ(row[3455], 1.0f);
  row = table->row(2);
  EXPECT_EQ(row[0], 1.0f / 3456);
  EXPECT_EQ(row[1727], 0.5f);
  EXPECT_EQ(row[3455], 1.0f);
  for (std::size_t c = 1; c < 3456; ++c) ASSERT_LT(row[c - 1], row[c]);
}

TEST(LoadFile, WeightValuesLoseTheirSignAndNothingElse) {
  testing::log_capture log;
  testing::temp_dir dir;
  write_table<three_layer_wvt_is_table>(dir.file("t.db"), [](std::size_t r, std::size_t c) -> double {
    if (r == 0) return c == 0 ? -0.0 : c == 1 ? -NAN : 5.0;
    return (c % 2 ? -1.0 : 1.0) * double(r * 3 + c);
  });
  three_layer_wvt_is_table table{};
  load(table, dir.file("t.db"));
  EXPECT_EQ(table.values[0], 0.0f);
  EXPECT_FALSE(std::signbit(table.values[0]));
  EXPECT_TRUE(std::isnan(table.values[1]));
  EXPECT_FALSE(std::signbit(table.values[1]));
  EXPECT_EQ(table.values[2], 5.0f);
  for (std::size_t i = 3; i < 165; ++i) ASSERT_EQ(table.values[i], float(i)) << i;
}

TEST(LoadFile, MissingFileNamesOnlyItsBaseName) {
  testing::log_capture log;
  testing::temp_dir dir;
  testing::scoped_env home("HOME", dir.file("empty_home"));
  const std::string expected = "cannot open \"NumGFT1_2_23.db\", please register correct GFT/WVTs\n";
  two_layer_wvt_is_table table{};
  try {
    load(table, dir.file("Torva_tables/Multiple/GFT/NumGFT1_2_23.db"));
    ADD_FAILURE() << "no failure";
  } catch (const sea::file_error& e) {
    EXPECT_EQ(e.what(), expected);
  }
  EXPECT_EQ(log.error(), expected);
  EXPECT_EQ(log.info(), "");
  log.clear();
  EXPECT_THROW(load(table, "no_such_relative_table.db"), sea::file_error);
  EXPECT_EQ(log.error(), "cannot open \"no_such_relative_table.db\", please register correct GFT/WVTs\n");
}

TEST(LoadFile, MissingFileWithoutHomeIsTheOrdinaryFailure) {
  testing::log_capture log;
  testing::temp_dir dir;
  testing::scoped_env home("HOME", std::nullopt);
  two_layer_wvt_is_table table{};
  EXPECT_THROW(load(table, dir.file("Torva_tables/x.db")), sea::file_error);
  EXPECT_EQ(log.error(), "cannot open \"x.db\", please register correct GFT/WVTs\n");
}

TEST(LoadFile, FallsBackToTheCopyUnderHome) {
  testing::log_capture log;
  testing::temp_dir dir;
  const std::string home_dir = dir.file("home");
  testing::scoped_env home("HOME", home_dir);
  auto threes = [](std::size_t, std::size_t) { return -3.0; };
  // From "Torva_tables" on, the installed path is looked up under HOME.
  write_table<half_layer_wvt_is_table>(home_dir + "/Torva_tables/Multiple/WVT/a.db", threes);
  half_layer_wvt_is_table table{};
  load(table, dir.file("installed/Torva_tables/Multiple/WVT/a.db"));
  EXPECT_EQ(log.info(), "use user-specific tables\n");
  EXPECT_THAT(table.values, ::testing::Each(3.0f));
  // A path without that name is appended whole, after a "/".
  log.clear();
  const std::string elsewhere = dir.file("elsewhere/b.db");
  write_table<half_layer_wvt_is_table>(home_dir + "/" + elsewhere, [](std::size_t, std::size_t) { return 4.0; });
  load(table, elsewhere);
  EXPECT_EQ(log.info(), "use user-specific tables\n");
  EXPECT_THAT(table.values, ::testing::Each(4.0f));
  // Found nowhere: the message names the first path, not the home one.
  log.clear();
  EXPECT_THROW(load(table, dir.file("installed/Torva_tables/Multiple/WVT/c.db")), sea::file_error);
  EXPECT_EQ(log.error(), "cannot open \"c.db\", please register correct GFT/WVTs\n");
  EXPECT_EQ(log.info(), "");
}

TEST(LoadFile, FailedSeekIsASystemFailure) {
  // A pipe can't seek. Holding its other end open lets the reader open it
  // without waiting for a writer.
  testing::log_capture log;
  testing::temp_dir dir;
  const std::string fifo = dir.file("pipe.db");
  ASSERT_EQ(::mkfifo(fifo.c_str(), 0600), 0);
  const int keep = ::open(fifo.c_str(), O_RDWR | O_NONBLOCK);
  ASSERT_GE(keep, 0);
  half_layer_wvt_is_table table{};
  try {
    load(table, fifo);
    ADD_FAILURE() << "no failure";
  } catch (const sea::fatal_error& e) {
    EXPECT_STREQ(e.what(), std::strerror(ESPIPE));
    EXPECT_EQ(log.error(), std::string(e.what()) + "\n");
  }
  char* buffer = nullptr;
  table_loader loader(nullptr, nullptr, nullptr);
  EXPECT_THROW(loader.preload_approx<cmpr_wvt_is_record>(1, buffer, fifo.c_str()), sea::fatal_error);
  EXPECT_EQ(buffer, nullptr);
  ::close(keep);
}

TEST(LoadFile, DirectoryIsRefusedCleanly) {
  testing::log_capture log;
  testing::temp_dir dir;
  half_layer_wvt_is_table table{};
  EXPECT_THROW(load(table, dir.path.string()), sea::base_error);
  EXPECT_THAT(log.error(), ::testing::EndsWith("\n"));
}

TEST(PreloadApprox, ReadsTheWholeFileHeadersIncluded) {
  testing::log_capture log;
  testing::temp_dir dir;
  std::vector<unsigned char> bytes(3 * 44);
  for (std::size_t i = 0; i < bytes.size(); ++i) bytes[i] = static_cast<unsigned char>(i * 7 + 1);
  testing::write_bytes(dir.file("w.db"), bytes.data(), bytes.size());
  table_loader loader(nullptr, nullptr, nullptr);
  char* buffer = nullptr;
  loader.preload_approx<cmpr_wvt_is_record>(3, buffer, dir.file("w.db").c_str());
  ASSERT_NE(buffer, nullptr);
  EXPECT_EQ(std::memcmp(buffer, bytes.data(), bytes.size()), 0);
  std::free(buffer);
  EXPECT_EQ(log.error(), "");
  // No records and an empty file agree too.
  testing::write_bytes(dir.file("e.db"), nullptr, 0);
  buffer = nullptr;
  loader.preload_approx<cmpr_wvt_is_record>(0, buffer, dir.file("e.db").c_str());
  EXPECT_NE(buffer, nullptr);
  std::free(buffer);
}

TEST(PreloadApprox, RefusesAFileOfAnotherRecordCount) {
  testing::log_capture log;
  testing::temp_dir dir;
  std::vector<unsigned char> bytes(13717 * 44, 0);
  testing::write_bytes(dir.file("w.db"), bytes.data(), bytes.size());
  table_loader loader(nullptr, nullptr, nullptr);
  for (int n : {13718, 13716, -13717, 0}) {
    SCOPED_TRACE(n);
    log.clear();
    char* buffer = nullptr;
    try {
      loader.preload_approx<cmpr_wvt_is_record>(n, buffer, dir.file("w.db").c_str());
      ADD_FAILURE() << "accepted";
    } catch (const sea::file_error& e) {
      EXPECT_STREQ(e.what(), "SYSTEM ERROR. \n");
    }
    EXPECT_EQ(buffer, nullptr);
    EXPECT_EQ(log.error(), "ERROR: incorrect table file size.\n");
  }
  // The right count for a record of another size is refused as well.
  char* buffer = nullptr;
  EXPECT_THROW(loader.preload_approx<cmpr_gft_a_record>(13717, buffer, dir.file("w.db").c_str()), sea::file_error);
}

TEST(PreloadApprox, MissingFileMessageCarriesTheErrorWord) {
  testing::log_capture log;
  testing::temp_dir dir;
  testing::scoped_env home("HOME", dir.file("home"));
  table_loader loader(nullptr, nullptr, nullptr);
  char* buffer = nullptr;
  const std::string expected = "ERROR: cannot open \"NumGFT_A.db\", please register correct GFT/WVTs\n";
  try {
    loader.preload_approx<cmpr_gft_a_record>(1, buffer, dir.file("Approx4equal/GFT/NumGFT_A.db").c_str());
    ADD_FAILURE() << "no failure";
  } catch (const sea::file_error& e) {
    EXPECT_EQ(e.what(), expected);
  }
  EXPECT_EQ(log.error(), expected);
  EXPECT_EQ(buffer, nullptr);
}

TEST(PreloadApproxDeathTest, BufferThatIsNotNullEndsTheProcess) {
  GTEST_FLAG_SET(death_test_style, "threadsafe");
  testing::temp_dir dir;
  std::vector<unsigned char> bytes(44, 0);
  testing::write_bytes(dir.file("w.db"), bytes.data(), bytes.size());
  EXPECT_EXIT(
      {
        table_loader loader(nullptr, nullptr, nullptr);
        char* buffer = nullptr;
        loader.preload_approx<cmpr_wvt_is_record>(1, buffer, dir.file("w.db").c_str());
        loader.preload_approx<cmpr_wvt_is_record>(1, buffer, dir.file("w.db").c_str());
      },
      ::testing::ExitedWithCode(1), "");
}

}  // namespace
}  // namespace torva
