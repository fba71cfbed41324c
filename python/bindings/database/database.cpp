#include "bindings/database/database.h"
#include "bindings/interpreter/arrays.h"

#include <pybind11/stl.h>

#include <algorithm>

#include "bindings/bindings.h"
#include "bindings/interpreter/arguments.h"
#include "bindings/interpreter/failure.h"
#include "bindings/interpreter/fork_gate.h"
#include "bindings/interpreter/gil.h"
#include "platform/db/access.h"
#include "tools/ksdb/verify_database.h"

namespace ksutil::python {

std::shared_ptr<Handle> Handle::open(const std::string &name, const std::string &mode) {
  refuse_nul(name, "the path");
  if (mode != "r" && mode != "r+") throw py::value_error("mode is 'r' or 'r+'");
  std::shared_ptr<Handle> handle(new Handle(name, mode));
  const GilReleased released;
  const ForkGate gate;
  const Failure failure;
  failure.check(dbopen_noshare(name.c_str(), mode.c_str(), &handle->db_));
  handle->open_ = true;
  handle->news_ = failure.text();
  return handle;
}

Handle::~Handle() {
  if (!open_.load()) return;
  const Failure failure;
  dbclose(db_);
}

void Handle::close() {
  const GilReleased released;
  const ForkGate gate;
  const std::lock_guard lock(mutex_);
  if (!open_.exchange(false)) return;
  const Failure failure;
  seen_.clear();
  failure.check(dbclose(db_));
}

void Handle::retire(Dbptr view) {
  const std::lock_guard lock(retired_mutex_);
  retired_.push_back(view);
}

long Handle::keep_seen(SeenTables tables) {
  seen_.emplace(++last_seen_, std::move(tables));
  return last_seen_;
}

std::shared_ptr<const db::Snapshot> Handle::seen_table(long id,
                                                       std::size_t part) const {
  const auto found = seen_.find(id);
  return found == seen_.end() ? nullptr : found->second[part];
}

void Handle::retire_seen(long id) {
  const std::lock_guard lock(retired_mutex_);
  retired_seen_.push_back(id);
}

void Handle::free_retired() {
  std::vector<Dbptr> views;
  std::vector<long> seen;
  {
    const std::lock_guard lock(retired_mutex_);
    views.swap(retired_);
    seen.swap(retired_seen_);
  }
  const Failure failure;
  for (const long id : seen) seen_.erase(id);
  for (const Dbptr view : views) dbfree_view(view);
}

View::~View() {
  if (!table) handle->retire(dbptr);
}

std::vector<db::Relation> layouts_of(const View &view, Dbptr db,
                                     const Failure &failure) {
  std::vector<db::Relation> layouts;
  for (const std::string &name : view.tables) {
    db::TableStore *const store =
        db::table_store(dblookup(db, "", name.c_str(), "", ""));
    if (store == nullptr) failure.raise();
    layouts.push_back(store->layout());
  }
  return layouts;
}

FieldPlace find_field(const View &view, const std::vector<db::Relation> &layouts,
                      const std::string &name) {
  const std::size_t point = name.find('.');
  const std::string table = point == name.npos ? "" : name.substr(0, point);
  const std::string field = point == name.npos ? name : name.substr(point + 1);
  std::string names;
  for (std::size_t i = 0; i < layouts.size(); i++) {
    names += (i > 0 ? ", " : "") + view.tables[i];
    if (!table.empty() && view.tables[i] != table) continue;
    const db::Field *const found = layouts[i].find(field);
    if (found != nullptr) return {i, *found};
  }
  throw py::key_error(names + " has no field '" + name.substr(0, 80) + "'");
}

std::vector<std::string> field_names(const std::vector<db::Relation> &layouts) {
  std::vector<std::string> names;
  for (std::size_t i = 0; i < layouts.size(); i++) {
    for (const db::Field &field : layouts[i].fields) {
      if (field.type == db::FieldType::kPointer) continue;
      const bool earlier = std::any_of(
          layouts.begin(), layouts.begin() + static_cast<std::ptrdiff_t>(i),
          [&](const db::Relation &other) { return other.find(field.name) != nullptr; });
      names.push_back(earlier ? layouts[i].name + "." + field.name : field.name);
    }
  }
  return names;
}

namespace {

std::shared_ptr<View> open_table(const std::shared_ptr<Handle> &handle,
                                 const std::string &name) {
  const Dbptr found = handle->use([&](Dbptr db, Failure &) {
    const auto *const store = db::database_store(db);
    if (store == nullptr || store->schema()->find(name) == nullptr) return dbinvalid();
    return dblookup(db, "", name.c_str(), "", "");
  });
  if (found.table < 0) throw py::key_error("the schema has no table '" + name + "'");
  auto view = std::make_shared<View>(handle, found, std::vector<std::string>{name});
  view->table = true;
  return view;
}

/* The tables of the schema, with their rows; tables without rows only on demand. */
py::dict count_tables(Handle &handle, bool all) {
  std::vector<std::pair<std::string, long>> counts;
  handle.use([&](Dbptr db, Failure &failure) {
    db::DatabaseStore *const store = db::database_store(db);
    if (store == nullptr) failure.raise();
    const db::OneLook look(store);
    for (const db::Relation &relation : store->schema()->relations()) {
      db::Stamp stamp;
      db::TableStore *const table = store->table(relation.name);
      if (table == nullptr || !table->stamp(stamp)) failure.raise();
      if (all || stamp.count > 0) counts.emplace_back(relation.name, stamp.count);
    }
  });
  py::dict result;
  for (const auto &[name, count] : counts) result[py::str(name)] = count;
  return result;
}

long take_ids(Handle &handle, const std::string &counter, long count) {
  if (count < 1) throw py::value_error("count is at least 1");
  refuse_nul(counter, "the name of the counter");
  return handle.use([&](Dbptr db, Failure &failure) {
    return failure.check(db::reserve_ids(db, counter.c_str(), count));
  });
}

std::string schema_name(Handle &handle) {
  return handle.use([](Dbptr db, Failure &failure) {
    const db::DatabaseStore *const store = db::database_store(db);
    if (store == nullptr) failure.raise();
    return store->schema()->name();
  });
}

std::string store_description(Handle &handle) {
  return handle.use([](Dbptr db, Failure &failure) {
    const db::DatabaseStore *const store = db::database_store(db);
    if (store == nullptr) failure.raise();
    return store->description();
  });
}

/* What ksdb verify finds, as (table, kind, count, [(record, text)]). */
py::list verify(const std::string &name, long limit) {
  tools::Problems problems(limit);
  {
    const GilReleased released;
    Failure failure;
    const tools::OpenDatabase database(name, "r");
    if (!database) failure.raise();
    if (!tools::verify_database(database, true, problems)) failure.raise();
  }
  py::list found;
  problems.each([&](const std::string &table, const std::string &kind, long count,
                    const std::vector<tools::Problems::Problem> &kept) {
    py::list records;
    for (const auto &problem : kept) {
      records.append(py::make_tuple(problem.record, decoded(problem.text)));
    }
    found.append(py::make_tuple(table, kind, count, records));
  });
  return found;
}

void create(const std::string &path, const std::string &schema) {
  refuse_nul(path, "the path");
  const GilReleased released;
  const Failure failure;
  failure.check(dbcreate(path.c_str(), schema.c_str()));
}

}  // namespace

void bind_database(py::module_ &m) {
  py::class_<Handle, std::shared_ptr<Handle>>(m, "Handle")
      .def(py::init(&Handle::open), py::arg("path"), py::arg("mode"))
      .def_property_readonly("path", &Handle::name)
      .def_property_readonly("mode", &Handle::mode)
      .def_property_readonly(
          "news", [](const Handle &handle) { return decoded(handle.news()); })
      .def_property_readonly("closed", &Handle::closed)
      .def_property_readonly("schema", &schema_name)
      .def_property_readonly("store", &store_description)
      .def("close", &Handle::close)
      .def("table", &open_table, py::arg("name"))
      .def("tables", &count_tables, py::arg("all"))
      .def("next_id", &take_ids, py::arg("counter"), py::arg("count"));
  m.def("verify", &verify, py::arg("path"), py::arg("limit"));
  m.def("create_database", &create, py::arg("path"), py::arg("schema"));
  m.def("builtin_schemas", &db::builtin_schemas);
}

}  // namespace ksutil::python
