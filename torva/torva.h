// The umbrella header: every public name of the library.
#pragma once

#include "torva/foundation/foundation.h"
#include "torva/solids/solids.h"
#include "torva/geometry/geometry.h"
#include "torva/layout/layout.h"
#include "torva/space/spacemgr.h"
#include "torva/tables/tables.h"
#include "torva/check/check.h"
#include "torva/extract/extract.h"
#include "torva/import/import.h"
