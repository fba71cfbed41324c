/* What a refresh keeps in order to read only what has changed since the one before. */
#ifndef KSUTIL_EVENTS_INTERNAL_LIST_FOLLOWER_H
#define KSUTIL_EVENTS_INTERNAL_LIST_FOLLOWER_H

namespace ksutil::events {

/* Guarded by ServerState::database_lock. */
class ListFollower {
 public:
  /* The next reading is a full one. */
  void forget() {}
};

}  // namespace ksutil::events
#endif
