// The extraction component's public face: the extractor, its reports, and
// the two-layer tables of its walks through dielectric layers.
#pragma once

#include "torva/extract/extractor.h"
#include "torva/extract/layered_tables.h"
#include "torva/extract/report.h"
#include "torva/extract/staged_file.h"
