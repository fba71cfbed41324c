#include "platform/db/store/internal/flat_exclusive.h"

#include <fcntl.h>
#include <unistd.h>

#include <algorithm>
#include <cerrno>
#include <ctime>

#include "platform/db/store/internal/flat_journal.h"
#include "platform/db/write_attempt.h"
#include "platform/elog/elog.h"

namespace ksutil::db {
namespace {

constexpr int kOpenAttempts = 1000;
/* Length of the end of a file that is searched for rows just written, bytes. */
constexpr std::size_t kSearchedTail = std::size_t{1} << 16;
constexpr long kMicrosecond = 1'000;
constexpr long kSecond = 1'000'000'000;
/* How long to wait for the clock of a file system whose times only the owner may set. */
constexpr int kClockWaits = 100;
constexpr struct timespec kClockWait = {0, 1'000'000};

bool later(const struct timespec &a, const struct timespec &b) {
  return a.tv_sec != b.tv_sec ? a.tv_sec > b.tv_sec : a.tv_nsec > b.tv_nsec;
}

/* Now, in whole microseconds, or a microsecond after `before` when that is later. */
struct timespec time_after(const struct timespec &before) {
  struct timespec next = before;
  next.tv_nsec += 2 * kMicrosecond - 1;
  next.tv_nsec -= next.tv_nsec % kMicrosecond;
  if (next.tv_nsec >= kSecond) {
    next.tv_nsec -= kSecond;
    ++next.tv_sec;
  }
  struct timespec now;
  ::clock_gettime(CLOCK_REALTIME, &now);
  now.tv_nsec -= now.tv_nsec % kMicrosecond;
  return later(now, next) ? now : next;
}

}  // namespace

FlatExclusive::FlatExclusive(FlatTable &table) : table_(table) {
  table_.running_ = this;
}

FlatExclusive::~FlatExclusive() {
  table_.running_ = nullptr;
  struct stat status;
  if (created_ && lock_ && lock_->held() && ::fstat(handle_.get(), &status) == 0 &&
      status.st_size == 0 && still_at_path()) {
    ::unlink(table_.file_.path.c_str());
  }
}

bool FlatExclusive::fail(int flag, const char *what) {
  elog_log(flag, "dbput: %s: %s.\n", table_.file_.path.c_str(), what);
  return false;
}

/* Reports that the locked file is not the table's any longer. */
bool FlatExclusive::lost() {
  exchanged_ = true;
  return fail(0, "The file was removed or replaced while it was written");
}

bool FlatExclusive::open() {
  const FlatPlaces &places = *table_.settings_.places;
  for (int attempt = 0; attempt < kOpenAttempts; ++attempt) {
    if (!open_locked()) return false;
    if (!FlatJournal::concerns(places, table_.relation_.name)) return true;
    /* A process that settles the journal needs the lock of this table. */
    lock_.reset();
    const auto settled = FlatJournal::settle(places, FileLock::Wait::kUntilFree);
    if (settled == FlatJournal::Settled::kFailed) return false;
    if (settled == FlatJournal::Settled::kBusy) {
      return fail(0, "A transaction of another program is not finished");
    }
  }
  return fail(0, "Transactions are interrupted again and again");
}

bool FlatExclusive::open_locked() {
  for (int attempt = 0; attempt < kOpenAttempts; ++attempt) {
    lock_.reset();
    if (!table_.look()) return false;
    const Opened opened = open_and_lock();
    if (opened == Opened::kFailed) return false;
    if (opened == Opened::kGone) continue;
    if (!table_.look()) return false;
    if (holds_table()) {
      remove_leftover();
      return true;
    }
  }
  return handle_ ? fail(0, "The file is replaced again and again")
                 : fail(1, "Cannot open for writing");
}

FlatExclusive::Opened FlatExclusive::open_and_lock() {
  const std::string &path = table_.file_.path;
  created_ = false;
  handle_ = open_file(path, O_RDWR);
  if (!handle_ && errno == ENOENT) {
    handle_ = open_file(path, O_RDWR | O_CREAT | O_EXCL);
    created_ = static_cast<bool>(handle_);
    if (!handle_ && errno == EEXIST) {
      handle_ = open_file(path, O_RDWR);
      if (!handle_ && errno == ENOENT) return Opened::kGone;
    }
  }
  if (!handle_) {
    fail(1, "Cannot open for writing");
    return Opened::kFailed;
  }
  WriteAttempt *const attempt = WriteAttempt::current();
  lock_ = std::make_unique<FileLock>(handle_.get(), attempt == nullptr
                                                        ? FileLock::Wait::kUntilFree
                                                        : FileLock::Wait::kNever);
  if (lock_->held()) return Opened::kLocked;
  if (attempt != nullptr && errno == EAGAIN) attempt->fail_at(path);
  fail(1, "Cannot lock");
  return Opened::kFailed;
}

bool FlatExclusive::holds_table() const {
  struct stat locked;
  return table_.file_.handle != nullptr && ::fstat(handle_.get(), &locked) == 0 &&
         same_file(locked, table_.seen_);
}

bool FlatExclusive::still_at_path() const {
  struct stat locked, named;
  return ::fstat(handle_.get(), &locked) == 0 &&
         ::stat(table_.file_.path.c_str(), &named) == 0 && same_file(locked, named);
}

std::shared_ptr<const Snapshot> FlatExclusive::snapshot() {
  std::shared_ptr<const Snapshot> rows = table_.snapshot();
  if (rows == nullptr || holds_table()) return rows;
  lost();
  return nullptr;
}

bool FlatExclusive::prepare() {
  if (!table_.look()) return false;
  return holds_table() ? repair_end() : lost();
}

bool FlatExclusive::repair_end() {
  const auto length = static_cast<off_t>(table_.record_length());
  const off_t size = table_.seen_.st_size;
  const off_t rest = size % length;
  if (rest == 0) return true;
  const std::string &missing = table_.file_.missing_end;
  if (missing.empty()) {
    char before;
    if (!byte_before(size - rest, before)) return false;
    if (truncate_file(handle_.get(), size - rest) != 0) {
      return fail(1, "Cannot remove the torn end");
    }
    if (!check_for_hole(size - rest, before, size - rest, {})) return false;
  } else if (!set_append(true)) {
    return false;
  } else if (write_at(handle_.get(), missing.data(), missing.size(), size) !=
             static_cast<ssize_t>(missing.size())) {
    const int cause = errno;
    truncate_file(handle_.get(), size);
    errno = cause;
    return fail(1, "Cannot complete the last record");
  }
  if (!move_time_forward() || !table_.look()) return false;
  return holds_table() || lost();
}

bool FlatExclusive::are_rows(std::string &rows, const Relation &layout,
                             bool carriage_return, const std::string &file) {
  const std::size_t length = static_cast<std::size_t>(layout.width) + 1;
  const auto refuse = [&](const char *what) {
    elog_log(0, "dbput: %s: %s.\n", file.c_str(), what);
    return false;
  };
  if (!rows.empty() && rows.back() != '\n') rows += '\n';
  if (rows.empty() || rows.size() % length != 0) {
    elog_log(0, "dbput: %s: A record has %zu characters and a newline, not %zu.\n",
             file.c_str(), length - 1, rows.empty() ? 0 : rows.size() - 1);
    return false;
  }
  for (std::size_t begin = 0; begin < rows.size(); begin += length) {
    char *row = rows.data() + begin;
    std::size_t text = length - 1;
    if (carriage_return) {
      char &end = row[--text];
      if (end == ' ') end = '\r';
      if (end != '\r') return refuse("A record is too long for the carriage return");
    }
    const bool clean = std::all_of(row, row + text, [](char c) {
      const auto byte = static_cast<unsigned char>(c);
      return byte >= ' ' && byte != 127;
    });
    if (!clean || row[length - 1] != '\n') {
      return refuse("A record holds a control character");
    }
  }
  return true;
}

bool FlatExclusive::check_rows(std::string &rows) {
  return are_rows(rows, *table_.file_.layout, table_.carriage_return_,
                  table_.file_.path);
}

long FlatExclusive::append(std::string_view row) {
  if (!prepare()) return -1;
  const std::size_t length = table_.record_length();
  const bool newline = !row.empty() && row.back() == '\n';
  if (row.size() + (newline ? 0 : 1) != length) {
    elog_log(0, "dbadd: %s: A record has %zu characters, not %zu.\n",
             table_.file_.path.c_str(), length - 1, row.size() - (newline ? 1 : 0));
    return -1;
  }
  return append_all(row);
}

long FlatExclusive::append_all(std::string_view rows) {
  if (!prepare()) return -1;
  std::string text(rows);
  if (!check_rows(text)) return -1;
  const auto length = static_cast<off_t>(table_.record_length());
  const off_t expected = table_.file_.stamp.count * length;
  off_t at = 0;
  if (!write_end(text, expected, at)) return -1;
  const long first = at / length;
  const auto bytes = static_cast<off_t>(text.size());
  if (at == expected) table_.adopt_write(first, first + bytes / length, at + bytes);
  return first;
}

bool FlatExclusive::overwrite(long record, std::string_view row) {
  if (!prepare()) return false;
  std::string text(row);
  if (!check_rows(text)) return false;
  const std::size_t length = table_.record_length();
  if (record < 0 || record >= table_.file_.stamp.count || text.size() != length) {
    elog_log(0, "dbput: %s: No record %ld among %ld.\n", table_.file_.path.c_str(),
             record, table_.file_.stamp.count);
    return false;
  }
  if (!write_over(text, static_cast<off_t>(record) * static_cast<off_t>(length))) {
    return false;
  }
  table_.adopt_write(record, record + 1, table_.seen_.st_size);
  return true;
}

/* Appends rows.  Whatever other programs do to the file meanwhile, the rows go to its
 * end, where they neither overwrite a row nor leave a hole.  `at` gets their offset. */
bool FlatExclusive::write_end(std::string_view rows, off_t expected, off_t &at) {
  at = expected;
  if (!write(rows, expected, true, {})) return false;
  struct stat status;
  if (::fstat(handle_.get(), &status) != 0) return fail(1, "Cannot look at the file");
  if (status.st_size == expected + static_cast<off_t>(rows.size())) return true;
  if (find_rows(rows, at)) return true;
  return fail(0, "Another program has changed the file without a lock");
}

/* Finds the offset of rows just written, near the end of a shared file. */
bool FlatExclusive::find_rows(std::string_view rows, off_t &at) {
  struct stat status;
  if (::fstat(handle_.get(), &status) != 0) return false;
  std::string tail(std::min(static_cast<std::size_t>(status.st_size),
                            2 * rows.size() + kSearchedTail),
                   '\0');
  const off_t from = status.st_size - static_cast<off_t>(tail.size());
  if (read_at(handle_.get(), tail.data(), tail.size(), from) !=
      static_cast<ssize_t>(tail.size())) {
    return false;
  }
  const std::size_t found = tail.rfind(rows);
  if (found == tail.npos) return false;
  at = from + static_cast<off_t>(found);
  return at % static_cast<off_t>(table_.record_length()) == 0;
}

bool FlatExclusive::write_over(std::string_view row, off_t at) {
  std::string old(row.size(), '\0');
  char before;
  if (!byte_before(at, before)) return false;
  if (read_at(handle_.get(), old.data(), old.size(), at) !=
      static_cast<ssize_t>(old.size())) {
    return fail(1, "Cannot read the record to be overwritten");
  }
  return write(row, at, false, old) &&
         check_for_hole(at, before, at + static_cast<off_t>(row.size()), old);
}

bool FlatExclusive::byte_before(off_t at, char &byte) {
  byte = '\n';
  return at == 0 || read_at(handle_.get(), &byte, 1, at - 1) == 1 ||
         fail(1, "Cannot read the record before");
}

/* Handles a file that another program has cut shorter during a write: the system fills
 * the bytes between its new end and the written bytes with zeros.  Removes these and
 * the written bytes, and fails.  `before` is the byte that stood before `at`; the bytes
 * written over `old_bytes` end at `end`.  When the file cannot be read again, puts the
 * old bytes back and fails. */
bool FlatExclusive::check_for_hole(off_t at, char before, off_t end,
                                   std::string_view old_bytes) {
  char now;
  struct stat status;
  if (!byte_before(at, now)) {
    if (!old_bytes.empty()) undo(at, old_bytes, old_bytes.size());
    return false;
  }
  if (before == '\0' || now != '\0') return true;
  if (::fstat(handle_.get(), &status) == 0 && status.st_size == end) {
    off_t cut = at;
    std::string piece(kSearchedTail, '\0');
    while (cut > 0) {
      const off_t bytes = std::min(cut, static_cast<off_t>(piece.size()));
      if (read_at(handle_.get(), piece.data(), static_cast<std::size_t>(bytes),
                  cut - bytes) != bytes) {
        break;
      }
      off_t rest = bytes;
      while (rest > 0 && piece[static_cast<std::size_t>(rest) - 1] == '\0') --rest;
      cut -= bytes - rest;
      if (rest > 0) break;
    }
    truncate_file(handle_.get(), cut);
    move_time_forward();
  }
  return fail(0, "Another program has cut the file while it was written");
}

/* With O_APPEND, pwrite writes to the end of the file, whatever the offset. */
bool FlatExclusive::set_append(bool append) {
  const int flags = ::fcntl(handle_.get(), F_GETFL);
  const int wanted = append ? flags | O_APPEND : flags & ~O_APPEND;
  return (flags >= 0 &&
          (flags == wanted || ::fcntl(handle_.get(), F_SETFL, wanted) == 0)) ||
         fail(1, "Cannot set how the file is written");
}

/* `old_bytes` are the bytes at that offset; empty when the file ends there. */
bool FlatExclusive::write(std::string_view bytes, off_t at, bool append,
                          std::string_view old_bytes) {
  if (!set_append(append)) return false;
  const ssize_t written = write_at(handle_.get(), bytes.data(), bytes.size(), at);
  if (written != static_cast<ssize_t>(bytes.size())) {
    fail(1, "Cannot write");
    if (written > 0) undo(at, old_bytes, static_cast<std::size_t>(written));
    return false;
  }
  const bool done = sync() && move_time_forward();
  if (done && still_at_path()) {
    wrote_ = true;
    return true;
  }
  undo(at, old_bytes, bytes.size());
  if (!done) return false;
  /* The file at the path may be a copy of this one that already has the rows: writing
   * them once more could double them. */
  wrote_ = true;
  return lost();
}

void FlatExclusive::undo(off_t at, std::string_view old_bytes, std::size_t written) {
  bool undone;
  if (old_bytes.empty()) {
    struct stat status;
    undone = ::fstat(handle_.get(), &status) == 0 &&
             (status.st_size < static_cast<off_t>(written) ||
              truncate_file(handle_.get(),
                            status.st_size - static_cast<off_t>(written)) == 0);
  } else {
    undone = write_at(handle_.get(), old_bytes.data(), old_bytes.size(), at) ==
             static_cast<ssize_t>(old_bytes.size());
  }
  if (!undone) fail(1, "Cannot undo the failed write");
  move_time_forward();
}

bool FlatExclusive::sync() {
  if (!table_.settings_.sync) return true;
  if (sync_file(handle_.get()) != 0) return fail(1, "Cannot bring the record to disk");
  if (!created_) return true;
  /* The name of a new file is data of its directory. */
  const FileHandle directory = open_file(table_.directory_, O_RDONLY | O_DIRECTORY);
  return (directory && sync_file(directory.get()) == 0) ||
         fail(1, "Cannot bring the directory to disk");
}

bool FlatExclusive::move_time_forward() {
  /* The new time must be later than that of the last look and than the file's present
   * one, which the system may have set since, at the coarse steps of its own clock. */
  struct stat status;
  if (::fstat(handle_.get(), &status) != 0) return fail(1, "Cannot look at the file");
  const struct timespec before = later(status.st_mtim, table_.seen_.st_mtim)
                                     ? status.st_mtim
                                     : table_.seen_.st_mtim;
  const struct timespec times[2] = {{0, UTIME_OMIT}, time_after(before)};
  if (::futimens(handle_.get(), times) == 0) return true;
  if (errno != EPERM) return fail(1, "Cannot set the time of change");
  /* Only the owner may set any time; others with write permission can set the
   * present. */
  for (int wait = 0; wait < kClockWaits; ++wait) {
    if (::futimens(handle_.get(), nullptr) != 0) {
      return fail(1, "Cannot set the time of change");
    }
    if (::fstat(handle_.get(), &status) == 0 &&
        later(status.st_mtim, table_.seen_.st_mtim)) {
      break;
    }
    ::nanosleep(&kClockWait, nullptr);
  }
  return true;
}

}  // namespace ksutil::db
