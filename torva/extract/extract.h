// The extraction component's public face: the extractor and its reports.
#pragma once

#include "torva/extract/extractor.h"
#include "torva/extract/report.h"
#include "torva/extract/staged_file.h"
