#include "layout_reading.h"

#include <chrono>
#include <cstdlib>
#include <exception>
#include <filesystem>
#include <fstream>
#include <optional>

#include "figures.h"
#include "layout_source.h"
#include "logger_channels.h"
#include "progress_bar.h"
#include "run_options.h"
#include "torva/check/binary_scan.h"
#include "torva/foundation/errors.h"
#include "torva/layout/cap3d_parser.h"

namespace torva::cli {

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

void print_findings(FILE* out, const std::string& path, const std::vector<finding>& findings) {
  for (const finding& f : findings) {
    const std::string place = f.where.empty() ? std::string() : f.where + ": ";
    std::fprintf(out, "torva: %s: %s: %s%s\n", severity_name(f.severity), path.c_str(), place.c_str(), f.what.c_str());
  }
  std::fflush(out);
}

}  // namespace torva::cli
