// Test helper: installs string writers on the four logger channels for the
// life of the object, so a test can read exactly what the library printed.
#pragma once

#include <cstdlib>
#include <filesystem>
#include <memory>
#include <random>
#include <string>

#include "torva/foundation/logger.h"
#include "torva/foundation/writer.h"

namespace torva::testing {

struct log_capture {
  log_capture() {
    auto& log = logger::instance();
    log.set_info(std::make_unique<sea::string_writer>());
    log.set_detail(std::make_unique<sea::string_writer>());
    log.set_warning(std::make_unique<sea::string_writer>());
    log.set_error(std::make_unique<sea::string_writer>());
  }
  static std::string& of(sea::writer* w) { return static_cast<sea::string_writer*>(w)->text; }
  std::string& info() const { return of(logger::instance().info); }
  std::string& detail() const { return of(logger::instance().detail); }
  std::string& warning() const { return of(logger::instance().warning); }
  std::string& error() const { return of(logger::instance().error); }
  void clear() const { info().clear(); detail().clear(); warning().clear(); error().clear(); }
};

// A fresh directory under the system's temporary directory, removed with the object.
struct temp_dir {
  temp_dir() {
    std::random_device rd;
    path = std::filesystem::temp_directory_path() /
           ("torva_test_" + std::to_string(rd()) + "_" + std::to_string(rd()));
    std::filesystem::create_directories(path);
  }
  ~temp_dir() {
    std::error_code ec;
    std::filesystem::remove_all(path, ec);
  }
  std::string file(const std::string& name) const { return (path / name).string(); }
  std::filesystem::path path;
};

}  // namespace torva::testing
