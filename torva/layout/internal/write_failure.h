// How a writer of layout files fails when the system refuses a file: one line
// on the error channel with the writer's tag, what failed, the path and the
// system's reason (errno as the call left it), and the file_error to throw.
#pragma once

#include <cerrno>
#include <cstring>
#include <string>

#include "torva/foundation/errors.h"
#include "torva/foundation/logger.h"

namespace torva::internal {

inline sea::file_error write_failure(const char* tag, const char* what, const std::string& path,
                                     const char* message) {
  const int code = errno;
  sea::writer& out = *logger::instance().error;
  out.print(tag);
  out.print(what);
  out.print(" \"");
  out.print(path);
  out.print("\": ");
  out.print(std::strerror(code));
  out.write('\n');
  out.flush();
  return sea::file_error(message);
}

}  // namespace torva::internal
