/* KSEventView: searches, sorts, counts and frees lists of records. */
#include <algorithm>
#include <vector>

#include "events/view/internal/view_state.h"
#include "platform/elog/failure.h"
#include "platform/stock/owners.h"

namespace ksutil::events {
namespace {

template <class Record, class Same>
Record *first_of(Tbl *list, Same same) {
  for (long i = 0; i < counttbl(list); i++) {
    auto *const record = static_cast<Record *>(gettbl(list, i));
    if (record != nullptr && same(*record)) return record;
  }
  return nullptr;
}

template <class T>
int three_way(const T &a, const T &b) {
  return a < b ? -1 : (b < a ? 1 : 0);
}

void copy_count(long *number, const std::atomic<long> &count) {
  if (number != nullptr) *number = count;
}

}  // namespace
}  // namespace ksutil::events

using namespace ksutil::events;

int kseventview_compare_events(const KSEVEvent *event1, const KSEVEvent *event2) {
  const int by_time = three_way(event1->time, event2->time);
  return by_time != 0 ? by_time : three_way(event1->evid, event2->evid);
}

int kseventview_compare_origin_lddate(const KSEVOrigin *origin1,
                                      const KSEVOrigin *origin2) {
  return three_way(origin1->lddate_origin, origin2->lddate_origin);
}

KSEVEvent *KSEventView::findEvid(Tbl *events, long evid) {
  return first_of<KSEVEvent>(events,
                             [evid](const KSEVEvent &e) { return e.evid == evid; });
}

KSEVOrigin *KSEventView::findOrid(KSEVEvent *event, long orid) {
  if (event == nullptr) return nullptr;
  return first_of<KSEVOrigin>(event->origins,
                              [orid](const KSEVOrigin &o) { return o.orid == orid; });
}

int KSEventView::sortEvents(Tbl *events, long order) {
  constexpr const char *kWho = "KSEventView::sortEvents";
  return ksutil::at_boundary(kWho, [&]() -> int {
    std::vector<KSEVEvent *> sorted = ksutil::to_vector<KSEVEvent>(events);
    if (std::count(sorted.begin(), sorted.end(), nullptr) > 0) {
      return ksutil::fail(kWho, "no record is given");
    }
    std::stable_sort(sorted.begin(), sorted.end(),
                     [order](const KSEVEvent *a, const KSEVEvent *b) {
                       if (order != 0) std::swap(a, b);
                       return kseventview_compare_events(a, b) < 0;
                     });
    /* Overwriting entries cannot fail half way. */
    for (std::size_t i = 0; i < sorted.size(); i++) {
      settbl(events, static_cast<long>(i), sorted[i]);
    }
    return 0;
  });
}

void KSEventView::numbers(long *events, long *origins, long *magnitudes, long *moments,
                          long *associations, long *detections, long *stamags) {
  const ViewRecords::Counts &counts = state_->records.counts();
  copy_count(events, counts.events);
  copy_count(origins, counts.origins);
  copy_count(magnitudes, counts.magnitudes);
  copy_count(moments, counts.moments);
  copy_count(associations, counts.associations);
  copy_count(detections, counts.detections);
  copy_count(stamags, counts.stamags);
}

void KSEventView::freeEvents(Tbl *events) {
  state_->records.free_list<KSEVEvent>(events);
}
void KSEventView::freeEvent(KSEVEvent *event) { state_->records.free(event); }
void KSEventView::freeOrigins(Tbl *origins) {
  state_->records.free_list<KSEVOrigin>(origins);
}
void KSEventView::freeOrigin(KSEVOrigin *origin) { state_->records.free(origin); }
void KSEventView::freeMagnitudes(Tbl *magnitudes) {
  state_->records.free_list<KSEVMagnitude>(magnitudes);
}
void KSEventView::freeMoments(Tbl *moments) {
  state_->records.free_list<KSEVMoment>(moments);
}
void KSEventView::freeAssociations(Tbl *associations) {
  state_->records.free_list<KSEVAssociation>(associations);
}
void KSEventView::freeDetections(Tbl *detections) {
  state_->records.free_list<KSEVDetection>(detections);
}
void KSEventView::freeStamags(Tbl *stamags) {
  state_->records.free_list<KSEVStamag>(stamags);
}
void KSEventView::freeStations(rbtree *stations) {
  ViewRecords::free_stations(stations);
}
