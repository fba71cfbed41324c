#include <utility>

#include "events/evserver.h"
#include "events/records/internal/record_sizes.h"
#include "events/server/internal/server_state.h"

using ksutil::events::bytes;

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

long EVServer::getEventsSize() {
  return static_cast<long>(bytes(*state_->published.events));
}

long EVServer::getDetectionsSize() {
  return static_cast<long>(bytes(*state_->published.detections));
}

long EVServer::getExpandedSize() {
  std::size_t sum = 0;
  state_->published.expanded.apply(
      [](const long &, const EVEvent &event, void *total) {
        *static_cast<std::size_t *>(total) += bytes(event);
      },
      &sum);
  return static_cast<long>(sum);
}

int EVServer::getEvent(int index, EVEvent &event) {
  const EVEvent *const found = std::as_const(*state_->published.events).ptr(index);
  if (found == nullptr) return -1;
  event = *found;
  return 0;
}

int EVServer::getEvid(long evid, EVEvent &event) {
  return getEvent(findEvid(state_->published.events.get(), evid), event);
}

long EVServer::getLastModifiedEvid() { return state_->published.lastmodified_evid; }

long EVServer::getMostRecentEvid() { return state_->published.mostrecent_evid; }

int EVServer::getLastModifiedEvent(EVEvent &event) {
  return containsExpandedEvent(getLastModifiedEvid(), event);
}

int EVServer::getMostRecentEvent(EVEvent &event) {
  return containsExpandedEvent(getMostRecentEvid(), event);
}
