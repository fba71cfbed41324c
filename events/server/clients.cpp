#include "events/server/internal/clients.h"

#include <algorithm>
#include <exception>

#include "core/register.h"
#include "events/evclient.h"

namespace ksutil::events {

long ClientList::registrations(const EVClient *client) const {
  return std::count_if(
      clients_.begin(), clients_.end(),
      [client](const EVServerClient &slot) { return slot.client == client; });
}

void ClientList::add(EVClient *client) {
  if (client == nullptr) return;
  const std::lock_guard lock(mutex_);
  clients_.push(EVServerClient{client});
}

void ClientList::remove(EVClient *client) {
  std::unique_lock lock(mutex_);
  for (long i = 0; i < clients_.size(); i++) {
    if (clients_.ptr(i)->client != client) continue;
    clients_.del(i);
    if (registrations(client) == 0) {
      client->command_serial = 0;
      client->command_pending = 0;
      client->refresh_pending = 0;
    }
    break;
  }
  const auto self = std::this_thread::get_id();
  const auto called_here = [&](const Call &call) {
    return call.client == client && call.thread == self;
  };
  const auto called = [&](const Call &call) { return call.client == client; };
  if (std::any_of(running_.begin(), running_.end(), called_here)) return;
  call_ended_.wait(
      lock, [&] { return std::none_of(running_.begin(), running_.end(), called); });
}

void ClientList::call_each(const std::function<void(EVClient &)> &call, After after) {
  std::vector<EVClient *> listed;
  {
    const std::lock_guard lock(mutex_);
    for (const EVServerClient &slot : clients_) listed.push_back(slot.client);
    running_.reserve(running_.size() + 1);
  }
  const auto self = std::this_thread::get_id();
  for (auto next = listed.begin(); next != listed.end(); ++next) {
    EVClient *const client = *next;
    std::unique_lock lock(mutex_);
    /* Fewer registrations left than calls to come: this one's has been removed. */
    if (registrations(client) < std::count(next, listed.end(), client)) continue;
    running_.push_back(Call{client, self});
    lock.unlock();
    try {
      call(*client);
    } catch (const std::exception &error) {
      ks_register_error(0, "EVServer: exception in a client's callback: %s.\n",
                        error.what());
    } catch (...) {
      ks_register_error(0, "EVServer: exception in a client's callback.\n");
    }
    lock.lock();
    running_.erase(
        std::find_if(running_.begin(), running_.end(), [&](const Call &running) {
          return running.client == client && running.thread == self;
        }));
    if (after == After::refresh_pending_cleared && registrations(client) > 0) {
      client->refresh_pending = 0;
    }
    /* Under the lock: the list may be gone once a waiting remove() has returned. */
    call_ended_.notify_all();
  }
}

void ClientList::refresh_ended(const EVResponse *report) {
  if (report != nullptr) {
    call_each([report](EVClient &client) { client.responseCallback(*report); },
              After::refresh_pending_cleared);
    return;
  }
  const std::lock_guard lock(mutex_);
  for (const EVServerClient &slot : clients_) slot.client->refresh_pending = 0;
}

void ClientList::database_checked(const Array<std::string, int> &changes) {
  call_each([&changes](EVClient &client) { client.checkDatabaseCallback(changes); },
            After::nothing);
}

bool ClientList::while_registered(EVClient *client,
                                  const std::function<void(EVClient &)> &write) {
  const std::lock_guard lock(mutex_);
  if (registrations(client) == 0) return false;
  write(*client);
  return true;
}

bool ClientList::contains(EVClient *client) {
  const std::lock_guard lock(mutex_);
  return registrations(client) > 0;
}

void ClientList::detach_all() {
  const std::lock_guard lock(mutex_);
  for (const EVServerClient &slot : clients_) {
    EVClient &client = *slot.client;
    /* Before the flags: whoever they release looks at the pointer next. */
    std::atomic_ref(client.server).store(nullptr);
    client.command_pending = 0;
    client.refresh_pending = 0;
  }
  clients_.clear();
}

}  // namespace ksutil::events
