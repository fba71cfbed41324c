#include "events/server/internal/expanded.h"

#include <algorithm>
#include <mutex>
#include <vector>

#include "core/register.h"
#include "events/evserver.h"
#include "events/reading/internal/tree_reader.h"
#include "events/server/internal/binding.h"
#include "events/server/internal/current_lists.h"
#include "events/server/internal/list_reader.h"
#include "events/server/internal/row_home.h"
#include "platform/clock/clock.h"

namespace ksutil::events {

void purge_expanded(int max, Array<long, EVEvent> &cache) {
  if (max < 1 || cache.size() <= max) return;
  std::vector<std::pair<double, long>> uses;
  for (const long evid : cache.keys()) {
    uses.emplace_back(-cache.find(evid)->access_time, evid);
  }
  std::sort(uses.begin(), uses.end());
  for (std::size_t i = static_cast<std::size_t>(max); i < uses.size(); i++) {
    cache.del(uses[i].second);
  }
}

namespace {

/* Reads an event with everything; 0 or -1. */
int read_expanded(ServerState &state, int64_t evid, EVEvent &event) {
  constexpr const char *kName = "EVServer::getExpandedEvent";
  const std::lock_guard lock(state.database_lock);
  if (!database_open(state, kName)) return -1;
  TreeReader reader(reading_source(state));
  if (!reader.bind_list() || !reader.bind_expansion(state.detections_on != 0)) {
    ks_register_error(0, "%s: cannot read the tables.\n", kName);
    return -1;
  }
  MessagesOfFailure messages;
  int result = reader.read_event_of(evid, window_of(state, reader).first, event);
  if (result == kNoRow) {
    messages.note(kFailed);
    ks_register_error(0, "%s: no event %ld.\n", kName, static_cast<long>(evid));
    return -1;
  }
  messages.note(result);
  /* Rows that are left out of an event do not keep it from being shown. */
  if (result == 0) result = std::min(0, messages.note(reader.expand(event)));
  /* Only a whole event may go into the cache. */
  if (!reader.complete()) result = kFailed;
  if (result != 0) {
    messages.note(kFailed);
    ks_register_error(0, "%s: event %ld cannot be read.\n", kName,
                      static_cast<long>(evid));
    return -1;
  }
  rehome(event);
  return 0;
}

}  // namespace
}  // namespace ksutil::events

using namespace ksutil::events;

void EVServer::purgeExpandedEvents(int max, Array<long, EVEvent> *cache) {
  if (cache != nullptr) purge_expanded(max, *cache);
}

int EVServer::containsExpandedEvent(long evid) {
  const EventsLockHold hold(state_->published);
  return state_->published.expanded.contains(evid) ? 1 : 0;
}

int EVServer::containsExpandedEvent(long evid, EVEvent &event) {
  const EventsLockHold hold(state_->published);
  EVEvent *cached = state_->published.expanded.find(evid);
  if (cached == nullptr) return 0;
  cached->access_time = std_now();
  event = *cached;
  return 1;
}

int EVServer::getExpandedEvent(EVClient *, long evid, EVEvent &event) {
  /* Held throughout: a refresh that begins meanwhile finds the event in the cache, and
   * brings it up to date. */
  const EventsLockHold hold(state_->published);
  if (containsExpandedEvent(evid, event) == 1) return 0;
  EVEvent read;
  if (read_expanded(*state_, evid, read) != 0) return -1;
  event = read;
  state_->published.expanded.set(evid, std::move(read));
  return 0;
}

void EVServer::setMaxExpandedEvents(int max) { state_->max_expanded = max; }

void EVServer::setDetections(int on) {
  if (state_->detections_on.exchange(on) == on) return;
  /* Expanded events and the window have, or lack, what was not asked for until now. */
  const std::lock_guard lock(state_->database_lock);
  for (const char *name : {"assoc", "detection", "site"}) {
    state_->vars.tables.find(name)->count = -1;
  }
}
