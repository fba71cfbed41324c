#include "events/records/internal/row_texts.h"

namespace ksutil::events {
namespace {

template <class Fn>
void for_each_text(EVOrigin &origin, Fn fn) {
  fn(origin.record_origin);
  fn(origin.record_origerr);
  for (EVMagnitude &magnitude : origin.magnitudes) {
    fn(magnitude.record_netmag);
    for (EVStamag &stamag : magnitude.stamags) fn(stamag.record_stamag);
  }
  for (EVMoment &moment : origin.moments) fn(moment.record_mt);
  for (EVAssociation &association : origin.associations) {
    fn(association.record_assoc);
    fn(association.record_arrival);
    fn(association.record_site);
  }
  for (EVDetection &detection : origin.detections) {
    fn(detection.record_detection);
    fn(detection.record_site);
  }
}

template <class Fn>
void for_each_text(EVEvent &event, Fn fn) {
  fn(event.record_event);
  for (EVOrigin &origin : event.origins) for_each_text(origin, fn);
}

}  // namespace

void gather_texts(EVEvent &event) {
  db::RowText::gather([&](auto fn) { for_each_text(event, fn); });
}

}  // namespace ksutil::events
