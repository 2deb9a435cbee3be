// Everything of the layout checks: findings, the text scan, the record checks,
// blocks in one place, overlaps across nets, and polygons that cross
// themselves.
#pragma once

#include "torva/check/findings.h"
#include "torva/check/text_scan.h"
#include "torva/check/binary_scan.h"
#include "torva/check/layout_check.h"
#include "torva/check/coincident.h"
#include "torva/check/overlap.h"
#include "torva/check/polygon_crossing.h"
#include "torva/check/search_memory.h"
