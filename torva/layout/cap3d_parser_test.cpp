// The reader's frame: opening, chunks, the word splitter, the top-level walk,
// and what conductors and media become.
#include "torva/layout/cap3d_parser.h"

#include <gtest/gtest.h>

#include <cstring>
#include <deque>
#include <random>
#include <string>
#include <vector>

#include "torva/foundation/errors.h"

#include "torva/layout/internal/parse_fixture.h"

namespace torva {
namespace {

constexpr int chunk_text = 0xfffff;  // bytes read per chunk

using internal::parse_fixture;

// Runs the splitter over a copy of `text` and returns the words it kept.
struct splitter {
  circuit_layout::raw raw;
  Cap3dParser parser{raw, 1, true, false};
  std::deque<std::vector<char>> buffers;  // words of earlier calls point into theirs
  int cut = -2;
  bool result = false;

  // A fresh list of words for `text`.
  std::vector<std::string> split(const std::string& text) {
    parser.words.clear();
    return more(text);
  }
  // `text` as the next chunk: the words held so far stay.
  std::vector<std::string> more(const std::string& text) {
    std::vector<char>& buffer = buffers.emplace_back(text.begin(), text.end());
    buffer.push_back('\0');
    cut = -1;
    result = parser.removeCommentsAndDivideWords(buffer.data(), static_cast<int>(text.size()), cut);
    return std::vector<std::string>(parser.words.begin(), parser.words.end());
  }
};

using words_t = std::vector<std::string>;

TEST(WordSplitter, SeparatorsPartWordsAndParenthesesAndCommasAreSeparators) {
  splitter s;
  EXPECT_EQ(s.split("basepoint(1,2,3)\n"), (words_t{"basepoint", "1", "2", "3"}));
  EXPECT_EQ(s.split("basepoint ( 1 , 2 , 3 )\r\n"), (words_t{"basepoint", "1", "2", "3"}));
  EXPECT_EQ(s.split("a\tb\r\nc "), (words_t{"a", "b", "c"}));
  EXPECT_FALSE(s.result);  // no closing tag
  EXPECT_TRUE(Cap3dParser::isSeparator('('));
  EXPECT_FALSE(Cap3dParser::isSeparator('\0'));
  EXPECT_FALSE(Cap3dParser::isSeparator('/'));
}

TEST(WordSplitter, CommentsAreErasedAndSwallowTheWordBeforeThem) {
  splitter s;
  EXPECT_EQ(s.split("<block>//note\nx "), (words_t{"x"}));
  EXPECT_EQ(s.split("a/b "), (words_t{"a/b"}));
  EXPECT_EQ(s.split("a /* b c */ d "), (words_t{"a", "d"}));
  EXPECT_EQ(s.split("a // b c\nd "), (words_t{"a", "d"}));
  // slash, star, slash is a whole comment
  EXPECT_EQ(s.split("a /*/ b "), (words_t{"a", "b"}));
  // the end of a block comment followed by "/" opens a line comment
  EXPECT_EQ(s.split("a /* x *// y\nb "), (words_t{"a", "b"}));
  // ... and followed by "*" a block comment
  EXPECT_EQ(s.split("a /* x */* y */ b "), (words_t{"a", "b"}));
  // a word directly behind a comment's end
  EXPECT_EQ(s.split("/* x */b c "), (words_t{"b", "c"}));
}

TEST(WordSplitter, LastWordWithoutSeparatorIsNotStoredAndCutPointsAtIt) {
  splitter s;
  EXPECT_EQ(s.split("ab cd"), (words_t{"ab"}));
  EXPECT_FALSE(s.result);
  EXPECT_EQ(s.cut, 3);
  // no NUL at all: nothing to cut at
  EXPECT_EQ(s.split("abcdef"), (words_t{}));
  EXPECT_EQ(s.cut, -1);
  // an empty chunk checks only the words already held
  s.split("a ");
  EXPECT_EQ(s.more(""), (words_t{"a"}));
  EXPECT_EQ(s.cut, -1);
  EXPECT_FALSE(s.result);
}

TEST(WordSplitter, TheLastClosingTagEndsTheWordsAndSetsTheCut) {
  splitter s;
  const std::string text = "<cap3d> <task> </task> <layer> name x </layer> tail ";
  EXPECT_EQ(s.split(text), (words_t{"<cap3d>", "<task>", "</task>", "<layer>", "name", "x", "</layer>"}));
  EXPECT_TRUE(s.result);
  EXPECT_EQ(s.cut, static_cast<int>(text.find("</layer>") + std::strlen("</layer>") + 1));

  // tags that do not count
  const std::string not_tags = "</plate_medium> </capacitance> </coord> ";
  s.split(not_tags);
  EXPECT_FALSE(s.result);
  EXPECT_EQ(s.cut, static_cast<int>(not_tags.size()));
  for (const char* tag : {"</cap3d>", "</window>", "</medium>", "</conductor>", "</layer>", "</task>",
                          "</parameter>", "</block>", "</poly>"}) {
    s.split(std::string("a ") + tag + " b");
    EXPECT_TRUE(s.result) << tag;
  }
}

TEST(WordSplitter, ACommentOpenBehindTheTagWillBeReadAgain) {
  splitter s;
  s.split("</task>  /* open");
  EXPECT_TRUE(s.result);
  EXPECT_EQ(s.cut, 8);
  EXPECT_EQ(s.parser.comment_state, 0);

  s.split("a b /* open");
  EXPECT_FALSE(s.result);
  EXPECT_EQ(s.parser.comment_state, 2);
  // the comment goes on in the next chunk
  EXPECT_EQ(s.more("still */ c "), (words_t{"a", "b", "c"}));
  EXPECT_EQ(s.parser.comment_state, 0);
}

TEST(WordSplitter, TheLastCharacterSeenDoesNotSurviveAChunk) {
  splitter s;
  s.split("a /* x *");
  EXPECT_EQ(s.more("/ b */ c "), (words_t{"a", "c"}));  // the first "*/" was split
  s.split("a /");
  EXPECT_EQ(s.more("/ b "), (words_t{"a", "/", "b"}));  // no line comment across chunks
}

TEST(WordSplitter, BinaryZerosAreLettersButEndTheTextOfAWord) {
  splitter s;
  const std::string text("ab\0cd ef ", 9);
  EXPECT_EQ(s.split(text), (words_t{"ab", "ef"}));
}

TEST(Parse, MissingFileIsReported) {
  parse_fixture f;
  Cap3dParser parser(f.raw, 1, true, false);
  const std::string path = f.dir.file("none.cap3d");
  EXPECT_FALSE(parser.parse(path, ""));
  EXPECT_EQ(f.log.error(), "ERROR: Failed to open \"" + path + "\".\n");
}

TEST(Parse, EmptyAndTaglessFilesFailSilently) {
  parse_fixture f;
  EXPECT_FALSE(f.parse(""));
  EXPECT_FALSE(f.parse("just some words\n"));
  EXPECT_FALSE(f.parse("<cap3d>\n</cap3d>"));  // the last word has no separator behind it
  EXPECT_EQ(f.log.error(), "");
}

TEST(Parse, EmptyRootReadsAndLeavesTheRecordAsItWas) {
  parse_fixture f;
  f.raw.thread_num = 9;
  f.raw.boundary = 5;
  EXPECT_TRUE(f.parse("<cap3d>\n</cap3d>\n"));
  EXPECT_EQ(f.raw.thread_num, 9);
  EXPECT_EQ(f.raw.boundary, 5);
  EXPECT_TRUE(f.raw.wire_nets.empty());
  EXPECT_EQ(f.log.error(), "");
}

TEST(Parse, NoWordOutlivesTheRead) {
  parse_fixture f;
  Cap3dParser parser(f.raw, 1, true, false);
  // a failed read with words carried over, then a good one
  EXPECT_FALSE(parser.parse(f.write("<cap3d> <task> <capacitance> a b </capacitance> </task> x y"), ""));
  EXPECT_TRUE(parser.words.empty());
  EXPECT_TRUE(parser.parse(f.write("<cap3d> <layer> name M1 type via </layer>\n</cap3d>\n"), ""));
  EXPECT_TRUE(parser.words.empty());
  EXPECT_EQ(parser.state, 0u);
}

TEST(Parse, FileEndingWithoutRootCloseIsReported) {
  parse_fixture f;
  EXPECT_FALSE(f.parse("<cap3d>\n<window> name w </window>\n</cap3d>"));
  EXPECT_EQ(f.raw.window_name, "w");
  EXPECT_EQ(f.log.error(), "ERROR: (Syntax) cap3d file ends without </cap3d>.\n");
}

TEST(Parse, WordsOutsideTheRootAreSyntaxErrors) {
  parse_fixture f;
  EXPECT_FALSE(f.parse("stray <cap3d>\n<task> </task>\n</cap3d>\n"));
  EXPECT_EQ(f.log.error(), "ERROR: (Syntax) \"stray\".\n");

  f.log.clear();
  EXPECT_FALSE(f.parse("<cap3d>\n</cap3d>\n<task> </task>\n"));
  EXPECT_EQ(f.log.error(), "ERROR: (Syntax) \"</cap3d>\".\n");

  // words behind the root with no closing tag are never walked
  f.log.clear();
  EXPECT_TRUE(f.parse("<cap3d>\n</cap3d>\ntrailing words\n"));
  EXPECT_EQ(f.log.error(), "");
}

TEST(Parse, KeywordsInTheWrongStateAreSyntaxErrors) {
  parse_fixture f;
  const std::pair<const char*, const char*> cases[] = {
      {"<cap3d> name x </cap3d>\n", "name"},
      {"<cap3d> <conductor> diel 3 </conductor> </cap3d>\n", "diel"},
      {"<cap3d> <medium> floating </medium> </cap3d>\n", "floating"},
      {"<cap3d> <medium> rho 3 </medium> </cap3d>\n", "rho"},
      {"<cap3d> <bogus> </cap3d>\n", "<bogus>"},
      {"<cap3d> <block> </block> </cap3d>\n", "</block>"},
  };
  for (const auto& [text, word] : cases) {
    f.log.clear();
    EXPECT_FALSE(f.parse(text)) << text;
    EXPECT_EQ(f.log.error(), std::string("ERROR: (Syntax) \"") + word + "\".\n") << text;
  }
}

TEST(Parse, SyntaxErrorPrintsTheWordAsItStands) {
  parse_fixture f;
  EXPECT_FALSE(f.parse("<cap3d> %s%n%d%% </cap3d>\n"));
  EXPECT_EQ(f.log.error(), "ERROR: (Syntax) \"%s%n%d%%\".\n");
}

TEST(Parse, CommentsAroundTheRootLeaveTheBareTag) {
  parse_fixture f;
  EXPECT_TRUE(f.parse("/* a file */ <cap3d> // the root\n<task> <capacitance> n </capacitance> </task>\n</cap3d>\n"));
  EXPECT_EQ(f.raw.capacitance_tasks.count("n"), 1u);
}

TEST(Conductor, BlocksAndNetPointAtOneAnother) {
  parse_fixture f;
  ASSERT_TRUE(f.parse(
      "<cap3d>\n<conductor> name c1 floating rho 2\n"
      "<block> name a basepoint(0,0,0) v1(1,0,0) v2(0,1,0) hvector(0,0,1) layer 2 </block>\n"
      "<block> name b basepoint(2,0,0) v1(1,0,0) v2(0,1,0) hvector(0,0,1) layer 3 </block>\n"
      "</conductor>\n<conductor> name empty </conductor>\n</cap3d>\n"));
  ASSERT_EQ(f.raw.wire_nets.size(), 2u);
  ASSERT_EQ(f.raw.wire_blocks.size(), 2u);
  const wire_net& net = f.raw.wire_nets[0];
  EXPECT_EQ(net.name, "c1");
  EXPECT_TRUE(net.floating);
  ASSERT_EQ(net.blocks.size(), 2u);
  for (std::size_t k = 0; k < 2; ++k) {
    EXPECT_EQ(net.blocks[k], &f.raw.wire_blocks[k]);
    EXPECT_EQ(f.raw.wire_blocks[k].net, &net);
    EXPECT_TRUE(f.raw.wire_blocks[k].floating);
  }
  EXPECT_EQ(f.raw.wire_blocks[0].name, "a");
  EXPECT_EQ(f.raw.wire_blocks[1].layer, 3);
  EXPECT_EQ(f.raw.wire_nets[1].name, "empty");
  EXPECT_TRUE(f.raw.wire_nets[1].blocks.empty());
  EXPECT_FALSE(f.raw.wire_nets[1].floating);  // reset at each opening tag
}

TEST(Conductor, FloatingCountsOnlyWhenAllowed) {
  parse_fixture f;
  f.allow_floating = false;
  ASSERT_TRUE(f.parse("<cap3d> <conductor> name c floating </conductor> </cap3d>\n"));
  EXPECT_FALSE(f.raw.wire_nets.at(0).floating);
  EXPECT_EQ(f.log.error(), "");
}

TEST(Conductor, LayerNamesFromTheAtSignStartingFromAnEmptyList) {
  _WIRE_BLOCK_LAYER_NAME_.clear();
  parse_fixture f;
  const char* block = "basepoint(0,0,0) v1(1,0,0) v2(0,1,0) hvector(0,0,1)";
  ASSERT_TRUE(f.parse(std::string("<cap3d> <conductor> name c\n") +
                      "<block> name a@M1 " + block + " </block>\n" +
                      "<block> name b@M2 " + block + " </block>\n" +
                      "<block> name c@M2@x " + block + " </block>\n" +
                      "<block> name d@M1 " + block + " layer 5 </block>\n" +
                      "<block> name e@M3 " + block + " layer 5 </block>\n" +
                      "<block> name plain " + block + " </block>\n" +
                      "</conductor> </cap3d>\n"));
  ASSERT_EQ(f.raw.wire_blocks.size(), 6u);
  // A new name gets layer 0; its position counts from the next block on.
  EXPECT_EQ(f.raw.wire_blocks[0].layer, 0);
  EXPECT_EQ(f.raw.wire_blocks[1].layer, 0);
  EXPECT_EQ(f.raw.wire_blocks[0].name, "a");
  // only the first "@" splits; "M2@x" is a new name
  EXPECT_EQ(f.raw.wire_blocks[2].name, "c");
  EXPECT_EQ(f.raw.wire_blocks[2].layer, 0);
  // a layer key wins and the list is not consulted
  EXPECT_EQ(f.raw.wire_blocks[3].layer, 5);
  EXPECT_EQ(f.raw.wire_blocks[3].name, "d");
  EXPECT_EQ(f.raw.wire_blocks[4].layer, 5);
  // no "@": the empty layer name is listed like any other
  EXPECT_EQ(f.raw.wire_blocks[5].name, "plain");
  EXPECT_EQ(f.raw.wire_blocks[5].layer, 0);
  EXPECT_EQ(_WIRE_BLOCK_LAYER_NAME_, (std::deque<std::string>{"M1", "M2", "M2@x", ""}));

  // The list survives the parse: a known name now finds its position.
  parse_fixture g;
  ASSERT_TRUE(g.parse(std::string("<cap3d> <conductor> name c\n") + "<block> name c@M2 " + block +
                      " </block>\n<block> name z " + block + " </block>\n</conductor> </cap3d>\n"));
  EXPECT_EQ(g.raw.wire_blocks[0].layer, 1);
  EXPECT_EQ(g.raw.wire_blocks[1].layer, 3);
  _WIRE_BLOCK_LAYER_NAME_.clear();
}

TEST(Conductor, LayerNameFoundBeyondTheRangeOfAShortIsAddedAgain) {
  _WIRE_BLOCK_LAYER_NAME_.assign(40000, "filler");
  _WIRE_BLOCK_LAYER_NAME_.push_back("far");
  parse_fixture f;
  ASSERT_TRUE(f.parse(
      "<cap3d> <conductor> name c <block> name a@far v1(1,0,0) </block> </conductor> </cap3d>\n"));
  EXPECT_EQ(f.raw.wire_blocks.at(0).layer, 0);
  EXPECT_EQ(_WIRE_BLOCK_LAYER_NAME_.size(), 40002u);
  EXPECT_EQ(_WIRE_BLOCK_LAYER_NAME_.back(), "far");
  _WIRE_BLOCK_LAYER_NAME_.clear();
}

TEST(Medium, BlocksKeepTheirSideTanAndLinkToTheBody) {
  parse_fixture f;
  ASSERT_TRUE(f.parse(
      "<cap3d> <medium> name ox diel 3.9\n"
      "<block> name dropped@M1 layer 4 basepoint(0,0,0) v1(1,0,0) v2(0,1,0) hvector(0,0,1) side_tan 0.5 </block>\n"
      "</medium>\n<medium> </medium> </cap3d>\n"));
  ASSERT_EQ(f.raw.medium_nets.size(), 2u);
  const medium_net& net = f.raw.medium_nets[0];
  EXPECT_EQ(net.name, "ox");
  EXPECT_DOUBLE_EQ(net.diel.value, 3.9);
  ASSERT_EQ(net.blocks.size(), 1u);
  EXPECT_EQ(net.blocks[0], &f.raw.medium_blocks[0]);
  EXPECT_EQ(f.raw.medium_blocks[0].net, &net);
  EXPECT_DOUBLE_EQ(f.raw.medium_blocks[0].side_tan, 0.5);
  // name and diel are not reset: the second body takes the first one's
  EXPECT_EQ(f.raw.medium_nets[1].name, "ox");
  EXPECT_DOUBLE_EQ(f.raw.medium_nets[1].diel.value, 3.9);
  EXPECT_TRUE(f.raw.medium_nets[1].blocks.empty());
}

TEST(Medium, NameInAMediumLeavesTheConductorName) {
  parse_fixture f;
  ASSERT_TRUE(f.parse("<cap3d> <conductor> name c </conductor> <medium> name m </medium> "
                      "<conductor> </conductor> </cap3d>\n"));
  EXPECT_EQ(f.raw.wire_nets.at(1).name, "c");
  EXPECT_EQ(f.raw.medium_nets.at(0).name, "m");
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

// A layout of many small conductors, each of `blocks` blocks with the index
// in their name, padded so that it runs over several chunks.
std::string many_conductors(int count, int blocks, const std::string& filler) {
  std::string text = "<cap3d>\n";
  for (int c = 0; c < count; ++c) {
    text += "<conductor>\n name net" + std::to_string(c) + "\n" + filler;
    for (int b = 0; b < blocks; ++b) {
      text += " <block> name b" + std::to_string(c) + "_" + std::to_string(b) + " basepoint(" +
              std::to_string(c) + "," + std::to_string(b) + ",0) v1(0.5,0,0) v2(0,0.5,0) hvector(0,0,1) layer 1 " +
              filler + "</block>\n";
    }
    text += "</conductor>\n";
  }
  return text + "</cap3d>\n";
}

TEST(Chunks, ManyConductorsOverSeveralChunksLinkAndReadAsInAShortFile) {
  parse_fixture f;
  const std::string filler = "/* a comment of some length, to fill the chunks */ // and a line one\n";
  const std::string text = many_conductors(9000, 3, filler);
  ASSERT_GT(text.size(), 3u * chunk_text);
  ASSERT_TRUE(f.parse(text));
  ASSERT_EQ(f.raw.wire_nets.size(), 9000u);
  ASSERT_EQ(f.raw.wire_blocks.size(), 27000u);
  for (std::size_t c = 0; c < f.raw.wire_nets.size(); ++c) {
    const wire_net& net = f.raw.wire_nets[c];
    ASSERT_EQ(net.name, "net" + std::to_string(c));
    ASSERT_EQ(net.blocks.size(), 3u);
    for (std::size_t b = 0; b < 3; ++b) {
      const wire_block* block = net.blocks[b];
      ASSERT_EQ(block, &f.raw.wire_blocks[3 * c + b]);
      ASSERT_EQ(block->net, &net);
      ASSERT_EQ(block->name, "b" + std::to_string(c) + "_" + std::to_string(b));
      ASSERT_EQ(block->cuboid().lower[0].value, static_cast<double>(c));
      ASSERT_EQ(block->cuboid().lower[1].value, static_cast<double>(b));
    }
  }
  EXPECT_EQ(f.log.error(), "");
}

// Pads with blanks up to `at` bytes.
std::string pad_to(std::string text, std::size_t at) {
  if (text.size() < at) text.append(at - text.size(), ' ');
  return text;
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
    parse_fixture f;
    const std::string head = conductor_named_to(chunk_text - block.size() + shift);
    ASSERT_TRUE(f.parse(head + block + "</conductor>\n</cap3d>\n")) << shift;
    ASSERT_EQ(f.raw.wire_nets.at(0).name.size(), head.size() - 26) << shift;
    ASSERT_EQ(f.raw.wire_blocks.size(), 1u) << shift;
    const wire_block& b = f.raw.wire_blocks[0];
    EXPECT_EQ(b.name, "straddle") << shift;
    EXPECT_EQ(b.layer, 7) << shift;
    EXPECT_EQ(b.cuboid().lower[0].value, 1.25) << shift;
    EXPECT_EQ(b.cuboid().upper[2].value, 9.75) << shift;
  }
}

TEST(Chunks, ASectionLongerThanAChunkIsCarriedWhole) {
  parse_fixture f;
  // One polygon whose coordinates fill more than two chunks.
  std::string coords;
  const int steps = 150000;
  for (int k = 0; k <= steps; ++k) coords += std::to_string(k) + ".000000 0 ";
  coords += std::to_string(steps) + " 1 0 1 ";
  const std::string text = "<cap3d> <medium> name m <poly> basepoint(0,0,0) hvector(0,0,1) <coord> " + coords +
                           "</coord> </poly> </medium> </cap3d>\n";
  ASSERT_GT(text.size(), 2u * chunk_text);
  ASSERT_TRUE(f.parse(text));
  ASSERT_EQ(f.raw.medium_blocks.size(), 1u);
  const nprism_t& p = f.raw.medium_blocks[0].prism();
  // only the first four vertices count in a medium
  EXPECT_EQ(p.points[3][0].value, 3.0);
  EXPECT_EQ(f.log.error(), "");
}

TEST(Chunks, CommentsAcrossTheBoundary) {
  // A line comment that begins in the first chunk and ends in the second, for
  // a tag before the comment in the first chunk and for none.
  for (bool tag_before : {true, false}) {
    for (std::size_t shift = 0; shift < 6; ++shift) {
      parse_fixture f;
      const std::string head = conductor_named_to(chunk_text - 3 + shift, tag_before ? "<task> </task>\n" : "");
      ASSERT_TRUE(f.parse(head + "// <task> <capacitance> hidden </capacitance> </task>\n"
                                 "<task> <capacitance> seen </capacitance> </task>\n</conductor>\n</cap3d>\n"))
          << shift;
      EXPECT_EQ(f.raw.capacitance_tasks.count("hidden"), 0u) << shift;
      EXPECT_EQ(f.raw.capacitance_tasks.count("seen"), 1u) << shift;
    }
  }
}

TEST(Chunks, BlockCommentEndSplitByTheBoundaryIsNotSeen) {
  // The "*" is the last byte of the first chunk and the "/" the first of the
  // second: the comment runs on to the end of the file.
  const std::string tail = "/ <task> <capacitance> n </capacitance> </task>\n</cap3d>\n";
  parse_fixture f;
  std::string head = pad_to("<cap3d>\n/* a comment ", chunk_text - 1) + "*";
  ASSERT_EQ(head.size(), static_cast<std::size_t>(chunk_text));
  EXPECT_FALSE(f.parse(head + tail));
  EXPECT_EQ(f.log.error(), "");
  // Two bytes earlier the comment ends where it should.
  parse_fixture g;
  head = pad_to("<cap3d>\n/* a comment ", chunk_text - 3) + "*";
  EXPECT_TRUE(g.parse(head + tail));
  EXPECT_EQ(g.raw.capacitance_tasks.count("n"), 1u);
  // One byte earlier the "*/" ends the first chunk. The closing "/" stays in
  // the buffer as no NUL, so the read goes on from it as from a cut word.
  parse_fixture h;
  head = pad_to("<cap3d>\n/* a comment ", chunk_text - 2) + "*";
  EXPECT_FALSE(h.parse(head + tail));
  EXPECT_EQ(h.log.error(), "ERROR: (Syntax) \"/\".\n");
}

TEST(BadInput, RandomGarbageNeverCrashes) {
  const char* pieces[] = {"<cap3d>", "</cap3d>", "<window>", "</window>", "<conductor>", "</conductor>",
                          "<medium>", "</medium>", "<block>", "</block>", "<poly>", "</poly>", "<coord>",
                          "</coord>", "<task>", "</task>", "<capacitance>", "</capacitance>", "<layer>",
                          "</layer>", "<parameter>", "</parameter>", "<plate_medium>", "</plate_medium>",
                          "name", "v1", "v2", "hvector", "basepoint", "radius", "height", "side_tan", "layer",
                          "1", "-2.5", "0", "x@y", "//", "/*", "*/", "%s", "spice", "on", "diel", "rho",
                          "floating", "id", "type", "wmin"};
  const char* separators[] = {" ", "\n", "(", ",", ")", "\t", "", "/"};
  std::mt19937 random(12345);
  parse_fixture f;
  for (int round = 0; round < 300; ++round) {
    std::string text;
    const int count = static_cast<int>(random() % 200);
    for (int k = 0; k < count; ++k) {
      text += pieces[random() % std::size(pieces)];
      text += separators[random() % std::size(separators)];
      if (random() % 50 == 0) text.push_back(static_cast<char>(random() % 256));
    }
    f.raw = circuit_layout::raw{};
    f.slices = static_cast<int>(random() % 3);
    try {
      f.parse(text);
    } catch (const sea::fatal_error&) {
      // bad geometry is allowed to end the read this way
    }
  }
}

TEST(BadInput, OneHugeWordZerosAndRawBytes) {
  parse_fixture f;
  EXPECT_FALSE(f.parse(std::string(3 * chunk_text + 17, 'x')));
  EXPECT_FALSE(f.parse(std::string(2 * chunk_text, '\0')));
  EXPECT_FALSE(f.parse(std::string("<cap3d>\n\0\0\0 </cap3d>\n", 21)));
  EXPECT_EQ(f.log.error(), "ERROR: (Syntax) \"\".\n");

  std::mt19937 random(7);
  std::string bytes(chunk_text + 5000, '\0');
  for (char& c : bytes) c = static_cast<char>(random() % 256);
  f.parse(bytes);
  f.parse("<cap3d>\n" + bytes + "\n</cap3d>\n");
}

TEST(BadInput, SectionRunningPastTheLastWordIsASyntaxErrorOnIt) {
  parse_fixture f;
  EXPECT_FALSE(f.parse("<cap3d> <conductor> <poly> <coord> 1 2 </block>\n"));
  EXPECT_EQ(f.log.error(), "ERROR: (Syntax) \"</block>\".\n");
  f.log.clear();
  EXPECT_FALSE(f.parse("<cap3d> <conductor> name </conductor>\n"));
  // the name takes the tag as its value, and the conductor never closes
  EXPECT_EQ(f.log.error(), "ERROR: (Syntax) cap3d file ends without </cap3d>.\n");
  f.log.clear();
  EXPECT_FALSE(f.parse("<cap3d> <window> name </window>\n"));
  EXPECT_EQ(f.log.error(), "ERROR: (Syntax) \"</window>\".\n");
}

}  // namespace
}  // namespace torva
