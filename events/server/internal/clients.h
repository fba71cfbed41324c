/* ClientList: keeps the registered clients of a server and calls them.
 *
 * The list's lock is a leaf and is never held during a callback.
 *
 * Calls on one client run one at a time, in the order in which they were made.  A
 * thread never waits for another thread's callback in order to make a call: it leaves
 * the call to the thread that is inside the client's callback, which makes it next.  A
 * wait could last for ever, because a callback may wait for the thread that would
 * call. */
#ifndef KSUTIL_EVENTS_SERVER_INTERNAL_CLIENTS_H
#define KSUTIL_EVENTS_SERVER_INTERNAL_CLIENTS_H

#include <condition_variable>
#include <cstdint>
#include <deque>
#include <functional>
#include <mutex>
#include <string>
#include <thread>
#include <unordered_map>
#include <vector>

#include "core/Array.h"
#include "events/records.h"

class EVClient;

namespace ksutil::events {

class ClientList {
 public:
  void add(EVClient *client);

  /* Removes the first registration of the client, which gets no further call.  With the
   * last one its pending flags are cleared, so that no thread waits on them.  Then
   * waits until no other thread is inside a callback of the client. */
  void remove(EVClient *client);

  /* Ends a refresh: calls the responseCallback of each registration with a copy of the
   * report and clears the client's refresh_pending; without a report (null) only clears
   * the flags. */
  void refresh_ended(const EVResponse *report);

  /* Calls the checkDatabaseCallback of each registration. */
  void database_checked(const Array<std::string, int> &changes);

  /* Runs `write` with the lock held if the client is registered, else returns false.
   * The worker writes results in this way. */
  bool while_registered(EVClient *client, const std::function<void(EVClient &)> &write);
  bool contains(EVClient *client);

  /* Clears the flags of every client and its pointer to the server, which goes away. */
  void detach_all();

  /* Whether the calling thread is inside a client's callback, of whatever server. */
  static bool inside_callback();

 private:
  /* A number of its own distinguishes a registration from an earlier one of a client
   * that was at the same address. */
  struct Registration {
    EVServerClient slot;
    int64_t number;
  };
  struct Call {
    int64_t registration;
    std::function<void(EVClient &)> run;
    bool ends_refresh;
  };
  /* The callbacks of one client while a thread is inside one of them. */
  struct Running {
    std::thread::id thread;
    int depth = 0;           // callbacks within callbacks of that thread
    std::deque<Call> calls;  // not made yet, those of other threads too
  };

  void call_each(const std::function<void(EVClient &)> &run, bool ends_refresh);
  void make_calls(std::unique_lock<std::mutex> &lock, EVClient *client);
  bool is_registered(const EVClient *client) const;
  bool stands(int64_t registration) const;

  std::mutex mutex_;
  std::condition_variable call_ended_;
  std::vector<Registration> registrations_;  // in the order in which they were made
  int64_t next_number_ = 0;
  std::unordered_map<EVClient *, Running> running_;
};

}  // namespace ksutil::events
#endif
