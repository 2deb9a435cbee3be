// The umbrella header: every public name of the library.
#pragma once

#include "torva/foundation/foundation.h"
