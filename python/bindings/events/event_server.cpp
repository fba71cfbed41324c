#include <algorithm>
#include <chrono>
#include <thread>
#include <utility>

#include "bindings/bindings.h"
#include "bindings/events/event_core.h"
#include "bindings/events/event_edits.h"
#include "bindings/events/event_list.h"
#include "bindings/events/event_records.h"
#include "bindings/interpreter/arguments.h"
#include "bindings/interpreter/arrays.h"
#include "bindings/interpreter/calls.h"
#include "bindings/interpreter/failure.h"
#include "bindings/interpreter/locks.h"
#include "bindings/interpreter/patience.h"

namespace ksutil::python {
namespace {

/* For dbputrecord: 1 sets the load date to now, unless the values have one. */
long load_date_flag(const py::dict &values) {
  return values.contains("lddate") ? 0 : 1;
}

/* ServerHandle: the one owner of a server; it ends the server when it goes. */
struct ServerHandle {
  explicit ServerHandle(std::shared_ptr<ServerCore> opened) : core(std::move(opened)) {}
  ~ServerHandle() { close(); }
  ServerHandle(const ServerHandle &) = delete;
  ServerHandle &operator=(const ServerHandle &) = delete;

  void close() {
    released([this] { core->close(); });
  }
  template <class Function>
  auto use(Function function) const {
    return released([&] { return core->use(function); });
  }

  const std::shared_ptr<ServerCore> core;
};

/* Holds the events lock of a server. */
class EventsLock {
 public:
  explicit EventsLock(EVServer &server) : server_(server) { server_.grabEventsLock(); }
  ~EventsLock() { server_.releaseEventsLock(); }
  EventsLock(const EventsLock &) = delete;
  EventsLock &operator=(const EventsLock &) = delete;

 private:
  EVServer &server_;
};

struct PyChange {
  EventChange change;
  std::shared_ptr<const RowLayouts> layouts;
  std::weak_ptr<ServerCore> core;
};

struct PyChanges {
  std::shared_ptr<ChangeQueue> queue;
  std::shared_ptr<const RowLayouts> layouts;
  std::weak_ptr<ServerCore> core;
  py::object timeout;  // of __next__
  py::object server;   // kept open by its reader; may be None
};

std::unique_ptr<ServerHandle> open_server(std::string database, double interval,
                                          int max_events, int max_expanded,
                                          bool detections, bool until_now,
                                          std::size_t queue,
                                          std::string preferred_magnitudes) {
  refuse_nul(database, "the path");
  const ServerSettings settings{
      std::move(database), interval,  max_events, max_expanded,
      detections,          until_now, queue,      std::move(preferred_magnitudes)};
  return std::make_unique<ServerHandle>(
      released([&] { return ServerCore::open(settings); }));
}

/* Refreshes until everything that was written before the call has been read. */
void refresh(const ServerHandle &self, bool force) {
  constexpr int kAnotherRuns = 11;
  for (;;) {
    const Failure failure;
    const int result =
        self.use([&](EVServer &server) { return server.refreshEvents(force ? 1 : 0); });
    if (failure.check(result) != kAnotherRuns) return;
    check_signals();
    released([] { std::this_thread::sleep_for(std::chrono::milliseconds(2)); });
  }
}

PyEventList events_of(const ServerHandle &self) {
  const auto &core = self.core;
  auto list = self.use([&](EVServer &) { return core->listener()->list(); });
  return {{std::move(list), nullptr, core->listener(), core->layouts()}, core};
}

py::object get(const ServerHandle &self, std::int64_t evid) {
  auto event = std::make_shared<EVEvent>();
  const bool found = self.use([&](EVServer &server) {
    const EventsLock lock(server);
    return server.getEvid(static_cast<long>(evid), *event) == 0;
  });
  if (!found) return py::none();
  return py::cast(make_event(std::move(event), self.core->layouts(), self.core, false));
}

PyEvent expanded(const ServerHandle &self, std::int64_t evid) {
  auto event = std::make_shared<EVEvent>();
  const Failure failure;
  failure.check(self.use([&](EVServer &server) {
    return server.getExpandedEvent(nullptr, static_cast<long>(evid), *event);
  }));
  return make_event(std::move(event), self.core->layouts(), self.core, true);
}

template <long (EVServer::*Find)()>
py::object evid_of(const ServerHandle &self) {
  const long evid = self.use([](EVServer &server) {
    const EventsLock lock(server);
    return (server.*Find)();
  });
  return evid < 0 ? py::object(py::none()) : py::int_(evid);
}

py::tuple detections(const ServerHandle &self) {
  const auto list = self.use([](EVServer &server) {
    const EventsLock lock(server);
    return server.detectionsList();
  });
  auto tree = std::make_shared<EventTree>();
  tree->layouts = self.core->layouts();
  py::tuple result(static_cast<std::size_t>(list->size()));
  for (long i = 0; i < list->size(); i++) {
    result[static_cast<std::size_t>(i)] = RecordOf<EVDetection>{
        tree, std::shared_ptr<const EVDetection>(list, list->ptr(i))};
  }
  return result;
}

TableRow row_of(const ServerHandle &self, const char *table, long recno,
                const std::string &record) {
  return {table, recno, db::RowText(record), self.core->layouts()};
}

/* Throws Error when the call has registered a message. */
void raise_if_told(const Failure &failure) {
  const std::string told = failure.text();
  if (!told.empty()) throw Error(told);
}

/* Commands whose empty result stands for a failure when there is a message. */
template <class Function>
py::list rows_from(const ServerHandle &self, const char *table, Function command) {
  const Failure failure;
  const Table<EVTableRecord> rows = self.use(command);
  if (rows.size() == 0) raise_if_told(failure);
  py::list result;
  for (const EVTableRecord &row : rows) {
    result.append(row_of(self, table, row.recno, row.record));
  }
  return result;
}

py::list arrivals(const ServerHandle &self, const std::string &sta,
                  const std::string &chan, double tstart, double tend) {
  return rows_from(self, "arrival", [&](EVServer &server) {
    Table<EVTableRecord> rows;
    for (const EVArrival &arrival : server.getArrivals(sta, chan, tstart, tend)) {
      rows.push({arrival.recno_arrival, arrival.record_arrival});
    }
    return rows;
  });
}

py::object site(const ServerHandle &self, const std::string &sta, double time) {
  const Failure failure;
  const EVTableRecord row =
      self.use([&](EVServer &server) { return server.getSite(sta, time); });
  if (row.recno < 0) {
    raise_if_told(failure);
    return py::none();
  }
  return py::cast(row_of(self, "site", row.recno, row.record));
}

long append(const ServerHandle &self, const std::string &table,
            const py::dict &values) {
  const std::string record = made_text(*self.core->layouts(), table, values);
  const long flag = load_date_flag(values);
  const Failure failure;
  return failure.check(self.use(
      [&](EVServer &server) { return server.dbputrecord(table, -1, flag, record); }));
}

void update(const ServerHandle &self, const TableRow &row, const py::dict &values) {
  const std::string record = edited_text(row, values);
  const bool stamped = load_date_flag(values) != 0;
  self.use([&](EVServer &) {
    replace_row(self.core->database(), row, record, stamped);
    return 0;
  });
}

long next_id(const ServerHandle &self, const std::string &key) {
  const Failure failure;
  return failure.check(
      self.use([&](EVServer &server) { return server.execDbnextid(key); }));
}

PyQuery compile(const ServerHandle &self, const std::string &text) {
  PyQuery query{text, {}, self.core->listener()};
  const Failure failure;
  const bool good = self.use(
      [&](EVServer &) { return self.core->listener()->compile(text, query.tokens); });
  if (!good) failure.raise();
  return query;
}

PyChanges changes(const ServerHandle &self, py::object timeout, py::object server) {
  const Patience checked(timeout);
  const std::size_t limit = self.core->settings().queue;
  auto queue =
      self.use([&](EVServer &) { return self.core->listener()->subscribe(limit); });
  return {std::move(queue), self.core->layouts(), self.core, std::move(timeout),
          std::move(server)};
}

/* The next change; None when none comes in time or the server ends. */
py::object take(PyChanges &self, const py::object &timeout) {
  const Patience patience(timeout);
  const auto queue = self.queue;
  EventChange change;
  for (;;) {
    const ChangeQueue::Outcome outcome =
        released([&] { return queue->take(change, patience.slice_end()); });
    check_signals();
    if (outcome == ChangeQueue::Outcome::kTaken) {
      return py::cast(PyChange{std::move(change), self.layouts, self.core});
    }
    if (outcome == ChangeQueue::Outcome::kClosed || patience.over()) return py::none();
  }
}

py::object event_of(const PyChange &self) {
  if (self.change.event == nullptr) return py::none();
  return py::cast(make_event(self.change.event, self.layouts, self.core.lock(), false));
}

std::string describe(const PyChange &self) {
  const EventChange &change = self.change;
  std::string text = std::string("Change('") + name_of(change.kind) + "'";
  if (change.evid >= 0) text += ", evid=" + std::to_string(change.evid);
  if (change.lost > 0) text += ", lost=" + std::to_string(change.lost);
  return text + ")";
}

/* Tells sys.unraisablehook of an exception that left a callback. */
void report(const py::object &function, const py::object &error) {
  py::object traceback = error.attr("__traceback__");
  if (traceback.is_none()) traceback = py::object();
  PyErr_Restore(py::object(py::type::of(error)).release().ptr(),
                py::object(error).release().ptr(), traceback.release().ptr());
  PyErr_WriteUnraisable(function.ptr());
}

void bind_changes(py::module_ &m) {
  py::class_<PyChange>(
      m, "Change",
      "One change of the events.  kind is 'new', 'changed' or 'removed'; 'detections'\n"
      "when the window of detections has changed; 'overflow' when changes were lost,\n"
      "because their reader let too many wait.")
      .def_property_readonly(
          "kind", [](const PyChange &self) { return name_of(self.change.kind); },
          "'new', 'changed', 'removed', 'detections' or 'overflow'.")
      .def_property_readonly(
          "evid",
          [](const PyChange &self) -> py::object {
            if (self.change.evid < 0) return py::none();
            return py::int_(self.change.evid);
          },
          "Id of the event; None for 'detections' and 'overflow'.")
      .def_property_readonly("event", event_of,
                             "The event after the change; None when it has gone.")
      .def_property_readonly(
          "lost", [](const PyChange &self) { return self.change.lost; },
          "Changes that were lost here; 0 but for 'overflow'.")
      .def("__repr__", describe);
  py::class_<PyChanges>(
      m, "Changes",
      "The changes of a server since this object was made; an iterator that ends when\n"
      "no change comes for `timeout` seconds, and when the server is closed.")
      .def("__iter__", [](const py::object &self) { return self; })
      .def("__next__",
           [](PyChanges &self) {
             py::object change = take(self, self.timeout);
             if (change.is_none()) throw py::stop_iteration();
             return change;
           })
      .def(
          "get", take, py::arg("timeout") = py::none(),
          "The next change, for which it waits up to `timeout` seconds (None: without\n"
          "a limit); None when none has come and when the server is closed.")
      .def("__len__", [](const PyChanges &self) { return self.queue->size(); })
      .def("__bool__", [](const PyChanges &) { return true; })
      .def_property_readonly(
          "closed", [](const PyChanges &self) { return self.queue->closed(); },
          "Whether no more changes come; those that wait can still be taken.")
      .def(
          "close", [](PyChanges &self) { self.queue->close(); },
          "Takes no more changes; a thread that waits in get() returns.")
      .def("__enter__", [](const py::object &self) { return self; })
      .def("__exit__", [](PyChanges &self, const py::args &) { self.queue->close(); });
}

void bind_reading(py::class_<ServerHandle> &server) {
  server.def_property_readonly("events", events_of)
      .def("get", get, py::arg("evid"))
      .def("expanded", expanded, py::arg("evid"))
      .def_property_readonly("most_recent", evid_of<&EVServer::getMostRecentEvid>)
      .def_property_readonly("last_modified", evid_of<&EVServer::getLastModifiedEvid>)
      .def_property_readonly("detections", detections)
      .def("query", compile, py::arg("text"))
      .def("changes", changes, py::arg("timeout") = py::none(),
           py::arg("server") = py::none());
}

void bind_commands(py::class_<ServerHandle> &server) {
  server
      .def(
          "subset",
          [](const ServerHandle &self, const std::string &table,
             const std::string &expression) {
            return rows_from(self, table.c_str(), [&](EVServer &s) {
              return s.execDbsubset(table, expression);
            });
          },
          py::arg("table"), py::arg("expression"))
      .def("arrivals", arrivals, py::arg("sta"), py::arg("chan"), py::arg("tstart"),
           py::arg("tend"))
      .def(
          "waveforms",
          [](const ServerHandle &self, const std::string &sta, const std::string &chan,
             double tstart, double tend, bool inside) {
            return rows_from(self, "wfdisc", [&](EVServer &s) {
              return s.getWfdiscs(sta, chan, tstart, tend, inside ? 1 : 0);
            });
          },
          py::arg("sta"), py::arg("chan"), py::arg("tstart"), py::arg("tend"),
          py::arg("inside"))
      .def("site", site, py::arg("sta"), py::arg("time"))
      .def("append", append, py::arg("table"), py::arg("values"))
      .def("update", update, py::arg("row"), py::arg("values"))
      .def("next_id", next_id, py::arg("key"));
}

}  // namespace

void bind_event_server(py::module_ &m) {
  bind_changes(m);
  py::class_<ServerHandle> server(m, "_EventServer");
  server
      .def(py::init(&open_server), py::arg("database"), py::kw_only(),
           py::arg("interval"), py::arg("max_events"), py::arg("max_expanded"),
           py::arg("detections"), py::arg("until_now"), py::arg("queue"),
           py::arg("preferred_magnitudes"))
      .def_property_readonly(
          "news", [](const ServerHandle &self) { return decoded(self.core->news()); })
      .def("close", &ServerHandle::close)
      .def_property_readonly(
          "closed", [](const ServerHandle &self) { return self.core->closed(); })
      .def_property_readonly(
          "database", [](const ServerHandle &self) { return self.core->database(); })
      .def("refresh", refresh, py::arg("force") = false);
  bind_reading(server);
  bind_commands(server);
  m.def("_report", report, py::arg("function"), py::arg("error"));
  m.def("_close_all", [] { released([] { close_all(); }); });
}

}  // namespace ksutil::python
