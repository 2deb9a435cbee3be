#include "cli_common.h"

#include <unistd.h>

#include <cerrno>
#include <cstdarg>
#include <cstring>
#include <exception>
#include <filesystem>
#include <fstream>
#include <optional>
#include <sstream>
#include <vector>

#include "torva/foundation/errors.h"
#include "torva/foundation/logger.h"
#include "torva/foundation/writer.h"
#include "torva/check/binary_scan.h"
#include "torva/layout/cap3d_parser.h"
#include "layout_source.h"

namespace torva::cli {

run_options& options() {
  static run_options o;
  return o;
}

namespace {

// One channel of the logger: forwards to the console, the log file and a kept
// copy, each optional.
class channel_writer : public sea::writer {
 public:
  channel_writer(FILE* console, FILE* file, std::string* kept) : console_(console), file_(file), kept_(kept) {}

  writer& write(char c) override { return write(&c, 1); }
  writer& write(const void* data, unsigned long size) override {
    if (console_) std::fwrite(data, 1, size, console_);
    if (file_) std::fwrite(data, 1, size, file_);
    if (kept_) kept_->append(static_cast<const char*>(data), size);
    return *this;
  }
  writer& vformat(const char* fmt, va_list args) override {
    va_list probe;
    va_copy(probe, args);
    const int n = std::vsnprintf(nullptr, 0, fmt, probe);
    va_end(probe);
    if (n <= 0) return *this;
    std::string text(static_cast<std::size_t>(n) + 1, '\0');
    std::vsnprintf(text.data(), text.size(), fmt, args);
    text.resize(static_cast<std::size_t>(n));
    return write(text.data(), text.size());
  }
  writer& flush() override {
    if (console_) std::fflush(console_);
    if (file_) std::fflush(file_);
    return *this;
  }

 private:
  FILE* console_;
  FILE* file_;
  std::string* kept_;
};

std::string& kept_errors() {
  static std::string s;
  return s;
}
std::string& kept_info() {
  static std::string s;
  return s;
}

}  // namespace

void install_logger() {
  FILE* file = nullptr;
  if (!options().log_file.empty()) {
    file = std::fopen(options().log_file.c_str(), "w");
    if (file == nullptr)
      throw input_error("cannot open log file \"" + options().log_file + "\": " + std::strerror(errno));
    // Left open to the end of the process: the logger's writers outlive main's scope.
  }
  FILE* chatty = options().verbose ? stderr : nullptr;
  auto& log = logger::instance();
  log.set_info(std::make_unique<channel_writer>(chatty, file, &kept_info()));
  log.set_detail(std::make_unique<channel_writer>(chatty, file, nullptr));
  log.set_warning(std::make_unique<channel_writer>(stderr, file, nullptr));
  log.set_error(std::make_unique<channel_writer>(nullptr, file, &kept_errors()));
}

void install_quiet_logger() {
  auto& log = logger::instance();
  log.set_info(std::make_unique<channel_writer>(nullptr, nullptr, nullptr));
  log.set_detail(std::make_unique<channel_writer>(nullptr, nullptr, nullptr));
  log.set_warning(std::make_unique<channel_writer>(nullptr, nullptr, nullptr));
  log.set_error(std::make_unique<channel_writer>(nullptr, nullptr, &kept_errors()));
}

std::string take_errors() {
  std::string all;
  all.swap(kept_errors());
  std::string joined;
  std::istringstream lines(all);
  std::string line;
  while (std::getline(lines, line)) {
    while (!line.empty() && (line.back() == '\r' || line.back() == ' ' || line.back() == '\t')) line.pop_back();
    if (line.empty()) continue;
    if (!joined.empty()) joined += "; ";
    joined += line;
  }
  return joined;
}

std::string take_info() {
  std::string all;
  all.swap(kept_info());
  return all;
}

void flush_errors() {
  const std::string e = take_errors();
  if (!e.empty()) std::fprintf(stderr, "%s\n", e.c_str());
}

// ---------------------------------------------------------------- progress

bool progress_bar::enabled() {
  const std::string& mode = options().progress;
  if (mode == "always") return true;
  if (mode == "never") return false;
  return !options().verbose && isatty(STDERR_FILENO) == 1;
}

progress_bar::progress_bar(std::string label, std::uint64_t total, std::function<std::uint64_t()> poll)
    : label_(std::move(label)), total_(total), poll_(std::move(poll)) {
  if (enabled()) thread_ = std::thread([this] { run(); });
}

progress_bar::~progress_bar() { finish(); }

void progress_bar::finish() {
  stop_ = true;
  if (thread_.joinable()) thread_.join();
}

void progress_bar::run() {
  using clock = std::chrono::steady_clock;
  const auto start = clock::now();
  // Under "always" the bar shows at once (tests use it); on a terminal only
  // work that lasts longer than a moment gets one, so short runs don't flicker.
  const double delay = options().progress == "always" ? 0.0 : 0.3;
  static const char spin[] = "|/-\\";
  int turn = 0;
  // Under "always" the bar is drawn at least once, however short the work.
  bool once = delay == 0.0;
  while (once || !stop_) {
    once = false;
    const double elapsed = seconds_since(start);
    if (elapsed >= delay) {
      char line[160];
      if (total_ > 0) {
        std::uint64_t done = poll_ ? poll_() : 0;
        if (done > total_) done = total_;
        const double share = double(done) / double(total_);
        const int width = 30;
        const int filled = static_cast<int>(share * width);
        std::string bar(static_cast<std::size_t>(filled), '#');
        bar.append(static_cast<std::size_t>(width - filled), '.');
        std::snprintf(line, sizeof line, "\r%s [%s] %3d%% %6.1f s", label_.c_str(), bar.c_str(),
                      static_cast<int>(share * 100.0), elapsed);
      } else {
        std::snprintf(line, sizeof line, "\r%s %c %6.1f s", label_.c_str(), spin[turn++ % 4], elapsed);
      }
      std::fputs(line, stderr);
      std::fflush(stderr);
      drawn_ = true;
    }
    for (int i = 0; i < 10 && !stop_; ++i) std::this_thread::sleep_for(std::chrono::milliseconds(10));
  }
  if (drawn_) {
    std::fputs("\r\033[K", stderr);
    std::fflush(stderr);
  }
}

// ---------------------------------------------------------------- reading

namespace {

// How far the reader has come in its copy of the layout: the offset of the
// descriptor it holds open on it, read from /proc. The reader keeps its stream
// to itself, and this lets a bar follow it without its help. The program's
// own descriptor of the copy links to the same place and is left aside.
class file_position {
 public:
  explicit file_position(int own_fd) : own_fd_(own_fd) {
    std::error_code ec;
    target_ = std::filesystem::read_symlink("/proc/self/fd/" + std::to_string(own_fd), ec);
  }
  std::uint64_t operator()() {
    if (fd_ >= 0) {
      if (auto pos = read_pos(fd_)) return *pos;
      fd_ = -1;
    }
    std::error_code ec;
    for (const auto& entry : std::filesystem::directory_iterator("/proc/self/fd", ec)) {
      const int fd = std::atoi(entry.path().filename().c_str());
      if (fd == own_fd_) continue;
      std::error_code lec;
      const auto link = std::filesystem::read_symlink(entry.path(), lec);
      if (lec || link != target_) continue;
      if (auto pos = read_pos(fd)) {
        fd_ = fd;
        last_ = *pos;
        return last_;
      }
    }
    return last_;
  }

 private:
  std::optional<std::uint64_t> read_pos(int fd) {
    std::ifstream info("/proc/self/fdinfo/" + std::to_string(fd));
    std::string key;
    std::uint64_t value = 0;
    while (info >> key) {
      if (key == "pos:" && info >> value) {
        last_ = value;
        return value;
      }
    }
    return std::nullopt;
  }
  int own_fd_;
  std::filesystem::path target_;
  int fd_ = -1;
  std::uint64_t last_ = 0;
};

bool holds_anything(const circuit_layout::raw& r) {
  return !r.wire_nets.empty() || !r.medium_nets.empty() || !r.plate_mediums.empty() || !r.window_name.empty() ||
         !r.layer_names.empty() || !r.capacitance_tasks.empty() || r.boundary != 0;
}

}  // namespace

loaded_layout read_layout(const std::string& path, const read_options& how) {
  const layout_source source(path);
  loaded_layout out;
  out.file_bytes = source.file_bytes;
  out.binary = source.binary;
  {
    const std::string_view bytes(source.data(), source.size());
    if (source.binary) {
      out.scan_findings = scan_layout_binary(bytes);
    } else {
      text_scan_result scan = scan_layout_text(bytes, text_scan_options{options().strict});
      out.scan_findings = std::move(scan.findings);
      out.places = std::move(scan.places);
    }
    // Words that were not wholly numbers are said at once, whatever the command.
    std::vector<finding> numbers, rest;
    for (finding& f : out.scan_findings) (f.kind == finding_kind::loose_number ? numbers : rest).push_back(std::move(f));
    out.scan_findings = std::move(rest);
    print_findings(stderr, path, numbers);
    out.number_findings = numbers;
    if (count_errors(numbers) != 0)
      throw input_error(path + ": words that are not wholly numbers end the run under --strict (the first at " +
                        numbers.front().where + ")");
  }

  take_errors();
  const auto start = std::chrono::steady_clock::now();
  bool ok = false;
  {
    file_position where(source.fd());
    progress_bar bar("reading " + std::filesystem::path(path).filename().string(), source.size(),
                     [&where] { return where(); });
    Cap3dParser parser(out.layout->data, how.incline_slices, how.allow_floating, how.cuboids_only);
    try {
      ok = parser.parse(source.reader_path(), std::string());
    } catch (const sea::base_error& e) {
      bar.finish();
      std::string lines = take_errors();
      throw input_error(path + ": " + (lines.empty() ? std::string(e.what()) : lines));
    } catch (const std::bad_alloc&) {
      bar.finish();
      throw input_error(path + ": out of memory while reading");
    }
  }
  out.read_seconds = seconds_since(start);
  if (!ok) {
    std::string lines = take_errors();
    throw input_error(path + ": " + (lines.empty() ? std::string("the reader rejected the file: it is not a cap3d layout, or a malformed one") : lines));
  }
  if (!holds_anything(out.layout->data))
    throw input_error(path + ": no cap3d layout in the file (no <cap3d> sections were found)");
  flush_errors();
  return out;
}

// ---------------------------------------------------------------- formatting

void print_findings(FILE* out, const std::string& path, const std::vector<finding>& findings) {
  for (const finding& f : findings) {
    const std::string place = f.where.empty() ? std::string() : f.where + ": ";
    std::fprintf(out, "torva: %s: %s: %s%s\n", severity_name(f.severity), path.c_str(), place.c_str(), f.what.c_str());
  }
  std::fflush(out);
}

std::string format_seconds(double s) {
  char b[48];
  if (s < 1e-6)
    std::snprintf(b, sizeof b, "%.0f ns", s * 1e9);
  else if (s < 1e-3)
    std::snprintf(b, sizeof b, "%.1f us", s * 1e6);
  else if (s < 1.0)
    std::snprintf(b, sizeof b, "%.1f ms", s * 1e3);
  else
    std::snprintf(b, sizeof b, "%.2f s", s);
  return b;
}

std::string format_bytes(double bytes) {
  static const char* units[] = {"B", "KiB", "MiB", "GiB", "TiB"};
  int u = 0;
  while (bytes >= 1024.0 && u < 4) {
    bytes /= 1024.0;
    ++u;
  }
  char b[48];
  std::snprintf(b, sizeof b, u == 0 ? "%.0f %s" : "%.1f %s", bytes, units[u]);
  return b;
}

namespace {
std::uint64_t status_field(const char* key) {
  std::ifstream status("/proc/self/status");
  std::string line;
  const std::size_t n = std::strlen(key);
  while (std::getline(status, line)) {
    if (line.compare(0, n, key) == 0) return std::strtoull(line.c_str() + n, nullptr, 10) * 1024;
  }
  return 0;
}
}  // namespace

std::uint64_t resident_bytes() { return status_field("VmRSS:"); }
std::uint64_t peak_resident_bytes() { return status_field("VmHWM:"); }

const char* solid_kind_name(std::uint32_t kind) {
  switch (kind) {
    case shape_cuboid: return "cuboid";
    case shape_cylinder: return "cylinder";
    case shape_prism: return "prism";
    default: return "other";
  }
}

}  // namespace torva::cli
