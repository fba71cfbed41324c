/* The registered clients of a server, and the notification of them. */
#ifndef KSUTIL_EVENTS_SERVER_INTERNAL_CLIENTS_H
#define KSUTIL_EVENTS_SERVER_INTERNAL_CLIENTS_H

#include <condition_variable>
#include <functional>
#include <mutex>
#include <string>
#include <thread>
#include <vector>

#include "core/Array.h"
#include "core/Table.h"
#include "events/records.h"

class EVClient;

namespace ksutil::events {

/* The client list in order of registration.  Its lock is a leaf and is never held during
 * a callback.  A registration that is removed during a notification gets no call from it
 * any more, and one that is added then gets its first from the next. */
class ClientList {
 public:
  void add(EVClient *client);

  /* Removes the first registration of the client; with the last one its pending flags are
   * cleared, so that nobody waits on it.  Then waits for callbacks on the client that run
   * on other threads, unless it is called from such a callback itself. */
  void remove(EVClient *client);

  /* After a refresh: with a report, each registration gets a copy in its
   * responseCallback and then its refresh_pending cleared; without (null), the flags are
   * just cleared. */
  void refresh_ended(const EVResponse *report);

  /* After a database check: each registration gets its checkDatabaseCallback. */
  void database_checked(const Array<std::string, int> &changes);

  /* Runs `write` with the lock held while the client is registered; false, and not run,
   * when it is not.  How the worker writes results. */
  bool while_registered(EVClient *client, const std::function<void(EVClient &)> &write);
  bool contains(EVClient *client);

  /* Detaches every client from a server that goes away: clears its flags and its
   * pointer to the server. */
  void detach_all();

 private:
  enum class After { nothing, refresh_pending_cleared };
  void call_each(const std::function<void(EVClient &)> &call, After after);
  long registrations(const EVClient *client) const;

  std::mutex mutex_;
  std::condition_variable call_ended_;
  Table<EVServerClient> clients_;
  struct Call {
    EVClient *client;
    std::thread::id thread;
  };
  std::vector<Call> running_;  // callbacks in progress
};

}  // namespace ksutil::events
#endif
