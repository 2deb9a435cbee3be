#include "torva/check/findings.h"

namespace torva {

void finding_list::add(torva::severity s, finding_kind kind, std::string what, std::string where) {
  const std::size_t k = static_cast<std::size_t>(kind);
  if (count_.size() <= k) {
    count_.resize(k + 1, 0);
    worst_.resize(k + 1, severity::warning);
  }
  if (s == severity::error) ++errors_;
  if (count_[k]++ < limit_) {
    kept_.push_back(finding{s, kind, std::move(what), std::move(where)});
  } else if (s == severity::error) {
    worst_[k] = severity::error;
  }
}

std::vector<finding> finding_list::take() {
  std::vector<finding> out = std::move(kept_);
  for (std::size_t k = 0; k < count_.size(); ++k) {
    if (count_[k] <= limit_) continue;
    out.push_back(finding{worst_[k], static_cast<finding_kind>(k),
                          "... and " + std::to_string(count_[k] - limit_) + " more like the ones above", ""});
  }
  kept_.clear();
  count_.clear();
  worst_.clear();
  errors_ = 0;
  return out;
}

std::size_t count_errors(const std::vector<finding>& findings) {
  std::size_t n = 0;
  for (const finding& f : findings) n += f.severity == severity::error ? 1 : 0;
  return n;
}

const char* severity_name(severity s) { return s == severity::error ? "error" : "warning"; }

}  // namespace torva
