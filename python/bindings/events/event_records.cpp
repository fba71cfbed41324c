#include "bindings/events/event_records.h"

#include <ksutil/events/evclient.h>

#include <algorithm>
#include <array>
#include <string_view>
#include <vector>

#include "bindings/bindings.h"
#include "bindings/events/event_rows_of.h"
#include "bindings/interpreter/arrays.h"
#include "bindings/interpreter/failure.h"
#include "bindings/interpreter/locks.h"

namespace ksutil::python {
namespace {

constexpr double kNoTimeBelow = -9999999999.0;  // times at or below it are null

py::object time_or_none(double time) {
  return time <= kNoTimeBelow ? py::none() : real_or_none(time, kNoTimeBelow);
}

template <class Text>
py::object word_or_none(const Text &text) {
  return text_or_none(std::string(std::string_view(text)));
}

/* A field that the library has worked out, beside those of the rows. */
template <class Record>
struct OwnField {
  const char *name;
  py::object (*get)(const Record &);
  const char *doc;
};

template <class Record>
py::object get_magnitude(const Record &record) {
  return real_or_none(record.magnitude, -999.0);
}
template <class Record>
py::object get_magtype(const Record &record) {
  return word_or_none(record.magtype);
}

template <class Record>
std::vector<OwnField<Record>> own_fields();

template <>
std::vector<OwnField<EVEvent>> own_fields() {
  return {{"evid", [](const EVEvent &e) { return integer_or_none(e.evid, -1); },
           "Id of the event."},
          {"prefor", [](const EVEvent &e) { return integer_or_none(e.prefor, -1); },
           "orid of the preferred origin, as the row of the event has it."},
          {"time",
           [](const EVEvent &e) {
             return e.pref_origin < 0 ? py::none() : time_or_none(e.time);
           },
           "Time of the preferred origin, epoch seconds; None without one."},
          {"magnitude", get_magnitude<EVEvent>,
           "Magnitude that the rules prefer, or None."},
          {"magtype", get_magtype<EVEvent>, "Type of the magnitude, or None."}};
}

template <>
std::vector<OwnField<EVOrigin>> own_fields() {
  return {{"orid", [](const EVOrigin &o) { return integer_or_none(o.orid, -1); },
           "Id of the origin."},
          {"time", [](const EVOrigin &o) { return time_or_none(o.time); },
           "Origin time, epoch seconds."},
          {"magnitude", get_magnitude<EVOrigin>,
           "Magnitude that the rules prefer, or None."},
          {"magtype", get_magtype<EVOrigin>, "Type of the magnitude, or None."},
          {"preferred",
           [](const EVOrigin &o) { return py::object(py::bool_(o.preferred != 0)); },
           "Whether it is the preferred origin of its event."}};
}

template <>
std::vector<OwnField<EVMagnitude>> own_fields() {
  return {{"magnitude", get_magnitude<EVMagnitude>, "The magnitude, or None."},
          {"magtype", get_magtype<EVMagnitude>, "Its type, such as 'mw', or None."}};
}

template <>
std::vector<OwnField<EVStamag>> own_fields() {
  return {{"magnitude", get_magnitude<EVStamag>, "The magnitude, or None."},
          {"magtype", get_magtype<EVStamag>, "Its type, or None."}};
}

template <>
std::vector<OwnField<EVMoment>> own_fields() {
  return {};
}

template <>
std::vector<OwnField<EVAssociation>> own_fields() {
  return {
      {"defining",
       [](const EVAssociation &a) { return py::object(py::bool_(a.defining != 0)); },
       "Whether the time of the arrival was used in the location."}};
}

template <>
std::vector<OwnField<EVDetection>> own_fields() {
  return {{"presidual",
           [](const EVDetection &d) { return real_or_none(d.presidual, -999.0); },
           "Time minus that of the predicted first P-type arrival, s, or None."},
          {"sresidual",
           [](const EVDetection &d) { return real_or_none(d.sresidual, -999.0); },
           "Time minus that of the predicted first S-type arrival, s, or None."},
          {"delta", [](const EVDetection &d) { return real_or_none(d.delta, -999.0); },
           "Distance from station to origin, degrees, or None."}};
}

/* A part of a record, which lives as long as the whole. */
template <class Part, class Whole>
RecordOf<Part> part_of(const RecordOf<Whole> &whole, const Part *part) {
  return {whole.tree, std::shared_ptr<const Part>(whole.record, part)};
}

template <class Part, class Whole>
py::object part_or_none(const RecordOf<Whole> &whole, const Part *part) {
  return part == nullptr ? py::object(py::none()) : py::cast(part_of(whole, part));
}

template <class Part, class Whole>
py::tuple parts_of(const RecordOf<Whole> &whole, const Table<Part> &parts) {
  py::tuple result(static_cast<std::size_t>(parts.size()));
  for (long i = 0; i < parts.size(); i++) {
    result[static_cast<std::size_t>(i)] = part_of(whole, parts.ptr(i));
  }
  return result;
}

/* The same origin in the expanded event; null when it has gone. */
PyOrigin expanded_origin(const PyOrigin &origin) {
  const auto whole = expanded_event(*origin.tree);
  for (const EVOrigin &candidate : whole->origins) {
    if (candidate.orid == origin.record->orid) {
      return {origin.tree, std::shared_ptr<const EVOrigin>(whole, &candidate)};
    }
  }
  return {origin.tree, nullptr};
}

template <auto List>
py::tuple expanded_parts(const PyOrigin &origin) {
  const PyOrigin whole = expanded_origin(origin);
  return whole.record == nullptr ? py::tuple() : parts_of(whole, *whole.record.*List);
}

/* The preferred origin, else the first; its record is null without origins. */
PyOrigin preferred_origin(const PyEvent &event) {
  const EVEvent &e = *event.record;
  const EVOrigin *origin = e.origins.ptr(e.pref_origin);
  if (origin == nullptr) origin = e.origins.ptr(0);
  return {event.tree, std::shared_ptr<const EVOrigin>(event.record, origin)};
}

template <auto List>
py::tuple parts_of_preferred(const PyEvent &event) {
  const PyOrigin origin = preferred_origin(event);
  return origin.record == nullptr ? py::tuple()
                                  : parts_of(origin, *origin.record.*List);
}

template <auto List>
py::tuple expanded_parts_of_preferred(const PyEvent &event) {
  const PyOrigin origin = preferred_origin(event);
  return origin.record == nullptr ? py::tuple() : expanded_parts<List>(origin);
}

template <auto List, auto Index>
py::object preferred_part(const PyOrigin &origin) {
  const EVOrigin &o = *origin.record;
  return part_or_none(origin, (o.*List).ptr(o.*Index));
}

template <auto Origin, auto List, auto Index>
py::object preferred_part_of_event(const PyEvent &event) {
  const EVOrigin *const origin = event.record->origins.ptr((*event.record).*Origin);
  if (origin == nullptr) return py::none();
  return preferred_part<List, Index>(part_of(event, origin));
}

/* The row that a record is made of, as a row of its table; None without a row. */
template <class Record>
py::object row_of(const RecordOf<Record> &self, std::size_t which) {
  const RowRef row = rows_of(*self.record).rows[which];
  if (row.text == nullptr || row.text->empty() || row.recno < 0) return py::none();
  return py::cast(TableRow{row.table, row.recno, *row.text, self.tree->layouts});
}

py::object arrival_of(const RecordOf<EVAssociation> &self) { return row_of(self, 1); }

template <class Record>
py::object get_field(const RecordOf<Record> &self, const std::string &name) {
  const RowLayouts &layouts = *self.tree->layouts;
  if (!name.starts_with('_')) {
    for (const RowRef &row : rows_of(*self.record).rows) {
      if (layouts.field(row.table, name) == nullptr) continue;
      if (row.text == nullptr) return py::none();
      return field_value(layouts, row.table, *row.text, name);
    }
  }
  throw py::attribute_error("no field '" + name + "'");
}

template <class Record>
py::dict dict_of(const RecordOf<Record> &self) {
  py::dict values;
  for (const OwnField<Record> &field : own_fields<Record>()) {
    values[field.name] = field.get(*self.record);
  }
  const RowsOf rows = rows_of(*self.record);
  for (std::size_t i = 0; i < rows.own; i++) {
    if (rows.rows[i].text == nullptr) continue;
    add_fields(*self.tree->layouts, rows.rows[i].table, *rows.rows[i].text, values);
  }
  return values;
}

template <class Part, class Whole>
py::list dicts_of(const RecordOf<Whole> &whole, const Table<Part> &parts);

template <class Record>
py::dict tree_dict(const RecordOf<Record> &self) {
  py::dict values = dict_of(self);
  const Record &record = *self.record;
  if constexpr (std::is_same_v<Record, EVEvent>) {
    values["origins"] = dicts_of(self, record.origins);
  } else if constexpr (std::is_same_v<Record, EVOrigin>) {
    values["magnitudes"] = dicts_of(self, record.magnitudes);
    values["moments"] = dicts_of(self, record.moments);
    if (self.tree->expanded) {
      values["associations"] = dicts_of(self, record.associations);
      values["detections"] = dicts_of(self, record.detections);
    }
  } else if constexpr (std::is_same_v<Record, EVMagnitude>) {
    if (self.tree->expanded) values["stamags"] = dicts_of(self, record.stamags);
  }
  return values;
}

template <class Part, class Whole>
py::list dicts_of(const RecordOf<Whole> &whole, const Table<Part> &parts) {
  py::list list;
  for (const Part &part : parts) list.append(tree_dict(part_of(whole, &part)));
  return list;
}

/* All names of an object: those of its class and the fields of its rows. */
template <class Record>
py::list names_of(const py::object &self) {
  const auto &record = self.cast<const RecordOf<Record> &>();
  py::set names(py::module_::import("builtins").attr("dir")(self.get_type()));
  for (const RowRef &row : rows_of(*record.record).rows) {
    for (const auto &layout : record.tree->layouts->of_table(row.table)) {
      for (const db::Field &field : layout->fields) names.add(py::str(field.name));
      break;
    }
  }
  return py::list(names);
}

template <class List>
bool all_same(const List &a, const List &b);

/* Whether two records are made of the same rows, those below them included. */
template <class Record>
bool is_same(const Record &a, const Record &b) {
  const RowsOf rows_a = rows_of(a), rows_b = rows_of(b);
  for (std::size_t i = 0; i < rows_a.own; i++) {
    if (*rows_a.rows[i].text != *rows_b.rows[i].text) return false;
  }
  if constexpr (std::is_same_v<Record, EVEvent>) {
    return a.evid == b.evid && all_same(a.origins, b.origins);
  } else if constexpr (std::is_same_v<Record, EVOrigin>) {
    return all_same(a.magnitudes, b.magnitudes) && all_same(a.moments, b.moments);
  } else {
    return true;
  }
}

template <class List>
bool all_same(const List &a, const List &b) {
  return std::equal(a.begin(), a.end(), b.begin(), b.end(),
                    [](const auto &x, const auto &y) { return is_same(x, y); });
}

template <class Record>
py::class_<RecordOf<Record>> declare(py::module_ &m, const char *name, const char *doc,
                                     std::initializer_list<const char *> shown) {
  using Self = RecordOf<Record>;
  py::class_<Self> made(m, name, doc);
  for (const OwnField<Record> &field : own_fields<Record>()) {
    made.def_property_readonly(
        field.name, [get = field.get](const Self &self) { return get(*self.record); },
        field.doc);
  }
  made.def("__getattr__", get_field<Record>, py::arg("name"))
      .def("__dir__", [](const py::object &self) { return names_of<Record>(self); })
      .def("__repr__",
           [fields = std::vector<const char *>(shown)](const py::object &self) {
             std::string line =
                 self.get_type().attr("__name__").cast<std::string>() + "(";
             const char *separator = "";
             for (const char *field : fields) {
               const py::object value = py::getattr(self, field, py::none());
               if (value.is_none()) continue;
               line += separator + std::string(field) + "=" +
                       py::repr(value).cast<std::string>();
               separator = ", ";
             }
             return line + ")";
           })
      .def(
          "__eq__",
          [](const Self &self, const py::object &other) -> py::object {
            if (!py::isinstance<Self>(other)) {
              return py::reinterpret_borrow<py::object>(Py_NotImplemented);
            }
            return py::bool_(is_same(*self.record, *other.cast<const Self &>().record));
          })
      .def("__hash__",
           [](const Self &self) {
             const RowsOf rows = rows_of(*self.record);
             return std::hash<db::RowText>()(*rows.rows.front().text);
           })
      .def("as_dict", tree_dict<Record>,
           "The fields by name, with the records below as lists of dictionaries;\n"
           "associations, station magnitudes and detections of an expanded event only.")
      .def_property_readonly(
          "row", [](const Self &self) { return row_of(self, 0); },
          "The row that the record is made of, or None.")
      .def("_repr_html_", [](const py::object &self) {
        return py::module_::import("ksutil._tables").attr("record_table")(self);
      });
  return made;
}

void bind_small_records(py::module_ &m) {
  declare<EVStamag>(m, "StationMagnitude",
                    "The magnitude of one station: a row of stamag.",
                    {"sta", "magnitude", "magtype"});
  declare<EVMagnitude>(
      m, "Magnitude",
      "A row of netmag, or one of the origin's own mb, ms and ml (row is None).",
      {"magnitude", "magtype", "uncertainty", "auth"})
      .def_property_readonly(
          "stamags",
          [](const RecordOf<EVMagnitude> &self) {
            return parts_of(self, self.record->stamags);
          },
          "Station magnitudes, of an expanded event; else empty.");
  declare<EVMoment>(m, "Moment", "A row of mt: a moment tensor.",
                    {"mrr", "mtt", "mpp", "mrt", "mrp", "mtp"})
      .def_property_readonly(
          "tensor",
          [](const py::object &self) {
            return py::module_::import("ksutil")
                .attr("MomentTensor")
                .attr("from_row")(self);
          },
          "The row's tensor as a MomentTensor.");
  declare<EVAssociation>(
      m, "Association",
      "A row of assoc with its arrival and the site valid at the time; the fields of\n"
      "all three are attributes, a name that several have means the first of them.",
      {"sta", "phase", "time", "delta", "timeres"})
      .def_property_readonly("arrival", arrival_of, "The row of arrival, or None.")
      .def_property_readonly(
          "site", [](const RecordOf<EVAssociation> &self) { return row_of(self, 2); },
          "The row of site, or None.");
  declare<EVDetection>(m, "Detection", "A row of detection with its site.",
                       {"sta", "chan", "time", "presidual"})
      .def_property_readonly(
          "site", [](const RecordOf<EVDetection> &self) { return row_of(self, 1); },
          "The row of site, or None.");
}

void bind_origin(py::module_ &m) {
  declare<EVOrigin>(
      m, "Origin",
      "An origin with its origerr row, magnitudes and moment tensors.  The fields of\n"
      "origin and origerr are attributes, and those of the preferred magnitude and\n"
      "moment tensor.",
      {"orid", "time", "lat", "lon", "depth", "magnitude", "magtype"})
      .def_property_readonly(
          "magnitudes",
          [](const PyOrigin &self) { return parts_of(self, self.record->magnitudes); },
          "Tuple of Magnitude.")
      .def_property_readonly(
          "moments",
          [](const PyOrigin &self) { return parts_of(self, self.record->moments); },
          "Tuple of Moment.")
      .def_property_readonly(
          "preferred_magnitude",
          preferred_part<&EVOrigin::magnitudes, &EVOrigin::pref_magnitude>,
          "The magnitude that the rules prefer, or None.")
      .def_property_readonly("preferred_moment",
                             preferred_part<&EVOrigin::moments, &EVOrigin::pref_moment>,
                             "The preferred moment tensor, or None.")
      .def_property_readonly("associations", expanded_parts<&EVOrigin::associations>,
                             "Tuple of Association; the server is asked for them once.")
      .def_property_readonly("detections", expanded_parts<&EVOrigin::detections>,
                             "Tuple of Detection; the server is asked for them once.");
}

void bind_event(py::module_ &m) {
  declare<EVEvent>(m, "Event",
                   "A copy of an event, which never changes.  The fields of its row "
                   "are attributes,\n"
                   "and those of its preferred origin, magnitude and moment tensor.",
                   {"evid", "time", "lat", "lon", "depth", "magnitude", "magtype"})
      .def_property_readonly(
          "origins",
          [](const PyEvent &self) { return parts_of(self, self.record->origins); },
          "Tuple of Origin.")
      .def_property_readonly(
          "preferred_origin",
          [](const PyEvent &self) -> py::object {
            const PyOrigin origin = preferred_origin(self);
            if (origin.record == nullptr) return py::none();
            return py::cast(origin);
          },
          "The preferred origin, else the first; None without origins.")
      .def_property_readonly(
          "preferred_magnitude",
          preferred_part_of_event<&EVEvent::pref_magnitude_origin,
                                  &EVOrigin::magnitudes, &EVOrigin::pref_magnitude>,
          "The magnitude that the rules prefer, or None.")
      .def_property_readonly(
          "preferred_moment",
          preferred_part_of_event<&EVEvent::pref_moment_origin, &EVOrigin::moments,
                                  &EVOrigin::pref_moment>,
          "The preferred moment tensor, or None.")
      .def_property_readonly("magnitudes", parts_of_preferred<&EVOrigin::magnitudes>,
                             "Tuple of Magnitude: those of the preferred origin.")
      .def_property_readonly("moments", parts_of_preferred<&EVOrigin::moments>,
                             "Tuple of Moment: those of the preferred origin.")
      .def_property_readonly("associations",
                             expanded_parts_of_preferred<&EVOrigin::associations>,
                             "Tuple of Association of the preferred origin; the server "
                             "is asked for them once.")
      .def_property_readonly(
          "arrivals",
          [](const PyEvent &self) {
            py::list rows;
            for (const py::handle one :
                 expanded_parts_of_preferred<&EVOrigin::associations>(self)) {
              py::object row = arrival_of(one.cast<const RecordOf<EVAssociation> &>());
              if (!row.is_none()) rows.append(std::move(row));
            }
            return py::tuple(rows);
          },
          "Tuple of the rows of arrival that belong to the preferred origin.")
      .def_property_readonly("detections",
                             expanded_parts_of_preferred<&EVOrigin::detections>,
                             "Tuple of Detection of the preferred origin.")
      .def_property_readonly(
          "expanded", [](const PyEvent &self) { return self.tree->expanded; },
          "Whether associations and so on are in the copy already.")
      .def(
          "expand",
          [](const PyEvent &self) {
            if (self.tree->expanded) return self;
            auto whole = expanded_event(*self.tree);
            return make_event(std::move(whole), self.tree->layouts,
                              self.tree->core.lock(), true);
          },
          "The event as it is now, with associations, station magnitudes and\n"
          "detections of all its origins.");
}

}  // namespace

PyEvent make_event(std::shared_ptr<const EVEvent> event,
                   std::shared_ptr<const RowLayouts> layouts,
                   const std::shared_ptr<ServerCore> &core, bool expanded) {
  auto tree = std::make_shared<EventTree>();
  tree->event = event;
  tree->layouts = std::move(layouts);
  tree->core = core;
  tree->expanded = expanded;
  return {std::move(tree), std::move(event)};
}

std::shared_ptr<const EVEvent> expanded_event(EventTree &tree) {
  if (tree.expanded) return tree.event;
  if (tree.whole != nullptr) return tree.whole;
  const auto core = tree.core.lock();
  if (core == nullptr) {
    throw Error("no open server to ask for the rest of the event");
  }
  auto whole = std::make_shared<EVEvent>();
  const Failure failure;
  failure.check(released([&] {
    return core->use([&](EVServer &server) {
      return server.getExpandedEvent(nullptr, static_cast<long>(tree.event->evid),
                                     *whole);
    });
  }));
  tree.whole = std::move(whole);
  return tree.whole;
}

void bind_event_records(py::module_ &m) {
  bind_small_records(m);
  bind_origin(m);
  bind_event(m);
}

}  // namespace ksutil::python
