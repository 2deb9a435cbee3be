// Subcommands whose library part is not in yet: not registered.
#include "commands.h"

namespace torva::cli {


}  // namespace torva::cli
