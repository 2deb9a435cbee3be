// Everything of geometry: cubes, faces, distances, convex decomposition,
// cutting and growing of solids.
#pragma once

#include "torva/geometry/convex_decomposition.h"
#include "torva/geometry/cube.h"
#include "torva/geometry/cutting.h"
#include "torva/geometry/distance.h"
#include "torva/geometry/faces.h"
#include "torva/geometry/planes.h"
#include "torva/geometry/prisms.h"
