#include "output_files.h"

#include <fcntl.h>
#include <sys/stat.h>
#include <unistd.h>

#include <cerrno>
#include <cstdio>
#include <cstring>
#include <filesystem>
#include <utility>

#include "cli_common.h"

namespace torva::cli {

file_identity identify(const std::string& path) {
  file_identity id;
  struct stat st {};
  if (::stat(path.c_str(), &st) == 0) {
    id.exists = true;
    id.dev = st.st_dev;
    id.ino = st.st_ino;
  }
  std::error_code ec;
  const std::filesystem::path absolute = std::filesystem::absolute(path, ec);
  id.normal = (ec ? std::filesystem::path(path) : absolute).lexically_normal();
  id.resolved = std::filesystem::weakly_canonical(id.normal, ec);
  if (ec) id.resolved = id.normal;
  return id;
}

bool same_file(const file_identity& a, const file_identity& b) {
  if (a.exists && b.exists) return a.dev == b.dev && a.ino == b.ino;
  return a.normal == b.normal || a.resolved == b.resolved;
}

void refuse_clashes(const std::vector<named_file>& inputs, const std::vector<named_file>& outputs) {
  std::vector<file_identity> sources;
  for (const named_file& i : inputs) sources.push_back(identify(i.path));
  std::vector<file_identity> ids;
  for (const named_file& o : outputs) {
    const file_identity id = identify(o.path);
    for (std::size_t k = 0; k < inputs.size(); ++k)
      if (same_file(id, sources[k]))
        throw input_error("refusing to write the " + o.role + " \"" + o.path + "\": it is the " + inputs[k].role +
                          " \"" + inputs[k].path + "\" (the same file)");
    for (std::size_t k = 0; k < ids.size(); ++k)
      if (same_file(id, ids[k]))
        throw input_error("the " + outputs[k].role + " and the " + o.role + " are the same file \"" + o.path +
                          "\"; give them different names");
    ids.push_back(id);
  }
}

void refuse_overwrite(const std::string& path, bool force) {
  std::error_code ec;
  if (!force && std::filesystem::exists(std::filesystem::symlink_status(path, ec)))
    throw input_error("\"" + path + "\" exists; give --force to replace it");
}

void check_folders(const std::vector<named_file>& outputs) {
  for (const named_file& o : outputs) {
    std::error_code ec;
    std::filesystem::path folder = std::filesystem::path(o.path).parent_path();
    if (folder.empty()) folder = ".";
    if (std::filesystem::is_directory(o.path, ec))
      throw input_error(std::string("cannot write the ") + o.role + " \"" + o.path + "\": it is a directory");
    if (!std::filesystem::is_directory(folder, ec))
      throw input_error(std::string("cannot write the ") + o.role + " \"" + o.path + "\": no folder \"" +
                        folder.string() + "\"");
    if (::access(folder.c_str(), W_OK | X_OK) != 0)
      throw input_error(std::string("cannot write the ") + o.role + " \"" + o.path + "\": the folder \"" +
                        folder.string() + "\" is not writable");
  }
}

}  // namespace torva::cli
