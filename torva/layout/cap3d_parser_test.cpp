// The reader's frame: opening, chunks, the word splitter, the top-level walk,
// and what conductors and media become.
#include "torva/layout/cap3d_parser.h"

#include <gtest/gtest.h>

#include <cstring>
#include <deque>
#include <string>
#include <vector>

#include "torva/layout/internal/parse_fixture.h"

namespace torva {
namespace {

constexpr int chunk_text = 0xfffff;  // bytes read per chunk

using internal::parse_fixture;
using words_t = std::vector<std::string>;

// Runs the splitter over a copy of `text` and returns the words it kept.
struct splitter {
  circuit_layout::raw raw;
  Cap3dParser parser{raw, 1, true, false};
  std::deque<std::vector<char>> buffers;  // words of earlier calls point into theirs
  int cut = -2;
  bool result = false;

  words_t split(const std::string& text) {
    parser.words.clear();
    return more(text);
  }
  // `text` as the next chunk: the words held so far stay.
  words_t more(const std::string& text) {
    std::vector<char>& buffer = buffers.emplace_back(text.begin(), text.end());
    buffer.push_back('\0');
    cut = -1;
    result = parser.removeCommentsAndDivideWords(buffer.data(), static_cast<int>(text.size()), cut);
    return words_t(parser.words.begin(), parser.words.end());
  }
};

// The words a chunk splits into, whether a closing tag ends them, and the cut:
// where the next chunk starts reading (-1 for nowhere).
TEST(WordSplitter, WordsTagAndCutOfAChunk) {
  constexpr int end = -2;  // the size of the text
  const struct {
    std::string text;
    words_t words;
    bool tag;
    int cut;
  } cases[] = {
      {"basepoint(1,2,3)\n", {"basepoint", "1", "2", "3"}, false, end},
      {"basepoint ( 1 , 2 , 3 )\r\n", {"basepoint", "1", "2", "3"}, false, end},
      {"a\tb\r\nc ", {"a", "b", "c"}, false, end},
      {"a/b ", {"a/b"}, false, end},                            // a lone slash is a letter
      {std::string("ab\0cd ef ", 9), {"ab", "ef"}, false, end},  // NUL is a letter but ends the word's text
      {"<block>//note\nx ", {"x"}, false, end},                 // a comment swallows the word glued to it
      {"a /* b c */ d ", {"a", "d"}, false, end},
      {"a // b c\nd ", {"a", "d"}, false, end},
      {"a /*/ b ", {"a", "b"}, false, end},            // slash, star, slash is a whole comment
      {"a /* x *// y\nb ", {"a", "b"}, false, end},    // a block end followed by "/" opens a line comment
      {"a /* x */* y */ b ", {"a", "b"}, false, end},  // ... and followed by "*" a block comment
      {"/* x */b c ", {"b", "c"}, false, end},
      {"ab cd", {"ab"}, false, 3},  // the last word has no separator: not stored, and cut at
      {"abcdef", {}, false, -1},
      {"<cap3d> <task> </task> <layer> name x </layer> tail ",
       {"<cap3d>", "<task>", "</task>", "<layer>", "name", "x", "</layer>"}, true, 47},
      {"</plate_medium> </capacitance> </coord> ", {"</plate_medium>", "</capacitance>", "</coord>"}, false, end},
  };
  splitter s;
  for (const auto& c : cases) {
    SCOPED_TRACE(c.text);
    EXPECT_EQ(s.split(c.text), c.words);
    EXPECT_EQ(s.result, c.tag);
    EXPECT_EQ(s.cut, c.cut == end ? static_cast<int>(c.text.size()) : c.cut);
  }
  for (const char* tag : {"</cap3d>", "</window>", "</medium>", "</conductor>", "</layer>", "</task>",
                          "</parameter>", "</block>", "</poly>"}) {
    s.split(std::string("a ") + tag + " b");
    EXPECT_TRUE(s.result) << tag;
  }
}

TEST(WordSplitter, WhatCarriesAcrossChunks) {
  splitter s;
  // an empty chunk checks only the words already held
  s.split("a ");
  EXPECT_EQ(s.more(""), (words_t{"a"}));
  EXPECT_EQ(s.cut, -1);
  EXPECT_FALSE(s.result);
  // A comment opened behind the last tag will be read again with the next chunk.
  s.split("</task>  /* open");
  EXPECT_TRUE(s.result);
  EXPECT_EQ(s.cut, 8);
  EXPECT_EQ(s.parser.comment_state, 0);
  s.split("a b /* open");
  EXPECT_FALSE(s.result);
  EXPECT_EQ(s.parser.comment_state, 2);
  EXPECT_EQ(s.more("still */ c "), (words_t{"a", "b", "c"}));
  EXPECT_EQ(s.parser.comment_state, 0);
  // The last character seen does not survive a chunk.
  s.split("a /* x *");
  EXPECT_EQ(s.more("/ b */ c "), (words_t{"a", "c"}));  // the first "*/" was split
  s.split("a /");
  EXPECT_EQ(s.more("/ b "), (words_t{"a", "/", "b"}));  // no line comment across chunks
}

TEST(Parse, MissingFileIsReported) {
  parse_fixture f;
  Cap3dParser parser(f.raw, 1, true, false);
  const std::string path = f.dir.file("none.cap3d");
  EXPECT_FALSE(parser.parse(path, ""));
  EXPECT_EQ(f.log.error(), "ERROR: Failed to open \"" + path + "\".\n");
}

// The outcome and the one error line of texts that are wrong in their frame.
TEST(Parse, OutcomeAndErrorLineOfTheFrame) {
  const std::string ends = "ERROR: (Syntax) cap3d file ends without </cap3d>.\n";
  const struct {
    std::string text;
    bool ok;
    std::string error;
  } cases[] = {
      {"", false, ""},
      {"just some words\n", false, ""},
      {std::string(3 * chunk_text + 17, 'x'), false, ""},  // chunks without a separator
      {std::string(2 * chunk_text, '\0'), false, ""},
      {"<cap3d>\n</cap3d>", false, ""},  // the last word has no separator behind it
      {"<cap3d>\n<window> name w </window>\n</cap3d>", false, ends},
      {"/* a file */ <cap3d> // the root\n<task> </task>\n</cap3d>\n", true, ""},
      {"stray <cap3d>\n<task> </task>\n</cap3d>\n", false, "ERROR: (Syntax) \"stray\".\n"},
      {"<cap3d>\n</cap3d>\n<task> </task>\n", false, "ERROR: (Syntax) \"</cap3d>\".\n"},
      {"<cap3d>\n</cap3d>\ntrailing words\n", true, ""},  // behind the last closing tag: never walked
      {"<cap3d> name x </cap3d>\n", false, "ERROR: (Syntax) \"name\".\n"},
      {"<cap3d> <conductor> diel 3 </conductor> </cap3d>\n", false, "ERROR: (Syntax) \"diel\".\n"},
      {"<cap3d> <medium> floating </medium> </cap3d>\n", false, "ERROR: (Syntax) \"floating\".\n"},
      {"<cap3d> <medium> rho 3 </medium> </cap3d>\n", false, "ERROR: (Syntax) \"rho\".\n"},
      {"<cap3d> <bogus> </cap3d>\n", false, "ERROR: (Syntax) \"<bogus>\".\n"},
      {"<cap3d> <block> </block> </cap3d>\n", false, "ERROR: (Syntax) \"</block>\".\n"},
      {"<cap3d> %s%n%d%% </cap3d>\n", false, "ERROR: (Syntax) \"%s%n%d%%\".\n"},  // printed as it stands
      {std::string("<cap3d>\n\0\0\0 </cap3d>\n", 21), false, "ERROR: (Syntax) \"\".\n"},
      // sections running past the last word: a syntax error on it
      {"<cap3d> <conductor> <poly> <coord> 1 2 </block>\n", false, "ERROR: (Syntax) \"</block>\".\n"},
      {"<cap3d> <window> name </window>\n", false, "ERROR: (Syntax) \"</window>\".\n"},
      {"<cap3d> <conductor> name </conductor>\n", false, ends},  // the name took the tag as its value
  };
  for (const auto& c : cases) {
    SCOPED_TRACE(c.text.substr(0, 80));
    parse_fixture f;
    EXPECT_EQ(f.parse(c.text), c.ok);
    EXPECT_EQ(f.log.error(), c.error);
  }
}

TEST(Parse, EmptyRootLeavesTheRecordAndNoWordOutlivesTheRead) {
  parse_fixture f;
  f.raw.thread_num = 9;
  f.raw.boundary = 5;
  Cap3dParser parser(f.raw, 1, true, false);
  EXPECT_TRUE(parser.parse(f.write("<cap3d>\n</cap3d>\n"), ""));
  EXPECT_EQ(f.raw.thread_num, 9);
  EXPECT_EQ(f.raw.boundary, 5);
  EXPECT_TRUE(f.raw.wire_nets.empty());
  // a failed read with words carried over, then a good one with the same parser
  EXPECT_FALSE(parser.parse(f.write("<cap3d> <task> <capacitance> a b </capacitance> </task> x y"), ""));
  EXPECT_TRUE(parser.words.empty());
  EXPECT_TRUE(parser.parse(f.write("<cap3d> <layer> name M1 type via </layer>\n</cap3d>\n"), ""));
  EXPECT_TRUE(parser.words.empty());
  EXPECT_EQ(parser.state, 0u);
}

constexpr const char* unit_box = "basepoint(0,0,0) v1(1,0,0) v2(0,1,0) hvector(0,0,1)";

TEST(Conductor, BlocksAndNetPointAtOneAnotherAndFloatingIsPerNet) {
  for (bool allow_floating : {true, false}) {
    SCOPED_TRACE(allow_floating);
    parse_fixture f;
    f.allow_floating = allow_floating;
    ASSERT_TRUE(f.parse(std::string("<cap3d>\n<conductor> name c1 floating rho 2\n") +
                        "<block> name a " + unit_box + " layer 2 </block>\n" +
                        "<block> name b " + unit_box + " layer 3 </block>\n" +
                        "</conductor>\n<conductor> name empty </conductor>\n</cap3d>\n"));
    ASSERT_EQ(f.raw.wire_nets.size(), 2u);
    ASSERT_EQ(f.raw.wire_blocks.size(), 2u);
    const wire_net& net = f.raw.wire_nets[0];
    EXPECT_EQ(net.name, "c1");
    EXPECT_EQ(net.floating, allow_floating);
    ASSERT_EQ(net.blocks.size(), 2u);
    for (std::size_t k = 0; k < 2; ++k) {
      EXPECT_EQ(net.blocks[k], &f.raw.wire_blocks[k]);
      EXPECT_EQ(f.raw.wire_blocks[k].net, &net);
      EXPECT_EQ(f.raw.wire_blocks[k].floating, allow_floating);
    }
    EXPECT_EQ(f.raw.wire_nets[1].name, "empty");
    EXPECT_TRUE(f.raw.wire_nets[1].blocks.empty());
    EXPECT_FALSE(f.raw.wire_nets[1].floating);  // reset at each opening tag
    EXPECT_EQ(f.log.error(), "");
  }
}

TEST(Conductor, LayerNamesFromTheAtSignStartingFromAnEmptyList) {
  _WIRE_BLOCK_LAYER_NAME_.clear();
  auto block = [](const std::string& keys) { return "<block> " + keys + " " + unit_box + " </block>\n"; };
  parse_fixture f;
  ASSERT_TRUE(f.parse("<cap3d> <conductor> name c\n" + block("name a@M1") + block("name b@M2") +
                      block("name c@M2@x") + block("name d@M1 layer 5") + block("name e@M3 layer 5") +
                      block("name plain") + "</conductor> </cap3d>\n"));
  ASSERT_EQ(f.raw.wire_blocks.size(), 6u);
  // A new name gets layer 0; its position counts from the next block on.
  // Only the first "@" splits ("M2@x" is a new name); a layer key wins and the
  // list is not consulted; no "@" lists the empty name like any other.
  const std::pair<const char*, int> expected[] = {{"a", 0}, {"b", 0}, {"c", 0}, {"d", 5}, {"e", 5}, {"plain", 0}};
  for (std::size_t k = 0; k < 6; ++k) {
    EXPECT_EQ(f.raw.wire_blocks[k].name, expected[k].first);
    EXPECT_EQ(f.raw.wire_blocks[k].layer, expected[k].second) << k;
  }
  EXPECT_EQ(_WIRE_BLOCK_LAYER_NAME_, (std::deque<std::string>{"M1", "M2", "M2@x", ""}));

  // The list survives the parse: a known name now finds its position.
  parse_fixture g;
  ASSERT_TRUE(g.parse("<cap3d> <conductor> name c\n" + block("name c@M2") + block("name z") + "</conductor> </cap3d>\n"));
  EXPECT_EQ(g.raw.wire_blocks[0].layer, 1);
  EXPECT_EQ(g.raw.wire_blocks[1].layer, 3);
  _WIRE_BLOCK_LAYER_NAME_.clear();
}

TEST(Conductor, LayerNameFoundBeyondTheRangeOfAShortIsAddedAgain) {
  _WIRE_BLOCK_LAYER_NAME_.assign(40000, "filler");
  _WIRE_BLOCK_LAYER_NAME_.push_back("far");
  parse_fixture f;
  ASSERT_TRUE(f.parse("<cap3d> <conductor> name c <block> name a@far v1(1,0,0) </block> </conductor> </cap3d>\n"));
  EXPECT_EQ(f.raw.wire_blocks.at(0).layer, 0);
  EXPECT_EQ(_WIRE_BLOCK_LAYER_NAME_.size(), 40002u);
  EXPECT_EQ(_WIRE_BLOCK_LAYER_NAME_.back(), "far");
  _WIRE_BLOCK_LAYER_NAME_.clear();
}

TEST(Medium, BlocksKeepTheirSideTanAndNameAndDielAreNotReset) {
  parse_fixture f;
  ASSERT_TRUE(f.parse(std::string("<cap3d> <conductor> name c </conductor> <medium> name ox diel 3.9\n") +
                      "<block> name dropped@M1 layer 4 " + unit_box + " side_tan 0.5 </block>\n" +
                      "</medium>\n<medium> </medium> <conductor> </conductor> </cap3d>\n"));
  ASSERT_EQ(f.raw.medium_nets.size(), 2u);
  const medium_net& net = f.raw.medium_nets[0];
  EXPECT_EQ(net.name, "ox");
  EXPECT_DOUBLE_EQ(net.diel.value, 3.9);
  ASSERT_EQ(net.blocks.size(), 1u);
  EXPECT_EQ(net.blocks[0], &f.raw.medium_blocks[0]);
  EXPECT_EQ(f.raw.medium_blocks[0].net, &net);
  EXPECT_DOUBLE_EQ(f.raw.medium_blocks[0].side_tan, 0.5);
  // the second body takes the first one's name and diel
  EXPECT_EQ(f.raw.medium_nets[1].name, "ox");
  EXPECT_DOUBLE_EQ(f.raw.medium_nets[1].diel.value, 3.9);
  EXPECT_TRUE(f.raw.medium_nets[1].blocks.empty());
  // a medium's name leaves the conductor name alone
  EXPECT_EQ(f.raw.wire_nets.at(1).name, "c");
}

TEST(Closing, IsNotTestedAgainstTheOpenSectionAndKeepsThePending) {
  parse_fixture f;
  ASSERT_TRUE(f.parse("<cap3d> <conductor> name c <block> v1(1,0,0) </block> </conductor>\n"
                      "</conductor> </medium> </cap3d>\n"));
  // a second close builds a further net with copies of the same blocks, and a
  // medium close turns them into medium blocks
  ASSERT_EQ(f.raw.wire_nets.size(), 2u);
  ASSERT_EQ(f.raw.wire_blocks.size(), 2u);
  EXPECT_EQ(f.raw.wire_blocks[1].net, &f.raw.wire_nets[1]);
  EXPECT_EQ(f.raw.wire_blocks[0].solid, f.raw.wire_blocks[1].solid);
  ASSERT_EQ(f.raw.medium_blocks.size(), 1u);
  EXPECT_EQ(f.raw.medium_blocks[0].net, &f.raw.medium_nets.at(0));
}

// The opening of a conductor whose long name fills the text up to `at`
// bytes: a cheaper filler to split than blanks or comments.
std::string conductor_named_to(std::size_t at, const std::string& before = "") {
  std::string head = "<cap3d>\n" + before + "<conductor> name ";
  head.append(at - head.size() - 1, 'c');
  return head + "\n";
}

TEST(Chunks, EveryWordOfABlockAcrossTheBoundaryIsReadWhole) {
  const std::string block =
      "<block> name straddle basepoint(1.25,2.5,3.75) v1(4,0,0) v2(0,5,0) hvector(0,0,6) layer 7 </block>\n";
  // Put the boundary at every position within the block, and a little around it.
  for (std::size_t shift = 0; shift < block.size() + 4; ++shift) {
    SCOPED_TRACE(shift);
    parse_fixture f;
    const std::string head = conductor_named_to(chunk_text - block.size() + shift);
    ASSERT_TRUE(f.parse(head + block + "</conductor>\n</cap3d>\n"));
    ASSERT_EQ(f.raw.wire_nets.at(0).name.size(), head.size() - 26);
    ASSERT_EQ(f.raw.wire_blocks.size(), 1u);
    const wire_block& b = f.raw.wire_blocks[0];
    EXPECT_EQ(b.name, "straddle");
    EXPECT_EQ(b.layer, 7);
    EXPECT_EQ(b.cuboid().lower[0].value, 1.25);
    EXPECT_EQ(b.cuboid().upper[2].value, 9.75);
  }
}

TEST(Chunks, ASectionLongerThanAChunkIsCarriedWhole) {
  // One polygon whose coordinates fill more than two chunks.
  std::string coords;
  const int steps = 150000;
  for (int k = 0; k <= steps; ++k) coords += std::to_string(k) + ".000000 0 ";
  coords += std::to_string(steps) + " 1 0 1 ";
  const std::string text = "<cap3d> <medium> name m <poly> basepoint(0,0,0) hvector(0,0,1) <coord> " + coords +
                           "</coord> </poly> </medium> </cap3d>\n";
  ASSERT_GT(text.size(), 2u * chunk_text);
  parse_fixture f;
  ASSERT_TRUE(f.parse(text));
  ASSERT_EQ(f.raw.medium_blocks.size(), 1u);
  EXPECT_EQ(f.raw.medium_blocks[0].prism().points[3][0].value, 3.0);  // a medium keeps the first four vertices
  EXPECT_EQ(f.log.error(), "");
}

TEST(Chunks, LineCommentAcrossTheBoundary) {
  // Begins in the first chunk and ends in the second, with a tag before it in
  // the first chunk and without.
  for (bool tag_before : {true, false}) {
    for (std::size_t shift = 0; shift < 6; ++shift) {
      SCOPED_TRACE(shift);
      parse_fixture f;
      const std::string head = conductor_named_to(chunk_text - 3 + shift, tag_before ? "<task> </task>\n" : "");
      ASSERT_TRUE(f.parse(head + "// <task> <capacitance> hidden </capacitance> </task>\n"
                                 "<task> <capacitance> seen </capacitance> </task>\n</conductor>\n</cap3d>\n"));
      EXPECT_EQ(f.raw.capacitance_tasks.count("hidden"), 0u);
      EXPECT_EQ(f.raw.capacitance_tasks.count("seen"), 1u);
    }
  }
}

TEST(Chunks, BlockCommentEndAtTheBoundary) {
  const std::string tail = "/ <task> <capacitance> n </capacitance> </task>\n</cap3d>\n";
  const struct {
    int star_at;  // position of the "*" of "*/" from the chunk's end
    bool ok;
    std::string error;
  } cases[] = {
      // "*" the last byte of the first chunk, "/" the first of the second: the
      // end is not seen and the comment runs on to the end of the file
      {1, false, ""},
      // "*/" ends the first chunk: the "/" stays in the buffer as no NUL, so the
      // read goes on from it as from a cut word
      {2, false, "ERROR: (Syntax) \"/\".\n"},
      {3, true, ""},
  };
  for (const auto& c : cases) {
    SCOPED_TRACE(c.star_at);
    std::string head = "<cap3d>\n/* a comment ";
    head.append(chunk_text - c.star_at - head.size(), ' ');
    parse_fixture f;
    EXPECT_EQ(f.parse(head + "*" + tail), c.ok);
    EXPECT_EQ(f.log.error(), c.error);
    EXPECT_EQ(f.raw.capacitance_tasks.count("n"), c.ok ? 1u : 0u);
  }
}

}  // namespace
}  // namespace torva
