/* served_events: runs an event server for one run of a program, and gives its
 * events. */
#ifndef KSUTIL_TOOLS_KSEVENTS_SERVED_EVENTS_H
#define KSUTIL_TOOLS_KSEVENTS_SERVED_EVENTS_H

#include <memory>
#include <optional>
#include <string>

#include "events/evserver.h"

namespace ksutil::tools {

/* The records of the tables behind the events that cannot be read, so that they, or the event
 * that they belong to, are missing in what a server or a view shows. */
long unreadable_records(const std::string &database);

class ServedEvents {
 public:
  /* Opens the database and reads its events: all of them, or with max_events above 0 those
   * of the last rows of the event table. */
  explicit ServedEvents(const std::string &database, int max_events = 0);

  /* False, with messages registered, when the database could not be opened or read. */
  explicit operator bool() const { return good_; }

  EVServer &server() { return *server_; }
  Table<EVEvent> events();

  /* unreadable_records of the database, which are counted at the first call. */
  long unreadable();

 private:
  std::unique_ptr<EVServer> server_;
  std::string name_;
  bool good_ = false;
  std::optional<long> unreadable_;
};

}  // namespace ksutil::tools
#endif
