/* event_records: shows the records of events as objects of Python. */
#ifndef KSUTIL_PYTHON_BINDINGS_EVENTS_EVENT_RECORDS_H
#define KSUTIL_PYTHON_BINDINGS_EVENTS_EVENT_RECORDS_H

#include <ksutil/events/records.h>
#include <pybind11/pybind11.h>

#include <memory>
#include <string>
#include <utility>

#include "bindings/database/table_row.h"
#include "bindings/events/event_core.h"
#include "bindings/events/event_fields.h"

namespace ksutil::python {

/* EventTree: one event with all that belongs to it; never changes, but for `whole`, which
 * the GIL guards. */
struct EventTree {
  std::shared_ptr<const EVEvent> event;
  std::shared_ptr<const RowLayouts> layouts;
  std::weak_ptr<ServerCore> core;        // to ask for the rest
  bool expanded = false;                 // whether `event` has associations and so on
  std::shared_ptr<const EVEvent> whole;  // the expanded event; null until it is read
};

/* One record of a tree, which it keeps alive. */
template <class Record>
struct RecordOf {
  std::shared_ptr<EventTree> tree;
  std::shared_ptr<const Record> record;
};

using PyEvent = RecordOf<EVEvent>;
using PyOrigin = RecordOf<EVOrigin>;

/* An event as an object; `core` may be null. */
PyEvent make_event(std::shared_ptr<const EVEvent> event,
                   std::shared_ptr<const RowLayouts> layouts,
                   const std::shared_ptr<ServerCore> &core, bool expanded);

/* The event with associations, station magnitudes and detections, read from the server
 * when that has not happened yet.  Throws Error without a server. */
std::shared_ptr<const EVEvent> expanded_event(EventTree &tree);

}  // namespace ksutil::python
#endif
