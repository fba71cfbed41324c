#include <pybind11/numpy.h>
#include <pybind11/stl.h>

#include <algorithm>

#include "bindings/bindings.h"
#include "bindings/database/database.h"
#include "bindings/database/seen_rows.h"
#include "bindings/database/view_columns.h"
#include "bindings/interpreter/arguments.h"
#include "bindings/interpreter/arrays.h"
#include "bindings/interpreter/failure.h"
#include "platform/db/access.h"
#include "platform/stock/owners.h"

namespace ksutil::python {
namespace {

using Names = std::vector<std::string>;
using ViewPtr = std::shared_ptr<View>;

/* A list of texts for the functions of db.h, which do not change it. */
TblPtr list_of(const Names &names) {
  TblPtr list = new_list(names.size());
  for (const std::string &name : names) {
    refuse_nul(name, "the expression");
    if (pushtbl(list.get(), const_cast<char *>(name.c_str())) < 0) {
      throw std::bad_alloc();
    }
  }
  return list;
}

/* Makes a view of others by make(); gives it with the number of records that could not be
 * read and were left out. */
template <class Make>
std::pair<ViewPtr, long> make_view(const std::vector<const View *> &sources,
                                   const Names &tables, const Make &make) {
  const std::shared_ptr<Handle> &handle = sources[0]->handle;
  /* The rows that a view has been made from are those of the view made of it as well. */
  std::shared_ptr<SeenRows> seen = sources.size() == 1 ? sources[0]->seen : nullptr;
  long left_out = 0, seen_id = -1;
  const Dbptr made = handle->use([&](Dbptr, Failure &failure) {
    WatchedView found =
        seen != nullptr ? WatchedView{make(), {}} : make_watched(sources, make);
    if (found.view.table < 0 || found.view.database < 0) failure.raise();
    if (dbquery(found.view, dbq_unreadable_count, &left_out) < 0) left_out = 0;
    if (!found.seen.empty()) seen_id = handle->keep_seen(std::move(found.seen));
    return found.view;
  });
  auto view = std::make_shared<View>(handle, made, tables);
  if (seen_id >= 0) seen = std::make_shared<SeenRows>(handle, seen_id);
  view->seen = std::move(seen);
  return {std::move(view), left_out};
}

long count_records(const View &view) {
  return view.handle->use([&](Dbptr, Failure &failure) {
    long count = 0;
    failure.check(dbquery(view.dbptr, dbq_record_count, &count));
    return count;
  });
}

Names fields_of(const View &view) {
  return view.handle->use([&](Dbptr db, Failure &failure) {
    return field_names(layouts_of(view, db, failure));
  });
}

/* (name, kind, width, null text, meaning) of each field. */
py::list describe(const View &view) {
  static const char *const kKinds[] = {"integer", "real", "text",   "time",
                                       "date",    "day",  "pointer"};
  const auto layouts = view.handle->use(
      [&](Dbptr db, Failure &failure) { return layouts_of(view, db, failure); });
  py::list described;
  for (const std::string &name : field_names(layouts)) {
    const db::Field field = find_field(view, layouts, name).field;
    described.append(py::make_tuple(name, kKinds[static_cast<int>(field.type)],
                                    field.width, field.null_text, field.meaning));
  }
  return described;
}

std::pair<ViewPtr, long> subset(const View &view, const std::string &condition) {
  refuse_nul(condition, "the condition");
  return make_view({&view}, view.tables,
                   [&] { return dbsubset(view.dbptr, condition.c_str()); });
}

std::pair<ViewPtr, long> sort(const View &view, const Names &keys, bool reverse,
                              bool unique) {
  const TblPtr list = list_of(keys);
  const int flags = (reverse ? dbSORT_REVERSE : 0) | (unique ? dbSORT_UNIQUE : 0);
  return make_view({&view}, view.tables,
                   [&] { return dbsort(view.dbptr, list.get(), flags); });
}

std::pair<ViewPtr, long> join(const View &left, const View &right,
                              const std::optional<Names> &left_keys,
                              const std::optional<Names> &right_keys) {
  if (left.handle != right.handle) {
    throw py::value_error("both sides of a join are of one Database");
  }
  const TblPtr lkeys = left_keys ? list_of(*left_keys) : nullptr;
  const TblPtr rkeys = right_keys ? list_of(*right_keys) : nullptr;
  Names tables = left.tables;
  tables.insert(tables.end(), right.tables.begin(), right.tables.end());
  return make_view({&left, &right}, tables, [&] {
    return dbjoin(left.dbptr, right.dbptr, lkeys.get(), rkeys.get());
  });
}

std::pair<ViewPtr, long> group(const View &view, const Names &keys) {
  const TblPtr list = list_of(keys);
  return make_view({&view}, view.tables,
                   [&] { return dbgroup(view.dbptr, list.get()); });
}

/* Start and end of each group in the view that was grouped: int64 [n, 2]. */
py::array group_ranges(const View &groups) {
  std::vector<std::int64_t> ends;
  groups.handle->use([&](Dbptr, Failure &failure) {
    long count = 0;
    failure.check(dbquery(groups.dbptr, dbq_record_count, &count));
    Dbptr record = groups.dbptr;
    for (record.record = 0; record.record < count; record.record++) {
      long start = 0, end = 0;
      failure.check(dbget_range(record, &start, &end));
      ends.push_back(start);
      ends.push_back(end);
    }
  });
  const auto count = static_cast<py::ssize_t>(ends.size() / 2);
  return array_of(std::move(ends)).reshape({count, py::ssize_t{2}});
}

/* The records of a stored table behind the records of a view. */
py::array record_numbers(const View &view, const std::string &table) {
  const auto place = std::find(view.tables.begin(), view.tables.end(), table);
  if (place == view.tables.end()) throw py::key_error("no table '" + table + "' here");
  const auto part = static_cast<std::size_t>(place - view.tables.begin());
  std::vector<std::int64_t> numbers;
  view.handle->use([&](Dbptr, Failure &failure) {
    long count = 0;
    failure.check(dbquery(view.dbptr, dbq_record_count, &count));
    numbers.reserve(static_cast<std::size_t>(count));
    Dbptr record = view.dbptr;
    std::vector<Dbptr> parts;
    for (record.record = 0; record.record < count; record.record++) {
      if (!db::view_parts(record, parts)) failure.raise();
      numbers.push_back(parts[part].record);
    }
  });
  return array_of(std::move(numbers));
}

/* The rows that a view was made from, or of a table, those that are there now; records
 * start <= record < end are to be changed.  Null where nothing is written. */
std::shared_ptr<SeenRows> see(const View &view, long start, long end) {
  return view.is_table() ? see_rows(view, start, end) : view.seen;
}

/* ({name: array}, {name: kind of times}, records with an unreadable value) */
py::tuple columns(const View &view, const Names &names, long start, long count) {
  ViewReading reading = read_view(view, names, start, count, false);
  py::dict arrays;
  py::list times;
  for (ColumnValues &column : reading.columns) {
    if (column.kind == ColumnKind::kTime) times.append(column.name);
    arrays[py::str(column.name)] = column.to_array();
  }
  return py::make_tuple(arrays, times, reading.unreadable);
}

/* ([tuple of the values of a record], [(number, text) of a row] or None where the view has
 * several tables, records with an unreadable value) */
py::tuple rows(const View &view, const Names &names, long start, long count) {
  const bool single = view.tables.size() == 1;
  ViewReading reading = read_view(view, names, start, count, single);
  std::vector<std::vector<py::object>> values;
  for (const ColumnValues &column : reading.columns) {
    values.push_back(column.to_objects());
  }
  const std::size_t found = values.empty() ? 0 : values[0].size();
  py::list made(found);
  for (std::size_t i = 0; i < found; i++) {
    py::tuple row(values.size());
    for (std::size_t j = 0; j < values.size(); j++) row[j] = std::move(values[j][i]);
    made[i] = std::move(row);
  }
  if (!single) return py::make_tuple(made, py::none(), reading.unreadable);
  py::list stored(found);
  for (std::size_t i = 0; i < found; i++) {
    stored[i] = py::make_tuple(reading.records[i], py::bytes(reading.texts[i]));
  }
  return py::make_tuple(made, stored, reading.unreadable);
}

}  // namespace

void bind_view(py::module_ &m) {
  py::class_<SeenRows, std::shared_ptr<SeenRows>>(m, "SeenRows");
  py::class_<View, ViewPtr>(m, "View")
      .def_readonly("tables", &View::tables)
      .def_property_readonly("handle", [](const View &view) { return view.handle; })
      .def_property_readonly("is_table", &View::is_table)
      .def("count", &count_records)
      .def("fields", &fields_of)
      .def("describe", &describe)
      .def("subset", &subset, py::arg("condition"))
      .def("sort", &sort, py::arg("keys"), py::arg("reverse"), py::arg("unique"))
      .def("join", &join, py::arg("right"), py::arg("left_keys"), py::arg("right_keys"))
      .def("group", &group, py::arg("keys"))
      .def("group_ranges", &group_ranges)
      .def("records", &record_numbers, py::arg("table"))
      .def("see", &see, py::arg("start"), py::arg("end"))
      .def("columns", &columns, py::arg("names"), py::arg("start"), py::arg("count"))
      .def("rows", &rows, py::arg("names"), py::arg("start"), py::arg("count"));
}

}  // namespace ksutil::python
