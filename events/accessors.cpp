#include <algorithm>
#include <utility>

#include "events/evserver.h"
#include "events/internal/server_state.h"

namespace {

long bytes(const EVStamag &stamag) {
  return static_cast<long>(sizeof stamag + stamag.record_stamag.size() +
                           stamag.magtype.size());
}

long bytes(const EVMoment &moment) {
  return static_cast<long>(sizeof moment + moment.record_mt.size());
}

long bytes(const EVAssociation &association) {
  return static_cast<long>(sizeof association + association.record_assoc.size() +
                           association.record_arrival.size() +
                           association.record_site.size());
}

long bytes(const EVDetection &detection) {
  return static_cast<long>(sizeof detection + detection.record_detection.size() +
                           detection.record_site.size());
}

long bytes(const EVMagnitude &magnitude);
long bytes(const EVOrigin &origin);
long bytes(const EVEvent &event);

template <class Record>
long bytes(const Table<Record> &records) {
  long sum = 0;
  for (const Record &record : records) sum += bytes(record);
  return sum;
}

long bytes(const EVMagnitude &magnitude) {
  return static_cast<long>(sizeof magnitude + magnitude.record_netmag.size() +
                           magnitude.magtype.size()) +
         bytes(magnitude.stamags);
}

long bytes(const EVOrigin &origin) {
  return static_cast<long>(sizeof origin + origin.record_origin.size() +
                           origin.record_origerr.size() + origin.magtype.size()) +
         bytes(origin.magnitudes) + bytes(origin.moments) + bytes(origin.detections) +
         bytes(origin.associations);
}

long bytes(const EVEvent &event) {
  return static_cast<long>(sizeof event + event.record_event.size() +
                           event.magtype.size()) +
         bytes(event.origins);
}

/* The index of the first event with the evid, or -1. */
int find_evid(const Table<EVEvent> &events, long evid) {
  const auto found =
      std::find_if(events.begin(), events.end(),
                   [evid](const EVEvent &event) { return event.evid == evid; });
  return found == events.end() ? -1 : static_cast<int>(found - events.begin());
}

}  // namespace

Table<EVEvent> EVServer::getEvents() { return *state_->published.events; }

Table<EVDetection> EVServer::getDetections() { return *state_->published.detections; }

std::shared_ptr<const Table<EVEvent>> EVServer::eventsList() {
  return state_->published.events;
}

std::shared_ptr<const Table<EVDetection>> EVServer::detectionsList() {
  return state_->published.detections;
}

int EVServer::eventsNumber() {
  return static_cast<int>(state_->published.events->size());
}

int EVServer::detectionsNumber() {
  return static_cast<int>(state_->published.detections->size());
}

int EVServer::expandedNumber() {
  return static_cast<int>(state_->published.expanded.size());
}

long EVServer::getEventsSize() { return bytes(*state_->published.events); }

long EVServer::getDetectionsSize() { return bytes(*state_->published.detections); }

long EVServer::getExpandedSize() {
  long sum = 0;
  state_->published.expanded.apply(
      [](const long &, const EVEvent &event, void *total) {
        *static_cast<long *>(total) += bytes(event);
      },
      &sum);
  return sum;
}

int EVServer::getEvent(int index, EVEvent &event) {
  const EVEvent *const found = std::as_const(*state_->published.events).ptr(index);
  if (found == nullptr) return -1;
  event = *found;
  return 0;
}

int EVServer::getEvid(long evid, EVEvent &event) {
  return getEvent(find_evid(*state_->published.events, evid), event);
}

int EVServer::findEvid(long evid) { return find_evid(*state_->published.events, evid); }

int EVServer::findEvid(Table<EVEvent> *events, long evid) {
  return events == nullptr ? -1 : find_evid(*events, evid);
}

long EVServer::getLastModifiedEvid() { return state_->published.lastmodified_evid; }

long EVServer::getMostRecentEvid() { return state_->published.mostrecent_evid; }

int EVServer::getLastModifiedEvent(EVEvent &event) {
  return containsExpandedEvent(getLastModifiedEvid(), event);
}

int EVServer::getMostRecentEvent(EVEvent &event) {
  return containsExpandedEvent(getMostRecentEvid(), event);
}
