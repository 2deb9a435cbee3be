// The frame of the reader and the text form's top level: opening the file,
// the chunked read, the word splitter, the walk over top-level words, and the
// closing of conductors and media.
#include "torva/layout/cap3d_parser.h"

#include <array>
#include <cstdint>
#include <cstdlib>
#include <cstring>
#include <deque>
#include <fstream>
#include <memory>
#include <string_view>
#include <utility>

#include "torva/foundation/logger.h"
#include "torva/layout/internal/words.h"

namespace torva {

namespace {

// One chunk of text: a read takes one byte less so that a NUL always ends it.
constexpr std::size_t full_chunk = 0x100000;

// The tags after which a chunk may be walked. "</plate_medium>",
// "</capacitance>" and "</coord>" are not among them.
bool is_closing_tag(const char* word) noexcept {
  using internal::same;
  if (word[0] != '<' || word[1] != '/') return false;
  const std::string_view w = word;
  return same(w, "</cap3d>") || same(w, "</window>") || same(w, "</medium>") ||
         same(w, "</conductor>") || same(w, "</layer>") || same(w, "</task>") ||
         same(w, "</parameter>") || same(w, "</block>") || same(w, "</poly>");
}

// A letter of a word that is neither a separator nor a character that may
// open or close a comment.
constexpr std::array<bool, 256> plain_letters = [] {
  std::array<bool, 256> t{};
  for (int c = 0; c < 256; ++c) t[c] = true;
  for (const char* c = " \t(,)\r\n/*"; *c; ++c) t[static_cast<unsigned char>(*c)] = false;
  return t;
}();
inline bool is_plain_letter(char c) noexcept { return plain_letters[static_cast<unsigned char>(c)]; }

}  // namespace

Cap3dParser::Cap3dParser(circuit_layout::raw& target, int slices, bool floating_allowed, bool only_cuboids)
    : layout(target), incline_slices(slices), allow_floating(floating_allowed), cuboids_only(only_cuboids) {}

void Cap3dParser::init() {
  words.clear();
  comment_state = 0;
  state = 0;
}

long Cap3dParser::parseInt(const char* word) { return std::strtol(word, nullptr, 10); }

double Cap3dParser::parseDouble(const char* word) { return internal::to_double(word); }

bool Cap3dParser::syntaxError(const char* word) {
  // The word comes from the file: printed as text, never as a format.
  sea::writer& out = *logger::instance().error;
  out.print("ERROR: (Syntax) \"");
  out.print(word);
  out.print("\".");
  out.write('\n');
  out.flush();
  return false;
}

bool Cap3dParser::endOfWords() {
  // Only reached with at least the section's opening tag in the list.
  return syntaxError(words.empty() ? "" : words.back());
}

bool Cap3dParser::parse(std::string file, std::string dump_file) {
  std::ifstream in(file, std::ios::in | std::ios::binary);
  if (!in.is_open()) {
    sea::writer& out = *logger::instance().error;
    out.print("ERROR: Failed to open \"");
    out.print(file);
    out.print("\".");
    out.write('\n');
    out.flush();
    return false;
  }
  return parseStream(in, file, dump_file, SIZE_MAX);
}

bool Cap3dParser::parseStream(std::istream& in, [[maybe_unused]] const std::string& file, const std::string& dump_file,
                              std::size_t input_size) {
  char head[16] = {};
  in.read(head, static_cast<std::streamsize>(BIN_FLAG.size()));
  is_binary = BIN_FLAG == head;  // the bytes up to the first NUL
  parse_ok = false;

  // The chunk lives on the heap, once per parse: 1 MiB would not fit the stack
  // of a thread with a small one. Words are pointers into it. An input of
  // known size smaller than that gets a chunk that still asks for more than
  // it holds, so that its first read ends the input just as the full one does
  // (a read that asks for nothing would never see the end).
  const std::size_t chunk_size = input_size < full_chunk - 2 ? input_size + 2 : full_chunk;
  std::unique_ptr<char[]> chunk(new char[chunk_size]);
  char* const buffer = chunk.get();

  if (is_binary) return parseBinary(in, file, dump_file, buffer, chunk_size);

  in.clear();
  in.seekg(0);
  init();

  // Copies of the words of a section that runs over a chunk boundary; a deque,
  // so that the copies keep their addresses while words point at them. The
  // first `carried_count` entries of `words` point here, the rest into the buffer.
  std::deque<std::string> carried;
  std::size_t carried_count = 0;
  std::streamoff position = 0;  // file offset of the next read

  // However the read ends, `words` must not keep pointing into the buffer or
  // the carried copies, which die with this call.
  struct forget_words {
    std::vector<const char*>& words;
    ~forget_words() { words.clear(); }
  } forget{words};

  for (;;) {
    in.read(buffer, chunk_size - 1);
    const int got = static_cast<int>(in.gcount());
    buffer[got] = '\0';
    int cut = -1;

    if (!removeCommentsAndDivideWords(buffer, got, cut)) {
      // No end of a section yet: keep the words beyond this buffer's life.
      for (std::size_t w = carried_count; w < words.size(); ++w) {
        carried.emplace_back(words[w]);
        words[w] = carried.back().c_str();
      }
      carried_count = words.size();
    } else {
      parse_ok = parseBuffWords();
      if (!parse_ok) break;
      words.clear();
      carried.clear();
      carried_count = 0;
    }

    if (cut >= 1 && cut != got) {
      // The text behind `cut` was not consumed: read it again.
      in.clear();
      position += cut;
      in.seekg(position);
    } else {
      position += got;
    }
    if (in.eof() || !in) break;  // end of file, or a stream that can't be read
  }

  if (parse_ok && (state & in_cap3d)) {
    sea::writer& out = *logger::instance().error;
    out.print("ERROR: (Syntax) cap3d file ends without </cap3d>.");
    out.write('\n');
    out.flush();
    return false;
  }
  return parse_ok;
}

bool Cap3dParser::removeCommentsAndDivideWords(char* buffer, int size, int& cut) {
  const std::size_t first_new = words.size();
  word_ends.clear();

  // `prev` and `comment_start` start afresh in every chunk; only the comment
  // state survives from one chunk to the next.
  char prev = 0;
  int length = 0;
  int comment_start = -1;
  int comments = comment_state;

  for (int i = 0; i < size; ++i) {
    const char c = buffer[i];
    if (comments == 0) {
      if (is_plain_letter(c)) {
        // The common case: a run of letters that can't open a comment.
        int j = i + 1;
        while (j < size && is_plain_letter(buffer[j])) ++j;
        length += j - i;
        prev = buffer[j - 1];
        i = j - 1;
      } else if (isSeparator(c)) {
        buffer[i] = '\0';
        if (length > 0) {
          words.push_back(buffer + i - length);
          word_ends.push_back(i + 1);
          length = 0;
        }
        prev = 0;
      } else if (prev == '/' && (c == '/' || c == '*')) {
        // The opening "/" already counted as a letter of the word in
        // progress, which the comment throws away.
        comments = c == '/' ? 1 : 2;
        comment_start = i - 1;
        length = 0;
        prev = c;
        buffer[i] = '\0';
      } else {
        prev = c;
        ++length;
      }
    } else if ((comments == 2 && c == '/' && prev == '*') || (comments == 1 && c == '\n')) {
      // The comment's last character stays in the buffer, in no word.
      comments = 0;
      comment_start = -1;
      prev = c;
    } else {
      prev = c;
      buffer[i] = '\0';
    }
  }
  comment_state = comments;

  // The last closing tag. Words carried from earlier chunks hold none: a chunk
  // that had one was walked and its words dropped.
  for (std::size_t w = words.size(); w > first_new; --w) {
    if (!is_closing_tag(words[w - 1])) continue;
    words.resize(w);
    const int behind = word_ends[w - 1 - first_new];
    // A comment still open behind the tag will be read again from its start.
    if (comment_state != 0 && comment_start >= 0 && behind < comment_start) comment_state = 0;
    cut = behind;
    return true;
  }

  // No closing tag: the next read starts behind the last NUL, so that a word
  // cut by the end of the chunk is read whole.
  for (int p = size - 1; p >= 0; --p) {
    if (buffer[p] == '\0') {
      cut = p + 1;
      break;
    }
  }
  return false;
}

bool Cap3dParser::parseBuffWords() {
  using internal::same;
  if (words.empty()) return true;

  for (unsigned int i = 0; i < words.size(); ++i) {
    const std::string_view w = words[i];
    if (same(w, "<cap3d>")) {
      state |= in_cap3d;
      continue;
    }
    if (same(w, "</cap3d>")) {
      state = 0;
      if (i + 1 != words.size()) return syntaxError(words[i]);
      continue;
    }
    if (!(state & in_cap3d)) return syntaxError(words[i]);

    bool ok = true;
    if (same(w, "<window>")) {
      ok = parseWindow(++i);
    } else if (same(w, "<plate_medium>")) {
      ok = parsePlateMedium(++i);
    } else if (same(w, "<medium>")) {
      state |= in_medium;
      pending_shapes.clear();
      pending_side_tans.clear();
      pending_names.clear();
      pending_layers.clear();
    } else if (same(w, "<conductor>")) {
      state |= in_conductor;
      pending_shapes.clear();
      pending_side_tans.clear();
      pending_names.clear();
      pending_layers.clear();
      conductor_floating = false;
    } else if (same(w, "<layer>")) {
      ok = parseLayer(++i);
    } else if (same(w, "<parameter>")) {
      ok = parseParam(++i);
    } else if (same(w, "<task>")) {
      ok = parseTask(++i);
    } else if (same(w, "<block>")) {
      ok = parseBlock(++i);
    } else if (same(w, "<poly>")) {
      ok = parsePoly(++i);
    } else if (same(w, "name")) {
      if (!(state & (in_medium | in_conductor))) return syntaxError(words[i]);
      if (!haveValues(i, 1)) return endOfWords();
      const char* value = words[++i];
      medium_name = parseString(value);
      if (!(state & in_medium)) conductor_name = parseString(value);
    } else if (same(w, "diel")) {
      if (!(state & in_medium)) return syntaxError(words[i]);
      if (!haveValues(i, 1)) return endOfWords();
      medium_diel = parseDouble(words[++i]);
    } else if (same(w, "floating")) {
      if (!(state & in_conductor)) return syntaxError(words[i]);
      if (allow_floating) conductor_floating = true;
    } else if (same(w, "rho")) {
      if (!(state & in_conductor)) return syntaxError(words[i]);
      if (!haveValues(i, 1)) return endOfWords();
      ++i;  // the resistivity is not used
    } else if (same(w, "</medium>")) {
      closeMedium();
    } else if (same(w, "</conductor>")) {
      closeConductor();
    } else {
      return syntaxError(words[i]);
    }
    if (!ok) return false;
  }
  return true;
}

void Cap3dParser::addPending(shape_t shape, double side_tan, const std::string& name, short layer) {
  pending_shapes.push_back(std::move(shape));
  pending_side_tans.push_back(side_tan);
  pending_names.push_back(name);
  pending_layers.push_back(layer);
}

void Cap3dParser::closeConductor() {
  std::deque<std::string>& layer_list = _WIRE_BLOCK_LAYER_NAME_;
  const std::size_t first = layout.wire_blocks.size();

  for (std::size_t k = 0; k < pending_shapes.size(); ++k) {
    // "block@layer": only the first "@" counts.
    const std::string_view full = pending_names[k];
    const std::size_t at = full.find('@');
    const std::string_view block_name = full.substr(0, at);
    const std::string_view layer_name = at == std::string_view::npos ? std::string_view() : full.substr(at + 1);

    short layer = pending_layers[k];
    if (layer == -1) {
      bool found = false;
      for (std::size_t j = layer_list.size(); j-- > 0;) {
        if (layer_list[j] != layer_name) continue;
        if (j <= 0x7fff) {
          layer = static_cast<short>(j);
          found = true;
        }
        break;
      }
      if (!found) {
        // A new name gets layer 0 this time; its position counts from the
        // next block that names it.
        layer_list.emplace_back(layer_name);
        layer = 0;
      }
    }
    layout.wire_blocks.emplace_back(pending_shapes[k], std::string(block_name), layer);
  }

  layout.wire_nets.emplace_back(conductor_name, conductor_floating);
  wire_net& net = layout.wire_nets.back();
  for (std::size_t j = first; j < layout.wire_blocks.size(); ++j) {
    wire_block& block = layout.wire_blocks[j];
    net.blocks.push_back(&block);
    block.net = &net;
    block.floating = conductor_floating;
  }
  state &= 0xff000000u;
}

void Cap3dParser::closeMedium() {
  const std::size_t first = layout.medium_blocks.size();
  for (std::size_t k = 0; k < pending_shapes.size(); ++k) {
    const double side_tan = k < pending_side_tans.size() ? pending_side_tans[k] : 0.0;
    layout.medium_blocks.emplace_back(pending_shapes[k], side_tan);
  }
  layout.medium_nets.emplace_back(medium_name, medium_diel);
  medium_net& net = layout.medium_nets.back();
  for (std::size_t j = first; j < layout.medium_blocks.size(); ++j) {
    medium_block& block = layout.medium_blocks[j];
    net.blocks.push_back(&block);
    block.net = &net;
  }
  state &= 0xff000000u;
}

}  // namespace torva
