#include "platform/db/write_attempt.h"

#include <fcntl.h>

#include <chrono>
#include <thread>

#include "platform/stock/files.h"

namespace ksutil::db {
namespace {

/* Before a lock that cannot be waited for, as without a free descriptor, is tried again. */
constexpr std::chrono::milliseconds kPause{10};

thread_local WriteAttempt *of_thread = nullptr;

}  // namespace

WriteAttempt::WriteAttempt() : outer_(of_thread) { of_thread = this; }

WriteAttempt::~WriteAttempt() { of_thread = outer_; }

WriteAttempt *WriteAttempt::current() { return of_thread; }

void WriteAttempt::wait() const {
  const FileHandle file = open_file(locked_, O_RDWR);
  if (file && FileLock(file.get()).held()) return;
  std::this_thread::sleep_for(kPause);
}

}  // namespace ksutil::db
