/* The handshake between the refresher and the worker: a binary latch. */
#ifndef KSUTIL_EVENTS_SERVER_INTERNAL_LATCH_H
#define KSUTIL_EVENTS_SERVER_INTERNAL_LATCH_H

#include <condition_variable>
#include <mutex>

namespace ksutil::events {

/* lock() waits until the latch is open and takes it; unlock(), from any thread, opens it
 * and has no effect on an open latch; close() lets every present and future lock()
 * return, because nobody will open the latch any more. */
class RefreshLatch {
 public:
  void lock();
  void unlock();
  void close();

 private:
  std::mutex mutex_;
  std::condition_variable changed_;
  bool open_ = true;
  bool closed_ = false;
};

}  // namespace ksutil::events
#endif
