#include "platform/db/store/internal/flat_table.h"

#include <fcntl.h>

#include <algorithm>
#include <cerrno>
#include <stdexcept>

#include "platform/db/store/internal/flat_exclusive.h"
#include "platform/db/store/internal/layout_fit.h"
#include "platform/elog/elog.h"
#include "platform/elog/failure.h"

namespace ksutil::db {
namespace {

/* How often a file may be exchanged during one call before the call fails. */
constexpr int kAttempts = 1000;

bool same_time(const struct timespec &a, const struct timespec &b) {
  return a.tv_sec == b.tv_sec && a.tv_nsec == b.tv_nsec;
}

long nanoseconds(const struct timespec &time) {
  return time.tv_sec * 1'000'000'000 + time.tv_nsec;
}

/* A change of the status time alone counts too: when a program rewrites a row in place
 * and then restores the modification time, nothing else shows it. */
bool same_state(const struct stat &a, const struct stat &b) {
  return same_file(a, b) && a.st_size == b.st_size && same_time(a.st_mtim, b.st_mtim) &&
         same_time(a.st_ctim, b.st_ctim) && a.st_nlink == b.st_nlink;
}

}  // namespace

FlatTable::FlatTable(const FlatSettings &settings, const Relation &relation,
                     std::vector<std::string> paths)
    : settings_(settings), relation_(relation), paths_(std::move(paths)) {
  set_path(paths_.front());
  set_layout(relation_, false);
}

void FlatTable::set_path(const std::string &path) {
  file_.path = path;
  const std::size_t slash = path.rfind('/');
  directory_ =
      slash == path.npos ? "." : path.substr(0, std::max<std::size_t>(slash, 1));
}

void FlatTable::set_layout(Relation layout, bool carriage_return) {
  carriage_return_ = carriage_return;
  for (const auto &known : layouts_) {
    if (same_layout(*known, layout)) {
      file_.layout = known;
      return;
    }
  }
  file_.layout = std::make_shared<const Relation>(std::move(layout));
  layouts_.push_back(file_.layout);
}

const Relation &FlatTable::layout() {
  if (file_.handle == nullptr) {
    const ElogScope quiet;  // reading the rows reports the error
    look();
  }
  return *file_.layout;
}

bool FlatTable::stamp(Stamp &stamp) {
  if (!look()) return false;
  stamp = file_.stamp;
  return true;
}

std::shared_ptr<const Snapshot> FlatTable::snapshot() {
  if (!look()) return nullptr;
  if (snapshot_ != nullptr && snapshot_->complete() &&
      snapshot_->stamp() == file_.stamp && &snapshot_->layout() == file_.layout.get()) {
    return snapshot_;
  }
  return next_snapshot();
}

std::shared_ptr<const Snapshot> FlatTable::snapshot_anew() {
  if (!look()) return nullptr;
  own_changes_ = false;
  return next_snapshot();
}

std::shared_ptr<const Snapshot> FlatTable::next_snapshot() {
  try {
    auto fresh = std::make_shared<FlatSnapshot>(file_, settings_.shared);
    if (snapshot_ != nullptr && &snapshot_->layout() == file_.layout.get()) {
      /* What an incomplete snapshot holds may not be what the file held. */
      if (own_changes_ && snapshot_->complete()) {
        fresh->follow(*snapshot_, changed_from_, changed_to_);
      } else {
        fresh->follow(*snapshot_);
      }
    }
    snapshot_ = std::move(fresh);
  } catch (const std::exception &) {
    fail("dbget", "%s: No memory for %ld records", file_.path.c_str(),
         file_.stamp.count);
    return nullptr;
  }
  own_changes_ = true;
  changed_from_ = changed_to_ = 0;
  return snapshot_;
}

void FlatTable::adopt_write(long from, long to, off_t expected_size) {
  struct stat status;
  if (::fstat(file_.handle->get(), &status) != 0 || status.st_size != expected_size)
    return;
  const bool none = changed_from_ == changed_to_;
  changed_from_ = none ? from : std::min(changed_from_, from);
  changed_to_ = none ? to : std::max(changed_to_, to);
  set_stamp(status, expected_size / static_cast<long>(record_length()));
  seen_ = status;
}

bool FlatTable::exclusively(const std::function<bool(Exclusive &)> &work) {
  if (!settings_.writable) {
    return fail("dbput", "%s: The database is open for reading only",
                file_.path.c_str());
  }
  /* A second lock of this table would wait for the first one for ever. */
  if (running_ != nullptr) return work(*running_);
  for (int attempt = 0; attempt < kAttempts; ++attempt) {
    const int mark = elog_mark();
    FlatExclusive exclusive(*this);
    if (!exclusive.open()) return false;
    if (work(exclusive)) return true;
    if (!exclusive.may_start_again()) return false;
    elog_flush(0, mark);
  }
  return fail("dbput", "%s: The file is replaced again and again", file_.path.c_str());
}

void FlatTable::set_absent() {
  own_changes_ = false;
  if (file_.handle == nullptr && !file_.stamp.exists) return;  // as it was
  file_.handle.reset();
  file_.stamp = Stamp();
  file_.missing_end.clear();
  set_layout(relation_, false);
}

/* The first of the paths at which a file exists; once found, a file stays the table's
 * as long as it exists. */
bool FlatTable::find_path(struct stat &status, bool &exists) {
  const auto try_path = [&](const std::string &path) {
    if (::stat(path.c_str(), &status) == 0) {
      exists = true;
      if (path != file_.path) set_path(path);
      if (S_ISREG(status.st_mode)) return true;
      fail("dbopen", "%s is not a regular file", path.c_str());
      return false;
    }
    exists = false;
    if (errno != ENOENT && errno != ENOTDIR) {
      fail_errno("dbopen", "Cannot look at %s", path.c_str());
      return false;
    }
    if (::lstat(path.c_str(), &status) != 0 || !S_ISLNK(status.st_mode)) return true;
    fail("dbopen", "%s is a link to a file that is not there", path.c_str());
    return false;
  };
  if (file_.handle != nullptr) {
    const bool good = try_path(file_.path);
    if (!good || exists) return good;
  }
  for (const std::string &path : paths_) {
    const bool good = try_path(path);
    if (!good || exists) return good;
  }
  if (settings_.folders != nullptr && !settings_.folders->are_there(file_.path)) {
    return false;
  }
  if (file_.path != paths_.front()) set_path(paths_.front());
  return true;
}

bool FlatTable::look() {
  for (int attempt = 0; attempt < kAttempts; ++attempt) {
    struct stat status;
    bool exists;
    if (!find_path(status, exists)) return false;
    if (!exists) {
      set_absent();
      return true;
    }
    if (file_.handle != nullptr && same_state(status, seen_)) return true;
    switch (look_through(status)) {
      case Looked::kSeen:
        return true;
      case Looked::kFailed:
        return false;
      case Looked::kGone:
        break;
    }
  }
  return fail("dbopen", "%s is replaced again and again", file_.path.c_str());
}

FlatTable::Looked FlatTable::look_through(const struct stat &at_path) {
  std::shared_ptr<FileHandle> handle = file_.handle;
  if (handle == nullptr || !same_file(at_path, seen_)) {
    handle = std::make_shared<FileHandle>(open_file(file_.path, O_RDONLY));
    if (!*handle) {
      if (errno == ENOENT) return Looked::kGone;
      fail_errno("dbopen", "Cannot open %s", file_.path.c_str());
      return Looked::kFailed;
    }
  }
  own_changes_ = false;
  struct stat status;
  /* The stamp is taken before any byte is read: the next look sees a change made while
   * reading. */
  if (::fstat(handle->get(), &status) != 0) {
    fail_errno("dbopen", "Cannot look at %s", file_.path.c_str());
    return Looked::kFailed;
  }
  if (status.st_nlink == 0) return Looked::kGone;
  if (!examine(handle->get(), status)) {
    file_.handle.reset();
    return Looked::kFailed;
  }
  file_.handle = std::move(handle);
  seen_ = status;
  return Looked::kSeen;
}

bool FlatTable::examine(int fd, const struct stat &status) {
  if (!fit(fd, status) || !read_remainder(fd, status)) return false;
  set_stamp(status, status.st_size / static_cast<long>(record_length()) +
                        (file_.missing_end.empty() ? 0 : 1));
  return true;
}

void FlatTable::set_stamp(const struct stat &status, long count) {
  Stamp &stamp = file_.stamp;
  stamp.exists = true;
  stamp.count = count;
  stamp.time = static_cast<double>(status.st_mtim.tv_sec) +
               1e-9 * static_cast<double>(status.st_mtim.tv_nsec);
  stamp.identity[0] = static_cast<long>(status.st_dev);
  stamp.identity[1] = static_cast<long>(status.st_ino);
  stamp.identity[2] = status.st_size;
  stamp.identity[3] = nanoseconds(status.st_mtim);
  stamp.identity[4] = nanoseconds(status.st_ctim);
}

bool FlatTable::fit(int fd, const struct stat &status) {
  std::string head(record_length(), '\0');
  const auto read_head = [&] {
    const ssize_t got = read_at(fd, head.data(), head.size(), 0);
    head.resize(static_cast<std::size_t>(std::max<ssize_t>(got, 0)));
    if (got < 0) fail_errno("dbopen", "Cannot read %s", file_.path.c_str());
    return got >= 0;
  };
  if (file_.handle != nullptr && status.st_size > 0) {
    if (!read_head()) return false;
    if (head.size() == record_length() && head.find('\n') == head.size() - 1 &&
        (head[head.size() - 2] == '\r') == carriage_return_) {
      return true;
    }
  }
  head.assign(static_cast<std::size_t>(std::min<off_t>(status.st_size, kFitBytes)),
              '\0');
  if (!read_head()) return false;
  Fit found;
  if (!fit_layout(*settings_.schema, relation_.name, head,
                  status.st_size <= static_cast<off_t>(kFitBytes), found)) {
    return fail("dbopen",
                "%s does not hold records of a known layout of %s: its first line has "
                "%zu characters, the schema says %d",
                file_.path.c_str(), relation_.name.c_str(),
                std::min(head.find('\n'), head.size()), relation_.width);
  }
  set_layout(std::move(found.layout), found.carriage_return);
  return true;
}

bool FlatTable::read_remainder(int fd, const struct stat &status) {
  const std::size_t length = record_length();
  const auto size = static_cast<std::size_t>(status.st_size);
  const std::size_t rest = size % length;
  const std::size_t newline = carriage_return_ ? 2 : 1;
  file_.missing_end.clear();
  if (rest < length - newline) return true;

  std::string tail(rest, '\0');
  const ssize_t got = read_at(fd, tail.data(), rest, static_cast<off_t>(size - rest));
  if (got < 0) return fail_errno("dbopen", "Cannot read %s", file_.path.c_str());
  const bool whole = static_cast<std::size_t>(got) == rest && !is_blank(tail) &&
                     tail.find('\n') == tail.npos;
  if (whole) file_.missing_end = rest + 1 == length ? "\n" : "\r\n";
  return true;
}

}  // namespace ksutil::db
