// The process-wide logger: four channels on which the library writes, and two
// further runs of four writers kept for the client.
//
// The library uses the channels without a test for null: a client installs all
// four (info, detail, warning, error) before it calls anything that can report.
// Every setter takes ownership and deletes the writer it replaces.
#pragma once

#include <memory>
#include <string>

#include "torva/foundation/writer.h"

namespace torva {

class logger {
 public:
  static logger& instance();

  logger() = default;
  ~logger();
  logger(const logger&) = delete;
  logger& operator=(const logger&) = delete;

  std::string name;     // kept for the client; the library never reads it
  bool enabled = false; // kept for the client; the library never reads it

  // The channels of the library.
  sea::writer* info = nullptr;     // progress
  sea::writer* detail = nullptr;   // data belonging to an error just printed
  sea::writer* warning = nullptr;  // "WARNING: ..." lines; the run goes on
  sea::writer* error = nullptr;    // "ERROR: ..." lines, just before a throw

  // Two further runs of four, for the client's own use (say, a log file and
  // the console); no code of the library reads them.
  sea::writer* file_info = nullptr;
  sea::writer* file_detail = nullptr;
  sea::writer* file_warning = nullptr;
  sea::writer* file_error = nullptr;
  sea::writer* console_info = nullptr;
  sea::writer* console_detail = nullptr;
  sea::writer* console_warning = nullptr;
  sea::writer* console_error = nullptr;

  void set_info(std::unique_ptr<sea::writer> w) { replace(info, std::move(w)); }
  void set_detail(std::unique_ptr<sea::writer> w) { replace(detail, std::move(w)); }
  void set_warning(std::unique_ptr<sea::writer> w) { replace(warning, std::move(w)); }
  void set_error(std::unique_ptr<sea::writer> w) { replace(error, std::move(w)); }
  void set_file_info(std::unique_ptr<sea::writer> w) { replace(file_info, std::move(w)); }
  void set_file_detail(std::unique_ptr<sea::writer> w) { replace(file_detail, std::move(w)); }
  void set_file_warning(std::unique_ptr<sea::writer> w) { replace(file_warning, std::move(w)); }
  void set_file_error(std::unique_ptr<sea::writer> w) { replace(file_error, std::move(w)); }
  void set_console_info(std::unique_ptr<sea::writer> w) { replace(console_info, std::move(w)); }
  void set_console_detail(std::unique_ptr<sea::writer> w) { replace(console_detail, std::move(w)); }
  void set_console_warning(std::unique_ptr<sea::writer> w) { replace(console_warning, std::move(w)); }
  void set_console_error(std::unique_ptr<sea::writer> w) { replace(console_error, std::move(w)); }

 private:
  static void replace(sea::writer*& slot, std::unique_ptr<sea::writer> w) {
    sea::writer* old = slot;
    slot = w.release();
    delete old;
  }
};

}  // namespace torva
