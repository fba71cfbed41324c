/* event_columns: evaluates queries on many events, and makes arrays of the values. */
#ifndef KSUTIL_PYTHON_BINDINGS_EVENTS_EVENT_COLUMNS_H
#define KSUTIL_PYTHON_BINDINGS_EVENTS_EVENT_COLUMNS_H

#include <ksutil/events/query.h>
#include <ksutil/events/records.h>
#include <pybind11/numpy.h>

#include <cstdint>
#include <memory>
#include <string>
#include <vector>

#include "bindings/events/event_changes.h"
#include "bindings/events/event_fields.h"

namespace ksutil::python {

/* A list of events as it was at one moment, or a choice of them in an order. */
struct EventChoice {
  std::shared_ptr<const Table<EVEvent>> events;
  std::shared_ptr<const std::vector<long>> order;  // null: all, as they are
  std::shared_ptr<EventListener> listener;         // to evaluate queries
  std::shared_ptr<const RowLayouts> layouts;

  long size() const {
    return order == nullptr ? events->size() : static_cast<long>(order->size());
  }
  /* Where event `i` of the choice stands in the list. */
  long place(long i) const {
    return order == nullptr ? i : (*order)[static_cast<std::size_t>(i)];
  }
  const EVEvent &event(long i) const { return *events->ptr(place(i)); }
};

/* The values of one query; `type` is an EVValueType. */
struct EventColumn {
  int type = EV_DOUBLE;
  bool is_time = false;
  std::vector<std::int64_t> integers;
  std::vector<double> reals;  // NaN for nulls
  std::vector<std::string> texts;
  std::vector<std::uint8_t> nulls;
  bool any_null = false;
  long unreadable = 0;  // values that cannot be read, which are nulls
};

/* The events for which a query is true, by their places, in their order. */
struct EventPlaces {
  std::vector<long> places;
  long unreadable = 0;  // events on which it cannot be evaluated, which are left out
};

/* Evaluates a query on each event; without the GIL.  Throws Error. */
EventColumn evaluate(const EventChoice &events, const std::string &query);

/* Throws Error. */
EventPlaces places_where(const EventChoice &events, const std::string &query);

/* The column as an array: of float64 with NaN for nulls, of int64, masked where it has
 * nulls, or of texts as objects, None for nulls.  With `datetime`, times are
 * datetime64[us] with NaT. */
py::object array_of_column(EventColumn column, bool datetime);

}  // namespace ksutil::python
#endif
