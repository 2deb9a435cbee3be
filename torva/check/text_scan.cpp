#include "torva/check/text_scan.h"

#include <cerrno>
#include <cstdio>
#include <cstdlib>
#include <string>

#include "torva/check/polygon_crossing.h"
#include "torva/layout/cap3d_parser.h"

namespace torva {

namespace {

bool separator(char c) { return Cap3dParser::isSeparator(c); }

// The reader's words with their lines: the same separators, and comments
// that swallow a word they are opened right behind.
class word_source {
 public:
  explicit word_source(std::string_view text) : t_(text) {}

  bool next(std::string_view& word, std::uint32_t& line) {
    std::size_t start = 0, length = 0;
    std::uint32_t start_line = line_;
    for (; i_ < t_.size(); ++i_) {
      const char c = t_[i_];
      if (comment_ != 0) {
        if ((comment_ == 2 && c == '/' && prev_ == '*') || (comment_ == 1 && c == '\n')) comment_ = 0;
        prev_ = c;
      } else if (separator(c)) {
        prev_ = 0;
        if (length > 0) {
          if (c == '\n') ++line_;
          ++i_;
          word = t_.substr(start, length);
          line = start_line;
          return true;
        }
      } else if (prev_ == '/' && (c == '/' || c == '*')) {
        comment_ = c == '/' ? 1 : 2;
        length = 0;  // the word the comment opens behind is lost, as the reader loses it
        prev_ = c;
      } else {
        if (length++ == 0) {
          start = i_;
          start_line = line_;
        }
        prev_ = c;
      }
      if (c == '\n') ++line_;
    }
    return false;  // a last word with no separator behind it is no word to the reader either
  }

 private:
  std::string_view t_;
  std::size_t i_ = 0;
  std::uint32_t line_ = 1;
  int comment_ = 0;
  char prev_ = 0;
};

std::string where_line(std::uint32_t line) { return "line " + std::to_string(line); }

std::string quoted(std::string_view w) {
  constexpr std::size_t shown = 40;
  std::string s(w.substr(0, shown));
  if (w.size() > shown) s += "...";
  return "\"" + s + "\"";
}

std::string number_text(double v) {
  char b[40];
  std::snprintf(b, sizeof b, "%.15g", v);
  return b;
}

class scanner {
 public:
  scanner(std::string_view text, const text_scan_options& o)
      : words_(text), strict_(o.strict_numbers), found_(o.limit) {}

  text_scan_result run();

 private:
  bool next() { return words_.next(word_, line_); }
  bool is(std::string_view w) const { return word_ == w; }

  // The next word as a number of the reader, with a finding when it was not
  // wholly one. False at the end of the text.
  bool real(const char* key, double* value = nullptr);
  void check_real(const char* key, double* value);
  bool whole(const char* key);
  void section(std::string_view closing);
  void block();
  void poly();
  void close(bool conductor);

  word_source words_;
  std::string_view word_;
  std::uint32_t line_ = 0;
  bool strict_;
  finding_list found_;
  std::uint32_t conductor_line_ = 0;  // the open <conductor>, 0 if none
  std::uint32_t medium_line_ = 0;
  layout_places places_;
};

bool scanner::real(const char* key, double* value) {
  if (!next()) return false;
  check_real(key, value);
  return true;
}

void scanner::check_real(const char* key, double* value) {
  const std::string w(word_);
  char* end = nullptr;
  std::strtod(w.c_str(), &end);
  const double read = Cap3dParser::parseDouble(w.c_str());
  if (value) *value = read;
  if (end == nullptr || *end != '\0' || end == w.c_str())
    found_.add(strict_ ? severity::error : severity::warning, finding_kind::loose_number,
               std::string(key) + " " + quoted(word_) + " is not wholly a number: read as " + number_text(read),
               where_line(line_));
}

bool scanner::whole(const char* key) {
  if (!next()) return false;
  const std::string w(word_);
  char* end = nullptr;
  errno = 0;
  std::strtol(w.c_str(), &end, 10);
  if (end == nullptr || *end != '\0' || end == w.c_str() || errno == ERANGE)
    found_.add(strict_ ? severity::error : severity::warning, finding_kind::loose_number,
               std::string(key) + " " + quoted(word_) + " is not wholly a whole number: read as " +
                   std::to_string(Cap3dParser::parseInt(w.c_str())),
               where_line(line_));
  return true;
}

// The plain-key sections: each key with its values, as the reader takes them.
void scanner::section(std::string_view closing) {
  while (next() && !is(closing)) {
    const std::string key(word_);
    if (key == "v1" || key == "v2" || key == "basepoint") {
      for (int c = 0; c < 3; ++c) real(key.c_str());
    } else if (key == "diel" || key == "z_top" || key == "wmin" || key == "c-ratio" || key == "b-ratio" ||
               key == "b-net-ratio" || key == "self-precision" || key == "coupling-precision" ||
               key == "blk-self-precision" || key == "blk-coupling-precision" || key == "outmincap") {
      real(key.c_str());
    } else if (key == "id" || key == "thread-num" || key == "seed" || key == "walk-type") {
      whole(key.c_str());
    } else if (key == "<capacitance>") {
      next();  // a conductor's name, whatever word it is
    } else if (key == "dirichlet" || key == "neumann" || key == "</capacitance>") {
      // no value
    } else if (key == "name" || key == "type" || key == "flat" || key == "thickness" || key == "log-file" ||
               key == "out-file" || key == "spice") {
      next();
    } else {
      return;  // the reader stops here with its own syntax error
    }
  }
}

void scanner::block() {
  const std::uint32_t at = line_;
  bool base = false, edge[3] = {false, false, false}, radius = false, height = false;
  while (next() && !is("</block>")) {
    const std::string key(word_);
    if (key == "basepoint") {
      base = true;
      for (int c = 0; c < 3; ++c) real("basepoint");
    } else if (key == "v1" || key == "v2" || key == "hvector") {
      edge[key[0] == 'h' ? 2 : key[1] - '1'] = true;
      for (int c = 0; c < 3; ++c) real(key.c_str());
    } else if (key == "side_tan" || key == "radius" || key == "height") {
      radius = radius || key == "radius";
      height = height || key == "height";
      real(key.c_str());
    } else if (key == "layer") {
      whole("layer");
    } else if (key == "name" || key == "rho") {
      next();
    } else {
      return;
    }
  }
  std::string missing;
  if (!base) missing += " basepoint";
  if (radius && !height) missing += " height (its height is then -1)";
  if (!radius) {
    static const char* const names[] = {" v1", " v2", " hvector"};
    for (int k = 0; k < 3; ++k)
      if (!edge[k]) missing += names[k];
  }
  if (!missing.empty())
    found_.add(severity::warning, finding_kind::missing_field, "a <block> without" + missing, where_line(at));
}

void scanner::poly() {
  const std::uint32_t at = line_;
  double base[3] = {0, 0, 0};
  bool height = false;
  std::vector<point2> outline;
  std::vector<double> coords;
  while (next() && !is("</poly>")) {
    const std::string key(word_);
    if (key == "basepoint") {
      for (double& b : base) real("basepoint", &b);
    } else if (key == "v1" || key == "v2") {
      for (int c = 0; c < 3; ++c) next();  // read and dropped, never as numbers
    } else if (key == "hvector") {
      height = next() && next() && real("hvector");
    } else if (key == "side_tan") {
      real("side_tan");
    } else if (key == "layer") {
      whole("layer");
    } else if (key == "name" || key == "rho") {
      next();
    } else if (key == "<coord>") {
      while (next() && !is("</coord>")) {
        double v = 0;
        check_real("<coord>", &v);
        coords.push_back(v);
      }
    } else {
      return;
    }
  }
  const std::size_t points = coords.size() / 2;
  if (!height) found_.add(severity::warning, finding_kind::missing_field, "a <poly> without hvector", where_line(at));
  if (conductor_line_ == 0 && medium_line_ == 0) {
    found_.add(severity::warning, finding_kind::nested_section,
               "a <poly> outside any <conductor> or <medium> is passed over", where_line(at));
    return;
  }
  if (points < 3 || (conductor_line_ == 0 && points > 4))
    found_.add(severity::warning, finding_kind::short_polygon,
               points < 3 ? "a polygon of " + std::to_string(points) + " points is dropped"
                          : "a dielectric polygon of " + std::to_string(points) + " points: only the first 4 count",
               where_line(at));
  for (std::size_t k = 0; k < points; ++k) outline.push_back(point2{base[0] + coords[2 * k], base[1] + coords[2 * k + 1]});
  const polygon_crossing c = find_self_crossing(outline);
  if (c.found)
    found_.add(severity::error, finding_kind::self_crossing,
               "a polygon outline crosses itself: the edges from points " + std::to_string(c.edge_a + 1) + " and " +
                   std::to_string(c.edge_b + 1) + " cross at (" + number_text(c.x) + ", " + number_text(c.y) + ")",
               where_line(at));
  else if (c.unchecked)
    found_.add(severity::warning, finding_kind::unchecked,
               "a polygon of " + std::to_string(points) + " points, too long to check for crossing itself",
               where_line(at));
}

// A closing tag of a conductor or a medium: the reader closes whatever is
// open, as that kind, and opens nothing.
void scanner::close(bool conductor) {
  const std::uint32_t other = conductor ? medium_line_ : conductor_line_;
  const std::uint32_t own = conductor ? conductor_line_ : medium_line_;
  const char* tag = conductor ? "</conductor>" : "</medium>";
  if (own == 0) {
    std::string what = std::string(tag) + " with no " + (conductor ? "<conductor>" : "<medium>") + " open: ";
    if (other != 0)
      what += std::string("it closes the ") + (conductor ? "<medium>" : "<conductor>") + " of line " +
              std::to_string(other) + ", whose blocks become a " + (conductor ? "conductor" : "dielectric");
    else
      what += std::string("the blocks of the section before are made a ") +
              (conductor ? "conductor" : "dielectric") + " once more";
    found_.add(severity::error, finding_kind::stray_closing, what, where_line(line_));
  }
  if (conductor) places_.conductor_lines.push_back(own != 0 ? own : line_);
  conductor_line_ = medium_line_ = 0;
}

text_scan_result scanner::run() {
  while (next()) {
    if (is("</cap3d>")) break;
    if (is("<window>")) {
      section("</window>");
    } else if (is("<parameter>") || is("<layer>") || is("<task>") || is("<plate_medium>")) {
      const std::string closing = "</" + std::string(word_.substr(1));
      section(closing);
    } else if (is("<conductor>") || is("<medium>")) {
      const bool conductor = is("<conductor>");
      const std::uint32_t open = conductor_line_ != 0 ? conductor_line_ : medium_line_;
      if (open != 0)
        found_.add(severity::error, finding_kind::nested_section,
                   std::string(conductor ? "a <conductor>" : "a <medium>") + " inside the " +
                       (conductor_line_ != 0 ? "<conductor>" : "<medium>") + " of line " + std::to_string(open) +
                       ": sections do not nest, so the blocks before it are lost and the next closing tag makes "
                       "the same blocks twice",
                   where_line(line_));
      (conductor ? conductor_line_ : medium_line_) = line_;
    } else if (is("</conductor>") || is("</medium>")) {
      close(is("</conductor>"));
    } else if (is("<block>")) {
      block();
    } else if (is("<poly>")) {
      poly();
    } else if (is("diel")) {
      real("diel");
    } else if (is("name") || is("rho")) {
      next();
    }
  }
  return {found_.take(), std::move(places_)};
}

}  // namespace

text_scan_result scan_layout_text(std::string_view text, const text_scan_options& options) {
  return scanner(text, options).run();
}

}  // namespace torva
