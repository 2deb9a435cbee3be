// Where the pieces of a layer touch: pieces that meet at a point only, and the
// pairs of pieces of two layers (a via's cuts and the metal it joins) that
// meet, found through an index of their boxes rather than all pairs.
#include <algorithm>
#include <utility>

#include "torva/import/internal/region.h"

namespace torva::internal {

using namespace boost::polygon::operators;

std::vector<std::pair<std::uint32_t, std::uint32_t>> point_contacts(const piece_store& s) {
  std::vector<std::pair<std::uint32_t, std::uint32_t>> out;
  bool all_manhattan = std::all_of(s.pieces.begin(), s.pieces.end(), [](const auto& p) { return p.manhattan; });
  if (!all_manhattan) {
    // A point of one outline may touch the inside of another's edge: ask Boost.
    gtl::connectivity_extraction<int> ce;
    for (std::size_t i = 0; i < s.size(); ++i) ce.insert(s.polygon_of(i));
    std::vector<std::set<int>> graph(s.size());
    ce.extract(graph);
    for (std::size_t i = 0; i < graph.size(); ++i)
      for (int j : graph[i])
        if (std::size_t(j) > i) out.emplace_back(std::uint32_t(i), std::uint32_t(j));
    return out;
  }
  // Manhattan outlines that meet at a point only meet corner to corner: a
  // point that is a corner of two pieces.
  struct corner {
    int x, y;
    std::uint32_t piece;
  };
  std::vector<corner> corners;
  corners.reserve(s.points.size());
  for (std::size_t i = 0; i < s.size(); ++i) {
    const auto& p = s.pieces[i];
    for (std::size_t k = s.ring_starts[p.first_ring]; k < s.ring_starts[p.first_ring + p.rings]; ++k)
      corners.push_back({s.points[k].x(), s.points[k].y(), std::uint32_t(i)});
  }
  std::sort(corners.begin(), corners.end(), [](const corner& a, const corner& b) {
    return a.x != b.x ? a.x < b.x : (a.y != b.y ? a.y < b.y : a.piece < b.piece);
  });
  for (std::size_t k = 1; k < corners.size(); ++k)
    if (corners[k].x == corners[k - 1].x && corners[k].y == corners[k - 1].y &&
        corners[k].piece != corners[k - 1].piece)
      out.emplace_back(corners[k - 1].piece, corners[k].piece);
  return out;
}

box_index::box_index(const std::vector<grid_rect>& boxes) : boxes_(boxes) {
  if (boxes.empty()) return;
  grid_rect all = boxes.front();
  for (const grid_rect& b : boxes) gtl::encompass(all, b);
  const long long w = (long long)gtl::xh(all) - gtl::xl(all) + 1, h = (long long)gtl::yh(all) - gtl::yl(all) + 1;
  origin_[0] = gtl::xl(all), origin_[1] = gtl::yl(all);
  // About one bucket per box, but no smaller than the boxes are on average.
  double mean = 0;
  for (const grid_rect& b : boxes) mean += double(std::max(gtl::xh(b) - gtl::xl(b), gtl::yh(b) - gtl::yl(b)));
  mean /= double(boxes.size());
  const double side = std::max({std::sqrt(double(w) * double(h) / double(boxes.size())), mean, 1.0,
                                double(std::max(w, h)) / 4096.0});
  size_ = (long long)std::ceil(side);
  n_[0] = int((w + size_ - 1) / size_), n_[1] = int((h + size_ - 1) / size_);
  const std::size_t cells = std::size_t(n_[0]) * std::size_t(n_[1]);
  start_.assign(cells + 1, 0);
  auto each_bucket = [&](const grid_rect& b, auto&& f) {
    for (int cy = bucket(gtl::yl(b), 1); cy <= bucket(gtl::yh(b), 1); ++cy)
      for (int cx = bucket(gtl::xl(b), 0); cx <= bucket(gtl::xh(b), 0); ++cx)
        f(std::size_t(cy) * std::size_t(n_[0]) + std::size_t(cx));
  };
  for (const grid_rect& b : boxes) each_bucket(b, [&](std::size_t c) { ++start_[c + 1]; });
  for (std::size_t c = 0; c < cells; ++c) start_[c + 1] += start_[c];
  items_.resize(start_[cells]);
  std::vector<std::size_t> fill(start_.begin(), start_.end() - 1);
  for (std::uint32_t i = 0; i < boxes.size(); ++i) each_bucket(boxes[i], [&](std::size_t c) { items_[fill[c]++] = i; });
}

std::vector<grid_rect> piece_boxes(const piece_store& s) {
  std::vector<grid_rect> out;
  out.reserve(s.size());
  for (const auto& p : s.pieces) out.push_back(p.box);
  return out;
}

namespace {

void piece_rectangles(const piece_store& s, std::size_t i, std::vector<grid_rect>& out) {
  out.clear();
  if (s.is_rectangle(i)) {
    out.push_back(s.pieces[i].box);
    return;
  }
  set_90 one;
  one.insert(s.polygon_90_of(i));
  one.get_rectangles(out);
}

}  // namespace

bool pieces_meet(const piece_store& a, std::size_t i, const piece_store& b, std::size_t j) {
  if (!gtl::intersects(a.pieces[i].box, b.pieces[j].box, true)) return false;
  if (a.is_rectangle(i) && b.is_rectangle(j)) return true;
  if (a.pieces[i].manhattan && b.pieces[j].manhattan) {
    // Closed Manhattan shapes meet where two of their rectangles do.
    std::vector<grid_rect> ra, rb;
    piece_rectangles(a, i, ra);
    piece_rectangles(b, j, rb);
    for (const grid_rect& x : ra)
      for (const grid_rect& y : rb)
        if (gtl::intersects(x, y, true)) return true;
    return false;
  }
  gtl::connectivity_extraction<int> ce;
  ce.insert(a.polygon_of(i));
  ce.insert(b.polygon_of(j));
  std::vector<std::set<int>> graph(2);
  ce.extract(graph);
  return graph[0].count(1) != 0;
}

std::vector<std::pair<std::uint32_t, std::uint32_t>> contacts_between(const piece_store& a, const piece_store& b) {
  std::vector<std::pair<std::uint32_t, std::uint32_t>> out;
  if (a.size() == 0 || b.size() == 0) return out;
  const std::vector<grid_rect> boxes = piece_boxes(b);
  const box_index index(boxes);
  for (std::uint32_t i = 0; i < a.size(); ++i)
    index.near(a.pieces[i].box, [&](std::uint32_t j) {
      if (pieces_meet(a, i, b, j)) out.emplace_back(i, j);
    });
  return out;
}

}  // namespace torva::internal
