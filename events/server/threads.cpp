#include "events/server/internal/threads.h"

#include <unistd.h>

#include <algorithm>
#include <cerrno>
#include <chrono>
#include <exception>
#include <functional>
#include <limits>

#include "events/server/commands/internal/dispatch.h"
#include "events/server/internal/server_state.h"
#include "pipeline/pmtfifo.h"
#include "platform/elog/failure.h"

namespace ksutil::events {

namespace {

constexpr const char *kLaunchThread = "EVServer::launchThread";
constexpr uint32_t kIdle = 1000000;  // microseconds between looks at an interval of 0

thread_local const ServerState *worked_here = nullptr;  // the worker's own

void delete_command(void *command) { delete static_cast<EVCommand *>(command); }

/* Runs one round of a thread and turns an exception into a message. */
void guarded(const char *who, const std::function<void()> &round) {
  try {
    round();
  } catch (const std::exception &error) {
    fail(who, "%s", error.what());
  } catch (...) {
    fail(who, "unknown exception");
  }
}

/* Returns the next command, or null; sets `leave` if the reader has been released.  The
 * worker's own commands and those of the queue take turns. */
std::unique_ptr<EVCommand> next_command(ServerState &state, bool &own_turn,
                                        bool &leave) {
  if (!state.own_commands.empty() &&
      (own_turn || pmtfifo_data_available(state.cmd_mtfifo) == 0)) {
    std::unique_ptr<EVCommand> command = std::move(state.own_commands.front());
    state.own_commands.pop_front();
    own_turn = false;
    return command;
  }
  own_turn = true;
  void *item = nullptr;
  const int result = pmtfifo_pop(state.cmd_mtfifo, &item);
  std::unique_ptr<EVCommand> command(static_cast<EVCommand *>(item));
  leave = result == 0;
  if (result != 1) command.reset();
  return command;
}

/* The worker. */
void *run_thread(void *argument) {
  ServerState &state = *static_cast<ServerState *>(argument);
  worked_here = &state;
  bool own_turn = false;
  bool leave = false;
  while (!state.stop.is_set()) {
    const std::unique_ptr<EVCommand> command = next_command(state, own_turn, leave);
    if (leave) break;
    if (command == nullptr || command->command.empty()) continue;
    guarded("EVServer::run_thread", [&] { dispatch(state, *command); });
  }
  state.own_commands.clear();
  state.handshake.close();
  state.worker_left = true;
  return nullptr;
}

/* Calls `ask` at an interval until the server stops. */
void repeat(ServerState &state, const std::atomic<double> &interval, const char *who,
            void (*ask)(ServerState &)) {
  while (!state.stop.is_set()) {
    if (!(interval > 0.0)) {
      state.stop.wait(kIdle);
      continue;
    }
    guarded(who, [&] { ask(state); });
    /* The interval may have changed while `ask` waited.  If it is 0 or less now, this
     * does not sleep, and the next round sees it. */
    state.stop.wait(sleep_microseconds(interval));
  }
}

void ask_for_refresh(ServerState &state) {
  auto command = std::make_unique<EVCommand>("refreshEvents");
  state.handshake.lock();
  /* Without a worker no thread would open the latch again. */
  if (push_command(state, std::move(command)) != 0) state.handshake.unlock();
  state.handshake.lock();
  state.handshake.unlock();
}

void *refresh_events_thread(void *argument) {
  ServerState &state = *static_cast<ServerState *>(argument);
  repeat(state, state.refresh_interval, "EVServer::refresh_events_thread",
         ask_for_refresh);
  state.refresher_left = true;
  return nullptr;
}

void *database_changed_thread(void *argument) {
  ServerState &state = *static_cast<ServerState *>(argument);
  repeat(state, state.check_interval, "EVServer::database_changed_thread",
         [](ServerState &s) {
           push_command(s, std::make_unique<EVCommand>("checkDatabase"));
         });
  state.monitor_left = true;
  return nullptr;
}

/* Starts a thread and returns pthread_create's result.  The callers take only a
 * negative result for a failure; `started` and `left` keep stop_threads from waiting
 * for a thread that did not start. */
int start(ServerState &state, void *(*function)(void *), pthread_t &handle,
          bool &started, std::atomic<bool> &left) {
  left = false;
  const int result = pthread_create(&handle, nullptr, function, &state);
  started = result == 0;
  if (!started) left = true;
  errno = result;
  return result;
}

void delete_queued(pmtfifo *queue) {
  void *item = nullptr;
  while (pmtfifo_data_available(queue) > 0 && pmtfifo_pop(queue, &item) == 1) {
    delete_command(item);
  }
}

}  // namespace

void RefreshLatch::lock() {
  std::unique_lock lock(mutex_);
  changed_.wait(lock, [this] { return open_ || closed_; });
  open_ = false;
}

void RefreshLatch::unlock() {
  const std::lock_guard lock(mutex_);
  open_ = true;
  changed_.notify_one();
}

void RefreshLatch::close() {
  const std::lock_guard lock(mutex_);
  closed_ = true;
  changed_.notify_all();
}

void StopFlag::set() {
  const std::lock_guard lock(mutex_);
  set_ = true;
  changed_.notify_all();
}

void StopFlag::wait(uint32_t microseconds) {
  std::unique_lock lock(mutex_);
  changed_.wait_for(lock, std::chrono::microseconds(microseconds),
                    [this] { return set_.load(); });
}

uint32_t sleep_microseconds(double seconds) {
  constexpr double kLongest = std::numeric_limits<uint32_t>::max();
  const double microseconds = seconds * 1000000.0;
  if (!(microseconds > 0.0)) return 0;  // NaN too
  return static_cast<uint32_t>(std::min(microseconds, kLongest));
}

bool on_worker_thread(const ServerState &state) { return worked_here == &state; }

int push_command(ServerState &state, std::unique_ptr<EVCommand> command) {
  if (on_worker_thread(state)) {
    state.own_commands.push_back(std::move(command));
    return 0;
  }
  pmtfifo *const queue = state.cmd_mtfifo;
  if (queue == nullptr || state.worker_left) return -1;
  const int result = pmtfifo_push(queue, command.get());
  if (result == 0) command.release();
  return result;
}

int launch_threads(ServerState &state) {
  if (state.cmd_mtfifo != nullptr) {
    return fail(kLaunchThread, "processing thread already running");
  }
  pmtfifo *const queue = pmtfifo_create(kQueueCapacity, 1, 0);
  if (queue == nullptr) {
    return fail_errno(kLaunchThread, "pmtfifo_create(cmd_mtfifo) error");
  }
  pmtfifo *none = nullptr;
  if (!state.cmd_mtfifo.compare_exchange_strong(none, queue)) {
    pmtfifo_destroy(queue, nullptr);
    return fail(kLaunchThread, "processing thread already running");
  }
  if (start(state, run_thread, state.worker, state.worker_started, state.worker_left) <
      0) {
    fail_errno(kLaunchThread, "pthread_create() error");
    state.cmd_mtfifo = nullptr;
    pmtfifo_destroy(queue, nullptr);
    return -1;
  }
  if (start(state, refresh_events_thread, state.refresher, state.refresher_started,
            state.refresher_left) < 0 ||
      start(state, database_changed_thread, state.monitor, state.monitor_started,
            state.monitor_left) < 0) {
    return fail_errno(kLaunchThread, "pthread_create() error");
  }
  return 0;
}

void stop_threads(ServerState &state) {
  state.stop.set();
  pmtfifo *const queue = state.cmd_mtfifo;
  if (queue == nullptr) return;
  /* A release is lost if the worker does not wait yet: repeat it. */
  while (!state.worker_left) {
    pmtfifo_release_block(queue);
    if (!state.worker_left) usleep(500);
  }
  if (state.worker_started) pthread_join(state.worker, nullptr);
  state.handshake.close();

  /* The other threads, clients' too, may be waiting in a push on the full queue. */
  while (!state.refresher_left || !state.monitor_left || state.pins > 0) {
    delete_queued(queue);
    usleep(500);
  }
  if (state.refresher_started) pthread_join(state.refresher, nullptr);
  if (state.monitor_started) pthread_join(state.monitor, nullptr);
  state.worker_started = state.refresher_started = state.monitor_started = false;
  state.cmd_mtfifo = nullptr;
  pmtfifo_destroy(queue, delete_command);
}

}  // namespace ksutil::events
