// Importing chips: GDSII cells read and flattened, and the process stacks
// they are built on.
#pragma once

#include "torva/import/gds_library.h"
#include "torva/import/gds_reader.h"
#include "torva/import/gds_path.h"
#include "torva/import/gds_flatten.h"
#include "torva/import/process_stack.h"
#include "torva/import/gds_import.h"
