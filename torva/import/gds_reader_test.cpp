// The GDS reader: every element kind through the test writer and back, and
// each kind of bad stream refused with its place, never a crash.
#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include "torva/foundation/errors.h"
#include "torva/import/gds_reader.h"
#include "torva/import/internal/gds_stream.h"
#include "torva_testing/gds_writer.h"
#include "torva_testing/log_capture.h"

namespace torva {
namespace {

using testing::gds_writer;
using ::testing::ElementsAre;
using ::testing::HasSubstr;
namespace rec = testing::gds_record;

gds_library read(const gds_writer& w) { return read_gds_bytes(w.bytes, "t.gds"); }

std::vector<gds_point> ring(const gds_polygons& p, std::size_t i) {
  auto r = p.polygon(i);
  return {r.begin(), r.end()};
}

TEST(GdsReal8, DecodesWhatTheWriterEncodes) {
  for (double v : {1e-3, 1e-9, 2.5e-10, 1.0, -90.0, 0.0, 123456.789, 1.0 / 3}) {
    const std::uint64_t bits = testing::gds_real8(v);
    std::uint8_t bytes[8];
    for (int i = 0; i < 8; ++i) bytes[i] = std::uint8_t(bits >> (56 - 8 * i));
    EXPECT_NEAR(internal::gds_real8(bytes), v, std::abs(v) * 1e-15) << v;
  }
  // 1.0 is 0x41 1000... in the stream: 16^1 times 1/16.
  const std::uint8_t one[8] = {0x41, 0x10, 0, 0, 0, 0, 0, 0};
  EXPECT_EQ(internal::gds_real8(one), 1.0);
}

TEST(GdsReader, EveryElementKindComesBack) {
  testing::log_capture log;
  gds_writer w;
  w.begin_library("CHIP", 1e-3, 1e-9);
  w.begin_cell("LEAF").rectangle(5, 0, 0, 0, 10, 10).end_cell();
  w.begin_cell("TOP");
  // Clockwise as written: the reader turns it anticlockwise.
  w.boundary(68, 20, {{0, 0}, {0, 200}, {100, 200}, {100, 0}});
  w.property(1, "a property");
  w.box(2, 3, 10, 20, 30, 40);
  w.path(69, 20, 40, 0, {{0, 0}, {1000, 0}});
  w.text(68, 5, {50, 60}, "vdd");
  w.node(7, {1, 1});
  w.record(0x70, testing::gds_data::INT16, {0, 1});  // unknown record type
  w.sref("LEAF", {500, 600}, {true, 2.0, 90.0});
  w.aref("LEAF", 3, 2, {0, 0}, {300, 0}, {0, 400});
  w.end_cell().end_library();
  const gds_library lib = read(w);

  EXPECT_EQ(lib.name, "CHIP");
  EXPECT_NEAR(lib.um_per_db(), 1e-3, 1e-18);
  EXPECT_NEAR(lib.user_units_per_db, 1e-3, 1e-18);
  ASSERT_EQ(lib.cells.size(), 2u);
  const gds_cell& top = lib.cells[1];
  EXPECT_EQ(top.name, "TOP");
  ASSERT_EQ(top.shapes.size(), 3u);
  EXPECT_EQ(top.shapes[0].key, (gds_layer{68, 20}));
  EXPECT_THAT(ring(top.shapes[0], 0), ElementsAre(gds_point{100, 0}, gds_point{100, 200}, gds_point{0, 200},
                                                  gds_point{0, 0}));
  EXPECT_EQ(top.shapes[1].key, (gds_layer{2, 3}));
  EXPECT_THAT(ring(top.shapes[1], 0), ElementsAre(gds_point{10, 20}, gds_point{30, 20}, gds_point{30, 40},
                                                  gds_point{10, 40}));
  EXPECT_EQ(top.shapes[2].key, (gds_layer{69, 20}));
  EXPECT_THAT(ring(top.shapes[2], 0), ::testing::UnorderedElementsAre(gds_point{0, -20}, gds_point{1000, -20},
                                                                      gds_point{1000, 20}, gds_point{0, 20}));
  ASSERT_EQ(top.labels.size(), 1u);
  EXPECT_EQ(top.labels[0].key, (gds_layer{68, 5}));
  EXPECT_EQ(top.labels[0].at, (gds_point{50, 60}));
  EXPECT_EQ(top.labels[0].text, "vdd");

  ASSERT_EQ(top.references.size(), 2u);
  const gds_reference& s = top.references[0];
  EXPECT_EQ(s.cell, 0u);
  EXPECT_FALSE(s.array);
  EXPECT_TRUE(s.transform.reflect);
  EXPECT_DOUBLE_EQ(s.transform.mag, 2.0);
  EXPECT_DOUBLE_EQ(s.transform.angle, 90.0);
  EXPECT_EQ(s.origin, (gds_point{500, 600}));
  const gds_reference& a = top.references[1];
  EXPECT_TRUE(a.array);
  EXPECT_EQ(a.columns, 3);
  EXPECT_EQ(a.rows, 2);
  EXPECT_EQ(a.column_end, (gds_point{300, 0}));
  EXPECT_EQ(a.row_end, (gds_point{0, 400}));

  ASSERT_EQ(lib.warnings.size(), 1u);
  EXPECT_THAT(lib.warnings[0], HasSubstr("unknown record"));
  EXPECT_THAT(log.warning(), HasSubstr("WARNING: GDS file \"t.gds\": an unknown record"));
}

TEST(GdsReader, WarnsOncePerKindAndSkips) {
  testing::log_capture log;
  gds_writer w;
  w.begin_library().begin_cell("TOP");
  w.path(1, 0, 0, 0, {{0, 0}, {10, 0}});
  w.path(1, 0, 0, 0, {{0, 0}, {20, 0}});
  w.path(1, 0, 10, 0, {{5, 5}, {5, 5}});            // one distinct point
  w.boundary(1, 0, {{0, 0}, {10, 0}, {0, 0}});       // two distinct points
  w.sref("MISSING", {0, 0});
  w.end_cell().end_library();
  const gds_library lib = read(w);
  EXPECT_EQ(lib.cells[0].polygon_count(), 0u);
  ASSERT_EQ(lib.warnings.size(), 3u);
  EXPECT_THAT(lib.warnings[0], HasSubstr("a PATH of zero width, skipped"));
  EXPECT_THAT(lib.warnings[0], HasSubstr("(and 1 more like it)"));
  EXPECT_THAT(lib.warnings[1], HasSubstr("fewer than two distinct points"));
  EXPECT_THAT(lib.warnings[1], HasSubstr("(and 1 more like it)"));
  EXPECT_THAT(lib.warnings[2], HasSubstr("references \"MISSING\", which the file does not define"));
}

// A valid library with one cell; `breaker` spoils it in one place.
void expect_refused(const std::function<void(gds_writer&)>& breaker, const std::string& message) {
  testing::log_capture log;
  gds_writer w;
  breaker(w);
  try {
    read(w);
    ADD_FAILURE() << "accepted; expected: " << message;
  } catch (const sea::file_error& e) {
    EXPECT_THAT(e.what(), HasSubstr(message));
    EXPECT_THAT(log.error(), HasSubstr("ERROR: GDS file \"t.gds\""));
  }
}

TEST(GdsReader, BadStreamsAreRefusedWithTheirPlace) {
  auto good = [](gds_writer& w) {
    w.begin_library().begin_cell("A").rectangle(1, 0, 0, 0, 10, 10).end_cell().end_library();
  };
  expect_refused([&](gds_writer& w) { good(w); w.bytes.resize(w.bytes.size() - 3); },
                 "inside a record header");
  expect_refused([&](gds_writer& w) { good(w); w.bytes.resize(w.bytes.size() - 4); },
                 "the stream ends at byte offset");
  expect_refused([&](gds_writer& w) { good(w); w.bytes.resize(w.bytes.size() - 30); },
                 "inside a record of");
  expect_refused([](gds_writer& w) { w.bytes = {'#', ' ', 'n', 'o', 't', ' ', 'g', 'd', 's'}; },
                 "not a GDSII stream");
  expect_refused([](gds_writer& w) {
    w.begin_library().begin_cell("A");
    w.bytes.insert(w.bytes.end(), {0, 2, rec::BOUNDARY, 0});
  }, "corrupt record length 2 (BOUNDARY record at byte offset");
  expect_refused([](gds_writer& w) {
    w.begin_library().begin_cell("A").record(rec::BOUNDARY, 0).int32s(rec::LAYER, {1});
  }, "data type 3 where 2 belongs (LAYER record at byte offset 100, in cell \"A\")");
  expect_refused([](gds_writer& w) {
    w.begin_library().begin_cell("A").record(rec::BOUNDARY, 0).record(rec::XY, testing::gds_data::INT32, {0, 0, 0, 1});
  }, "not whole points");
  expect_refused([](gds_writer& w) {
    w.begin_library().begin_cell("A").record(rec::BOUNDARY, 0).int16s(rec::LAYER, {1}).end_cell();
  }, "ENDEL missing");
  expect_refused([](gds_writer& w) { w.int16s(rec::HEADER, {600}).begin_cell("A"); }, "before the library's UNITS");
  expect_refused([](gds_writer& w) { w.begin_library("L", 1e-3, 0.0); }, "the units must be positive");
  expect_refused([](gds_writer& w) { w.begin_library().begin_cell("A").end_cell().begin_cell("A"); },
                 "a second cell named \"A\"");
  expect_refused([](gds_writer& w) { w.begin_library().begin_cell("A").sref("B", {0, 0}, {false, 0.0, 0.0}); },
                 "the magnification must be positive");
  expect_refused([](gds_writer& w) { w.begin_library().begin_cell("A").aref("B", 0, 2, {0, 0}, {0, 0}, {0, 10}); },
                 "an array of 0 columns and 2 rows");
  expect_refused([](gds_writer& w) { w.begin_library().begin_cell("A").aref("B", -3, 2, {0, 0}, {9, 0}, {0, 10}); },
                 "an array of -3 columns");
  expect_refused([](gds_writer& w) { w.begin_library().begin_cell("A").aref("B", 2, 2, {5, 5}, {5, 5}, {5, 10}); },
                 "zero column pitch");
  expect_refused([](gds_writer& w) { w.begin_library().begin_cell("A").aref("B", 2, 3, {0, 0}, {20, 10}, {-60, -30}); },
                 "parallel");
  expect_refused([](gds_writer& w) { w.begin_library().begin_cell("A").record(rec::SREF, 0).end_element(); },
                 "SREF element without SNAME");
}

}  // namespace
}  // namespace torva
