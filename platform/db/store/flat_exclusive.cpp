#include "platform/db/store/internal/flat_exclusive.h"

#include <fcntl.h>
#include <unistd.h>

#include <algorithm>
#include <cerrno>
#include <ctime>

#include "platform/elog/elog.h"

namespace ksutil::db {
namespace {

constexpr int kOpenAttempts = 1000;
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
  if (created_ && lock_ && ::fstat(handle_.get(), &status) == 0 &&
      status.st_size == 0) {
    ::unlink(table_.file_.path.c_str());
  }
}

bool FlatExclusive::fail(int flag, const char *what) {
  elog_log(flag, "dbput: %s: %s.\n", table_.file_.path.c_str(), what);
  return false;
}

bool FlatExclusive::open() {
  if (!table_.look()) return false;
  for (int attempt = 0; attempt < kOpenAttempts; ++attempt) {
    lock_.reset();
    if (!open_and_lock()) return false;
    if (still_at_path()) return table_.look_at_path();
  }
  return fail(0, "The file is replaced again and again");
}

bool FlatExclusive::open_and_lock() {
  const std::string &path = table_.file_.path;
  created_ = false;
  handle_ = open_file(path, O_RDWR);
  if (!handle_ && errno == ENOENT) {
    handle_ = open_file(path, O_RDWR | O_CREAT | O_EXCL);
    created_ = static_cast<bool>(handle_);
    if (!handle_ && errno == EEXIST) handle_ = open_file(path, O_RDWR);
  }
  if (!handle_) return fail(1, "Cannot open for writing");
  lock_.emplace(handle_.get());
  return lock_->held() || fail(1, "Cannot lock");
}

/* Another program may have replaced or removed the file before the lock was had. */
bool FlatExclusive::still_at_path() {
  struct stat opened, named;
  return ::fstat(handle_.get(), &opened) == 0 &&
         ::stat(table_.file_.path.c_str(), &named) == 0 &&
         opened.st_dev == named.st_dev && opened.st_ino == named.st_ino;
}

bool FlatExclusive::prepare() { return table_.look() && repair_end(); }

bool FlatExclusive::repair_end() {
  const auto length = static_cast<off_t>(table_.record_length());
  const off_t size = table_.seen_.st_size;
  const off_t rest = size % length;
  if (rest == 0) return true;
  const std::string &missing = table_.file_.missing_end;
  if (missing.empty()) {
    if (truncate_file(handle_.get(), size - rest) != 0) {
      return fail(1, "Cannot remove the torn end");
    }
  } else if (write_at(handle_.get(), missing.data(), missing.size(), size) !=
             static_cast<ssize_t>(missing.size())) {
    const int cause = errno;
    truncate_file(handle_.get(), size);
    errno = cause;
    return fail(1, "Cannot complete the last record");
  }
  return move_time_forward() && table_.look();
}

/* Rows are whole, of the file's own length, and hold no control characters; a carriage
 * return stands where the file has it. */
bool FlatExclusive::check_rows(std::string &rows) {
  const std::size_t length = table_.record_length();
  if (!rows.empty() && rows.back() != '\n') rows += '\n';
  if (rows.empty() || rows.size() % length != 0) {
    elog_log(0, "dbput: %s: A record has %zu characters and a newline, not %zu.\n",
             table_.file_.path.c_str(), length - 1, rows.empty() ? 0 : rows.size() - 1);
    return false;
  }
  for (std::size_t begin = 0; begin < rows.size(); begin += length) {
    char *row = rows.data() + begin;
    std::size_t text = length - 1;
    if (table_.carriage_return_) {
      char &end = row[--text];
      if (end == ' ') end = '\r';
      if (end != '\r') return fail(0, "A record is too long for the carriage return");
    }
    const bool clean = std::all_of(row, row + text, [](char c) {
      const auto byte = static_cast<unsigned char>(c);
      return byte >= ' ' && byte != 127;
    });
    if (!clean || row[length - 1] != '\n') {
      return fail(0, "A record holds a control character");
    }
  }
  return true;
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
  const long first = table_.file_.stamp.count;
  const auto at =
      static_cast<off_t>(first) * static_cast<off_t>(table_.record_length());
  if (!write(text, at, {})) return -1;
  const long added = static_cast<long>(text.size() / table_.record_length());
  table_.adopt_write(first, first + added, at + static_cast<off_t>(text.size()));
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
  const auto at = static_cast<off_t>(record) * static_cast<off_t>(length);
  std::string old(length, '\0');
  if (read_at(handle_.get(), old.data(), length, at) != static_cast<ssize_t>(length)) {
    return fail(1, "Cannot read the record to be overwritten");
  }
  if (!write(text, at, old)) return false;
  table_.adopt_write(record, record + 1, table_.seen_.st_size);
  return true;
}

/* `old_bytes` are those at that place; empty: the file ends there. */
bool FlatExclusive::write(std::string_view bytes, off_t at,
                          std::string_view old_bytes) {
  const ssize_t written = write_at(handle_.get(), bytes.data(), bytes.size(), at);
  if (written != static_cast<ssize_t>(bytes.size())) {
    fail(1, "Cannot write");
    if (written > 0) undo(at, old_bytes);
    return false;
  }
  if (sync() && move_time_forward()) return true;
  undo(at, old_bytes);
  return false;
}

void FlatExclusive::undo(off_t at, std::string_view old_bytes) {
  const bool undone = old_bytes.empty()
                          ? truncate_file(handle_.get(), at) == 0
                          : write_at(handle_.get(), old_bytes.data(), old_bytes.size(),
                                     at) == static_cast<ssize_t>(old_bytes.size());
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
  /* From the time before the write: the system may have set a later one since, at the
   * coarse steps of its own clock. */
  struct stat status;
  if (::fstat(handle_.get(), &status) != 0) return fail(1, "Cannot look at the file");
  const struct timespec before = later(status.st_mtim, table_.seen_.st_mtim)
                                     ? status.st_mtim
                                     : table_.seen_.st_mtim;
  const struct timespec times[2] = {{0, UTIME_OMIT}, time_after(before)};
  if (::futimens(handle_.get(), times) == 0) return true;
  if (errno != EPERM) return fail(1, "Cannot set the time of change");
  /* Only the owner may set any time; everybody who may write can set the present. */
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
