/* WriteAttempt: writes that do not wait for other programs, for a thread that must let go
 * of something before it waits.
 *
 *     for (;;) {
 *       ElogScope messages;
 *       WriteAttempt attempt;
 *       if (dbput(record, text) == 0 || !attempt.busy()) {
 *         messages.keep();
 *         break;
 *       }
 *       messages.drop();
 *       hold.unlock();
 *       attempt.wait();
 *       hold.lock();
 *     }
 */
#ifndef KSUTIL_PLATFORM_DB_WRITE_ATTEMPT_H
#define KSUTIL_PLATFORM_DB_WRITE_ATTEMPT_H

#include <functional>
#include <string>

#include "platform/stock/export.h"

namespace ksutil::db {

/* While one lives, a write of this thread to a table of flat files that another program, or
 * another handle, has locked fails at once, with messages, and changes nothing.  The stores
 * of plug-ins wait as ever.  Attempts within attempts count for themselves. */
class KSUTIL_API WriteAttempt {
 public:
  WriteAttempt();
  ~WriteAttempt();
  WriteAttempt(const WriteAttempt &) = delete;
  WriteAttempt &operator=(const WriteAttempt &) = delete;

  /* Whether a write has failed for that reason. */
  bool busy() const { return !locked_.empty(); }
  /* Waits until the lock that was in the way is free; another writer may be faster.  With
   * `wanted`, which is called again and again, only while that is true; else false. */
  bool wait(const std::function<bool()> &wanted = {}) const;

  /* The attempt of this thread, for stores; null when it waits. */
  static WriteAttempt *current();
  /* Notes that the lock of the file is held by somebody else. */
  void fail_at(const std::string &path) { locked_ = path; }

 private:
  WriteAttempt *const outer_;
  std::string locked_;  // path of the file
};

}  // namespace ksutil::db
#endif
