#include "tests/faults/source_files.h"

#include <filesystem>

namespace fs = std::filesystem;

namespace faults {

void copy_sources(const std::string &pattern, const std::string &folder) {
  const fs::path to(folder);
  const fs::path source = fs::path(KSUTIL_SOURCE_DIR) / pattern;
  if (!pattern.ends_with('*')) {
    fs::copy(source, to / source.filename(), fs::copy_options::recursive);
    return;
  }
  std::string start = source.filename().string();
  start.pop_back();
  for (const auto &entry : fs::directory_iterator(source.parent_path())) {
    if (entry.path().filename().string().starts_with(start)) {
      fs::copy(entry.path(), to / entry.path().filename());
    }
  }
}

}  // namespace faults
