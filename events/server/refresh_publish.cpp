/* Refresh: publishes the result of a reading. */
#include <mutex>
#include <utility>

#include "events/records/internal/compare.h"
#include "events/server/internal/refresh.h"

namespace ksutil::events {

const EVResponse *Refresh::report() const {
  const bool changed =
      response_.events_changed != 0 || response_.detections_changed != 0 ||
      response_.expanded_changed != 0 || response_.lastmodified_changed != 0 ||
      response_.mostrecent_changed != 0;
  return changed ? &response_ : nullptr;
}

/* Whether there is anything to publish. */
bool Refresh::has_news() const {
  return (list_read_ && reading_.changes_list()) || !expanded_.empty() ||
         new_detections_ != nullptr;
}

/* Remembers the rows that `list` was read from. */
void Refresh::follow(const std::shared_ptr<const Table<EVEvent>> &list) {
  if (list_read_) {
    const WatchedDatabase::Hold hold = state_.database.hold();
    state_.follower.finish(snapshots_, reading_.window, reading_.epoch, list);
  }
  follow_expanded();
  if (!list_tables_ && !expansion_tables_) return;
  state_.last_event_count = force_ ? -1 : event_count_;
  if (new_detections_ != nullptr) {
    state_.last_detection_count = force_ ? -1 : detection_count_;
  }
}

/* Remembers the rows that the cache of expanded events shows. */
void Refresh::follow_expanded() {
  if (!expansion_snapshots_.has_value()) return;
  const WatchedDatabase::Hold hold = state_.database.hold();
  if (epoch_ != state_.follower.epoch()) return;
  if (confirmed_reading_ != 0) {
    state_.published.reads.confirm(confirmed_reading_, expanded_reading_, unread_);
  }
  state_.expansion.finish(*expansion_snapshots_, expanded_reading_);
}

void Refresh::publish() {
  Published &published = state_.published;
  if (!has_news()) {
    /* Do not wait for the events lock: a reader may hold it for long. */
    published.purge_if_free(state_.max_expanded);
    const auto list = published.start().events;
    if (list == base_.lock()) follow(list);
    return;
  }
  response_.changed_evids = std::move(reading_.changed_evids);
  response_.removed_evids = std::move(reading_.removed_evids);
  if (list_read_ && reading_.full) {
    new_list_ = std::make_shared<Table<EVEvent>>(std::move(reading_.events));
  }
  std::shared_ptr<const Table<EVEvent>> replaced;  // freed after the lock
  for (;;) {
    std::shared_ptr<const Table<EVEvent>> held;
    {
      const std::lock_guard lock(published.lock);
      if (lists_freed()) {
        response_ = EVResponse();
        return;
      }
      replaced = new_list_ == nullptr ? nullptr : published.events;
      if (publish_list()) {
        publish_expanded();
        note_summary();
        break;
      }
      held = published.events;
    }
    /* A reader holds the list: leave it as it is and publish a changed copy. */
    auto copy = std::make_shared<Table<EVEvent>>();
    copy->reserve(held->size() + reading_.events.size() + held->size() / 16 + 16);
    for (const EVEvent &event : *held) copy->push(event);
    reading_.apply(*copy);
    new_list_ = std::move(copy);
  }
  follow(published.start().events);
}

/* Whether the list that was to be changed is no longer published: freeVectors was
 * called meanwhile, and the next refresh reads everything. */
bool Refresh::lists_freed() const {
  const std::shared_ptr<Table<EVEvent>> &list = state_.published.events;
  return list_read_ && !reading_.full &&
         (base_.owner_before(list) || list.owner_before(base_));
}

/* False if the list must be changed but a reader holds it. */
bool Refresh::publish_list() {
  Published &published = state_.published;
  if (new_list_ != nullptr) {
    published.set_events(new_list_);
  } else if (list_read_ && reading_.changes_list()) {
    if (published.events.use_count() != 1) return false;
    /* Copying the pointer synchronises with the reader that released the list last. */
    const std::shared_ptr<Table<EVEvent>> list = published.events;
    reading_.apply(*list);
  }
  return true;
}

void Refresh::publish_expanded() {
  Published &published = state_.published;
  std::unordered_set<int64_t> reported;
  for (const long evid : response_.changed_evids) reported.insert(evid);
  /* Merge by evid: a client may have added another event since. */
  for (Expanded &expanded : expanded_) {
    const auto evid = static_cast<long>(expanded.evid);
    EVEvent *cached = published.expanded.find(evid);
    if (cached == nullptr) continue;
    /* A client has read the event since, from later rows. */
    if (published.reads.later_than(evid, expanded_reading_)) continue;
    if (!expanded.event.has_value()) {
      published.expanded.del(evid);
      published.reads.erase(evid);
      response_.expanded_changed = 1;
      continue;
    }
    /* Re-reading an event is not an access: keep its access time. */
    expanded.event->access_time = cached->access_time;
    if (!equal_expanded(*cached, *expanded.event)) {
      response_.expanded_changed = 1;
      if (reported.insert(expanded.evid).second) response_.changed_evids.push(evid);
    }
    *cached = std::move(*expanded.event);
    published.reads.set(evid, expanded_reading_, std::move(expanded.keys));
  }
  published.purge(state_.max_expanded);

  if (new_detections_ != nullptr && !equal(*new_detections_, *published.detections)) {
    response_.detections_changed = 1;
    published.detections = new_detections_;
  }
}

void Refresh::note_summary() {
  Published &published = state_.published;
  response_.lastmodified_evid = published.lastmodified_evid;
  response_.mostrecent_evid = published.mostrecent_evid;
  if (!list_read_) return;
  const ListSummary &summary = reading_.summary;
  if (response_.events_changed != 0) published.set_latest_time(summary.latest_time);
  response_.lastmodified_changed =
      summary.lastmodified_evid != published.lastmodified_evid ? 1 : 0;
  response_.mostrecent_changed =
      summary.mostrecent_evid != published.mostrecent_evid ? 1 : 0;
  published.lastmodified_evid = summary.lastmodified_evid;
  published.mostrecent_evid = summary.mostrecent_evid;
  response_.lastmodified_evid = summary.lastmodified_evid;
  response_.mostrecent_evid = summary.mostrecent_evid;
}

}  // namespace ksutil::events
