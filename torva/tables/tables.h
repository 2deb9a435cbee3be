// Everything of the table database: table kinds, group keys, groups and their
// stores, the dielectric stack, the readers and loading drivers, and the
// database itself.
#pragma once

#include "torva/tables/diel_tuple.h"
#include "torva/tables/dielectric_layers.h"
#include "torva/tables/table_database.h"
#include "torva/tables/table_file.h"
#include "torva/tables/table_groups.h"
#include "torva/tables/table_loader.h"
