#include <algorithm>

#include "events/evclient.h"

namespace {

/* The index of the first origin with the orid, or -1. */
int find_orid(const EVEvent &event, long orid) {
  const auto found =
      std::find_if(event.origins.begin(), event.origins.end(),
                   [orid](const EVOrigin &origin) { return origin.orid == orid; });
  return found == event.origins.end() ? -1
                                      : static_cast<int>(found - event.origins.begin());
}

/* EVClient::getPreferredOrigin for const events too; leaves *index if there is no
 * preferred origin. */
template <class Event>
auto preferred_origin(Event &event, int *index) {
  const auto preferred = event.origins.ptr(event.pref_origin);
  if (preferred == nullptr) return event.origins.ptr(0);
  if (index != nullptr) *index = event.pref_origin;
  return preferred;
}

}  // namespace

EVOrigin *EVClient::findOrid(EVEvent *event, long orid) {
  return event == nullptr ? nullptr : event->origins.ptr(find_orid(*event, orid));
}

EVOrigin *EVClient::getPreferredOrigin(EVEvent *event, int *index) {
  if (index != nullptr) *index = -1;
  return event == nullptr ? nullptr : preferred_origin(*event, index);
}

EVMoment *EVClient::getPreferredMoment(EVEvent *event) {
  if (event == nullptr) return nullptr;
  return getPreferredMoment(event->origins.ptr(event->pref_moment_origin));
}

EVMoment *EVClient::getPreferredMoment(EVOrigin *origin) {
  return origin == nullptr ? nullptr : origin->moments.ptr(origin->pref_moment);
}

int EVClient::getOrigin(const EVEvent *event, long orid, EVOrigin &origin,
                        int preferred) {
  if (event == nullptr || event->evid < 0) {
    origin = EVOrigin();
    return -1;
  }
  int index = find_orid(*event, orid);
  const EVOrigin *found = event->origins.ptr(index);
  if (found == nullptr && preferred != 0) found = preferred_origin(*event, &index);
  if (found != nullptr) origin = *found;
  return index;
}
