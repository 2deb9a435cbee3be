#include "torva/import/internal/gds_report.h"

#include "torva/foundation/errors.h"
#include "torva/foundation/logger.h"

namespace torva::internal {

namespace {
void error_line(const std::string& message) {
  sea::writer& err = *logger::instance().error;
  err.print("ERROR: " + message + "\n");
  err.flush();
}
}  // namespace

void gds_fail(const std::string& message) {
  error_line(message);
  throw sea::file_error(message.c_str());
}

void gds_refuse(const std::string& message) {
  error_line(message);
  throw sea::fatal_error(message.c_str());
}

void gds_warnings::add(const std::string& kind, const std::string& message) {
  auto [it, fresh] = kinds_.try_emplace(kind);
  if (fresh) {
    it->second.first = message;
    order_.push_back(kind);
  }
  ++it->second.count;
}

void gds_warnings::flush(std::vector<std::string>& out) {
  if (order_.empty()) return;
  sea::writer& w = *logger::instance().warning;
  for (const std::string& kind : order_) {
    const entry& e = kinds_[kind];
    std::string line = e.first;
    if (e.count > 1) line += " (and " + std::to_string(e.count - 1) + " more like it)";
    w.print("WARNING: " + line + "\n");
    out.push_back(std::move(line));
  }
  w.flush();
  order_.clear();
  kinds_.clear();
}

}  // namespace torva::internal
