// Importing chips: a GDS cell on a process stack into a layout.
#pragma once

#include "torva/import/process_stack.h"
