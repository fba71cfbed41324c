#include "events/server/internal/row_home.h"

#include <cstring>

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

void rehome(EVEvent &event) {
  std::size_t size = 0;
  for_each_text(event, [&](const db::RowText &text) { size += text.size(); });
  if (size == 0) return;
  db::BlockPtr block = db::BlockPtr::make(size);
  char *const start = block.fill();
  std::size_t offset = 0;
  for_each_text(event, [&](db::RowText &text) {
    if (text.empty()) return;
    const std::string_view bytes = text;
    std::memcpy(start + offset, bytes.data(), bytes.size());
    text = db::RowText(block, offset, bytes.size());
    offset += bytes.size();
  });
}

}  // namespace ksutil::events
