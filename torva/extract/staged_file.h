// A file written beside its final path and renamed over it only when the
// whole file is there, so that a writer that fails half way never destroys
// what the path held. The extractor's reports and the torva program's
// converted and generated layouts are all written through it.
#pragma once

#include <string>

namespace torva {

class staged_file {
 public:
  // Creates an empty temporary in the folder of `path` (so the rename is
  // atomic) with the mode a plain create would give, or that of the file it
  // replaces. Throws sea::file_error naming `path`.
  explicit staged_file(std::string path);
  // Removes the temporary unless it was committed.
  ~staged_file();
  staged_file(const staged_file&) = delete;
  staged_file& operator=(const staged_file&) = delete;

  // Where the writer writes; it must have closed the file before commit().
  const std::string& temp_path() const { return temp_; }
  const std::string& path() const { return path_; }
  // Syncs the temporary (a full disk may show only there) and renames it
  // over the path. Throws sea::file_error naming the path.
  void commit();

 private:
  std::string path_;
  std::string temp_;
  bool committed_ = false;
};

// Throws sea::file_error: "cannot write \"PATH\": WHAT".
[[noreturn]] void fail_to_write(const std::string& path, const std::string& what);

}  // namespace torva
