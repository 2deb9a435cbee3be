// The files a run writes: whether two paths name one file, the refusal of an
// output that is one of the run's inputs (or another output), and a file
// staged beside its final path and renamed into place only when it is whole.
#pragma once

#include "torva/extract/staged_file.h"

#include <sys/types.h>

#include <filesystem>
#include <string>
#include <vector>

namespace torva::cli {

// What tells two spellings of a path apart from one file: the device and inode
// when the file exists (stat follows symbolic links), and the absolute path
// with its existing links resolved and its dots removed when it does not.
struct file_identity {
  bool exists = false;
  dev_t dev = 0;
  ino_t ino = 0;
  std::filesystem::path resolved;
  std::filesystem::path normal;
};

file_identity identify(const std::string& path);
bool same_file(const file_identity& a, const file_identity& b);

// A path with the part it plays in the run, as the messages name it.
struct named_file {
  std::string role;  // "layout file", "output", "log file", ...
  std::string path;
};

// The files a command reads and writes, known once its arguments are parsed.
struct run_files {
  std::vector<named_file> inputs;
  std::vector<named_file> outputs;
};

// Throws input_error when an output is one of the inputs, or two outputs are
// one file. Called before anything is opened for writing, so that a refused
// run has changed nothing.
void refuse_clashes(const std::vector<named_file>& inputs, const std::vector<named_file>& outputs);

// Throws input_error naming `path` and --force when the file exists and
// `force` is not given: the commands that make a file from scratch replace
// one only when asked.
void refuse_overwrite(const std::string& path, bool force);

// A run can last hours: a report that could never be written (its folder
// missing or not writable, or the path a directory) is refused before it starts.
void check_folders(const std::vector<named_file>& outputs);

// Outputs are written through torva::staged_file: a temporary beside the
// path, renamed over it only on success.
using staged_output = torva::staged_file;

}  // namespace torva::cli
