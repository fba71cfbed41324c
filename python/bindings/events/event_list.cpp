#include "bindings/events/event_list.h"

#include <algorithm>
#include <cstring>
#include <utility>

#include "bindings/bindings.h"
#include "bindings/interpreter/arrays.h"
#include "bindings/interpreter/calls.h"
#include "bindings/interpreter/failure.h"
#include "bindings/interpreter/locks.h"

namespace ksutil::python {
namespace {

PyEvent event_at(const PyEventList &list, long i) {
  return make_event(std::make_shared<const EVEvent>(list.choice.event(i)),
                    list.choice.layouts, list.core.lock(), false);
}

PyEventList with_order(const PyEventList &list, std::vector<long> order) {
  PyEventList result = list;
  result.choice.order = std::make_shared<const std::vector<long>>(std::move(order));
  return result;
}

py::object item(const PyEventList &list, const py::object &index) {
  const long size = list.choice.size();
  if (!py::isinstance<py::slice>(index)) {
    if (PyIndex_Check(index.ptr()) == 0) {
      throw py::type_error(
          "an event of a list is found by its index; "
          "server[evid] finds one by its id");
    }
    const py::ssize_t given = PyNumber_AsSsize_t(index.ptr(), PyExc_IndexError);
    if (given == -1 && PyErr_Occurred() != nullptr) throw py::error_already_set();
    const long i = given < 0 ? given + size : given;
    if (i < 0 || i >= size) throw py::index_error("no such event in the list");
    return py::cast(event_at(list, i));
  }
  std::size_t start = 0, stop = 0, step = 0, length = 0;
  if (!index.cast<py::slice>().compute(static_cast<std::size_t>(size), &start, &stop,
                                       &step, &length)) {
    throw py::error_already_set();
  }
  std::vector<long> order;
  order.reserve(length);
  for (std::size_t n = 0; n < length; n++, start += step) {
    order.push_back(list.choice.place(static_cast<long>(start)));
  }
  return py::cast(with_order(list, std::move(order)));
}

/* Iterates over a list, which it keeps. */
struct EventIterator {
  PyEventList list;
  long next = 0;
};

/* The place of an event in the choice; -1 without one. */
long find_evid(const PyEventList &list, std::int64_t evid) {
  return released([&] {
    const long size = list.choice.size();
    for (long i = 0; i < size; i++) {
      if (list.choice.event(i).evid == evid) return i;
    }
    return -1L;
  });
}

py::object evids(const PyEventList &list) {
  return array_of(released([&] {
    std::vector<std::int64_t> ids(static_cast<std::size_t>(list.choice.size()));
    for (std::size_t i = 0; i < ids.size(); i++) {
      ids[i] = list.choice.event(static_cast<long>(i)).evid;
    }
    return ids;
  }));
}

/* Warns, as the tables of a database do, of values that cannot be read. */
void warn_of_unreadable(long count, const std::string &query) {
  if (count == 0) return;
  const py::object kind = py::module_::import("ksutil").attr("UnreadableWarning");
  const std::string text =
      "'" + query + "' cannot be read on " + std::to_string(count) + " events";
  if (PyErr_WarnEx(kind.ptr(), text.c_str(), 1) != 0) throw py::error_already_set();
}

py::object column(const PyEventList &list, const std::string &query, bool datetime) {
  check_signals();
  EventColumn values = released([&] { return evaluate(list.choice, query); });
  warn_of_unreadable(values.unreadable, query);
  return array_of_column(std::move(values), datetime);
}

py::dict columns(const PyEventList &list, const py::args &queries, bool datetime) {
  py::dict result;
  for (const py::handle query : queries) {
    if (!py::isinstance<py::str>(query)) {
      throw py::type_error("the name of a column is a text");
    }
    result[query] = column(list, query.cast<std::string>(), datetime);
  }
  return result;
}

PyEventList where(const PyEventList &list, const std::string &query) {
  EventPlaces found = released([&] { return places_where(list.choice, query); });
  warn_of_unreadable(found.unreadable, query);
  return with_order(list, std::move(found.places));
}

/* The library sorts the whole list; of this order the choice keeps what it has. */
std::vector<long> sorted_places(const EventChoice &choice, const std::string &query,
                                bool reverse) {
  const Failure failure;
  Table<int> order;
  if (!choice.listener->order(*choice.events, query, reverse, order)) failure.raise();
  std::vector<bool> kept(static_cast<std::size_t>(choice.events->size()),
                         choice.order == nullptr);
  if (choice.order != nullptr) {
    for (const long place : *choice.order) kept[static_cast<std::size_t>(place)] = true;
  }
  std::vector<long> places;
  places.reserve(static_cast<std::size_t>(choice.size()));
  for (const int place : order) {
    if (kept[static_cast<std::size_t>(place)]) places.push_back(place);
  }
  return places;
}

PyEventList sorted(const PyEventList &list, const std::string &query, bool reverse) {
  return with_order(
      list, released([&] { return sorted_places(list.choice, query, reverse); }));
}

py::object query_value(const PyQuery &query, const py::object &record) {
  const Failure failure;
  alignas(8) char value[EV_VALUE_SIZE];
  int type = 0, result = 0;
  if (py::isinstance<PyEvent>(record)) {
    result = query.listener->getValue(record.cast<const PyEvent &>().record.get(),
                                      query.tokens, &type, value);
  } else if (py::isinstance<PyOrigin>(record)) {
    result = query.listener->getValue(record.cast<const PyOrigin &>().record.get(),
                                      query.tokens, &type, value);
  } else {
    throw py::type_error("a query is about an Event or an Origin");
  }
  if (failure.check(result) != 0) return py::none();
  return value_object(type, value);
}

void bind_list(py::module_ &m) {
  py::class_<EventIterator>(m, "_EventIterator")
      .def("__iter__", [](const py::object &self) { return self; })
      .def("__next__", [](EventIterator &self) {
        if (self.next >= self.list.choice.size()) throw py::stop_iteration();
        return event_at(self.list, self.next++);
      });
  const py::arg_v datetime = py::arg("datetime") = false;
  py::class_<PyEventList>(
      m, "EventList",
      "The events of a server as they were at one moment, or a choice of them: a\n"
      "sequence of Event that never changes and outlives the server.")
      .def("__len__", [](const PyEventList &self) { return self.choice.size(); })
      .def("__getitem__", item, py::arg("index"))
      .def("__iter__",
           [](const PyEventList &self) {
             return EventIterator{self, 0};
           })
      .def(
          "__contains__",
          [](const PyEventList &self, const py::object &event) {
            if (py::isinstance<PyEvent>(event)) {
              return find_evid(self, event.cast<const PyEvent &>().record->evid) >= 0;
            }
            if (PyIndex_Check(event.ptr()) == 0) return false;
            const auto number =
                py::reinterpret_steal<py::object>(PyNumber_Index(event.ptr()));
            if (!number) throw py::error_already_set();
            int overflow = 0;
            const long long evid =
                PyLong_AsLongLongAndOverflow(number.ptr(), &overflow);
            return overflow == 0 && find_evid(self, evid) >= 0;
          },
          py::arg("evid"))
      .def(
          "index",
          [](const PyEventList &self, std::int64_t evid) {
            const long i = find_evid(self, evid);
            if (i < 0) {
              throw py::value_error("no event " + std::to_string(evid) +
                                    " in the list");
            }
            return i;
          },
          py::arg("evid"), "The index of the event with this evid; else ValueError.")
      .def(
          "event",
          [](const PyEventList &self, std::int64_t evid) {
            const long i = find_evid(self, evid);
            if (i < 0) throw py::key_error(std::to_string(evid));
            return event_at(self, i);
          },
          py::arg("evid"), "The event with this evid; else KeyError.")
      .def_property_readonly("evids", evids, "Ids of the events, int64 [n].")
      .def("column", column, py::arg("query"), py::kw_only(), datetime,
           "The values of a field or query on each event, [n]: float64 with NaN for\n"
           "nulls; int64, masked where there are nulls; or str objects, None for\n"
           "nulls; a condition is 1 or 0.  A value that cannot be read is a null, with "
           "an UnreadableWarning.\n"
           "datetime: times as datetime64[us] instead of epoch seconds")
      .def("columns", columns, datetime,
           "columns('evid', 'time', 'lat'): the arrays of column() by name.")
      .def("where", where, py::arg("query"),
           "The events for which a query is true, in their order.")
      .def("sorted", sorted, py::arg("query"), py::kw_only(),
           py::arg("reverse") = false,
           "The events in the order of a query: those without a value first, equal\n"
           "ones as in the server's list; reverse turns the order round.")
      .def(
          "to_pandas",
          [](const py::object &self, const py::args &queries, bool in_datetime) {
            return py::module_::import("ksutil._tables")
                .attr("frame")(self, queries, in_datetime);
          },
          py::arg("datetime") = false,
          "A pandas.DataFrame of the columns; without names of the usual ones.")
      .def(
          "figure",
          [](const py::object &self, const py::kwargs &options) {
            return py::module_::import("ksutil._tables")
                .attr("map_figure")(self, **options);
          },
          "The events on a map, as a Figure; options as of figures.event_map.")
      .def("__repr__",
           [](const PyEventList &self) {
             return "EventList(" + std::to_string(self.choice.size()) + " events)";
           })
      .def("_repr_html_", [](const py::object &self) {
        return py::module_::import("ksutil._tables").attr("list_table")(self);
      });
}

}  // namespace

py::object value_object(int type, const char *value) {
  if (type == EV_TEXT) {
    return py::reinterpret_steal<py::object>(PyUnicode_DecodeUTF8(
        value, static_cast<py::ssize_t>(std::strlen(value)), "replace"));
  }
  if (type == EV_INTEGER) {
    std::int64_t integer = 0;
    std::memcpy(&integer, value, sizeof integer);
    return py::int_(integer);
  }
  double real = 0.0;
  std::memcpy(&real, value, sizeof real);
  return py::float_(real);
}

void bind_event_list(py::module_ &m) {
  bind_list(m);
  py::class_<PyQuery>(m, "EventQuery",
                      "A compiled query; query(event) gives its value on an Event or "
                      "an Origin, None for a null.")
      .def_property_readonly(
          "text", [](const PyQuery &self) { return self.text; }, "The query.")
      .def("__call__", query_value, py::arg("record"))
      .def("__repr__", [](const PyQuery &self) {
        return "EventQuery(" + py::repr(py::str(self.text)).cast<std::string>() + ")";
      });
}

}  // namespace ksutil::python
