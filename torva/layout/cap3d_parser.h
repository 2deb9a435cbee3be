// The cap3d reader: one layout file, text or binary, into a circuit_layout::raw.
//
// A file is binary if it begins with the 12 bytes of BIN_FLAG; otherwise it is
// read as text. The text form is split into words in place, in one buffer of
// 1 MiB at a time: separators and comments become NULs and `words` points into
// the buffer. A chunk is walked up to its last closing tag; the rest is read
// again with the next chunk, and the words of a section that crosses a chunk
// boundary are copied so that they outlive the buffer.
//
// Comments are "// ..." to the line end and "/* ... */". A comment opened
// right behind a word, with no separator between, swallows that word:
// "<block>//note" loses the tag. A word is stored only when a separator ends
// it, so the file's last word needs a line feed (or blank) behind it.
//
// Failures: a syntax error prints one line on logger::error,
//   ERROR: (Syntax) "<word>".
// and `parse` returns false; what was stored before it stays in the record.
// Geometry that can't be represented throws sea::fatal_error (see parsePoly).
//
// Choices of this reader where the format leaves things open:
// - A section whose word list ends before its closing tag (a malformed file,
//   say a <coord> never closed) is a syntax error on the last word of the list.
// - The word of a syntax error is printed as it stands: a "%" in it is never
//   read as a printf directive, since a layout file is untrusted input.
// - <plate_medium> starts "diel" and "z_top" at 0.
// - A path that opens but reads no bytes (a directory) is read as an empty
//   file: false, with no message.
// - Decimal numbers are read with "." as the decimal point whatever the
//   process's locale; other forms strtod knows (hexadecimal, inf, nan) too.
//
// Known limits of the chunked read, kept as they are: a block comment whose
// "*/" is split by the end of a 1 MiB chunk is not seen to end, and in a chunk
// with no closing tag a comment whose "/" is the chunk's last byte leaves
// that "/" as the start of the next word (a syntax error).
//
// Text closing of a conductor names the layer of a block from "name@layer" when
// the block has no "layer" key, through the process-wide list
// _WIRE_BLOCK_LAYER_NAME_ (records.h): the position found there becomes the
// layer; a name not yet listed is appended and the block gets layer 0.
//
// The binary form (binary_reader.cpp, binary_solids.cpp) never reads beyond a
// record: a record cut off by the end of the file, a payload shorter than the
// fields of its type, a name of 1024 bytes or more, or a parameter item that
// runs past its record is a syntax error,
//   ERROR: Syntax error in cap3d file.
// and `parse` returns false. A polygon count of 64 to 127 throws
// std::length_error, the form's limit of 63 vertices. The record readers,
// parseBinCylinder included, return false for such a payload instead of
// throwing. binary_writer.h writes the form.
//
// A binary file that is a regular file is read where it is mapped into
// memory, and from 8 MiB on the shapes of its block records are made ahead on
// a second thread (internal/block_shape_supply.h); a pipe or a device is read
// through the stream. The records and messages are the same either way.
//
// A parser serves one file from one thread. Two parsers must not run at once,
// as they share _WIRE_BLOCK_LAYER_NAME_.
#pragma once

#include <array>
#include <cstddef>
#include <cstdint>
#include <istream>
#include <string>
#include <vector>

#include "torva/foundation/double_wrapper.h"
#include "torva/foundation/writer.h"
#include "torva/layout/records.h"
#include "torva/solids/solids.h"

namespace torva {

class Cap3dParser {
 public:
  // The separators of the text form: blank, tab, parentheses, comma, CR, LF.
  static inline const std::string SEPARATOR = " \t(,)\r\n";
  // The first bytes of a binary file.
  static inline const std::string BIN_FLAG = "CAP3D_BINARY";

  // Bits of `state`.
  static constexpr std::uint32_t in_cap3d = 0x1000000;
  static constexpr std::uint32_t in_conductor = 0x40000;
  static constexpr std::uint32_t in_medium = 0x20000;

  // `incline_slices`: into how many horizontal cuboids a conductor <block>
  // with a non-zero side_tan is cut; below 1 such a block is dropped.
  // `allow_floating`: whether "floating" in a text <conductor> counts.
  // `cuboids_only`: cylinders and convex polygon pieces become bounding cuboids.
  Cap3dParser(circuit_layout::raw& layout, int incline_slices, bool allow_floating, bool cuboids_only);

  // Reads the whole file; true on success. `dump_file`, if not empty, receives
  // the text form of a binary file as it is read; it is ignored for text.
  bool parse(std::string file, std::string dump_file);

  // Reads `size` bytes held in memory as parse reads a file of those bytes:
  // the same records, the same messages and the same answer, with no file
  // between (cap3d_parser_bytes.cpp).
  bool parseBytes(const char* data, std::size_t size, std::string dump_file);

  // Empties `words`, sets `comment_state` and `state` to 0.
  void init();

  static bool isSeparator(char c) noexcept { return separator_table[static_cast<unsigned char>(c)]; }

  // Splits one chunk into `words` in place and finds its last closing tag.
  // True if there is one: the words behind it are dropped and `cut` is the
  // position behind it. False otherwise, with `cut` at the start of a trailing
  // partial word, or -1.
  bool removeCommentsAndDivideWords(char* buffer, int size, int& cut);

  // Walks `words` at the top level; false after a syntax error.
  bool parseBuffWords();

  // Section readers: `i` enters on the word behind the opening tag and leaves
  // on the closing tag.
  bool parseWindow(unsigned int& i);
  bool parseParam(unsigned int& i);
  bool parseLayer(unsigned int& i);
  bool parseTask(unsigned int& i);
  bool parsePlateMedium(unsigned int& i);
  bool parseBlock(unsigned int& i);
  bool parsePoly(unsigned int& i);

  // Word conversions: no checks, a word that is not a number gives 0 and
  // trailing letters are ignored (strtol base 10 and strtod).
  static long parseInt(const char* word);
  static double parseDouble(const char* word);
  static std::string parseString(const char* word) { return std::string(word); }

  // Binary form: one record (`record` behind the two length bytes, `length`
  // the whole record's length) and the readers of its kinds.
  bool parseBinRecord(const char* record, short length);
  bool parseBinPlateMedium(const char*& cursor, short payload_size);
  bool parseBinLayer(const char*& cursor, short payload_size);
  bool parseBinWindow(const char*& cursor, short payload_size);
  bool parseBinParam(const char*& cursor, short payload_size);
  bool parseBinTask(const char*& cursor, short payload_size);
  bool parseBinMediumBegin(const char*& cursor, short payload_size);
  bool parseBinMediumEnd(const char*& cursor, short payload_size);
  bool parseBinConductorBegin(const char*& cursor, short payload_size);
  bool parseBinConductorEnd(const char*& cursor, short payload_size);
  bool parseBinBlock(const char*& cursor, short payload_size);
  bool parseBinPoly(const char*& cursor, short payload_size);
  bool parseBinCylinder(const char*& cursor, short payload_size);

  // Binary fields; each advances the cursor by what it read. Integers are
  // byte-swapped when `swap_bytes` is 1, floating values never.
  int readInt(const char*& cursor);
  short readShort(const char*& cursor);
  char readChar(const char*& cursor);
  double readDouble(const char*& cursor);
  float readFloat(const char*& cursor);
  std::string readString(const char*& cursor, short length);

  std::uint32_t state = 0;
  circuit_layout::raw& layout;
  std::vector<shape_t> pending_shapes;      // solids of the section in progress
  std::vector<std::string> pending_names;   // one name per pending shape
  std::vector<short> pending_layers;        // one layer per pending shape, -1 for none
  sea::writer* dump = nullptr;              // text dump of a binary read
  char swap_bytes = 0;
  std::vector<const char*> words;           // the current list of words
  int comment_state = 0;                    // 0 none, 1 line comment, 2 block comment
  int incline_slices;
  std::vector<double> pending_side_tans;    // one per pending shape (text only)
  std::string medium_name;
  std::string conductor_name;
  sea::double_wrapper medium_diel;
  bool conductor_floating = false;
  bool allow_floating;
  bool cuboids_only;
  bool is_binary = false;
  bool dump_enabled = false;
  bool parse_ok = false;

 private:
  // The binary branch of parse, entered behind the 12 flag bytes of `in`, the
  // stream of `file`. `buffer` is parse's chunk buffer of `buffer_size` bytes,
  // free for records.
  bool parseBinary(std::istream& in, const std::string& file, const std::string& dump_file, char* buffer,
                   std::size_t buffer_size);

  // Prints the syntax error line for `word` and returns false.
  static bool syntaxError(const char* word);
  // The syntax error for a section that runs past the end of `words`.
  bool endOfWords();
  // True if `count` words follow index i.
  bool haveValues(unsigned int i, unsigned int count) const {
    return static_cast<std::size_t>(i) + count < words.size();
  }

  void closeConductor();
  void closeMedium();
  void addPending(shape_t shape, double side_tan, const std::string& name, short layer);

  // parse behind the opening of its stream: `file` is the path read, empty
  // for bytes in memory; `input_size` what the stream holds, SIZE_MAX if not known.
  bool parseStream(std::istream& in, const std::string& file, const std::string& dump_file, std::size_t input_size);

  // Positions behind each word found by the latest scan, kept between chunks
  // so that the list is not allocated for every chunk.
  std::vector<int> word_ends;

  // isSeparator's table: the characters of SEPARATOR. NUL is no separator.
  static constexpr std::array<bool, 256> separator_table = [] {
    std::array<bool, 256> t{};
    for (const char* c = " \t(,)\r\n"; *c; ++c) t[static_cast<unsigned char>(*c)] = true;
    return t;
  }();
};

}  // namespace torva
