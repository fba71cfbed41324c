#include "platform/trace/internal/list_file.h"

#include <fcntl.h>
#include <pthread.h>
#include <sys/stat.h>

#include <algorithm>
#include <cerrno>
#include <mutex>

#include "platform/elog/elog.h"

namespace ksutil {
namespace {

constexpr std::size_t kReadBytes = 65536;

/* Collects the valid entries of a list in order; lost entries may only be at its ends. */
class Entries {
 public:
  explicit Entries(std::vector<std::uint8_t> &elements) : elements_(elements) {}

  /* False for a valid entry behind a lost one that is not at the beginning. */
  bool take(bool valid, const std::uint8_t *element, std::size_t size) {
    if (!valid) {
      ++(taken_ == 0 ? before_ : after_);
      return true;
    }
    elements_.insert(elements_.end(), element, element + size);
    ++taken_;
    return after_ == 0;
  }
  std::uint64_t before() const { return before_; }
  std::uint64_t taken() const { return taken_; }

 private:
  std::vector<std::uint8_t> &elements_;
  std::uint64_t before_ = 0, taken_ = 0, after_ = 0;
};

}  // namespace

/* The files that this process has locked.  An open file description, and with it the lock,
 * lives until its last descriptor is closed: a forked child would keep the file locked
 * after the end of this process. */
class LockedFiles {
 public:
  static LockedFiles &all() {
    static auto *const files =
        new LockedFiles;  // lists may be freed at the process's end
    return *files;
  }

  void add(ListFile *file) {
    const std::lock_guard lock(mutex_);
    files_.push_back(file);
  }
  void remove(ListFile *file) {
    const std::lock_guard lock(mutex_);
    std::erase(files_, file);
  }

 private:
  LockedFiles() {
    pthread_atfork(before_fork, after_fork_in_parent, after_fork_in_child);
  }

  static void before_fork() { all().mutex_.lock(); }
  static void after_fork_in_parent() { all().mutex_.unlock(); }
  static void after_fork_in_child() {
    for (ListFile *const file : all().files_) file->file_.reset();
    all().mutex_.unlock();
  }

  std::mutex mutex_;  // guards files_; held during a fork
  std::vector<ListFile *> files_;
};

namespace {

/* Registers the handlers when the library is loaded.  Before a fork the handlers that were
 * registered last run first: those of a program that wait for its calls in progress must
 * not find the mutex taken, for which these calls may wait. */
[[maybe_unused]] const LockedFiles &locked_files = LockedFiles::all();

}  // namespace

ListFile::~ListFile() {
  if (lock_) LockedFiles::all().remove(this);
}

bool ListFile::refuse(const std::string &cause) const {
  errno = EINVAL;
  elog_log(0, "%s: %s %s.\n", who_, path_.c_str(), cause.c_str());
  return false;
}

bool ListFile::fail(const char *call) const {
  elog_log(1, "%s: %s(%s) error.\n", who_, call, path_.c_str());
  return false;
}

bool ListFile::check_regular() {
  struct stat status = {};
  if (fstat(file_.get(), &status) != 0) return fail("fstat");
  return S_ISREG(status.st_mode) || refuse("is not a regular file");
}

/* Opens regular files only: opening a FIFO can block, opening a device can have side
 * effects. */
bool ListFile::open_locked() {
  file_ = open_file(path_, O_RDWR | O_CREAT | O_NONBLOCK | O_NOCTTY);
  if (!file_) return fail("open");
  if (!check_regular()) return false;
  LockedFiles::all().add(this);
  lock_.emplace(file_.get(), FileLock::Wait::kNever);
  if (!lock_->held()) return fail("lock");
  /* Another program may have removed the file before it was locked. */
  struct stat status = {};
  if (fstat(file_.get(), &status) != 0) return fail("fstat");
  if (status.st_nlink > 0) return true;
  errno = EAGAIN;
  return fail("lock");
}

bool ListFile::open_to_read() {
  file_ = open_file(path_, O_RDONLY | O_NONBLOCK | O_NOCTTY);
  return file_ ? check_regular() : fail("open");
}

bool ListFile::read(void *to, std::size_t bytes, std::uint64_t at) {
  const ssize_t got = read_at(file_.get(), to, bytes, static_cast<off_t>(at));
  if (got == static_cast<ssize_t>(bytes)) return true;
  return got >= 0 && errno == 0 ? refuse("is cut short") : fail("read");
}

bool ListFile::write(const void *from, std::size_t bytes, std::uint64_t at) {
  const ssize_t put = write_at(file_.get(), from, bytes, static_cast<off_t>(at));
  return put == static_cast<ssize_t>(bytes) || fail("write");
}

/* The part of the head that the file has; the rest is zero. */
bool ListFile::read_head(ListHead &head, std::size_t &size) {
  head.fill(0);
  const ssize_t got = read_at(file_.get(), head.data(), head.size(), 0);
  if (got < 0 || (got < static_cast<ssize_t>(head.size()) && errno != 0)) {
    return fail("read");
  }
  size = static_cast<std::size_t>(got);
  return true;
}

/* Writes the head of an empty file, or finishes one that was left incomplete. */
bool ListFile::begin(const ListHead &found, std::size_t size, bool &begun) {
  const ListHead head = empty_list_head(kind_);
  begun = size < head.size() &&
          std::equal(found.begin(), found.begin() + size, head.begin());
  if (!begun || !lock_) return true;
  if (write(head.data(), head.size(), 0)) return true;
  const int error = errno;
  truncate_file(file_.get(), static_cast<off_t>(size));
  errno = error;
  return false;
}

bool ListFile::peek(ListState &state) {
  ListHead head;
  std::size_t size = 0;
  bool begun = false;
  if (!read_head(head, size) || !begin(head, size, begun)) return false;
  if (begun) {
    state = {};
    return true;
  }
  std::string fault = header_fault(head, kind_);
  if (fault.empty() && size < head.size()) fault = "is cut short";
  if (fault.empty()) fault = read_state(head, kind_, state);
  return fault.empty() || refuse(fault);
}

/* How many entries the file can hold by its size.  A ring that has come round was once
 * full; before that a power cut may have kept the last slots from the disk. */
bool ListFile::present(const ListState &state, std::uint64_t &count) {
  struct stat status = {};
  if (fstat(file_.get(), &status) != 0) return fail("fstat");
  const auto size = static_cast<std::uint64_t>(status.st_size);
  const std::uint64_t slots =
      size <= kListSlotsAt ? 0 : (size - kListSlotsAt) / kind_.slot_size();
  count = state.count;
  if (state.wraps()) return slots >= state.capacity || refuse("is cut short");
  count = std::min(count, slots - std::min(slots, state.first));
  return true;
}

bool ListFile::load_entries(ListState &state, std::vector<std::uint8_t> &elements) {
  std::uint64_t count = 0;
  if (!present(state, count)) return false;
  const std::size_t size = kind_.element_size, step = kind_.slot_size();
  const std::uint64_t many = std::max<std::uint64_t>(kReadBytes / step, 1);
  std::vector<std::uint8_t> slots;
  Entries entries(elements);
  for (std::uint64_t i = 0; i < count;) {
    const std::uint64_t slot = state.slot(i);
    const std::uint64_t n = std::min({many, count - i, state.capacity - slot});
    slots.resize(static_cast<std::size_t>(n) * step);
    if (!read(slots.data(), slots.size(), slot_offset(slot))) return false;
    for (std::size_t at = 0; at < slots.size(); at += step, ++i) {
      std::uint8_t hash[kListHashSize];
      encode_entry_hash(state.sequence + i, &slots[at], size, hash);
      const bool valid =
          std::equal(std::begin(hash), std::end(hash), &slots[at + size]);
      if (!entries.take(valid, &slots[at], size)) {
        return refuse("is damaged in its entries");
      }
    }
  }
  const std::uint64_t lost = state.count - entries.taken();
  if (lost > 1 && entries.taken() == 0) return refuse("is damaged in its entries");
  complete_ = lost == 0;
  if (!complete_) {
    elog_log(0, "%s: %s has lost %llu entries at its ends.\n", who_, path_.c_str(),
             static_cast<unsigned long long>(lost));
    state.first = state.slot(entries.before());
    state.sequence += entries.before();
    state.count = entries.taken();
  }
  return true;
}

bool ListFile::load(ListState &state, std::vector<std::uint8_t> &elements) {
  elements.clear();
  complete_ = true;
  return peek(state) && (state.count == 0 || load_entries(state, elements));
}

bool ListFile::write_entry(const ListState &state, std::uint64_t i,
                           const std::uint8_t *element) {
  const std::size_t size = kind_.element_size;
  slot_.resize(kind_.slot_size());
  std::copy_n(element, size, slot_.begin());
  encode_entry_hash(state.sequence + i, element, size, &slot_[size]);
  return write(slot_.data(), slot_.size(), slot_offset(state.slot(i)));
}

bool ListFile::write_state(const ListState &state) {
  std::uint8_t bytes[kListStateSize];
  encode_state(state, bytes);
  return write(bytes, sizeof bytes, state_offset(state));
}

}  // namespace ksutil
