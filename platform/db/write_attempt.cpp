#include "platform/db/write_attempt.h"

#include <fcntl.h>

#include <cerrno>
#include <chrono>
#include <thread>

#include "platform/stock/files.h"

namespace ksutil::db {
namespace {

using std::chrono::milliseconds;

/* Between two looks at a lock: the second after many of the first. */
constexpr milliseconds kPause{1}, kLongPause{10};
constexpr int kShortPauses = 5000;

thread_local WriteAttempt *of_thread = nullptr;

}  // namespace

WriteAttempt::WriteAttempt() : outer_(of_thread) { of_thread = this; }

WriteAttempt::~WriteAttempt() { of_thread = outer_; }

WriteAttempt *WriteAttempt::current() { return of_thread; }

bool WriteAttempt::wait(const std::function<bool()> &wanted) const {
  const FileHandle file = open_file(locked_, O_RDWR);
  if (file && !wanted && FileLock(file.get()).held()) return true;
  for (int pauses = 0; file && wanted; ++pauses) {
    if (FileLock(file.get(), FileLock::Wait::kNever).held()) return true;
    if (!wanted()) return false;
    if (errno != EAGAIN) break;
    std::this_thread::sleep_for(pauses < kShortPauses ? kPause : kLongPause);
  }
  /* What cannot be waited for, as without a free descriptor, is tried again. */
  std::this_thread::sleep_for(kLongPause);
  return !wanted || wanted();
}

}  // namespace ksutil::db
