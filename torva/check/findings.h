// What the checks of a layout find: structure the reader accepts but no user
// means, each with its place (a line of the text, a record of the binary form,
// or the names of a conductor and its block).
//
// An error makes an extraction meaningless (two conductors of one name, a
// conductor with no solid, conductors of two nets that overlap, a polygon
// that crosses itself, a window of no size, a number that is not a number);
// a warning is worth a look but leaves the result what it says it is.
#pragma once

#include <cstddef>
#include <cstdint>
#include <string>
#include <vector>

namespace torva {

enum class severity : std::uint8_t { warning, error };

enum class finding_kind : std::uint8_t {
  loose_number,       // a number word that was not wholly a number
  nested_section,     // a <conductor> or <medium> opened inside another
  stray_closing,      // a </conductor> or </medium> that closes no section of its kind
  missing_field,      // a <block> or <poly> without a field it needs
  short_polygon,      // a polygon of fewer than 3 points (dropped), or a dielectric one of more than 4
  self_crossing,      // a polygon outline that crosses itself
  duplicate_name,     // two conductors with one name
  unknown_task,       // a task that names no conductor
  bad_window,         // no window, or one of zero or negative size
  not_finite,         // a coordinate or value that is not a finite number
  empty_conductor,    // a conductor with no solid
  degenerate_block,   // a solid of zero or negative extent
  repeated_block,     // a block that repeats another of its net (merged)
  coincident_blocks,  // blocks of two nets in the same place
  overlap,            // blocks of two nets that overlap
  floating,           // a floating conductor
  outside_window,     // a conductor block that reaches beyond the window
  bad_permittivity,   // a permittivity that is not a positive number
  unchecked,          // a part too large to check
};

struct finding {
  torva::severity severity = severity::warning;
  finding_kind kind = finding_kind::loose_number;
  std::string what;   // one line, without the place
  std::string where;  // "line 12", "record 40 (byte 1234)", "conductor a, block b", ...
};

// Keeps at most `limit` findings of each kind and counts the rest, which one
// last finding of the kind reports ("... and 12 more like it").
class finding_list {
 public:
  explicit finding_list(std::size_t limit = 20) : limit_(limit) {}
  void add(torva::severity s, finding_kind kind, std::string what, std::string where);
  // The findings, with a closing count of each kind that passed its limit.
  std::vector<finding> take();
  bool has_errors() const { return errors_ != 0; }

 private:
  std::size_t limit_;
  std::size_t errors_ = 0;
  std::vector<finding> kept_;
  std::vector<std::size_t> count_;       // by kind
  std::vector<torva::severity> worst_;   // by kind, of the findings passed over
};

std::size_t count_errors(const std::vector<finding>& findings);

// "error", "warning".
const char* severity_name(severity s);

}  // namespace torva
