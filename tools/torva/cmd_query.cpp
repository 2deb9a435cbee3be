// torva query LAYOUT X Y Z: the nearest conductor block from one point, as a
// walker asks for it, with its distance and reach, and brute force beside it.
#include <cstdio>
#include <memory>

#include "commands.h"
#include "over_answer.h"
#include "space_tools.h"
#include "torva/geometry/distance.h"
#include "torva/layout/records.h"

namespace torva::cli {

namespace {

struct query_args {
  std::string path;
  double x = 0, y = 0, z = 0;
  double limit = 1e9;
  index_options o;
};

int run_query(const query_args& a) {
  const ready_layout ready = prepare_layout(a.path, a.o);
  const circuit_layout& layout = ready.layout();
  const auto index = build_index(layout, a.o, a.o.strategy, true);
  const point3 p{{a.x, a.y, a.z}};
  // A walker never leaves the search space; the structures answer nothing useful outside it.
  const cuboid_t& space = index->manager->space();
  if (!contains(space, p))
    throw input_error("the point " + point_text(p) + " lies outside the search space " + point_text(space.lower) +
                      " to " + point_text(space.upper));
  candidate_list_cache first, second;
  const nearest_result r = index->manager->nearest(p, a.limit, first, second);
  const double reach_bound = reach_of(first, second);

  std::printf("point        %s\n", point_text(p).c_str());
  std::printf("strategy     %u: %s\n", a.o.strategy, index->pair.c_str());
  if (r.block != nullptr) {
    const wire_block& b = *r.block;
    const std::string layer = b.layer >= 0 ? ", layer " + std::to_string(b.layer) : std::string();
    std::printf("nearest      net %s, block %s (%s%s)\n", b.net != nullptr ? b.net->name.c_str() : "?",
                b.name.empty() ? "(unnamed)" : b.name.c_str(), solid_kind_name(b.shape_kind), layer.c_str());
  } else {
    std::printf("nearest      no block within the reach of the search (the window wall or the limit answers)\n");
  }
  std::printf("distance     %.12f\n", double(r.distance));
  std::printf("reach        %.12f\n", double(r.reach));
  const brute_answer truth = brute_nearest(layout, p);
  const char* verdicts[] = {"agrees", "agrees (answered by the reach)", "short of it (safe)", "DISAGREES"};
  const verdict v = judge(layout, p, r, a.limit, reach_bound);
  // Hybrid-grid may answer more than the clearance by its design: labelled, not a fault.
  if (v == verdict::wrong && may_over_answer(*index) && over_answers(layout, p, r, a.limit)) {
    std::printf("brute force  %s at %.12f: answers more than the clearance, which %s (%u) is allowed to do\n",
                block_text(truth.block).c_str(), truth.distance, index->pair.c_str(), index->config.spacemgr_type);
    return exit_ok;
  }
  std::printf("brute force  %s at %.12f: %s\n", block_text(truth.block).c_str(), truth.distance,
              verdicts[static_cast<int>(v)]);
  return v == verdict::wrong ? exit_bad_input : exit_ok;
}

}  // namespace

command add_query(CLI::App& app) {
  auto* sub = app.add_subcommand("query", "The nearest conductor block from a point, its distance and reach");
  auto a = std::make_shared<query_args>();
  sub->add_option("LAYOUT", a->path, "A cap3d layout file, text or binary")->required();
  sub->add_option("X", a->x, "x of the point")->required();
  sub->add_option("Y", a->y, "y of the point")->required();
  sub->add_option("Z", a->z, "z of the point")->required();
  sub->add_option("--limit", a->limit, "The largest distance of interest")->capture_default_str()->check(
      CLI::PositiveNumber);
  add_index_options(*sub, a->o, true);
  return {sub, [a] { return run_query(*a); }, false,
          [a] { return run_files{{{"layout file", a->path}}, {}}; }};
}

}  // namespace torva::cli
