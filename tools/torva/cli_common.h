// What the subcommands of the torva program share, each in a header of its
// own: the run-wide options and exit status, the logger's channels, the
// progress bar, reading a layout, and the figures they print.
#pragma once

#include "figures.h"
#include "layout_reading.h"
#include "logger_channels.h"
#include "progress_bar.h"
#include "run_options.h"
