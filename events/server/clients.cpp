#include "events/server/internal/clients.h"

#include <algorithm>
#include <atomic>
#include <exception>
#include <memory>
#include <utility>

#include "events/evclient.h"
#include "platform/elog/failure.h"

namespace ksutil::events {
namespace {

thread_local int callbacks_here = 0;  // number of callbacks that this thread is inside

void run_guarded(const std::function<void(EVClient &)> &run, EVClient &client) {
  callbacks_here++;
  try {
    run(client);
  } catch (const std::exception &error) {
    fail("EVServer", "exception in a client's callback: %s", error.what());
  } catch (...) {
    fail("EVServer", "exception in a client's callback");
  }
  callbacks_here--;
}

}  // namespace

bool ClientList::inside_callback() { return callbacks_here > 0; }

bool ClientList::is_registered(const EVClient *client) const {
  return std::any_of(
      registrations_.begin(), registrations_.end(),
      [client](const Registration &entry) { return entry.slot.client == client; });
}

bool ClientList::stands(int64_t registration) const {
  return std::any_of(registrations_.begin(), registrations_.end(),
                     [registration](const Registration &entry) {
                       return entry.number == registration;
                     });
}

void ClientList::add(EVClient *client) {
  if (client == nullptr) return;
  const std::lock_guard lock(mutex_);
  registrations_.push_back({EVServerClient{client}, next_number_++});
}

void ClientList::remove(EVClient *client) {
  std::unique_lock lock(mutex_);
  const auto first =
      std::find_if(registrations_.begin(), registrations_.end(),
                   [client](const Registration &e) { return e.slot.client == client; });
  if (first != registrations_.end()) {
    registrations_.erase(first);
    if (!is_registered(client)) {
      client->command_serial = 0;
      client->command_pending = 0;
      client->refresh_pending = 0;
    }
  }
  call_ended_.wait(lock, [&] {
    const auto running = running_.find(client);
    return running == running_.end() || running->second.depth == 0 ||
           running->second.thread == std::this_thread::get_id();
  });
}

void ClientList::call_each(const std::function<void(EVClient &)> &run,
                           bool ends_refresh) {
  std::unique_lock lock(mutex_);
  const std::vector<Registration> listed = registrations_;
  for (const auto &[slot, number] : listed) {
    if (!stands(number)) continue;  // removed by a callback or by another thread
    Running &running = running_[slot.client];
    running.calls.push_back({number, run, ends_refresh});
    if (running.depth == 0 || running.thread == std::this_thread::get_id()) {
      make_calls(lock, slot.client);
    } else if (ends_refresh) {
      /* Clear it now: the other thread's callback may be waiting for this refresh. */
      slot.client->refresh_pending = 0;
    }
  }
}

void ClientList::make_calls(std::unique_lock<std::mutex> &lock, EVClient *client) {
  Running &running = running_.find(client)->second;
  running.thread = std::this_thread::get_id();
  running.depth++;
  while (!running.calls.empty()) {
    const Call call = std::move(running.calls.front());
    running.calls.pop_front();
    if (!stands(call.registration)) continue;
    lock.unlock();
    run_guarded(call.run, *client);
    lock.lock();
    if (call.ends_refresh && stands(call.registration)) client->refresh_pending = 0;
  }
  if (--running.depth > 0) return;
  running_.erase(client);
  /* Notify under the lock: the list may be destroyed once a waiting remove()
   * returns. */
  call_ended_.notify_all();
}

void ClientList::refresh_ended(const EVResponse *report) {
  if (report != nullptr) {
    const auto shared = std::make_shared<const EVResponse>(*report);
    call_each([shared](EVClient &client) { client.responseCallback(*shared); }, true);
    return;
  }
  const std::lock_guard lock(mutex_);
  for (const Registration &entry : registrations_) {
    entry.slot.client->refresh_pending = 0;
  }
}

void ClientList::database_checked(const Array<std::string, int> &changes) {
  const auto shared = std::make_shared<const Array<std::string, int>>(changes);
  call_each([shared](EVClient &client) { client.checkDatabaseCallback(*shared); },
            false);
}

bool ClientList::while_registered(EVClient *client,
                                  const std::function<void(EVClient &)> &write) {
  const std::lock_guard lock(mutex_);
  if (!is_registered(client)) return false;
  write(*client);
  return true;
}

bool ClientList::contains(EVClient *client) {
  const std::lock_guard lock(mutex_);
  return is_registered(client);
}

void ClientList::detach_all() {
  const std::lock_guard lock(mutex_);
  for (const Registration &entry : registrations_) {
    EVClient &client = *entry.slot.client;
    /* Clear the pointer before the flags: a thread that a flag releases reads the
     * pointer next. */
    std::atomic_ref(client.server).store(nullptr);
    client.command_pending = 0;
    client.refresh_pending = 0;
  }
  registrations_.clear();
}

}  // namespace ksutil::events
