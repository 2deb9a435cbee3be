#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <fcntl.h>
#include <sys/stat.h>
#include <unistd.h>

#include <cerrno>
#include <cmath>
#include <cstdlib>
#include <cstring>
#include <limits>
#include <memory>

#include "torva/tables/internal/test_table_files.h"
#include "torva/tables/table_loader.h"
#include "torva_testing/log_capture.h"

namespace torva {
namespace {

using ::testing::Each;
using testing::encoding;
using testing::write_table;

template <class F>
void load(F& table, const std::string& path) {
  table_loader loader(nullptr, nullptr, nullptr);
  loader.load_file(table, path.c_str());
}

// Runs `step`, which must throw E with exactly the message `what`.
template <class E, class Step>
void expect_failure(Step step, const std::string& what) {
  try {
    step();
    ADD_FAILURE() << "no failure, expected: " << what;
  } catch (const E& e) {
    EXPECT_EQ(std::string(e.what()), what);
  }
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
    testing::write_bytes(dir.file("table.db"), bytes.data(), bytes.size());
    auto table = std::make_unique<F>();  // the largest kinds are megabytes
    for (float& v : *table) v = 42.0f;
    log.clear();
    load(*table, dir.file("table.db"));
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

TEST(TableKinds, EachKindReadsFilesOfItsTwoLengths) {
  check_kind<two_layer_gft_is_table>(837960, 1675896);
  check_kind<two_layer_gft_table>(279336, 558648);
  check_kind<two_layer_wvt_is_table>(288, 552);
  check_kind<half_layer_gft_is_table>(41496, 82968);
  check_kind<half_layer_gft_table>(13848, 27672);
  check_kind<half_layer_wvt_is_table>(36, 48);
  check_kind<three_layer_gft_is_table>(2280988, 4561948);
  check_kind<three_layer_gft_table>(760348, 1520668);
  check_kind<three_layer_wvt_is_table>(688, 1348);
  check_kind<four_layer_gft_table>(2280996, 4561956);
  // The compressed files: 13718 records each.
  EXPECT_EQ(cmpr_gft_a_record::float_file_bytes * 13718, 8724648u);
  EXPECT_EQ(cmpr_gft_b_record::float_file_bytes * 13718, 8395416u);
  EXPECT_EQ(cmpr_gft_is_z_record::float_file_bytes * 13718, 24857016u);
  EXPECT_EQ(cmpr_gft_is_xy_a_record::float_file_bytes * 13718, 16296984u);
  EXPECT_EQ(cmpr_gft_is_xy_b_record::float_file_bytes * 13718, 16296984u);
  EXPECT_EQ(cmpr_wvt_is_record::float_file_bytes * 13718, 603592u);
}

struct LoadFile : ::testing::Test {
  testing::log_capture log;
  testing::temp_dir dir;
  half_layer_wvt_is_table small{};  // 1 x 3 after a header of 24: files of 36 and 48 bytes
};

TEST_F(LoadFile, LengthAloneDecidesTheEncoding) {
  // 24 + 12 bytes is the float form even when the payload begins with the
  // bits of a double: they are read as two floats.
  unsigned char bytes[36] = {};
  const double two = 2.0;
  const float three = 3.0f;
  std::memcpy(bytes + 24, &two, 8);
  std::memcpy(bytes + 32, &three, 4);
  testing::write_bytes(dir.file("t.db"), bytes, sizeof bytes);
  load(small, dir.file("t.db"));
  EXPECT_EQ(log.info(), "");
  EXPECT_THAT(small.values, ::testing::ElementsAre(0.0f, 2.0f, 3.0f));
}

TEST_F(LoadFile, DoubleFormIsNarrowedToFloat) {
  // Just below the rounding point past the largest float, far beyond it, and
  // a tiny negative that narrows to -0 before the sign is cleared.
  const double values[3] = {0x1.fffffefp127, -1e300, -1e-300};
  write_table<half_layer_wvt_is_table>(dir.file("t.db"), [&](std::size_t, std::size_t c) { return values[c]; },
                                       encoding::wide);
  load(small, dir.file("t.db"));
  EXPECT_EQ(log.info(), "table type not matched, reload as double table.\n");
  EXPECT_EQ(small.values[0], std::numeric_limits<float>::max());
  EXPECT_EQ(small.values[1], std::numeric_limits<float>::infinity());
  EXPECT_EQ(small.values[2], 0.0f);
  EXPECT_FALSE(std::signbit(small.values[2]));
}

TEST_F(LoadFile, RefusesEveryOtherLengthWithoutTouchingTheTable) {
  for (std::size_t length : {0u, 24u, 35u, 37u, 40u, 47u, 49u, 72u}) {
    SCOPED_TRACE(length);
    std::vector<unsigned char> bytes(length, 0x3f);
    testing::write_bytes(dir.file("t.db"), bytes.data(), bytes.size());
    for (float& v : small) v = 42.0f;
    log.clear();
    expect_failure<sea::file_error>([&] { load(small, dir.file("t.db")); }, "iSYSTEM ERROR. ");
    EXPECT_EQ(log.error(), "ERROR: incorrect table file size.\n");
    EXPECT_THAT(small.values, Each(42.0f));
  }
  // A header of another length is refused too, though it is never read.
  auto ones = [](std::size_t, std::size_t) { return 1.0; };
  two_layer_wvt_is_table table{};
  for (std::size_t header : {20u, 28u, 36u}) {
    for (encoding enc : {encoding::single, encoding::wide}) {
      write_table<two_layer_wvt_is_table>(dir.file("t.db"), ones, enc, header);
      EXPECT_THROW(load(table, dir.file("t.db")), sea::file_error) << header;
    }
  }
}

TEST_F(LoadFile, CumulativeRowsKeepNegativesAndTurnZeroRowsToNotANumber) {
  // Row 0: 2, -1, 0, ..., 0, 7 (total 8). Row 1: all zero. Row 2: quarters.
  write_table<half_layer_gft_is_table>(dir.file("t.db"), [](std::size_t r, std::size_t c) -> double {
    if (r == 0) return c == 0 ? 2.0 : c == 1 ? -1.0 : c == 3455 ? 7.0 : 0.0;
    return r == 1 ? 0.0 : 0.25;
  });
  auto table = std::make_unique<half_layer_gft_is_table>();
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

TEST_F(LoadFile, WeightValuesLoseTheirSignAndNothingElse) {
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

TEST_F(LoadFile, MissingFileWithoutHomeNamesOnlyItsBaseName) {
  testing::scoped_env home("HOME", std::nullopt);
  EXPECT_THROW(load(small, dir.file("Torva_tables/x.db")), sea::file_error);
  EXPECT_EQ(log.error(), "cannot open \"x.db\", please register correct GFT/WVTs\n");
}

TEST_F(LoadFile, FallsBackToTheCopyUnderHome) {
  const std::string home_dir = dir.file("home");
  testing::scoped_env home("HOME", home_dir);
  // From "Torva_tables" on, the installed path is looked up under HOME.
  write_table<half_layer_wvt_is_table>(home_dir + "/Torva_tables/Multiple/WVT/a.db", [](auto, auto) { return -3.0; });
  load(small, dir.file("installed/Torva_tables/Multiple/WVT/a.db"));
  EXPECT_EQ(log.info(), "use user-specific tables\n");
  EXPECT_THAT(small.values, Each(3.0f));
  // Found nowhere: the message names the first path, not the home one.
  log.clear();
  EXPECT_THROW(load(small, dir.file("installed/Torva_tables/Multiple/WVT/c.db")), sea::file_error);
  EXPECT_EQ(log.error(), "cannot open \"c.db\", please register correct GFT/WVTs\n");
  EXPECT_EQ(log.info(), "");
}

TEST_F(LoadFile, FailedSeekIsASystemFailureAndADirectoryIsRefused) {
  // A pipe can't seek. Holding its other end open lets the reader open it
  // without waiting for a writer.
  const std::string fifo = dir.file("pipe.db");
  ASSERT_EQ(::mkfifo(fifo.c_str(), 0600), 0);
  const int keep = ::open(fifo.c_str(), O_RDWR | O_NONBLOCK);
  ASSERT_GE(keep, 0);
  expect_failure<sea::fatal_error>([&] { load(small, fifo); }, std::strerror(ESPIPE));
  EXPECT_EQ(log.error(), std::string(std::strerror(ESPIPE)) + "\n");
  ::close(keep);
  log.clear();
  EXPECT_THROW(load(small, dir.path.string()), sea::base_error);
  EXPECT_THAT(log.error(), ::testing::EndsWith("\n"));
}

// Whole files are read by the compressed set's tests; here, what is refused.
TEST_F(LoadFile, PreloadApproxRefusesAnotherRecordCountOrAMissingFile) {
  std::vector<unsigned char> bytes(13717 * 44, 0);
  testing::write_bytes(dir.file("w.db"), bytes.data(), bytes.size());
  table_loader loader(nullptr, nullptr, nullptr);
  char* buffer = nullptr;
  // No records and an empty file agree.
  testing::write_bytes(dir.file("e.db"), nullptr, 0);
  loader.preload_approx<cmpr_wvt_is_record>(0, buffer, dir.file("e.db").c_str());
  EXPECT_NE(buffer, nullptr);
  std::free(buffer);
  buffer = nullptr;
  for (int n : {13718, 13716, -13717, 0}) {
    SCOPED_TRACE(n);
    log.clear();
    expect_failure<sea::file_error>(
        [&] { loader.preload_approx<cmpr_wvt_is_record>(n, buffer, dir.file("w.db").c_str()); }, "SYSTEM ERROR. \n");
    EXPECT_EQ(buffer, nullptr);
    EXPECT_EQ(log.error(), "ERROR: incorrect table file size.\n");
  }
  // The right count for a record of another size is refused as well.
  EXPECT_THROW(loader.preload_approx<cmpr_gft_a_record>(13717, buffer, dir.file("w.db").c_str()), sea::file_error);
  // A missing file: the message carries the error word.
  testing::scoped_env home("HOME", dir.file("home"));
  const std::string message = "ERROR: cannot open \"NumGFT_A.db\", please register correct GFT/WVTs\n";
  log.clear();
  expect_failure<sea::file_error>(
      [&] { loader.preload_approx<cmpr_gft_a_record>(1, buffer, dir.file("Approx4equal/GFT/NumGFT_A.db").c_str()); },
      message);
  EXPECT_EQ(log.error(), message);
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
