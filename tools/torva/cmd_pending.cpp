// Subcommands whose library part is not in yet: not registered.
#include "commands.h"

namespace torva::cli {

command add_convert(CLI::App&) { return {}; }
command add_index(CLI::App&) { return {}; }
command add_query(CLI::App&) { return {}; }
command add_bench(CLI::App&) { return {}; }
command add_tables(CLI::App&) { return {}; }

}  // namespace torva::cli
