/* The three threads of a server and the queue of commands between them. */
#ifndef KSUTIL_EVENTS_SERVER_INTERNAL_THREADS_H
#define KSUTIL_EVENTS_SERVER_INTERNAL_THREADS_H

#include <cstdint>
#include <memory>

#include "events/command.h"

namespace ksutil::events {

struct ServerState;

inline constexpr int kQueueCapacity = 10;

/* Creates the queue and starts worker, refresher and monitor; EVServer::launchThread. */
int launch_threads(ServerState &state);

/* Ends the threads and the queue; nothing happens when there are none.  The commands that
 * are left are deleted without an answer.  Returns within a fraction of a second plus the
 * operation in progress.  Not to be called from one of the threads. */
void stop_threads(ServerState &state);

/* Hands a command to the worker, waiting while the queue is full.  The worker itself must
 * not wait for itself: its commands stay with it, and run between those of the queue.
 * 0, or -1 when no worker runs or memory is short; the command is then deleted. */
int push_command(ServerState &state, std::unique_ptr<EVCommand> command);

/* Whether the calling thread is the server's worker. */
bool on_worker_thread(const ServerState &state);

/* Seconds as usleep takes them: truncated, modulo 2^32 microseconds (4294.967296 s); NaN
 * gives 0. */
uint32_t sleep_microseconds(double seconds);

}  // namespace ksutil::events
#endif
