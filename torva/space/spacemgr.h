// Everything of space management: candidate lists, caches and the search strategies.
#pragma once

#include "torva/space/candidate_list.h"
#include "torva/space/candidate_list_cache.h"
