// Everything of layout input: the records and the cap3d reader.
#pragma once

#include "torva/layout/records.h"
#include "torva/solids/solids.h"
#include "torva/layout/cap3d_parser.h"
#include "torva/layout/binary_writer.h"
#include "torva/layout/generator.h"
#include "torva/layout/text_writer.h"
