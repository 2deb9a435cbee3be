#include "run_options.h"

namespace torva::cli {

run_options& options() {
  static run_options o;
  return o;
}

}  // namespace torva::cli
