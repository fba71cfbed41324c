#include "platform/stock/folder.h"

#include <cerrno>
#include <string_view>

namespace ksutil {

FolderNames::FolderNames(const std::string &path)
    : folder_(::opendir(path.empty() ? "." : path.c_str())) {
  if (folder_ == nullptr) error_ = errno;
}

FolderNames::~FolderNames() {
  if (folder_ == nullptr) return;
  const int saved = errno;
  ::closedir(folder_);
  errno = saved;
}

const char *FolderNames::next() {
  while (folder_ != nullptr && error_ == 0) {
    errno = 0;
    const dirent *const entry = ::readdir(folder_);
    if (entry == nullptr) {
      error_ = errno;
      return nullptr;
    }
    const std::string_view name = entry->d_name;
    if (name != "." && name != "..") return entry->d_name;
  }
  return nullptr;
}

}  // namespace ksutil
