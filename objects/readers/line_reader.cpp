#include "objects/readers/internal/line_reader.h"

#include <fcntl.h>

#include <algorithm>
#include <cerrno>
#include <cstring>

namespace ksutil {

LineReader::LineReader(const char *path) {
  errno = 0;
  if (path != nullptr) file_ = open_file(path, O_RDONLY);
}

/* Refills the empty buffer. */
bool LineReader::fill() {
  if (ended_ || error_ != 0) return false;
  errno = 0;
  const ssize_t read = read_all(file_.get(), buffer_.data(), buffer_.size());
  const bool whole = read == static_cast<ssize_t>(buffer_.size());
  if (read < 0 || (!whole && errno != 0)) {
    error_ = errno != 0 ? errno : EIO;
    return false;
  }
  at_ = 0;
  end_ = static_cast<std::size_t>(read);
  ended_ = end_ < buffer_.size();
  return end_ > 0;
}

bool LineReader::next() {
  std::size_t length = 0;
  bool any = false, newline = false, binary = false;
  while (!newline && (at_ < end_ || fill())) {
    any = true;
    const char *const from = buffer_.data() + at_;
    const auto *const found =
        static_cast<const char *>(std::memchr(from, '\n', end_ - at_));
    newline = found != nullptr;
    const std::size_t piece =
        newline ? static_cast<std::size_t>(found - from) : end_ - at_;
    const std::size_t kept = std::min(piece, kMaxLine - length);
    binary = binary || std::memchr(from, '\0', piece) != nullptr;
    if (binary && piece > kept) {
      /* Not text: a device of zeros or a large file may have no newline at all. */
      error_ = EILSEQ;
      return false;
    }
    std::copy_n(from, kept, line_.data() + length);
    length += kept;
    at_ += piece + (newline ? 1 : 0);
  }
  if (newline && length > 0 && line_[length - 1] == '\r') length--;
  line_[length] = '\0';
  return any && error_ == 0;
}

bool LineReader::next_data() {
  while (next()) {
    if (line_[0] != '\0' && line_[0] != '#') return true;
  }
  return false;
}

off_t LineReader::file_size() const {
  struct stat facts;
  if (fstat(file_.get(), &facts) != 0 || !S_ISREG(facts.st_mode)) return -1;
  return facts.st_size;
}

}  // namespace ksutil
