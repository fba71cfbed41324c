#include "events/server/internal/live_servers.h"

#include <mutex>
#include <unordered_map>

#include "events/server/internal/server_state.h"

namespace ksutil::events {

namespace {

struct LiveServers {
  std::mutex mutex;
  std::unordered_map<const EVServer *, ServerState *> states;
};

LiveServers &live_servers() {
  /* Never destroyed: a server with static storage may be destroyed after it. */
  static LiveServers &servers = *new LiveServers;
  return servers;
}

}  // namespace

void add_live_server(const EVServer *server, ServerState &state) {
  LiveServers &live = live_servers();
  const std::lock_guard lock(live.mutex);
  live.states.insert_or_assign(server, &state);
}

void remove_live_server(const EVServer *server) {
  LiveServers &live = live_servers();
  const std::lock_guard lock(live.mutex);
  live.states.erase(server);
}

ServerPin::ServerPin(const EVServer *server) {
  LiveServers &live = live_servers();
  const std::lock_guard lock(live.mutex);
  const auto entry = live.states.find(server);
  if (entry == live.states.end()) return;
  state_ = entry->second;
  state_->pins++;
}

ServerPin::~ServerPin() {
  if (state_ != nullptr) state_->pins--;
}

}  // namespace ksutil::events
