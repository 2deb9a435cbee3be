#include "torva/check/layout_check.h"

#include <algorithm>
#include <cmath>
#include <cstdio>
#include <string>
#include <unordered_map>

#include "torva/check/coincident.h"
#include "torva/check/overlap.h"

namespace torva {

namespace {

constexpr double tol = 1e-10;
const char* const axis_name[] = {"x", "y", "z"};

std::string number_text(double v) {
  char b[40];
  std::snprintf(b, sizeof b, "%.15g", v);
  return b;
}

class checker {
 public:
  checker(const circuit_layout::raw& r, const layout_places* places, std::size_t limit)
      : r_(r), places_(places), limit_(limit), found_(limit) {}

  std::vector<finding> run() {
    window();
    conductors();
    tasks();
    media();
    shared_places();
    return found_.take();
  }

 private:
  void add(severity s, finding_kind k, std::string what, std::string where) {
    found_.add(s, k, std::move(what), std::move(where));
  }

  std::string net_place(const wire_net& n) const {
    std::string s = "conductor " + n.name;
    const auto at = index_.find(&n);
    if (places_ && at != index_.end() && at->second < places_->conductor_lines.size())
      s += " (line " + std::to_string(places_->conductor_lines[at->second]) + ")";
    return s;
  }
  std::string block_place(const wire_block& b) const {
    const wire_net& n = *b.net;
    std::string name = b.name;
    if (name.empty()) {
      const auto it = std::find(n.blocks.begin(), n.blocks.end(), &b);
      name = "#" + std::to_string(it - n.blocks.begin() + 1);
    }
    return net_place(n) + ", block " + name;
  }

  bool window_ok() const {
    if (r_.boundary != 1 && r_.boundary != 2) return false;
    for (int k = 0; k < 3; ++k)
      if (!(r_.window.upper[k].value - r_.window.lower[k].value > 0)) return false;
    return true;
  }

  void window() {
    if (r_.boundary != 1 && r_.boundary != 2) {
      add(severity::error, finding_kind::bad_window, "no <window>: a walk has no box to end in", "the layout");
      return;
    }
    for (int k = 0; k < 3; ++k) {
      const double lo = r_.window.lower[k].value, hi = r_.window.upper[k].value;
      if (!std::isfinite(lo) || !std::isfinite(hi))
        add(severity::error, finding_kind::not_finite, std::string("the window's corners along ") + axis_name[k] +
                                                           " are not finite numbers", "the window");
      else if (!(hi - lo > 0))
        add(severity::error, finding_kind::bad_window,
            std::string("the window has ") + (hi == lo ? "no" : "a negative") + " size along " + axis_name[k] +
                " (from " + number_text(lo) + " to " + number_text(hi) + ")",
            "the window");
    }
  }

  void solid(const wire_block& b) {
    const shape_t& s = b;
    bool finite = true;
    for (int k = 0; k < 3; ++k)
      finite = finite && std::isfinite(s.outer_box.lower[k].value) && std::isfinite(s.outer_box.upper[k].value);
    if (s.shape_kind == shape_cylinder)
      finite = finite && std::isfinite(s.cylinder().radius.value) && std::isfinite(s.cylinder().half_height.value);
    if (!finite) {
      add(severity::error, finding_kind::not_finite, "a block whose coordinates are not all finite numbers",
          block_place(b));
      return;
    }
    std::string flat;
    if (s.shape_kind == shape_cylinder) {
      if (!(s.cylinder().radius.value > 0)) flat = "a cylinder of radius 0 or less";
      else if (!(s.cylinder().half_height.value > 0)) flat = "a cylinder of height 0 or less (a radius without a height?)";
    } else {
      for (int k = 0; k < 3 && flat.empty(); ++k) {
        const double e = s.outer_box.upper[k].value - s.outer_box.lower[k].value;
        if (!(e > 0)) flat = std::string("a block of ") + (e == 0 ? "no extent" : "negative extent") + " along " + axis_name[k];
      }
    }
    if (!flat.empty()) {
      add(severity::error, finding_kind::degenerate_block, flat, block_place(b));
      return;
    }
    if (window_ok()) {
      for (int k = 0; k < 3; ++k)
        if (s.outer_box.lower[k].value < r_.window.lower[k].value - tol ||
            s.outer_box.upper[k].value > r_.window.upper[k].value + tol) {
          add(severity::warning, finding_kind::outside_window,
              std::string("a block that reaches beyond the window along ") + axis_name[k], block_place(b));
          break;
        }
    }
  }

  void conductors() {
    std::unordered_map<std::string, const wire_net*> first;
    std::size_t i = 0;
    for (const wire_net& n : r_.wire_nets) index_.emplace(&n, i++);
    for (const wire_net& n : r_.wire_nets) {
      if (n.name.empty()) {
        add(severity::warning, finding_kind::duplicate_name, "a conductor without a name", net_place(n));
      } else if (const auto [at, fresh] = first.emplace(n.name, &n); !fresh) {
        add(severity::error, finding_kind::duplicate_name,
            "two conductors named " + n.name + " (the other is " + net_place(*at->second) +
                "): the matrix cannot tell them apart",
            net_place(n));
      }
      if (n.blocks.empty())
        add(severity::error, finding_kind::empty_conductor,
            "a conductor with no solid: an empty section, or its polygons were dropped as invalid", net_place(n));
      if (n.floating)
        add(severity::warning, finding_kind::floating,
            "a floating conductor (the extractor does not take floating conductors yet)", net_place(n));
      for (const wire_block* b : n.blocks)
        if (b->net == &n) solid(*b);
    }
  }

  void tasks() {
    std::unordered_map<std::string, bool> names;
    for (const wire_net& n : r_.wire_nets) names.emplace(n.name, true);
    std::vector<std::string> missing;
    for (const std::string& t : r_.capacitance_tasks)
      if (!names.count(t)) missing.push_back(t);
    std::sort(missing.begin(), missing.end());
    for (const std::string& t : missing)
      add(severity::error, finding_kind::unknown_task, "a task that names no conductor: " + t, "the tasks");
  }

  void permittivity(double diel, const std::string& where) {
    if (!(std::isfinite(diel) && diel > 0))
      add(severity::error, finding_kind::bad_permittivity, "a permittivity that is not a positive number", where);
  }

  void media() {
    for (const circuit_layout::plate_medium& p : r_.plate_mediums) {
      permittivity(p.diel.value, "plate medium " + p.name);
      if (!std::isfinite(p.z_top.value))
        add(severity::error, finding_kind::not_finite, "a plate medium whose z_top is not a finite number",
            "plate medium " + p.name);
    }
    for (const medium_net& m : r_.medium_nets) {
      if (m.blocks.empty()) continue;  // a plate medium's own net, checked above
      permittivity(m.diel.value, "medium " + m.name);
      for (const medium_block* b : m.blocks) {
        bool finite = true, flat = false;
        for (int k = 0; k < 3; ++k) {
          const double lo = b->outer_box.lower[k].value, hi = b->outer_box.upper[k].value;
          finite = finite && std::isfinite(lo) && std::isfinite(hi);
          flat = flat || !(hi - lo > 0);
        }
        if (!finite)
          add(severity::error, finding_kind::not_finite, "a dielectric block whose coordinates are not all finite",
              "medium " + m.name);
        else if (flat)
          add(severity::warning, finding_kind::degenerate_block, "a dielectric block of no extent along some axis",
              "medium " + m.name);
      }
    }
  }

  // Blocks in one place, and blocks of two nets that overlap.
  void shared_places() {
    std::vector<const wire_block*> blocks;
    for (const wire_net& n : r_.wire_nets)
      for (const wire_block* b : n.blocks)
        if (b->net == &n) blocks.push_back(b);
    const coincident_blocks same = find_coincident_blocks(blocks, limit_);
    if (same.repeats != 0)
      add(severity::warning, finding_kind::repeated_block,
          std::to_string(same.repeats) + " blocks repeat another block of their conductor; they are merged into it",
          "the conductors");
    for (const auto& [a, b] : same.across)
      add(severity::error, finding_kind::coincident_blocks,
          "blocks of two conductors in the same place: they would be one conductor (the other is " + block_place(*a) +
              ")",
          block_place(*b));
    const overlap_search over = find_overlaps_across_nets(same.kept, limit_);
    for (const auto& [a, b] : over.pairs)
      add(severity::error, finding_kind::overlap,
          "blocks of two conductors that overlap: they would be one conductor (the other is " + block_place(*a) +
              ")",
          block_place(*b));
    for (std::size_t k = same.across.size(); k < same.across_count; ++k)
      add(severity::error, finding_kind::coincident_blocks, "", "");
    for (std::size_t k = over.pairs.size(); k < over.count; ++k) add(severity::error, finding_kind::overlap, "", "");
  }

  const circuit_layout::raw& r_;
  const layout_places* places_;
  std::size_t limit_;
  finding_list found_;
  std::unordered_map<const wire_net*, std::size_t> index_;
};

}  // namespace

std::vector<finding> check_layout(const circuit_layout::raw& layout, const layout_places* places,
                                  const layout_check_options& options) {
  return checker(layout, places, options.limit).run();
}

}  // namespace torva
