// A binary file that can be mapped is read where it lies, and one of several
// megabytes has the shapes of its block records made ahead on a second
// thread; a pipe is read through the stream, one record after another. Both
// ways must fill the same records, field for field, and say the same things.
#include <gtest/gtest.h>

#include <fcntl.h>
#include <sys/stat.h>
#include <unistd.h>

#include <csignal>
#include <cstring>
#include <fstream>
#include <stdexcept>
#include <string>
#include <thread>

#include "torva/layout/binary_writer.h"
#include "torva/layout/cap3d_parser.h"
#include "torva/layout/generator.h"
#include "torva/layout/internal/binary_test_support.h"
#include "torva_testing/log_capture.h"

namespace torva {
namespace {

struct outcome {
  bool ok = false;
  std::string error;  // logger::error, then the text of an exception
  circuit_layout::raw raw;
};

// Reads `bytes` from a file, or through a named pipe fed by another thread.
void read_into(outcome& out, const std::string& bytes, bool piped, int slices = 4) {
  static testing::temp_dir dir;
  static int files = 0;
  const std::string path = dir.file("layout" + std::to_string(++files));
  std::thread feeder;
  if (piped) {
    std::signal(SIGPIPE, SIG_IGN);  // a reader that stops early closes the pipe
    ASSERT_EQ(::mkfifo(path.c_str(), 0600), 0);
    feeder = std::thread([&] {
      const int fd = ::open(path.c_str(), O_WRONLY);
      for (std::size_t at = 0; fd >= 0 && at < bytes.size();) {
        const ssize_t put = ::write(fd, bytes.data() + at, bytes.size() - at);
        if (put <= 0) break;
        at += std::size_t(put);
      }
      if (fd >= 0) ::close(fd);
    });
  } else {
    std::ofstream(path, std::ios::binary) << bytes;
  }
  testing::log_capture log;
  try {
    Cap3dParser parser(out.raw, slices, true, false);
    out.ok = parser.parse(path, "");
    out.error = log.error();
  } catch (const std::exception& e) {
    out.error = log.error() + "thrown: " + e.what();
  }
  if (feeder.joinable()) feeder.join();
}

void expect_same_reads(const std::string& bytes) {
  outcome mapped, piped;
  read_into(mapped, bytes, false);
  read_into(piped, bytes, true);
  EXPECT_EQ(mapped.ok, piped.ok);
  EXPECT_EQ(mapped.error, piped.error);
  internal::expect_same_layout(mapped.raw, piped.raw, internal::layout_match{true, true, 0.0});
}

// A crossing layout of about 9 MB in the binary form: large enough to have
// its block shapes made ahead.
const generated_layout& large_layout() {
  static const generated_layout layout = [] {
    generator_params p;
    p.kind = layout_kind::crossing;
    p.blocks = 140000;
    p.layers = 4;
    p.polygon_share = 0.05;
    p.incline_share = 0.05;
    p.media = true;
    return generate_layout(p);
  }();
  return layout;
}

std::string binary_of(const generated_layout& layout, const binary_write_options& options) {
  circuit_layout::raw raw;
  build_layout(layout, raw);
  return to_binary(raw, options);
}

const std::string& large_binary() {
  static const std::string bytes = binary_of(large_layout(), {});
  return bytes;
}

TEST(BinaryMapped, LargeLayoutsReadTheSameMappedAndThroughAPipe) {
  // Nets by begin records; then by end records alone, integers swapped.
  ASSERT_GT(large_binary().size(), std::size_t(9) << 20);
  expect_same_reads(large_binary());
  binary_write_options other;
  other.begin_records = false;
  other.swapped = true;
  expect_same_reads(binary_of(large_layout(), other));
}

TEST(BinaryMapped, CutAndBrokenFilesFailTheSameWay) {
  const std::string& whole = large_binary();
  // Cut inside the header, in the first record's length, and inside records.
  for (std::size_t cut : {std::size_t(12), std::size_t(14), whole.size() / 2, whole.size() - 1}) {
    SCOPED_TRACE(cut);
    expect_same_reads(whole.substr(0, cut));
  }
  // A bad record type halfway, and a polygon of 64 vertices, which throws.
  internal::binary_bytes bad;
  bad.data.clear();
  bad.record(12, "junk");
  const std::size_t half = whole.size() / 2;
  std::size_t at = 13;  // the record boundary at or after half
  while (at < half) {
    std::uint16_t length;
    std::memcpy(&length, whole.data() + at, 2);
    at += length;
  }
  expect_same_reads(whole.substr(0, at) + bad.data + whole.substr(at));
  internal::payload polygon;
  polygon.f64(0).f64(1).u8(64);
  internal::binary_bytes thrown;
  thrown.data.clear();
  thrown.record(11, polygon.data + std::string(64 * 16 + 2, '\0'));
  expect_same_reads(whole.substr(0, at) + thrown.data + whole.substr(at));
}

}  // namespace
}  // namespace torva
