#include "waveforms/dataset/internal/file_set.h"

#include <unistd.h>

#include <cerrno>
#include <filesystem>
#include <utility>

#include "platform/elog/failure.h"
#include "platform/stock/draft_file.h"
#include "platform/trace/trace.h"

namespace ksutil::dataset {

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
  DraftFile draft(replace_ ? DraftFile::Existing::kReplace : DraftFile::Existing::kKeep,
                  DraftFile::Sync::kLater);
  std::string own = path;
  paths_.reserve(paths_.size() + 1);  // nothing may fail after the file is in place
  if (!draft.open(path)) return refused("open", path);
  if (!write(draft.path())) return false;
  if (!draft.put_in_place()) return refused("rename", path);
  paths_.push_back(std::move(own));
  return true;
}

void FileSet::remove() {
  for (const std::string &path : paths_) ::unlink(path.c_str());
  paths_.clear();
}

bool FileSet::refused(const char *call, const std::string &path) const {
  if (errno == EEXIST) return fail(who_, "%s is there already", path.c_str());
  return fail_errno(who_, "%s(%s) error", call, path.c_str());
}

}  // namespace ksutil::dataset
