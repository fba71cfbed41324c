#include "pipeline/pmtcomp.h"

#include <cerrno>
#include <cstdint>
#include <cstdio>
#include <cstdlib>
#include <new>

#include "pipeline/internal/pmtcomp_record.h"
#include "pipeline/internal/pthread_lock.h"
#include "platform/elog/failure.h"
#include "platform/stock/memory.h"

using ksutil::fail;
using ksutil::fail_errno;
using ksutil::PthreadLock;

namespace {

/* Prints a line about a thread that is being deleted. */
template <class... Args>
void say(const PmtcompThread &thread, const char *format, Args... args) {
  if (ksutil::comp_verbosity <= 1) return;
  std::printf(format, static_cast<unsigned long>(thread.thread), args...);
}

bool is_given(const Pmtcomp *comp, const char *function) {
  if (comp == nullptr) fail(function, "component must be given");
  return comp != nullptr;
}

/* The thread of an index, under the component's mutex; null after a message. */
PmtcompThread *thread_at(Pmtcomp *comp, long index, const char *function) {
  auto *const thread = static_cast<PmtcompThread *>(gettbl(comp->threads, index));
  if (thread == nullptr) {
    fail(function, "thread index %ld out of range", index);
  }
  return thread;
}

/* A zeroed record; null when memory is short. */
PmtcompThread *new_thread(PmtcompSub comp_sub, void *arg1, long arg2, void *arg3) {
  void *const memory = ks_malloc(ksutil::kCompThreadBytes);
  if (memory == nullptr) return nullptr;
  auto *const thread = new (memory) PmtcompThread{};
  thread->comp_sub = comp_sub;
  thread->arg1 = arg1;
  thread->arg2 = arg2;
  thread->arg3 = arg3;
  return thread;
}

void ask_to_quit(PmtcompThread &thread) {
  thread.quit = 1;
  thread.start = 1;
  pthread_cond_signal(&thread.start_cond);
}

/* Frees a thread that has been joined. */
void free_thread(PmtcompThread *thread) {
  pthread_mutex_destroy(&thread->mutex);
  pthread_cond_destroy(&thread->start_cond);
  pthread_cond_destroy(&thread->finish_cond);
  std::free(thread);
}

void start_step(PmtcompThread &thread) {
  thread.finished = 0;
  const PthreadLock lock(thread.mutex);
  thread.start = 1;
  pthread_cond_signal(&thread.start_cond);
}

/* Waits for the end of a step; returns whether it succeeded. */
bool await_step(PmtcompThread &thread) {
  const auto finished = [&thread] { return thread.finished != 0; };
  if (!thread.wait_for_finish.skip()) thread.wait_for_finish.until(finished);
  const PthreadLock lock(thread.mutex);
  while (thread.finished == 0) pthread_cond_wait(&thread.finish_cond, &thread.mutex);
  thread.start = 0;
  thread.finished = 0;
  return thread.result >= 0;
}

}  // namespace

Pmtcomp *pmtcomp_create(void) {
  void *const memory = ks_malloc(ksutil::kCompBytes);
  if (memory == nullptr) {
    elog_log(1, "pmtcomp_create: malloc (Pmtcomp,%ld) error\n",
             static_cast<long>(ksutil::kCompBytes));
    return nullptr;
  }
  auto *const comp = new (memory) Pmtcomp{};
  comp->threads = newtbl(0);
  if (comp->threads == nullptr) {
    fail("pmtcomp_create", "newtbl(mtc->threads) error");
    std::free(comp);
    return nullptr;
  }
  pthread_mutex_init(&comp->mutex, nullptr);
  return comp;
}

long pmtcomp_nthreads(Pmtcomp *comp) {
  if (comp == nullptr || comp->destroying != 0) return 0;
  const PthreadLock lock(comp->mutex);
  return counttbl(comp->threads);
}

int pmtcomp_addthread(Pmtcomp *comp, PmtcompSub comp_sub, void *arg1, long arg2,
                      void *arg3) {
  if (!is_given(comp, "pmtcomp_addthread")) return -1;
  if (comp_sub == nullptr) {
    return fail("pmtcomp_addthread", "comp_sub must be given");
  }
  PmtcompThread *const thread = new_thread(comp_sub, arg1, arg2, arg3);
  if (thread == nullptr) {
    return fail_errno("pmtcomp_addthread", "malloc(PmtcompThead,%ld) error",
                      static_cast<long>(ksutil::kCompThreadBytes));
  }
  PthreadLock lock(comp->mutex);
  if (comp->destroying != 0) {
    std::free(thread);
    return 0;
  }
  /* Both failures below leave the component locked: a step with fewer threads than the
   * caller has asked for would give wrong results without a message. */
  thread->index = settbl(comp->threads, -1, thread);
  if (thread->index < 0) {
    fail("pmtcomp_addthread", "settbl(threads) error");
    std::free(thread);
    lock.release();
    return -1;
  }
  pthread_mutex_init(&thread->mutex, nullptr);
  pthread_cond_init(&thread->start_cond, nullptr);
  pthread_cond_init(&thread->finish_cond, nullptr);
  errno = pthread_create(&thread->thread, nullptr, ksutil::run_comp_thread, thread);
  if (errno != 0) {
    fail_errno("pmtcomp_addthread", "pthread_create() error");
    lock.release();
    return -1;
  }
  return 0;
}

int pmtcomp_setthread(Pmtcomp *comp, long index, PmtcompSub comp_sub, void *arg1,
                      long arg2, void *arg3) {
  if (!is_given(comp, "pmtcomp_setthread")) return -1;
  if (comp->destroying != 0) return 0;
  const PthreadLock lock(comp->mutex);
  PmtcompThread *const thread = thread_at(comp, index, "pmtcomp_setthread");
  if (thread == nullptr) return -1;
  if (comp_sub != nullptr) thread->comp_sub = comp_sub;
  if (reinterpret_cast<std::intptr_t>(arg1) >= 0) thread->arg1 = arg1;
  if (arg2 > 0) thread->arg2 = arg2;
  if (arg3 != nullptr) thread->arg3 = arg3;
  return 0;
}

long pmtcomp_processthreads(Pmtcomp *comp) {
  if (comp == nullptr || comp->destroying != 0) return 0;
  PthreadLock lock(comp->mutex);
  if (comp->destroying != 0) {
    lock.release();
    return 0;
  }
  const long count = counttbl(comp->threads);
  for (long i = 0; i < count; ++i) {
    start_step(*static_cast<PmtcompThread *>(gettbl(comp->threads, i)));
  }
  long succeeded = 0;
  for (long i = 0; i < count; ++i) {
    if (await_step(*static_cast<PmtcompThread *>(gettbl(comp->threads, i)))) {
      ++succeeded;
    }
  }
  return succeeded;
}

int pmtcomp_deletethread(Pmtcomp *comp, long index) {
  if (!is_given(comp, "pmtcomp_deletethread")) return -1;
  if (comp->destroying != 0) return 0;
  const PthreadLock lock(comp->mutex);
  PmtcompThread *const thread = thread_at(comp, index, "pmtcomp_deletethread");
  if (thread == nullptr) return -1;
  say(*thread, "pmtcomp_deletethread: %lu: obtaining start lock\n");
  {
    const PthreadLock start(thread->mutex);
    say(*thread, "pmtcomp_deletethread: %lu: start lock obtained\n");
    ask_to_quit(*thread);
    say(*thread, "pmtcomp_deletethread: %lu: signaling start (%ld, %ld)\n",
        thread->start.load(), thread->quit.load());
    say(*thread, "pmtcomp_deletethread: %lu: releasing start lock\n");
  }
  say(*thread, "pmtcomp_deletethread: %lu: start lock released\n");
  say(*thread, "pmtcomp_deletethread: %lu: joining\n");
  pthread_join(thread->thread, nullptr);
  say(*thread, "pmtcomp_deletethread: %lu: thread joined\n");
  deltbl(comp->threads, index);
  free_thread(thread);
  return 0;
}

long pmtcomp_thread_index(const PmtcompThread *thread) { return thread->index; }

int pmtcomp_destroy(Pmtcomp *comp) {
  if (comp == nullptr) return 0;
  comp->destroying = 1;
  PthreadLock lock(comp->mutex);
  for (long i = 0; i < counttbl(comp->threads); ++i) {
    auto *const thread = static_cast<PmtcompThread *>(gettbl(comp->threads, i));
    {
      const PthreadLock start(thread->mutex);
      ask_to_quit(*thread);
    }
    pthread_join(thread->thread, nullptr);
    free_thread(thread);
  }
  freetbl(comp->threads, nullptr);
  lock.unlock();
  pthread_mutex_destroy(&comp->mutex);
  std::free(comp);
  return 0;
}
