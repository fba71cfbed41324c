/* event_list: shows lists of events and compiled queries as objects of Python. */
#ifndef KSUTIL_PYTHON_BINDINGS_EVENTS_EVENT_LIST_H
#define KSUTIL_PYTHON_BINDINGS_EVENTS_EVENT_LIST_H

#include <memory>
#include <string>
#include <vector>

#include "bindings/events/event_columns.h"
#include "bindings/events/event_records.h"

namespace ksutil::python {

struct PyEventList {
  EventChoice choice;
  std::weak_ptr<ServerCore> core;
};

/* A compiled query, which outlives its server. */
struct PyQuery {
  std::string text;
  std::vector<EVQueryToken> tokens;
  std::shared_ptr<EventListener> listener;
};

/* The value as an object of Python. */
py::object value_object(int type, const char *value);

}  // namespace ksutil::python
#endif
