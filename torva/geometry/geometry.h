// Everything of geometry: cubes, faces, distances.
#pragma once

#include "torva/geometry/cube.h"
#include "torva/geometry/distance.h"
#include "torva/geometry/planes.h"
