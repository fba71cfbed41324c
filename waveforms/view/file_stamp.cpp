#include "waveforms/view/internal/file_stamp.h"

#include <sys/stat.h>

#include <algorithm>
#include <cerrno>
#include <cstring>

namespace ksutil::scv {

FileStamp look_at_file(const std::string &path, std::string &message) {
  struct stat status {};
  if (::stat(path.c_str(), &status) != 0) {
    message = path + ": " + std::strerror(errno);
    return {};
  }
  if (!S_ISREG(status.st_mode)) {
    message = path + ": is not a regular file";
    return {};
  }
  FileStamp stamp;
  stamp.device = status.st_dev;
  stamp.inode = status.st_ino;
  stamp.size = status.st_size;
  stamp.time =
      status.st_mtim.tv_sec * std::int64_t{1000000000} + status.st_mtim.tv_nsec;
  return stamp;
}

FileChange file_change(const FileStamp &before, const FileStamp &now) {
  if (!before.exists() || !now.exists() || before == now) return FileChange::kSame;
  const bool same_file = before.device == now.device && before.inode == now.inode;
  return same_file && now.size > before.size ? FileChange::kGrown
                                             : FileChange::kReplaced;
}

std::int64_t samples_in_file(const WaveformSegment &row, std::int64_t file_size) {
  /* No compression in use stores a sample in less than a bit. */
  constexpr std::int64_t kSamplesPerByte = 8;
  const std::int64_t bytes = file_size - row.foff;
  if (bytes <= 0 || row.nsamp <= 0) return 0;
  const int size = sample_size(row.datatype);
  const std::int64_t most = size > 0 ? bytes / size : bytes * kSamplesPerByte;
  return std::min(row.nsamp, most);
}

}  // namespace ksutil::scv
