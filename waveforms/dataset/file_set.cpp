#include "waveforms/dataset/internal/file_set.h"

#include <unistd.h>

#include <cerrno>
#include <cstdio>
#include <filesystem>
#include <utility>

#include "platform/elog/failure.h"
#include "platform/trace/trace.h"

namespace ksutil::dataset {
namespace {

/* Removes a file, if it is there, at the end of the scope. */
class Unlinker {
 public:
  explicit Unlinker(const std::string &path) : path_(path) {}
  ~Unlinker() { ::unlink(path_.c_str()); }
  Unlinker(const Unlinker &) = delete;
  Unlinker &operator=(const Unlinker &) = delete;

 private:
  const std::string &path_;
};

}  // namespace

std::vector<Stretch> stretches_of(const ksvector2 &vector) {
  std::vector<Stretch> found;
  const auto nsamp = static_cast<std::size_t>(vector.npts);
  for (std::size_t at = 0; at < nsamp;) {
    if (is_gap_sample(vector.data[at])) {
      ++at;
      continue;
    }
    const std::size_t begin = at;
    while (at < nsamp && !is_gap_sample(vector.data[at])) ++at;
    found.push_back({begin, at});
  }
  return found;
}

std::string FileSet::path_of(const std::string &name) const {
  return (std::filesystem::path(dir_) / name).string();
}

bool FileSet::put(const std::string &path,
                  const std::function<bool(const std::string &)> &write) {
  if (!written_.insert(path).second) {
    return fail(who_, "%s is the file of another stretch or channel too", path.c_str());
  }
  if (!replace_ && ::access(path.c_str(), F_OK) == 0) return there_already(path);
  const std::string beside = path + "." + std::to_string(::getpid()) + ".new";
  ::unlink(beside.c_str());
  const Unlinker unlinker(beside);
  std::string own = path;
  paths_.reserve(paths_.size() + 1);  // nothing may fail after the file is in place
  if (!write(beside) || !place(beside, path)) return false;
  paths_.push_back(std::move(own));
  return true;
}

void FileSet::remove() {
  for (const std::string &path : paths_) ::unlink(path.c_str());
  paths_.clear();
}

bool FileSet::there_already(const std::string &path) const {
  return fail(who_, "%s is there already", path.c_str());
}

bool FileSet::place(const std::string &beside, const std::string &path) const {
  /* A link, unlike a new name, never takes the place of a file that came meanwhile; some
   * file systems have none. */
  if (!replace_) {
    if (::link(beside.c_str(), path.c_str()) == 0) return true;
    if (errno == EEXIST) return there_already(path);
  }
  if (std::rename(beside.c_str(), path.c_str()) == 0) return true;
  return fail_errno(who_, "rename(%s) error", path.c_str());
}

}  // namespace ksutil::dataset
