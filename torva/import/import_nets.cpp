// Nets of a cell: pieces joined where they meet and through vias, named by
// the cell's labels or by where they lie.
#include <algorithm>
#include <cstdlib>
#include <map>
#include <numeric>
#include <set>
#include <string>
#include <tuple>
#include <unordered_map>

#include "torva/import/internal/import_steps.h"

namespace torva::internal {

namespace {

struct union_find {
  std::vector<std::uint32_t> parent;
  explicit union_find(std::size_t n) : parent(n) { std::iota(parent.begin(), parent.end(), 0u); }
  std::uint32_t find(std::uint32_t a) {
    while (parent[a] != a) a = parent[a] = parent[parent[a]];
    return a;
  }
  void join(std::uint32_t a, std::uint32_t b) {
    a = find(a), b = find(b);
    if (a != b) parent[std::max(a, b)] = std::min(a, b);
  }
};

// Characters that part words in a cap3d text file, and comment openers, may
// not stand in a net's name.
std::string clean_name(const std::string& text) {
  std::string s = text;
  for (std::size_t i = 0; i < s.size(); ++i) {
    const char c = s[i];
    if (c == ' ' || c == '\t' || c == '(' || c == ',' || c == ')' || c == '\r' || c == '\n' || c == '\0')
      s[i] = '_';
    else if (c == '/' && i + 1 < s.size() && (s[i + 1] == '/' || s[i + 1] == '*'))
      s[i] = '_';
  }
  return s;
}

// Says the first few messages of a kind, then how many more there were.
class capped_warnings {
 public:
  capped_warnings(import_warnings& warn, std::size_t cap) : warn_(warn), cap_(cap) {}
  void add(const std::string& m) {
    if (++count_ <= cap_) warn_.add(m);
  }
  void finish(const std::string& what) {
    if (count_ > cap_) warn_.add(std::to_string(count_ - cap_) + " more " + what);
  }

 private:
  import_warnings& warn_;
  std::size_t cap_;
  std::size_t count_ = 0;
};

struct anchor {
  std::size_t layer = std::size_t(-1);
  int y = 0, x = 0;
  bool operator<(const anchor& o) const { return std::tie(layer, y, x) < std::tie(o.layer, o.y, o.x); }
};

}  // namespace

void connect_nets(const gds_flat_cell& cell, const process_stack& stack, chip_plan& plan, import_warnings& warn,
                  const stage_progress& progress) {
  const length_unit um(cell.um_per_db);
  auto at = [um](double x, double y) { return "(" + format_um(um(x)) + ", " + format_um(um(y)) + ")"; };

  // Node numbers: the pieces of each conductor layer, then the parts of each via target.
  std::vector<std::uint32_t> first_of_layer, first_of_via;
  std::uint64_t nodes = 0;
  for (const piece_store& s : plan.conductors) {
    first_of_layer.push_back(std::uint32_t(nodes));
    nodes += s.size();
  }
  for (const via_parts& vp : plan.vias) {
    first_of_via.push_back(std::uint32_t(nodes));
    nodes += vp.pieces.size();
  }
  if (nodes >= (std::uint64_t(1) << 32) - 1) import_fail("cell " + cell.top + ": too many pieces to number");
  union_find joins(nodes);
  const std::uint64_t steps = plan.conductors.size() + plan.vias.size() + 1;
  std::uint64_t done = 0;

  for (std::size_t c = 0; c < plan.conductors.size(); ++c) {
    for (const auto& [a, b] : point_contacts(plan.conductors[c])) joins.join(first_of_layer[c] + a, first_of_layer[c] + b);
    if (progress) progress("connecting", ++done, steps);
  }
  for (std::size_t k = 0; k < plan.vias.size(); ++k) {
    const via_parts& vp = plan.vias[k];
    const via_target& t = stack.vias[vp.via].targets[vp.target];
    for (const auto& [a, b] : contacts_between(vp.pieces, plan.conductors[t.below]))
      joins.join(first_of_via[k] + a, first_of_layer[t.below] + b);
    std::vector<bool> landed(vp.pieces.size(), false);
    for (const auto& [a, b] : contacts_between(vp.pieces, plan.conductors[t.above])) {
      joins.join(first_of_via[k] + a, first_of_layer[t.above] + b);
      landed[a] = true;
    }
    const std::size_t open = std::size_t(std::count(landed.begin(), landed.end(), false));
    if (open > 0) {
      const std::size_t i = std::size_t(std::find(landed.begin(), landed.end(), false) - landed.begin());
      const grid_rect& b = vp.pieces.pieces[i].box;
      warn.add("via " + stack.vias[vp.via].name + ": " + std::to_string(open) + " of its shapes over " +
               stack.conductors[t.below].name + " reach no " + stack.conductors[t.above].name +
               " shape (kept, joined to what lies under them), the first at " + at(gtl::xl(b), gtl::yl(b)) + " um");
    }
    if (progress) progress("connecting", ++done, steps);
  }

  // Labels: which pieces each stands in, on the layers whose pairs name nets.
  std::map<gds_pair, std::vector<std::size_t>> naming;  // pair -> conductor layers
  for (std::size_t c = 0; c < stack.conductors.size(); ++c) {
    const conductor_layer& layer = stack.conductors[c];
    std::set<gds_pair> pairs;
    if (layer.has_label) pairs.insert(layer.label);
    if (layer.has_pin) pairs.insert(layer.pin);
    if (!layer.drawing.derived()) pairs.insert(layer.drawing.pair);
    for (gds_pair p : pairs) naming[p].push_back(c);
  }
  std::vector<std::vector<std::uint32_t>> label_nodes(cell.labels.size());
  for (std::size_t c = 0; c < stack.conductors.size(); ++c) {
    std::vector<std::size_t> here;
    for (std::size_t l = 0; l < cell.labels.size(); ++l) {
      const gds_label& label = cell.labels[l];
      auto it = naming.find(gds_pair{label.key.layer, label.key.datatype});
      if (it != naming.end() && std::find(it->second.begin(), it->second.end(), c) != it->second.end())
        here.push_back(l);
    }
    const piece_store& s = plan.conductors[c];
    if (here.empty() || s.size() == 0) continue;
    const std::vector<grid_rect> boxes = piece_boxes(s);
    const box_index index(boxes);
    for (std::size_t l : here) {
      const gds_point p = cell.labels[l].at;
      if (std::abs(p.x) > coordinate_limit || std::abs(p.y) > coordinate_limit) continue;
      const grid_point q(int(p.x), int(p.y));
      index.near(grid_rect(q.x(), q.y(), q.x(), q.y()), [&](std::uint32_t i) {
        if (s.is_rectangle(i) || gtl::contains(s.polygon_of(i), q, true))
          label_nodes[l].push_back(first_of_layer[c] + i);
      });
    }
  }

  // Nets: the joined groups, each anchored at its lowest layer's lowest-left vertex.
  std::unordered_map<std::uint32_t, std::uint32_t> net_of_root;
  std::vector<anchor> anchors;
  for (std::size_t c = 0; c < plan.conductors.size(); ++c) {
    const piece_store& s = plan.conductors[c];
    for (std::size_t i = 0; i < s.size(); ++i) {
      const std::uint32_t root = joins.find(first_of_layer[c] + std::uint32_t(i));
      auto [it, fresh] = net_of_root.try_emplace(root, std::uint32_t(anchors.size()));
      if (fresh) anchors.push_back(anchor{});
      anchor& a = anchors[it->second];
      for (const grid_point& q : s.ring(s.pieces[i].first_ring)) {
        const anchor here{c, q.y(), q.x()};
        if (here < a) a = here;
      }
    }
  }
  // A via part lies over a piece of its lower layer, so it is in one of these nets.
  std::vector<std::uint32_t> order(anchors.size());
  std::iota(order.begin(), order.end(), 0u);
  std::sort(order.begin(), order.end(), [&](std::uint32_t a, std::uint32_t b) { return anchors[a] < anchors[b]; });
  std::vector<std::uint32_t> rank(anchors.size());
  for (std::uint32_t k = 0; k < order.size(); ++k) rank[order[k]] = k;
  auto net_of = [&](std::uint32_t node) { return rank[net_of_root.at(joins.find(node))]; };

  plan.net.assign(plan.conductors.size(), {});
  for (std::size_t c = 0; c < plan.conductors.size(); ++c) {
    plan.net[c].resize(plan.conductors[c].size());
    for (std::size_t i = 0; i < plan.conductors[c].size(); ++i) plan.net[c][i] = net_of(first_of_layer[c] + std::uint32_t(i));
  }
  for (std::size_t k = 0; k < plan.vias.size(); ++k) {
    via_parts& vp = plan.vias[k];
    vp.net.resize(vp.pieces.size());
    for (std::size_t i = 0; i < vp.pieces.size(); ++i) vp.net[i] = net_of(first_of_via[k] + std::uint32_t(i));
  }

  // Names.
  const std::size_t nets = anchors.size();
  std::vector<std::vector<std::size_t>> labels_of(nets);
  capped_warnings nowhere(warn, 5);
  for (std::size_t l = 0; l < cell.labels.size(); ++l) {
    const gds_label& label = cell.labels[l];
    if (!naming.count(gds_pair{label.key.layer, label.key.datatype})) continue;
    if (label_nodes[l].empty()) {
      nowhere.add("label \"" + label.text + "\" at " + at(double(label.at.x), double(label.at.y)) + " um on GDS " +
                  std::to_string(label.key.layer) + "/" + std::to_string(label.key.datatype) +
                  " stands on no shape of its layer: it names nothing");
      continue;
    }
    std::set<std::uint32_t> hit;
    for (std::uint32_t node : label_nodes[l]) hit.insert(net_of(node));
    for (std::uint32_t n : hit) labels_of[n].push_back(l);
  }
  nowhere.finish("labels stand on no shape");

  plan.net_names.assign(nets, {});
  plan.labelled.assign(nets, false);
  std::map<std::string, std::size_t> taken;  // name -> net, or nets for the substrate
  if (stack.substrate.kind == substrate_kind::conductor) taken.emplace(stack.substrate.net, nets);
  capped_warnings two_names(warn, 10), one_name(warn, 10);
  auto place_of = [&](std::size_t l) {
    const gds_label& label = cell.labels[l];
    return at(double(label.at.x), double(label.at.y));
  };
  for (std::size_t n = 0; n < nets; ++n) {
    std::string name;
    const auto& ls = labels_of[n];
    if (!ls.empty()) {
      name = clean_name(cell.labels[ls.front()].text);
      plan.labelled[n] = true;
      for (std::size_t k = 1; k < ls.size(); ++k) {
        const std::string other = clean_name(cell.labels[ls[k]].text);
        if (other == name) continue;
        two_names.add("labels \"" + name + "\" at " + place_of(ls.front()) + " and \"" + other + "\" at " +
                      place_of(ls[k]) + " um stand on one net; it is named " + name);
      }
    } else {
      const anchor& a = anchors[order[n]];
      name = stack.conductors[a.layer].name + "_" + format_um(um(a.x)) + "_" + format_um(um(a.y));
    }
    std::string unique = name;
    for (int k = 2; taken.count(unique); ++k) unique = name + "#" + std::to_string(k);
    if (unique != name) {
      const std::size_t other = taken.at(name);
      if (other == nets)
        one_name.add("net " + name + (ls.empty() ? "" : " at " + place_of(ls.front())) +
                     " um has the name of the grounded substrate, to which it is not joined here; it is named " +
                     unique);
      else
        one_name.add("name \"" + name + "\" stands on two nets: " +
                     (labels_of[other].empty() ? plan.net_names[other] : "at " + place_of(labels_of[other].front())) +
                     " and " + (ls.empty() ? name : "at " + place_of(ls.front())) + " um; the second is named " +
                     unique);
    }
    taken.emplace(unique, n);
    plan.net_names[n] = unique;
  }
  two_names.finish("nets carry two labels");
  one_name.finish("names stand on two nets");
  if (progress) progress("connecting", ++done, steps);
}

}  // namespace torva::internal
