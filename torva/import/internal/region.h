// Regions of the plane as the import of a chip handles them: sets of
// polygons in database units over Boost.Polygon, Manhattan (the fast, exact
// polygon_90 sets) while every shape in them is, general polygon sets
// otherwise. Booleans, merging into pieces, rectangles and growth are all
// Boost.Polygon's; nothing here clips a polygon by hand.
#pragma once

#include <boost/polygon/polygon.hpp>

#include <cstdint>
#include <span>
#include <vector>

#include "torva/import/gds_library.h"

namespace torva::internal {

namespace gtl = boost::polygon;
using grid_point = gtl::point_data<int>;
using grid_rect = gtl::rectangle_data<int>;
using set_90 = gtl::polygon_90_set_data<int>;
using set_any = gtl::polygon_set_data<int>;
using polygon_90 = gtl::polygon_90_with_holes_data<int>;
using polygon_any = gtl::polygon_with_holes_data<int>;

// Coordinates (times any scale) stay within this, so that growing a shape or
// a product of two coordinates never overflows.
inline constexpr std::int64_t coordinate_limit = std::int64_t(1) << 29;

struct region {
  bool manhattan = true;
  set_90 m;   // while manhattan
  set_any g;  // once not

  // Adds one ring (anticlockwise or not; at least three points).
  void add(std::span<const gds_point> ring);
  void add(const grid_rect& r);
  void make_general();
  bool empty() const {
    if (manhattan) return m.empty();
    g.clean();
    return g.empty();
  }
};

void unite(region& a, const region& b);
void intersect(region& a, const region& b);
void subtract(region& a, const region& b);

// The merged, disjoint polygons of regions, stored end to end: piece i has
// the rings [first_ring, first_ring + rings), the first its outline, the
// others its holes. Pieces that touch along an edge are one; pieces that
// meet at a point only are two (see point_contacts).
struct piece_store {
  struct piece {
    std::uint32_t first_ring = 0;
    std::uint32_t rings = 0;
    grid_rect box;
    bool manhattan = true;
  };
  std::vector<grid_point> points;
  std::vector<std::size_t> ring_starts{0};
  std::vector<piece> pieces;

  std::size_t size() const { return pieces.size(); }
  std::span<const grid_point> ring(std::size_t r) const {
    return {points.data() + ring_starts[r], ring_starts[r + 1] - ring_starts[r]};
  }
  bool is_rectangle(std::size_t i) const {
    const piece& p = pieces[i];
    return p.manhattan && p.rings == 1 && ring(p.first_ring).size() == 4;
  }
  void add_ring(std::span<const grid_point> ring);
  polygon_90 polygon_90_of(std::size_t i) const;
  polygon_any polygon_of(std::size_t i) const;
  // The piece's area in square database units.
  double area(std::size_t i) const;
};

// Appends the pieces of the region.
void extract_pieces(const region& r, piece_store& out);

// Pairs of pieces of one store that meet at a point only, which merging
// leaves apart but which are one conductor.
std::vector<std::pair<std::uint32_t, std::uint32_t>> point_contacts(const piece_store& s);

// Boxes filed in a uniform grid of buckets, for the boxes near a box or a
// point. A box lies in every bucket it reaches; the grid has about as many
// buckets as boxes.
class box_index {
 public:
  explicit box_index(const std::vector<grid_rect>& boxes);
  // Calls f(i) once for each box i that overlaps or touches `r`.
  template <class F>
  void near(const grid_rect& r, F&& f) const {
    if (boxes_.empty()) return;
    const int cx0 = bucket(gtl::xl(r), 0), cx1 = bucket(gtl::xh(r), 0);
    const int cy0 = bucket(gtl::yl(r), 1), cy1 = bucket(gtl::yh(r), 1);
    for (int cy = cy0; cy <= cy1; ++cy)
      for (int cx = cx0; cx <= cx1; ++cx) {
        const std::size_t c = std::size_t(cy) * std::size_t(n_[0]) + std::size_t(cx);
        for (std::size_t k = start_[c]; k < start_[c + 1]; ++k) {
          const std::uint32_t i = items_[k];
          if (!gtl::intersects(boxes_[i], r, true)) continue;
          // Reported from the first bucket both share, so once only.
          const int fx = std::max(cx0, bucket(gtl::xl(boxes_[i]), 0));
          const int fy = std::max(cy0, bucket(gtl::yl(boxes_[i]), 1));
          if (fx == cx && fy == cy) f(i);
        }
      }
  }

 private:
  int bucket(long long v, int axis) const {
    const long long b = (v - origin_[axis]) / size_;
    return int(b < 0 ? 0 : (b >= n_[axis] ? n_[axis] - 1 : b));
  }
  const std::vector<grid_rect>& boxes_;
  long long origin_[2] = {0, 0};
  long long size_ = 1;
  int n_[2] = {1, 1};
  std::vector<std::size_t> start_;
  std::vector<std::uint32_t> items_;
};

// The boxes of a store's pieces, in order.
std::vector<grid_rect> piece_boxes(const piece_store& s);

// Whether pieces i of a and j of b overlap or touch (closed sets meet).
bool pieces_meet(const piece_store& a, std::size_t i, const piece_store& b, std::size_t j);

// For every piece of `a`, the pieces of `b` that it overlaps or touches.
// Returns pairs (index in a, index in b).
std::vector<std::pair<std::uint32_t, std::uint32_t>> contacts_between(const piece_store& a, const piece_store& b);

// The rectangles (for a Manhattan piece: the fewer of its horizontal and
// vertical slicings) or convex outlines of at most four points (other
// pieces) that make up piece i, appended to out as rings. Rectangles are
// rings of four points.
void cut_piece(const piece_store& s, std::size_t i, std::vector<std::vector<grid_point>>& out);

// The pieces of a store, scaled by `scale` and grown by `grow` (in scaled
// units) on every side, as a Manhattan set. A piece that is not Manhattan
// is taken as the boxes of its convex parts, each grown; `approximated`
// counts such pieces.
void add_grown(const piece_store& s, int scale, int grow, set_90& out, std::size_t& approximated);

// Whether every edge of the ring is horizontal or vertical.
bool is_manhattan(std::span<const gds_point> ring);

}  // namespace torva::internal
