#include <pybind11/numpy.h>
#include <pybind11/stl.h>

#include <algorithm>
#include <cmath>
#include <numeric>
#include <optional>

#include "bindings/bindings.h"
#include "bindings/database/database.h"
#include "bindings/database/seen_rows.h"
#include "bindings/interpreter/arguments.h"
#include "bindings/interpreter/failure.h"
#include "platform/db/access.h"
#include "platform/db/columns.h"
#include "platform/db/row_removal.h"
#include "platform/elog/elog.h"
#include "tools/ksdb/edit_tables.h"
#include "tools/ksdb/new_rows.h"
#include "tools/ksdb/row_values.h"

namespace ksutil::python {
namespace {

using tools::ChangedRow;
using tools::Referrer;

/* The values of one field for rows that are written: one for each row, or one for all.
 * Made with the GIL and used without. */
struct InputColumn {
  db::Field field;
  std::optional<py::array_t<std::int64_t>> integers;  // one of the three
  std::optional<py::array_t<double>> reals;
  std::vector<std::optional<std::string>> texts;
  std::optional<py::array_t<std::uint8_t>> mask;  // of integers: not 0 is null
  const std::int64_t *integer = nullptr;
  const double *real = nullptr;
  const std::uint8_t *masked = nullptr;
  std::size_t count = 0;
};

using Input = std::vector<std::unique_ptr<InputColumn>>;

template <class Value>
const Value *hold(const py::handle &from, std::optional<py::array_t<Value>> &held,
                  std::size_t &count) {
  held = py::array_t<Value, py::array::c_style | py::array::forcecast>::ensure(from);
  if (!*held) throw py::type_error("no array of numbers");
  if (held->ndim() != 1) throw py::value_error("columns have one dimension");
  count = static_cast<std::size_t>(held->size());
  return held->data();
}

/* Takes {name: ("integers", array, mask or None) | ("reals", array) | ("texts", list)}. */
Input take_input(const View &view, const db::Relation &layout, const py::dict &values) {
  Input input;
  for (const auto &[key, value] : values) {
    auto column = std::make_unique<InputColumn>();
    column->field = find_field(view, {layout}, py::cast<std::string>(key)).field;
    if (column->field.type == db::FieldType::kPointer) {
      throw py::key_error("'" + column->field.name + "' holds pointers");
    }
    const auto given = py::cast<py::tuple>(value);
    const auto kind = py::cast<std::string>(given[0]);
    if (kind == "integers") {
      column->integer = hold(given[1], column->integers, column->count);
      if (!given[2].is_none()) {
        std::size_t size = 0;
        column->masked = hold(given[2], column->mask, size);
        if (size != column->count) throw py::value_error("the mask has another size");
      }
    } else if (kind == "reals") {
      column->real = hold(given[1], column->reals, column->count);
    } else {
      column->texts = value_as<std::vector<std::optional<std::string>>>(
          given[1], column->field.name.c_str());
      column->count = column->texts.size();
    }
    input.push_back(std::move(column));
  }
  return input;
}

/* Writes one value into a row; false with the problem. */
bool write_cell(const db::Relation &layout, const InputColumn &column, std::size_t i,
                std::string &row, std::string &problem) {
  const db::Field &field = column.field;
  const std::string place = layout.name + "." + field.name;
  const Failure failure;
  bool done = false;
  if (column.integer == nullptr && column.real == nullptr) {
    const auto &text = column.texts[i];
    return tools::write_values(layout, {{field.name, text ? *text : std::string()}},
                               row, problem);
  }
  if ((column.masked != nullptr && column.masked[i] != 0) ||
      (column.real != nullptr && std::isnan(column.real[i]))) {
    done = db::write_text(field, "", row);
  } else if (field.type == db::FieldType::kText) {
    problem = place + " takes texts, not numbers";
    return false;
  } else if (field.type == db::FieldType::kInteger ||
             field.type == db::FieldType::kYearday) {
    std::int64_t value = 0;
    if (column.integer != nullptr) {
      value = column.integer[i];
    } else {
      const double real = column.real[i];
      if (real != std::trunc(real) || std::abs(real) > 9007199254740992.0) {
        problem = place + " takes whole numbers, not " + std::to_string(real);
        return false;
      }
      value = static_cast<std::int64_t>(real);
    }
    if (field.type == db::FieldType::kYearday) {
      return tools::write_values(layout, {{field.name, std::to_string(value)}}, row,
                                 problem);
    }
    done = db::write_integer(field, value, row);
  } else {
    done =
        db::write_real(field,
                       column.real != nullptr ? column.real[i]
                                              : static_cast<double>(column.integer[i]),
                       row);
  }
  if (!done) problem = failure.text();
  return done;
}

bool is_given(const Input &input, std::string_view name) {
  return std::any_of(input.begin(), input.end(),
                     [name](const auto &column) { return column->field.name == name; });
}

/* Writes the values of row i, with the day of the time unless that is given; false with the
 * problem. */
bool write_row(const db::Relation &layout, const Input &input, std::size_t i,
               std::string &row, std::string &problem) {
  for (const auto &column : input) {
    if (!write_cell(layout, *column, column->count == 1 ? 0 : i, row, problem)) {
      return false;
    }
  }
  if (is_given(input, "time") && !is_given(input, "jdate"))
    tools::date_row(layout, row);
  return true;
}

void check_counts(const Input &input, std::size_t count) {
  for (const auto &column : input) {
    if (column->count != count && column->count != 1) {
      throw py::value_error("'" + column->field.name + "' has " +
                            std::to_string(column->count) + " values for " +
                            std::to_string(count) + " rows");
    }
  }
}

[[noreturn]] void refuse(std::size_t row, std::size_t count, const std::string &why) {
  throw Error(count == 1 ? why : "row " + std::to_string(row) + ": " + why);
}

db::DatabaseStore &store_of(Dbptr db, const Failure &failure) {
  db::DatabaseStore *const store = db::database_store(db);
  if (store == nullptr) failure.raise();
  if (!store->writable()) throw Error("the database is open for reading only");
  return *store;
}

db::Relation layout_of(const View &view) {
  if (!view.is_table()) throw py::type_error("only tables are written, not views");
  return view.handle->use(
      [&](Dbptr db, Failure &failure) { return layouts_of(view, db, failure)[0]; });
}

long append(const View &view, const py::dict &values, std::size_t count, bool force) {
  tools::NewRows added{layout_of(view), {}, {}};
  const Input input = take_input(view, added.layout, values);
  check_counts(input, count);
  return view.handle->use([&](Dbptr db, Failure &failure) {
    db::DatabaseStore &store = store_of(db, failure);
    const std::string null_row = db::null_record(added.layout);
    const db::IntegerColumn id(added.layout, added.layout.id_field);
    std::string problem;
    added.rows.reserve(count);
    for (std::size_t i = 0; i < count; i++) {
      std::string row = null_row;
      if (!write_row(added.layout, input, i, row, problem)) refuse(i, count, problem);
      if (!is_given(input, "lddate")) tools::stamp_row(added.layout, row);
      std::int64_t value = 0;
      if (id.valid() && (!id.read(row, value) || value == id.null())) {
        added.without_id.push_back(i);
      }
      added.rows.push_back(std::move(row));
    }
    long first = -1;
    tools::Refusal refusal;
    if (!tools::add_new_rows(store, added, force, false, first, refusal)) {
      if (!refusal.without_key.empty()) throw Error(refusal.without_key);
      if (!refusal.repeated.empty()) throw Error(refusal.repeated);
      failure.raise();
    }
    return first;
  });
}

/* Records of a table that are to be changed or removed. */
struct Chosen {
  std::vector<long> records;
  /* The texts that their rows are expected to have; "" means any. */
  std::vector<std::string> texts;
  bool of_view = false;                // the rows are expected to be those of `seen`
  const db::Snapshot *seen = nullptr;  // kept by the Handle
};

/* Takes ([number], [text of a row or None]) or, for the records of a view,
 * ([number], (SeenRows or None, place of the table in the view)).  `seen_by` and `part`
 * are for find_seen. */
Chosen take_chosen(const std::vector<long> &records, const py::object &expected,
                   std::shared_ptr<SeenRows> &seen_by, std::size_t &part) {
  Chosen chosen{records, {}, py::isinstance<py::tuple>(expected), nullptr};
  if (chosen.of_view) {
    const auto given = py::cast<py::tuple>(expected);
    seen_by = py::cast<std::shared_ptr<SeenRows>>(given[0]);
    part = py::cast<std::size_t>(given[1]);
    return chosen;
  }
  for (const py::handle &text : py::cast<py::list>(expected)) {
    chosen.texts.push_back(text.is_none() ? std::string()
                                          : py::cast<std::string>(text));
  }
  if (chosen.texts.size() != records.size()) throw py::value_error("texts of rows");
  return chosen;
}

/* Takes the rows that a view saw.  Inside Handle::use. */
void find_seen(const View &table, const std::shared_ptr<SeenRows> &seen_by,
               std::size_t part, Chosen &chosen) {
  if (!chosen.of_view) return;
  if (seen_by != nullptr) {
    chosen.seen = table.handle->seen_table(seen_by->id, part).get();
  }
  if (chosen.seen != nullptr) return;
  throw Error(table.tables[0] +
              " was changed while the view was made; make the view again");
}

/* Throws Error unless all chosen records are there and have the expected rows. */
void check_chosen(const db::Snapshot &rows, const Chosen &chosen,
                  const Failure &failure) {
  const std::string &table = rows.layout().name;
  const auto changed = [&](long record) {
    return Error("record " + std::to_string(record) + " of " + table +
                 " has changed since it was read");
  };
  for (std::size_t i = 0; i < chosen.records.size(); i++) {
    const long record = chosen.records[i];
    if (record < 0 || record >= rows.count()) {
      if (chosen.of_view) throw changed(record);
      throw Error(table + " has no record " + std::to_string(record));
    }
    const std::string_view row = rows.row(record);
    if (row.empty()) failure.raise();
    if (!chosen.of_view && !chosen.texts[i].empty() && row != chosen.texts[i]) {
      throw changed(record);
    }
  }
  if (!chosen.of_view || chosen.seen == &rows) return;
  /* Rows are compared in the order in which they are stored. */
  std::vector<long> records = chosen.records;
  std::sort(records.begin(), records.end());
  for (const long record : records) {
    if (!is_as_seen(*chosen.seen, rows, record)) throw changed(record);
  }
}

/* For each record, whether it is the last one of its number. */
std::vector<bool> last_of_each(const std::vector<long> &records) {
  std::vector<std::size_t> order(records.size());
  std::iota(order.begin(), order.end(), std::size_t{0});
  std::stable_sort(order.begin(), order.end(), [&](std::size_t a, std::size_t b) {
    return records[a] < records[b];
  });
  std::vector<bool> last(records.size());
  for (std::size_t i = 0; i < order.size(); i++) {
    last[order[i]] =
        i + 1 == order.size() || records[order[i]] != records[order[i + 1]];
  }
  return last;
}

[[noreturn]] void refuse_references(const std::vector<std::string> &lines) {
  std::string text;
  for (const std::string &line : lines) text += (text.empty() ? "" : "; ") + line;
  throw Error(text);
}

/* Runs a step of the store; what it throws passes the store as its failure. */
template <class Run, class Step>
void run_step(const Failure &failure, const Run &run, const Step &step) {
  std::exception_ptr thrown;
  const bool done = run([&](auto &locked) {
    try {
      thrown = nullptr;
      return step(locked);
    } catch (...) {
      thrown = std::current_exception();
      return false;
    }
  });
  if (thrown) std::rethrow_exception(thrown);
  if (!done) failure.raise();
}

long update(const View &view, const std::vector<long> &records,
            const py::object &expected, const py::dict &values, bool force) {
  const db::Relation layout = layout_of(view);
  const Input input = take_input(view, layout, values);
  std::shared_ptr<SeenRows> seen_by;
  std::size_t part = 0;
  Chosen chosen = take_chosen(records, expected, seen_by, part);
  check_counts(input, records.size());
  const std::vector<bool> counts = last_of_each(records);
  long done = 0;
  view.handle->use([&](Dbptr db, Failure &failure) {
    db::DatabaseStore &store = store_of(db, failure);
    find_seen(view, seen_by, part, chosen);
    std::vector<Referrer> referrers = tools::referrers_of(*store.schema(), layout.name);
    std::erase_if(referrers, [&](const Referrer &referrer) {
      return referrer.table == layout.name || !is_given(input, referrer.target);
    });
    std::vector<std::string> tables =
        tools::referring_tables(store, layout.name, referrers);
    tables.push_back(layout.name);
    const std::size_t place = tables.size() - 1;
    const auto step_on = [&](db::Transaction &step) {
      const auto rows = step.snapshot(place);
      if (rows == nullptr) return false;
      check_chosen(*rows, chosen, failure);
      std::vector<ChangedRow> changed;
      std::string problem;
      for (std::size_t i = 0; i < records.size(); i++) {
        const std::string before(rows->row(records[i]));
        std::string row = before;
        if (!write_row(rows->layout(), input, i, row, problem)) {
          refuse(i, records.size(), problem);
        }
        if (!counts[i] || row == before) continue;
        if (!is_given(input, "lddate")) tools::stamp_row(rows->layout(), row);
        changed.push_back({records[i], std::move(row)});
      }
      if (!force) {
        const std::string repeated =
            tools::repeated_key(*rows, rows->layout(), changed);
        if (!repeated.empty()) throw Error(layout.name + ": " + repeated);
        const auto lines =
            tools::lost_references(*rows, changed, referrers,
                                   [&](const std::string &table,
                                       std::shared_ptr<const db::Snapshot> &referring) {
                                     for (std::size_t i = 0; i < place; i++) {
                                       if (tables[i] != table) continue;
                                       referring = step.snapshot(i);
                                       return referring != nullptr;
                                     }
                                     return true;
                                   });
        if (!lines.empty()) refuse_references(lines);
      }
      for (const ChangedRow &row : changed) {
        if (!step.overwrite(place, row.record, row.text)) return false;
      }
      done = static_cast<long>(changed.size());
      return true;
    };
    run_step(
        failure,
        [&](const std::function<bool(db::Transaction &)> &work) {
          return store.transaction(tables, work);
        },
        step_on);
  });
  return done;
}

long remove(const View &view, const std::vector<long> &records,
            const py::object &expected, bool force) {
  const db::Relation layout = layout_of(view);
  std::shared_ptr<SeenRows> seen_by;
  std::size_t part = 0;
  Chosen chosen = take_chosen(records, expected, seen_by, part);
  std::vector<long> gone = records;
  std::sort(gone.begin(), gone.end());
  gone.erase(std::unique(gone.begin(), gone.end()), gone.end());
  view.handle->use([&](Dbptr db, Failure &failure) {
    db::DatabaseStore &store = store_of(db, failure);
    find_seen(view, seen_by, part, chosen);
    std::vector<Referrer> referrers = tools::referrers_of(*store.schema(), layout.name);
    std::erase_if(referrers,
                  [&](const Referrer &other) { return other.table == layout.name; });
    const auto is_gone = [&](long record) {
      return std::binary_search(gone.begin(), gone.end(), record);
    };
    const auto step_on = [&](tools::LockedTables &locked) {
      db::TableStore::Exclusive &table = *locked.at(layout.name);
      const auto rows = table.snapshot();
      if (rows == nullptr) return false;
      check_chosen(*rows, chosen, failure);
      if (!force) {
        auto values = tools::values_in(*rows, referrers, is_gone);
        tools::take_away(values, tools::values_in(*rows, referrers, [&](long record) {
                           return !is_gone(record);
                         }));
        const auto lines = tools::told_references(
            referrers,
            [&](const std::string &name,
                std::shared_ptr<const db::Snapshot> &referring) {
              const auto found = locked.find(name);
              if (found == locked.end()) return true;
              referring = found->second->snapshot();
              return referring != nullptr;
            },
            values);
        if (!lines.empty()) refuse_references(lines);
      }
      return db::remove_rows(table, gone);
    };
    run_step(
        failure,
        [&](const std::function<bool(tools::LockedTables &)> &work) {
          return tools::with_locked(store, layout.name, referrers, work);
        },
        step_on);
  });
  return static_cast<long>(gone.size());
}

}  // namespace

void bind_table_edits(py::module_ &m) {
  m.def("append_rows", &append, py::arg("table"), py::arg("values"), py::arg("count"),
        py::arg("force"));
  m.def("update_rows", &update, py::arg("table"), py::arg("records"),
        py::arg("expected"), py::arg("values"), py::arg("force"));
  m.def("remove_rows", &remove, py::arg("table"), py::arg("records"),
        py::arg("expected"), py::arg("force"));
}

}  // namespace ksutil::python
