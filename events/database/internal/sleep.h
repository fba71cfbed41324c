/* sleep: pauses a thread that may be asked to stop meanwhile. */
#ifndef KSUTIL_EVENTS_DATABASE_INTERNAL_SLEEP_H
#define KSUTIL_EVENTS_DATABASE_INTERNAL_SLEEP_H

#include <functional>

namespace ksutil::events {

/* Sleeps `seconds`, in slices of kSleepSlice, while go_on() is true; it is asked before
 * each slice.  Does not sleep for 0, less or NaN. */
inline constexpr double kSleepSlice = 0.05;  // s; the greatest delay of a stop
void sleep_while(const std::function<bool()> &go_on, double seconds);

}  // namespace ksutil::events
#endif
