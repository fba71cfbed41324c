/* pthread_lock: holds a pthread mutex for one scope. */
#ifndef KSUTIL_PIPELINE_INTERNAL_PTHREAD_LOCK_H
#define KSUTIL_PIPELINE_INTERNAL_PTHREAD_LOCK_H

#include <pthread.h>

namespace ksutil {

class PthreadLock {
 public:
  explicit PthreadLock(pthread_mutex_t &mutex) : mutex_(&mutex) {
    pthread_mutex_lock(mutex_);
  }
  ~PthreadLock() { unlock(); }
  PthreadLock(const PthreadLock &) = delete;
  PthreadLock &operator=(const PthreadLock &) = delete;

  void unlock() {
    if (mutex_ != nullptr) pthread_mutex_unlock(mutex_);
    mutex_ = nullptr;
  }

  /* Leaves the mutex locked for good. */
  void release() { mutex_ = nullptr; }

 private:
  pthread_mutex_t *mutex_;
};

}  // namespace ksutil
#endif
