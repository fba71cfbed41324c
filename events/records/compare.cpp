#include "events/records/internal/compare.h"

#include <algorithm>

#include "events/records/internal/fields.h"

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

const EVEvent *EventIndex::first(int64_t evid) const {
  long place = events_.size();
  const auto [first, last] = by_evid_.equal_range(evid);
  for (auto entry = first; entry != last; ++entry) {
    place = std::min(place, entry->second);
  }
  return events_.ptr(place);
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
  /* Usually no event has moved, and then no index is needed. */
  if (equal(events, current)) return true;
  const EventIndex index(current);
  for (const EVEvent &event : events) {
    if (!index.contains_equal(event)) return false;
  }
  return true;
}

}  // namespace ksutil::events
