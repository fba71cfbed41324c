/* line_reader: reads the lines of a text file. */
#ifndef KSUTIL_OBJECTS_READERS_INTERNAL_LINE_READER_H
#define KSUTIL_OBJECTS_READERS_INTERNAL_LINE_READER_H

#include <sys/types.h>

#include <array>
#include <cstddef>

#include "platform/stock/files.h"

namespace ksutil {

/* Gives each line as a text without its end (LF or CR LF).  A line longer than kMaxLine is
 * cut there, a line with a NUL byte at that byte.  A line with both is not text and ends the
 * reading with the error EILSEQ: its end may be far away, or never come. */
class LineReader {
 public:
  static constexpr std::size_t kMaxLine = 1023;

  /* If the file cannot be opened, opened() is false and errno has the cause. */
  explicit LineReader(const char *path);
  bool opened() const { return static_cast<bool>(file_); }

  /* Goes to the next line; false at the end of the file and after an error. */
  bool next();
  /* next() until a line that neither is empty nor begins with "#". */
  bool next_data();
  /* The line; it may be written to until the next one. */
  char *line() { return line_.data(); }

  /* After next() gave false: whether it was an error, as errno was then. */
  bool failed() const { return error_ != 0; }
  int error() const { return error_; }

  /* Bytes of a regular file; -1 for anything else. */
  off_t file_size() const;

 private:
  bool fill();

  FileHandle file_;
  std::array<char, 16384> buffer_;
  std::size_t at_ = 0, end_ = 0;
  int error_ = 0;
  bool ended_ = false;
  std::array<char, kMaxLine + 1> line_{};
};

}  // namespace ksutil
#endif
