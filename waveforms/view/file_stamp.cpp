#include "waveforms/view/internal/file_stamp.h"

#include <fcntl.h>
#include <sys/stat.h>

#include <algorithm>
#include <cerrno>
#include <cstring>

namespace ksutil::scv {
namespace {

std::int64_t nanoseconds(const struct statx_timestamp &time) {
  return time.tv_sec * std::int64_t{1000000000} + time.tv_nsec;
}

}  // namespace

FileStamp look_at_file(const std::string &path, std::string &message) {
  struct statx status {};
  if (::statx(AT_FDCWD, path.c_str(), 0, STATX_BASIC_STATS | STATX_BTIME, &status) !=
      0) {
    message = path + ": " + std::strerror(errno);
    return {};
  }
  if (!S_ISREG(status.stx_mode)) {
    message = path + ": is not a regular file";
    return {};
  }
  FileStamp stamp;
  constexpr int kMinorBits = 32;
  stamp.device =
      std::uint64_t{status.stx_dev_major} << kMinorBits | status.stx_dev_minor;
  stamp.inode = status.stx_ino;
  if ((status.stx_mask & STATX_BTIME) != 0) stamp.birth = nanoseconds(status.stx_btime);
  stamp.size = static_cast<std::int64_t>(status.stx_size);
  stamp.time = nanoseconds(status.stx_mtime);
  return stamp;
}

FileChange file_change(const FileStamp &before, const FileStamp &now) {
  if (!before.exists() || !now.exists() || before == now) return FileChange::kSame;
  return before.same_file(now) && now.size > before.size ? FileChange::kGrown
                                                         : FileChange::kReplaced;
}

std::int64_t samples_in_file(const WaveformSegment &row, std::int64_t file_size) {
  /* No compression in use stores a sample in less than a bit. */
  constexpr std::int64_t kSamplesPerByte = 8;
  const std::int64_t bytes = file_size - row.foff;
  if (bytes <= 0 || row.nsamp <= 0) return 0;
  const int size = sample_size(row.datatype);
  if (size > 0) return std::min(row.nsamp, bytes / size);
  /* A sparse file may be so long that its bits cannot be counted. */
  return row.nsamp / kSamplesPerByte < bytes ? row.nsamp : bytes * kSamplesPerByte;
}

}  // namespace ksutil::scv
