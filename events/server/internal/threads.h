/* threads: the three threads of a server and the queue of commands between them. */
#ifndef KSUTIL_EVENTS_SERVER_INTERNAL_THREADS_H
#define KSUTIL_EVENTS_SERVER_INTERNAL_THREADS_H

#include <atomic>
#include <condition_variable>
#include <cstdint>
#include <memory>
#include <mutex>

#include "events/command.h"

namespace ksutil::events {

struct ServerState;

/* The handshake between the refresher and the worker: a binary latch.  lock() waits
 * until the latch is open and takes it; unlock(), from any thread, opens it and has no
 * effect on an open latch; close() lets every present and future lock() return, because
 * no thread will open the latch any more. */
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

/* Ends the threads of a server: set once, by the thread that stops them. */
class StopFlag {
 public:
  void set();
  bool is_set() const { return set_; }
  /* Waits until the flag is set, or for the microseconds. */
  void wait(uint32_t microseconds);

 private:
  std::mutex mutex_;
  std::condition_variable changed_;
  std::atomic<bool> set_{false};  // changed under the mutex
};

inline constexpr int kQueueCapacity = 10;

/* Creates the queue and starts worker, refresher and monitor;
 * EVServer::launchThread. */
int launch_threads(ServerState &state);

/* Ends the threads and the queue; nothing happens when there are none.  The commands
 * that are left are deleted without an answer.  Returns within milliseconds of
 * the end of the operation in progress.  Not to be called from one of the threads. */
void stop_threads(ServerState &state);

/* Hands a command to the worker, waiting while the queue is full.  The worker itself
 * must not wait for itself: its commands stay with it, and run between those of the
 * queue. 0, or -1 when no worker runs or memory is short; the command is then
 * deleted. */
int push_command(ServerState &state, std::unique_ptr<EVCommand> command);

/* Whether the calling thread is the server's worker. */
bool on_worker_thread(const ServerState &state);

/* Whole microseconds: truncated, at most 4294967295 (about 71.6 minutes), 0 for a
 * negative value and for NaN. */
uint32_t sleep_microseconds(double seconds);

}  // namespace ksutil::events
#endif
