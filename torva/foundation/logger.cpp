#include "torva/foundation/logger.h"

namespace torva {

logger& logger::instance() {
  static logger the_logger;
  return the_logger;
}

logger::~logger() {
  name.clear();
  for (sea::writer** slot : {&info, &detail, &warning, &error, &file_info, &file_detail, &file_warning,
                             &file_error, &console_info, &console_detail, &console_warning, &console_error}) {
    delete *slot;
    *slot = nullptr;
  }
}

}  // namespace torva
