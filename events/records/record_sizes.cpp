#include "events/records/internal/record_sizes.h"

namespace ksutil::events {

std::size_t bytes(const EVDetection &detection) {
  return sizeof detection + detection.record_detection.size() +
         detection.record_site.size();
}

namespace {

std::size_t bytes(const EVStamag &stamag) {
  return sizeof stamag + stamag.record_stamag.size() + stamag.magtype.size();
}

std::size_t bytes(const EVMagnitude &magnitude) {
  std::size_t sum =
      sizeof magnitude + magnitude.record_netmag.size() + magnitude.magtype.size();
  for (const EVStamag &stamag : magnitude.stamags) sum += bytes(stamag);
  return sum;
}

std::size_t bytes(const EVMoment &moment) {
  return sizeof moment + moment.record_mt.size();
}

std::size_t bytes(const EVAssociation &association) {
  return sizeof association + association.record_assoc.size() +
         association.record_arrival.size() + association.record_site.size();
}

std::size_t bytes(const EVOrigin &origin) {
  std::size_t sum = sizeof origin + origin.record_origin.size() +
                    origin.record_origerr.size() + origin.magtype.size();
  for (const EVMagnitude &magnitude : origin.magnitudes) sum += bytes(magnitude);
  for (const EVMoment &moment : origin.moments) sum += bytes(moment);
  for (const EVDetection &detection : origin.detections) {
    sum += events::bytes(detection);
  }
  for (const EVAssociation &association : origin.associations) {
    sum += bytes(association);
  }
  return sum;
}

}  // namespace

std::size_t bytes(const EVEvent &event) {
  std::size_t sum = sizeof event + event.record_event.size() + event.magtype.size();
  for (const EVOrigin &origin : event.origins) sum += bytes(origin);
  return sum;
}

}  // namespace ksutil::events
