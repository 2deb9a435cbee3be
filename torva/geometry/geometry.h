// Everything of geometry: cubes, faces, distances, convex decomposition.
#pragma once

#include "torva/geometry/convex_decomposition.h"
#include "torva/geometry/cube.h"
#include "torva/geometry/distance.h"
#include "torva/geometry/planes.h"
