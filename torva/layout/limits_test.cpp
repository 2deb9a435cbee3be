// The limits of what each form of the layout file accepts, and what happens
// just beyond them. These are promises to users: change them only on purpose.
#include <gtest/gtest.h>

#include <string>

#include "torva/layout/cap3d_parser.h"
#include "torva/layout/internal/binary_test_support.h"
#include "torva/layout/internal/parse_fixture.h"

namespace torva {
namespace {

// The text reader holds one chunk of 1,048,575 bytes at a time, and a word
// must end, with its separator, inside one chunk.
constexpr std::size_t largest_text_word = 1048575 - 1;

std::string conductor_named(const std::string& name) {
  return "<cap3d>\n<conductor>\nname " + name +
         "\n<block> basepoint(0,0,0) v1(1,0,0) v2(0,1,0) hvector(0,0,1) </block>\n</conductor>\n</cap3d>\n";
}

TEST(TextLimits, TheLargestWordIsReadWhole) {
  internal::parse_fixture f;
  const std::string name(largest_text_word, 'n');
  ASSERT_TRUE(f.parse(conductor_named(name))) << f.log.error();
  ASSERT_EQ(f.raw.wire_nets.size(), 1u);
  EXPECT_EQ(f.raw.wire_nets[0].name, name);
  EXPECT_EQ(f.raw.wire_blocks.size(), 1u);
}

TEST(TextLimits, ALongerWordLosesTheChunkItFilled) {
  // A chunk without a single separator holds no word to keep and nothing to
  // read again, so its bytes are passed over: only the part of the word past
  // them reaches the reader. No read goes out of bounds and nothing else of
  // the layout is disturbed.
  internal::parse_fixture f;
  const std::string name(largest_text_word + 10, 'n');
  ASSERT_TRUE(f.parse(conductor_named(name))) << f.log.error();
  ASSERT_EQ(f.raw.wire_nets.size(), 1u);
  EXPECT_EQ(f.raw.wire_nets[0].name, std::string(name.size() - (largest_text_word + 1), 'n'));
  EXPECT_EQ(f.raw.wire_blocks.size(), 1u);
}

TEST(TextLimits, APolygonOfAThousandVerticesIsDecomposed) {
  // A comb with 250 teeth: many reflex corners, deep splitting.
  std::string coords;
  const int teeth = 250;
  coords += "0 0 " + std::to_string(2 * teeth) + " 0 ";
  for (int t = teeth - 1; t >= 0; --t) {
    const int x = 2 * t;
    coords += std::to_string(x + 2) + " 3 " + std::to_string(x + 1) + " 3 " + std::to_string(x + 1) + " 1 " +
              std::to_string(x) + " 1 ";
  }
  const std::string text = "<cap3d>\n<conductor>\nname comb\n<poly> basepoint(0,0,0) hvector(0,0,1) <coord> " +
                           coords + "</coord> </poly>\n</conductor>\n</cap3d>\n";
  internal::parse_fixture f;
  ASSERT_TRUE(f.parse(text)) << f.log.error() << f.log.warning().substr(0, 200);
  ASSERT_FALSE(f.raw.wire_blocks.empty());
  for (const wire_block& b : f.raw.wire_blocks) {
    ASSERT_EQ(b.shape_kind, shape_prism);
    EXPECT_LE(b.prism().size, 4u);
  }
}

// Binary records: a two-byte signed length, so at most 32767 bytes each.
TEST(BinaryLimits, TheLargestRecordIsAcceptedOneMoreIsRefused) {
  internal::parse_fixture f;
  EXPECT_TRUE(f.parse(internal::binary_bytes().record(0, std::string(32767 - 3, 'x')).record(0, "").data));
  EXPECT_EQ(f.log.error(), "");
  // 32768 reads as a negative length: the file is refused, nothing read beyond.
  EXPECT_FALSE(f.parse(internal::binary_bytes().record(0, std::string(32768 - 3, 'x')).data));
  EXPECT_TRUE(f.raw.wire_nets.empty());
}

}  // namespace
}  // namespace torva
