// Subcommands whose library part is not in yet: not registered.
#include "commands.h"

namespace torva::cli {

command add_convert(CLI::App&) { return {}; }

}  // namespace torva::cli
