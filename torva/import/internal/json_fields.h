// Reading the JSON of a process stack: a guard on the parse that refuses a
// key given twice in one object and nesting too deep, and typed reads of
// fields that name the field by its path in the file in any complaint.
#pragma once

#include <algorithm>
#include <cmath>
#include <initializer_list>
#include <set>
#include <string>
#include <string_view>
#include <utility>
#include <vector>

#include <nlohmann/json.hpp>

#include "torva/import/internal/stack_check.h"

namespace torva::stack_detail {

using json = nlohmann::json;

inline constexpr int max_depth = 32;  // a stack is shallow; deeper is not a stack

inline std::string at(const std::string& path, std::string_view key) {
  return path.empty() ? std::string(key) : path + "." + std::string(key);
}
inline std::string at(const std::string& path, std::size_t i) { return path + "[" + std::to_string(i) + "]"; }

// Refuses a key given twice in one object (the parser would keep the last
// silently) and nesting past max_depth, naming where.
class key_guard {
 public:
  explicit key_guard(const std::string& origin) : origin_(origin) {}

  bool operator()(int depth, json::parse_event_t event, json& parsed) {
    using ev = json::parse_event_t;
    if (depth > max_depth) fail(origin_, "", "nested deeper than " + std::to_string(max_depth) + " levels");
    switch (event) {
      case ev::object_start: frames_.push_back({true, {}, 0, {}}); break;
      case ev::array_start: frames_.push_back({false, {}, 0, {}}); break;
      case ev::key: {
        frame& f = frames_.back();
        f.key = parsed.get<std::string>();
        if (!f.keys.insert(f.key).second) fail(origin_, path(), "given twice");
        break;
      }
      case ev::object_end:
      case ev::array_end:
        frames_.pop_back();
        advance();
        break;
      case ev::value: advance(); break;
    }
    return true;
  }

 private:
  struct frame {
    bool object;
    std::string key;
    std::size_t index;
    std::set<std::string> keys;
  };
  void advance() {
    if (!frames_.empty() && !frames_.back().object) ++frames_.back().index;
  }
  std::string path() const {
    std::string p;
    for (const frame& f : frames_) p = f.object ? at(p, f.key) : at(p, f.index);
    return p;
  }
  const std::string& origin_;
  std::vector<frame> frames_;
};

// Typed reads of the fields of one file; `bad` throws, naming the file and the field.
class json_fields {
 public:
  explicit json_fields(const std::string& origin) : origin_(origin) {}

  [[noreturn]] void bad(const std::string& path, const std::string& what) const { fail(origin_, path, what); }

  void object(const json& v, const std::string& path, std::initializer_list<std::string_view> allowed) const {
    if (!v.is_object()) bad(path, "not an object");
    for (auto it = v.begin(); it != v.end(); ++it) {
      if (it.key() == "notes") continue;
      if (std::find(allowed.begin(), allowed.end(), it.key()) == allowed.end()) bad(at(path, it.key()), "unknown field");
    }
  }
  const json& need(const json& v, const std::string& path, const char* key) const {
    const auto it = v.find(key);
    if (it == v.end()) bad(at(path, key), "missing");
    return *it;
  }
  static const json* maybe(const json& v, const char* key) {
    const auto it = v.find(key);
    return it == v.end() ? nullptr : &*it;
  }
  const json& array(const json& v, const std::string& path, bool may_be_empty = false) const {
    if (!v.is_array()) bad(path, "not a list");
    if (v.empty() && !may_be_empty) bad(path, "empty");
    return v;
  }
  double number(const json& v, const std::string& path) const {
    if (!v.is_number()) bad(path, "not a number");
    const double d = v.get<double>();
    if (!std::isfinite(d)) bad(path, "not a finite number");
    return d;
  }
  // A thickness, width or distance: never negative, zero only where allowed.
  double extent(const json& v, const std::string& path, bool zero_allowed) const {
    const double d = number(v, path);
    if (d < 0) bad(path, "negative (" + num(d) + ")");
    if (d == 0 && !zero_allowed) bad(path, "zero");
    return d;
  }
  std::pair<double, double> range(const json& v, const std::string& path) const {
    if (!v.is_array() || v.size() != 2) bad(path, "not a range [bottom, top]");
    const double lo = number(v[0], at(path, 0)), hi = number(v[1], at(path, 1));
    if (!(lo < hi)) bad(path, "bottom " + num(lo) + " is not below top " + num(hi));
    return {lo, hi};
  }
  std::string text(const json& v, const std::string& path) const {
    if (!v.is_string()) bad(path, "not a string");
    std::string s = v.get<std::string>();
    if (s.empty()) bad(path, "empty");
    return s;
  }
  // A name that can stand in a layout file as one word.
  std::string name(const json& v, const std::string& path) const {
    std::string s = text(v, path);
    for (const char c : s)
      if (!(std::isalnum(static_cast<unsigned char>(c)) || c == '_' || c == '-' || c == '.' || c == '+'))
        bad(path, "\"" + s + "\" has a character other than letters, digits, _ - . +");
    return s;
  }

  static void free_text(const json& v, std::vector<std::string>& out) {
    if (v.is_array()) {
      for (const json& e : v) out.push_back(e.is_string() ? e.get<std::string>() : e.dump());
    } else {
      out.push_back(v.is_string() ? v.get<std::string>() : v.dump());
    }
  }

 private:
  const std::string& origin_;
};

}  // namespace torva::stack_detail
