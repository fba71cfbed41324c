#include "events/records/internal/compare.h"

#include "events/evserver.h"
#include "events/records/internal/fields.h"
#include "events/server/internal/current_lists.h"
#include "events/server/internal/server_state.h"

namespace ksutil::events {
namespace {

template <class Record>
bool equal_fields(const Record &a, const Record &b) {
  return std::apply(
      [&](const auto &...field) {
        return ((a.*field.member == b.*field.member) && ...);
      },
      Fields<Record>::kCompared);
}

}  // namespace

bool equal(const EVMagnitude &magnitude1, const EVMagnitude &magnitude2) {
  return equal_fields(magnitude1, magnitude2);
}
bool equal(const EVStamag &stamag1, const EVStamag &stamag2) {
  return equal_fields(stamag1, stamag2);
}
bool equal(const EVMoment &moment1, const EVMoment &moment2) {
  return equal_fields(moment1, moment2);
}
bool equal(const EVAssociation &association1, const EVAssociation &association2) {
  return equal_fields(association1, association2);
}
bool equal(const EVDetection &detection1, const EVDetection &detection2) {
  return equal_fields(detection1, detection2);
}

bool equal(const EVOrigin &origin1, const EVOrigin &origin2) {
  return equal_fields(origin1, origin2) &&
         equal(origin1.magnitudes, origin2.magnitudes) &&
         equal(origin1.moments, origin2.moments) &&
         equal(origin1.associations, origin2.associations) &&
         equal(origin1.detections, origin2.detections);
}

bool equal(const EVEvent &event1, const EVEvent &event2) {
  return equal_fields(event1, event2) && equal(event1.origins, event2.origins);
}

bool equal_expanded(const EVEvent &event1, const EVEvent &event2) {
  if (!equal(event1, event2)) return false;
  for (long i = 0; i < event1.origins.size(); i++) {
    const auto &magnitudes1 = event1.origins.ptr(i)->magnitudes;
    const auto &magnitudes2 = event2.origins.ptr(i)->magnitudes;
    for (long k = 0; k < magnitudes1.size(); k++) {
      if (!equal(magnitudes1.ptr(k)->stamags, magnitudes2.ptr(k)->stamags)) {
        return false;
      }
    }
  }
  return true;
}

EventIndex::EventIndex(const Table<EVEvent> &events) : events_(events) {
  by_evid_.reserve(static_cast<std::size_t>(events.size()));
  for (long i = 0; i < events.size(); i++) by_evid_.emplace(events.ptr(i)->evid, i);
}

bool EventIndex::contains_equal(const EVEvent &event) const {
  const auto [first, last] = by_evid_.equal_range(event.evid);
  for (auto entry = first; entry != last; ++entry) {
    if (equal(event, *events_.ptr(entry->second))) return true;
  }
  return false;
}

bool equal_lists(const Table<EVEvent> &events, const Table<EVEvent> &current) {
  if (events.size() != current.size()) return false;
  /* Mostly nothing has moved, and then no index is needed. */
  if (equal(events, current)) return true;
  const EventIndex index(current);
  for (const EVEvent &event : events) {
    if (!index.contains_equal(event)) return false;
  }
  return true;
}

namespace {

template <class Record>
int equal_pointers(const Record *a, const Record *b) {
  if (a == nullptr || b == nullptr) return a == b ? 1 : 0;
  return equal(*a, *b) ? 1 : 0;
}

}  // namespace
}  // namespace ksutil::events

using namespace ksutil::events;

int EVServer::isEqual(EVEvent *event1, EVEvent *event2) {
  return equal_pointers(event1, event2);
}
int EVServer::isEqual(EVOrigin *origin1, EVOrigin *origin2) {
  return equal_pointers(origin1, origin2);
}
int EVServer::isEqual(EVMagnitude *magnitude1, EVMagnitude *magnitude2) {
  return equal_pointers(magnitude1, magnitude2);
}
int EVServer::isEqual(EVMoment *moment1, EVMoment *moment2) {
  return equal_pointers(moment1, moment2);
}
int EVServer::isEqual(EVAssociation *association1, EVAssociation *association2) {
  return equal_pointers(association1, association2);
}
int EVServer::isEqual(EVDetection *detection1, EVDetection *detection2) {
  return equal_pointers(detection1, detection2);
}

int EVServer::isEqual(Table<EVEvent> *events) {
  if (events == nullptr) return 0;
  return equal_lists(*events, *current_events(state_->published)) ? 1 : 0;
}
int EVServer::isEqual(Table<EVDetection> *detections) {
  if (detections == nullptr) return 0;
  return equal(*detections, *current_detections(state_->published)) ? 1 : 0;
}
