#include "tests/faults/folder_content.h"

#include <filesystem>
#include <fstream>
#include <iterator>

namespace fs = std::filesystem;

namespace faults {

std::string text_of(const std::string &path) {
  std::ifstream file(path, std::ios::binary);
  return {std::istreambuf_iterator<char>(file), {}};
}

Content read_folder(const std::string &folder) {
  Content content;
  for (const auto &entry : fs::recursive_directory_iterator(folder)) {
    const std::string name = fs::relative(entry.path(), folder).string();
    if (entry.is_directory()) {
      if (fs::is_empty(entry.path())) content[name + "/"];
    } else {
      content[name] = text_of(entry.path().string());
    }
  }
  return content;
}

void restore_folder(const std::string &folder, const Content &now,
                    const Content &content) {
  const fs::path base(folder);
  for (const auto &[name, text] : now) {
    if (!content.contains(name)) fs::remove(base / name);
  }
  for (const auto &[name, text] : content) {
    const auto found = now.find(name);
    if (found != now.end() && found->second == text) continue;
    if (name.ends_with('/')) {
      fs::create_directories(base / name);
      continue;
    }
    fs::create_directories((base / name).parent_path());
    std::ofstream(base / name, std::ios::binary | std::ios::trunc) << text;
  }
  /* Folders that a run has made are empty by now. */
  for (bool removed = true; removed;) {
    removed = false;
    for (const auto &entry : fs::recursive_directory_iterator(base)) {
      const std::string name = fs::relative(entry.path(), base).string() + "/";
      if (entry.is_directory() && fs::is_empty(entry.path()) &&
          !content.contains(name)) {
        removed = fs::remove(entry.path());
        break;
      }
    }
  }
}

}  // namespace faults
