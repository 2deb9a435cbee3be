// Finding a stack by name: the user's own path first, then the directories
// of $TORVA_STACK_PATH, the installed stacks, and the source tree's.
#include <cstdlib>
#include <filesystem>
#include <system_error>

#include "torva/import/internal/stack_check.h"
#include "torva/import/process_stack.h"

namespace torva {
namespace {

namespace fs = std::filesystem;

bool is_file(const fs::path& p) {
  std::error_code ec;
  return fs::is_regular_file(p, ec);
}

std::vector<fs::path> search_dirs() {
  std::vector<fs::path> dirs;
  if (const char* env = std::getenv("TORVA_STACK_PATH")) {
    const std::string list = env;
    std::size_t start = 0;
    while (start <= list.size()) {
      const std::size_t end = std::min(list.find(':', start), list.size());
      if (end > start) dirs.emplace_back(list.substr(start, end - start));
      start = end + 1;
    }
  }
#ifdef TORVA_STACK_INSTALL_DIR
  dirs.emplace_back(TORVA_STACK_INSTALL_DIR);
#endif
#ifdef TORVA_STACK_SOURCE_DIR
  dirs.emplace_back(TORVA_STACK_SOURCE_DIR);
#endif
  return dirs;
}

}  // namespace

std::vector<std::string> shipped_stack_names() {
  std::set<std::string> names;
  for (const fs::path& dir : search_dirs()) {
    std::error_code ec;
    for (fs::directory_iterator it(dir, ec), end; !ec && it != end; it.increment(ec))
      if (it->path().extension() == ".json" && is_file(it->path())) names.insert(it->path().stem().string());
  }
  return {names.begin(), names.end()};
}

std::string find_stack(const std::string& name_or_path) {
  if (name_or_path.empty()) stack_detail::fail("\"\"", "", "no stack named: give a name or a file");
  if (is_file(name_or_path)) return name_or_path;
  std::error_code ec;
  if (fs::exists(name_or_path, ec)) stack_detail::fail(name_or_path, "", "not a file");
  // A name with a directory in it is a path, and it is not there.
  if (name_or_path.find('/') == std::string::npos) {
    for (const fs::path& dir : search_dirs())
      for (const std::string& file : {name_or_path + ".json", name_or_path})
        if (is_file(dir / file)) return (dir / file).string();
  }
  std::string known;
  for (const std::string& n : shipped_stack_names()) known += (known.empty() ? "" : ", ") + n;
  stack_detail::fail(name_or_path, "",
                     "no such file, and no stack of that name (the stacks there are: " +
                         (known.empty() ? std::string("none") : known) +
                         "; $TORVA_STACK_PATH may list more directories)");
}

process_stack load_stack(const std::string& name_or_path) { return read_stack_file(find_stack(name_or_path)); }

}  // namespace torva
