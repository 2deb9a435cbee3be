#include "torva/import/gds_flatten.h"

#include <algorithm>
#include <cmath>
#include <map>
#include <utility>

#include "torva/import/internal/gds_report.h"
#include "torva/import/internal/gds_transform.h"

namespace torva {

using namespace internal;

namespace {

constexpr double max_matrix_entry = double(1 << 24);
constexpr double max_offset = 4503599627370496.0;  // 2^52 database units

std::uint64_t add_sat(std::uint64_t a, std::uint64_t b) {
  std::uint64_t r;
  return __builtin_add_overflow(a, b, &r) ? UINT64_MAX : r;
}
std::uint64_t mul_sat(std::uint64_t a, std::uint64_t b) {
  std::uint64_t r;
  return __builtin_mul_overflow(a, b, &r) ? UINT64_MAX : r;
}

std::string quoted(const std::string& s) { return "\"" + s + "\""; }

std::string name_list(const gds_library& lib, const std::vector<std::size_t>& cells) {
  std::string s;
  for (std::size_t i = 0; i < cells.size() && i < 20; ++i) s += (i ? ", " : "") + quoted(lib.cells[cells[i]].name);
  if (cells.size() > 20) s += " and " + std::to_string(cells.size() - 20) + " more";
  return s;
}

// The cells under the top, each parent before its children; fails on a cycle
// (naming it) or a hierarchy deeper than max_depth.
std::vector<std::size_t> top_down_order(const gds_library& lib, std::size_t top, int max_depth) {
  enum : std::uint8_t { unseen, open, done };
  std::vector<std::uint8_t> state(lib.cells.size(), unseen);
  std::vector<std::size_t> post;
  std::vector<std::pair<std::size_t, std::size_t>> stack{{top, 0}};  // cell, next reference
  state[top] = open;
  while (!stack.empty()) {
    auto& [cell, next] = stack.back();
    const auto& refs = lib.cells[cell].references;
    if (next == refs.size()) {
      state[cell] = done;
      post.push_back(cell);
      stack.pop_back();
      continue;
    }
    const std::size_t child = refs[next++].cell;
    if (child == gds_reference::undefined || state[child] == done) continue;
    if (state[child] == open) {
      std::string cycle;
      auto from = std::find_if(stack.begin(), stack.end(), [&](const auto& f) { return f.first == child; });
      for (auto it = from; it != stack.end(); ++it) cycle += quoted(lib.cells[it->first].name) + " -> ";
      gds_fail("GDS cell " + quoted(lib.cells[child].name) + " references itself: " + cycle + quoted(lib.cells[child].name));
    }
    state[child] = open;
    stack.push_back({child, 0});
  }
  std::reverse(post.begin(), post.end());
  // Longest chain of references from the top, in this order.
  std::vector<int> depth(lib.cells.size(), 0);
  for (std::size_t cell : post)
    for (const auto& ref : lib.cells[cell].references) {
      if (ref.cell == gds_reference::undefined) continue;
      depth[ref.cell] = std::max(depth[ref.cell], depth[cell] + 1);
      if (depth[ref.cell] > max_depth)
        gds_fail("GDS cell " + quoted(lib.cells[top].name) + " has a hierarchy deeper than " +
                 std::to_string(max_depth) + " levels (at cell " + quoted(lib.cells[ref.cell].name) + ")");
    }
  return post;
}

// How many times each cell is placed in the flattened top.
std::vector<std::uint64_t> instances(const gds_library& lib, std::size_t top, const std::vector<std::size_t>& order) {
  std::vector<std::uint64_t> n(lib.cells.size(), 0);
  n[top] = 1;
  for (std::size_t cell : order)
    for (const auto& ref : lib.cells[cell].references)
      if (ref.cell != gds_reference::undefined)
        n[ref.cell] = add_sat(n[ref.cell], mul_sat(n[cell], std::uint64_t(ref.columns) * std::uint64_t(ref.rows)));
  return n;
}

class flattener {
 public:
  flattener(const gds_library& lib, const gds_flatten_options& options, gds_flat_cell& out, std::uint64_t total)
      : lib_(lib), options_(options), out_(out), total_(total) {}

  std::vector<std::vector<std::size_t>> slots;  // per cell, per shapes entry: index into out.layers
  std::vector<bool> filled;                      // per cell: anything to place under it

  void place(std::size_t cell, const gds_transform& t) {
    const gds_cell& c = lib_.cells[cell];
    for (std::size_t j = 0; j < c.shapes.size(); ++j) add_shapes(c.shapes[j], out_.layers[slots[cell][j]], t);
    for (const gds_label& l : c.labels) out_.labels.push_back({l.key, t.apply(l.at), l.text});
    for (const gds_reference& ref : c.references) {
      if (ref.cell == gds_reference::undefined || !filled[ref.cell]) continue;
      const std::int64_t vx = ref.column_end.x - ref.origin.x, vy = ref.column_end.y - ref.origin.y;
      const std::int64_t wx = ref.row_end.x - ref.origin.x, wy = ref.row_end.y - ref.origin.y;
      for (int col = 0; col < ref.columns; ++col)
        for (int row = 0; row < ref.rows; ++row) {
          const double x = double(ref.origin.x) + step(vx * col, ref.columns) + step(wx * row, ref.rows);
          const double y = double(ref.origin.y) + step(vy * col, ref.columns) + step(wy * row, ref.rows);
          const gds_transform inner = gds_placement(ref.transform, x, y).within(t);
          check_range(inner, ref, c);
          place(ref.cell, inner);
        }
    }
  }

  void finish() {
    if (options_.progress) options_.progress(done_, total_);
  }

 private:
  const gds_library& lib_;
  const gds_flatten_options& options_;
  gds_flat_cell& out_;
  std::uint64_t total_;
  std::uint64_t done_ = 0;

  // The array offset k v / n: exact when it divides evenly.
  static double step(std::int64_t kv, int n) { return kv % n == 0 ? double(kv / n) : double(kv) / n; }

  void check_range(const gds_transform& t, const gds_reference& ref, const gds_cell& parent) const {
    for (double v : {t.a, t.b, t.c, t.d})
      if (!(std::fabs(v) <= max_matrix_entry)) out_of_range(ref, parent);
    if (!(std::fabs(t.tx) <= max_offset && std::fabs(t.ty) <= max_offset)) out_of_range(ref, parent);
  }
  [[noreturn]] void out_of_range(const gds_reference& ref, const gds_cell& parent) const {
    gds_fail("GDS cell " + quoted(parent.name) + " places " + quoted(ref.name) + " (reference at byte offset " +
             std::to_string(ref.offset) + ") beyond the coordinate range (magnification up to 2^24, offsets up to "
             "2^52 database units)");
  }

  void add_shapes(const gds_polygons& from, gds_polygons& to, const gds_transform& t) {
    const bool reverse = t.reflects();
    for (std::size_t i = 0; i < from.size(); ++i) {
      const auto ring = from.polygon(i);
      const std::size_t start = to.points.size();
      if (reverse) {
        for (std::size_t k = ring.size(); k-- > 0;) to.points.push_back(t.apply(ring[k]));
      } else {
        for (const gds_point& p : ring) to.points.push_back(t.apply(p));
      }
      if (!t.whole) {
        // Rounding may make neighbours meet.
        auto first = to.points.begin() + std::ptrdiff_t(start);
        to.points.erase(std::unique(first, to.points.end()), to.points.end());
        while (to.points.size() - start > 1 && to.points.back() == to.points[start]) to.points.pop_back();
        if (to.points.size() - start < 3) {
          to.points.resize(start);
          continue;
        }
      }
      to.starts.push_back(to.points.size());
    }
    done_ += from.size();
    if (options_.progress && (done_ >> 16) != ((done_ - from.size()) >> 16)) options_.progress(done_, total_);
  }
};

}  // namespace

std::size_t gds_top_cell(const gds_library& lib, const std::string& name) {
  const std::string library = "GDS library " + quoted(lib.name);
  if (lib.cells.empty()) gds_fail(library + " holds no cells");
  if (!name.empty()) {
    const std::size_t i = lib.find(name);
    if (i != gds_reference::undefined) return i;
    std::vector<std::size_t> all(lib.cells.size());
    for (std::size_t k = 0; k < all.size(); ++k) all[k] = k;
    gds_fail(library + " has no cell named " + quoted(name) + "; its cells: " + name_list(lib, all));
  }
  std::vector<bool> referenced(lib.cells.size(), false);
  for (const auto& cell : lib.cells)
    for (const auto& ref : cell.references)
      if (ref.cell != gds_reference::undefined) referenced[ref.cell] = true;
  std::vector<std::size_t> tops;
  for (std::size_t k = 0; k < lib.cells.size(); ++k)
    if (!referenced[k]) tops.push_back(k);
  if (tops.size() == 1) return tops.front();
  if (tops.empty()) gds_fail(library + " has no top cell: every cell is referenced by another");
  gds_fail(library + " has " + std::to_string(tops.size()) + " cells that no other references (" +
           name_list(lib, tops) + "); name the top cell");
}

gds_flat_count gds_count_flat(const gds_library& lib, std::size_t top, int max_depth) {
  const std::vector<std::size_t> order = top_down_order(lib, top, max_depth);
  const std::vector<std::uint64_t> n = instances(lib, top, order);
  gds_flat_count count;
  std::uint64_t text_bytes = 0;
  for (std::size_t cell : order) {
    const gds_cell& c = lib.cells[cell];
    std::uint64_t points = 0, texts = 0;
    for (const auto& s : c.shapes) points += s.points.size();
    for (const auto& l : c.labels) texts += l.text.size();
    count.polygons = add_sat(count.polygons, mul_sat(n[cell], c.polygon_count()));
    count.points = add_sat(count.points, mul_sat(n[cell], points));
    count.labels = add_sat(count.labels, mul_sat(n[cell], c.labels.size()));
    text_bytes = add_sat(text_bytes, mul_sat(n[cell], texts));
  }
  count.bytes = add_sat(add_sat(mul_sat(count.points, sizeof(gds_point)), mul_sat(count.polygons, sizeof(std::size_t))),
                        add_sat(mul_sat(count.labels, sizeof(gds_label)), text_bytes));
  return count;
}

gds_flat_cell flatten_gds(const gds_library& lib, const gds_flatten_options& options) {
  const std::size_t top = gds_top_cell(lib, options.top);
  const std::string& top_name = lib.cells[top].name;
  const gds_flat_count count = gds_count_flat(lib, top, options.max_depth);
  if (count.polygons > options.max_polygons || count.bytes > options.max_bytes)
    gds_refuse("GDS cell " + quoted(top_name) + " would flatten to " + std::to_string(count.polygons) +
               " polygons of " + std::to_string(count.points) + " points and " + std::to_string(count.labels) +
               " labels, about " + std::to_string(count.bytes >> 20) + " MiB, over the limit of " +
               std::to_string(options.max_polygons) + " polygons and " + std::to_string(options.max_bytes >> 20) +
               " MiB");

  gds_flat_cell out;
  out.library = lib.name;
  out.top = top_name;
  out.um_per_db = lib.um_per_db();
  out.user_units_per_db = lib.user_units_per_db;
  out.warnings = lib.warnings;

  // One output entry per (layer, datatype) that any placed cell uses, sized
  // from the counts so that nothing grows while flattening.
  const std::vector<std::size_t> order = top_down_order(lib, top, options.max_depth);
  const std::vector<std::uint64_t> n = instances(lib, top, order);
  std::map<gds_layer, std::pair<std::uint64_t, std::uint64_t>> sizes;  // polygons, points
  for (std::size_t cell : order)
    for (const auto& s : lib.cells[cell].shapes) {
      auto& [polygons, points] = sizes[s.key];
      polygons = add_sat(polygons, mul_sat(n[cell], s.size()));
      points = add_sat(points, mul_sat(n[cell], s.points.size()));
    }
  std::map<gds_layer, std::size_t> index;
  for (const auto& [key, size] : sizes) {
    index[key] = out.layers.size();
    gds_polygons& p = out.layers.emplace_back();
    p.key = key;
    p.starts.reserve(size.first + 1);
    p.points.reserve(size.second);
  }
  out.labels.reserve(count.labels);

  flattener f(lib, options, out, count.polygons);
  // A cell with nothing under it is not visited: an array of a million empty
  // cells costs nothing, and every visit adds at least one shape or label.
  f.filled.assign(lib.cells.size(), false);
  for (auto it = order.rbegin(); it != order.rend(); ++it) {
    const gds_cell& c = lib.cells[*it];
    bool filled = !c.shapes.empty() || !c.labels.empty();
    for (const auto& ref : c.references) filled = filled || (ref.cell != gds_reference::undefined && f.filled[ref.cell]);
    f.filled[*it] = filled;
  }
  f.slots.resize(lib.cells.size());
  for (std::size_t cell : order)
    for (const auto& s : lib.cells[cell].shapes) f.slots[cell].push_back(index[s.key]);
  f.place(top, gds_transform{});
  f.finish();
  std::erase_if(out.layers, [](const gds_polygons& p) { return p.size() == 0; });
  return out;
}

std::size_t gds_flat_cell::polygon_count() const {
  std::size_t n = 0;
  for (const auto& l : layers) n += l.size();
  return n;
}

const gds_polygons* gds_flat_cell::find(gds_layer key) const {
  auto it = std::lower_bound(layers.begin(), layers.end(), key,
                             [](const gds_polygons& p, const gds_layer& k) { return p.key < k; });
  return it != layers.end() && it->key == key ? &*it : nullptr;
}

gds_flat_cell read_gds_flat(const std::string& file, const gds_flatten_options& flatten,
                            const gds_read_options& read) {
  return flatten_gds(read_gds(file, read), flatten);
}

}  // namespace torva
