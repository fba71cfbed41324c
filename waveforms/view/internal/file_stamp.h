/* file_stamp: finds out whether a waveform file has grown or has been replaced. */
#ifndef KSUTIL_WAVEFORMS_VIEW_INTERNAL_FILE_STAMP_H
#define KSUTIL_WAVEFORMS_VIEW_INTERNAL_FILE_STAMP_H

#include <cstdint>
#include <string>

#include "platform/trace/waveform.h"

namespace ksutil::scv {

struct FileStamp {
  std::uint64_t device = 0, inode = 0;
  std::int64_t birth = 0;  // ns; 0 where the file system does not give it
  std::int64_t size = -1;  // bytes; -1: no file
  std::int64_t time = 0;   // of the last change, ns
  bool exists() const { return size >= 0; }
  /* Inodes of removed files are soon used again: the birth distinguishes them. */
  bool same_file(const FileStamp &other) const {
    return device == other.device && inode == other.inode && birth == other.birth;
  }
  bool operator==(const FileStamp &) const = default;
};

/* Looks at a regular file; a stamp that does not exist, and `message`, when there is none or
 * it cannot be looked at. */
FileStamp look_at_file(const std::string &path, std::string &message);

/* Between two looks.  kSame also when either found no file. */
enum class FileChange { kSame, kGrown, kReplaced };
FileChange file_change(const FileStamp &before, const FileStamp &now);

/* How many of the nsamp samples of a row a file of this size has.  For data types whose
 * samples have no fixed size: nsamp, but not more than any file of this size can have. */
std::int64_t samples_in_file(const WaveformSegment &row, std::int64_t file_size);

}  // namespace ksutil::scv
#endif
