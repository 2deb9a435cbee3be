// Everything of the foundation: tolerant numbers, points, errors, writers,
// the logger, the file pool, threads, paths, hashing, the usage text and the
// run configuration.
#pragma once

#include "torva/foundation/abstract_wrapper.h"
#include "torva/foundation/configure.h"
#include "torva/foundation/double_wrapper.h"
#include "torva/foundation/errors.h"
#include "torva/foundation/file_pool.h"
#include "torva/foundation/hash.h"
#include "torva/foundation/logger.h"
#include "torva/foundation/path.h"
#include "torva/foundation/point.h"
#include "torva/foundation/thread_pool.h"
#include "torva/foundation/usage.h"
#include "torva/foundation/writer.h"
