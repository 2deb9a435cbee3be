// Everything of space management: candidate lists, caches and the search strategies.
#pragma once

#include "torva/space/candidate_list.h"
#include "torva/space/candidate_list_cache.h"
#include "torva/space/thresholder.h"
#include "torva/space/octree_node.h"
#include "torva/space/octree_spacemgr.h"
#include "torva/space/simple_spacemgr.h"
#include "torva/space/unused_spacemgr.h"
#include "torva/space/space_manager_interface.h"
#include "torva/space/basic_space_manager.h"
#include "torva/space/layout_fields.h"
#include "torva/space/incline_node.h"
#include "torva/space/base_grid_node.h"
#include "torva/space/base_grid.h"
#include "torva/space/basic_grid_spacemgr.h"
#include "torva/space/space_manager.h"
#include "torva/space/compact_index.h"
