#include "embree_baseline.h"

#include <algorithm>
#include <cmath>
#include <string>

#include "torva/geometry/distance.h"

namespace torva {

namespace {

constexpr double sqrt3 = 1.7320508075688772;

void bounds(const RTCBoundsFunctionArguments* args) {
  const auto* self = static_cast<const embree_index*>(args->geometryUserPtr);
  const cuboid_t& box = (*self->blocks)[args->primID]->outer_box;
  // Rounded outwards, so that no block is culled by the float box.
  args->bounds_o->lower_x = std::nextafter(float(box.lower[0].value), -INFINITY);
  args->bounds_o->lower_y = std::nextafter(float(box.lower[1].value), -INFINITY);
  args->bounds_o->lower_z = std::nextafter(float(box.lower[2].value), -INFINITY);
  args->bounds_o->upper_x = std::nextafter(float(box.upper[0].value), INFINITY);
  args->bounds_o->upper_y = std::nextafter(float(box.upper[1].value), INFINITY);
  args->bounds_o->upper_z = std::nextafter(float(box.upper[2].value), INFINITY);
}
void no_intersect(const RTCIntersectFunctionNArguments*) {}
void no_occluded(const RTCOccludedFunctionNArguments*) {}

struct query_state {
  point3 p;
  double best;
  const std::vector<wire_block const*>* blocks;
  std::size_t visited;
};

// The sphere of the query must hold the maximum-norm ball of the best
// distance so far: radius sqrt(3) times it, with slack for the float point.
float sphere(double d) { return float(std::max(d, 0.0) * sqrt3 * (1 + 1e-6) + 1e-4); }

bool on_primitive(RTCPointQueryFunctionArguments* args) {
  auto* s = static_cast<query_state*>(args->userPtr);
  ++s->visited;
  const double d = manhattan_distance(s->p, *(*s->blocks)[args->primID]).value;
  if (!(d < s->best)) return false;
  s->best = d;
  const float r = sphere(d);
  if (r < args->query->radius) {
    args->query->radius = r;
    return true;
  }
  return false;
}

}  // namespace

void embree_index::release() {
  if (scene != nullptr) rtcReleaseScene(scene);
  if (device != nullptr) rtcReleaseDevice(device);
  scene = nullptr;
  device = nullptr;
}

void embree_index::build(const std::vector<wire_block const*>& all, int threads) {
  release();
  blocks = &all;
  const std::string settings = "threads=" + std::to_string(std::max(1, threads));
  device = rtcNewDevice(settings.c_str());
  scene = rtcNewScene(device);
  RTCGeometry g = rtcNewGeometry(device, RTC_GEOMETRY_TYPE_USER);
  rtcSetGeometryUserPrimitiveCount(g, unsigned(all.size()));
  rtcSetGeometryUserData(g, this);
  rtcSetGeometryBoundsFunction(g, &bounds, this);
  rtcSetGeometryIntersectFunction(g, &no_intersect);
  rtcSetGeometryOccludedFunction(g, &no_occluded);
  rtcCommitGeometry(g);
  rtcAttachGeometry(scene, g);
  rtcReleaseGeometry(g);
  rtcCommitScene(scene);
}

double embree_index::nearest(const point3& p, double limit, std::size_t* visited) const {
  RTCPointQuery q;
  q.x = float(p[0].value);
  q.y = float(p[1].value);
  q.z = float(p[2].value);
  q.time = 0.0f;
  q.radius = sphere(limit);
  RTCPointQueryContext context;
  rtcInitPointQueryContext(&context);
  query_state s{p, limit, blocks, 0};
  rtcPointQuery(scene, &q, &context, &on_primitive, &s);
  if (visited != nullptr) *visited += s.visited;
  return s.best;
}

}  // namespace torva
