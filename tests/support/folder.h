/* TempFolder: a temporary folder for one test, removed with its contents at the end of the
 * scope; and functions that write and read a whole file. */
#ifndef KSUTIL_TESTS_SUPPORT_FOLDER_H
#define KSUTIL_TESTS_SUPPORT_FOLDER_H

#include <stdlib.h>

#include <cerrno>
#include <filesystem>
#include <fstream>
#include <iterator>
#include <string>
#include <system_error>

namespace ksutil::test {

/* Replaces the content of a file and returns its path. */
inline std::string write_file(const std::string &path, const std::string &bytes) {
  std::ofstream(path, std::ios::binary | std::ios::trunc) << bytes;
  return path;
}

/* The content of a file, "" when it cannot be read. */
inline std::string read_file(const std::string &path) {
  std::ifstream file(path, std::ios::binary);
  return {std::istreambuf_iterator<char>(file), {}};
}

class TempFolder {
 public:
  TempFolder()
      : path_((std::filesystem::temp_directory_path() / "ksutil-XXXXXX").string()) {
    if (mkdtemp(path_.data()) == nullptr) {
      throw std::system_error(errno, std::generic_category(), path_);
    }
  }
  ~TempFolder() {
    std::error_code ignored;
    std::filesystem::remove_all(path_, ignored);
  }
  TempFolder(const TempFolder &) = delete;
  TempFolder &operator=(const TempFolder &) = delete;

  const std::string &path() const { return path_; }
  /* The path of `name` in the folder. */
  std::string operator/(const std::string &name) const { return path_ + "/" + name; }
  /* Replaces the content of a file in the folder and returns its path. */
  std::string write(const std::string &name, const std::string &bytes) const {
    return write_file(*this / name, bytes);
  }

 private:
  std::string path_;
};

}  // namespace ksutil::test
#endif
