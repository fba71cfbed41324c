#include "tools/ksdb/new_rows.h"

#include <algorithm>
#include <cstdint>

#include "platform/db/columns.h"
#include "platform/elog/elog.h"
#include "tools/ksdb/edit_tables.h"
#include "tools/ksdb/key_reader.h"
#include "tools/ksdb/new_ids.h"
#include "tools/ksdb/verify_counters.h"

namespace ksutil::tools {
namespace {

bool same_fields(const db::Relation &a, const db::Relation &b) {
  return a.width == b.width &&
         std::equal(a.fields.begin(), a.fields.end(), b.fields.begin(), b.fields.end(),
                    [](const db::Field &x, const db::Field &y) {
                      return x.name == y.name && x.offset == y.offset &&
                             x.width == y.width && x.type == y.type;
                    });
}

/* The counters that fields of a table draw on, with the fields. */
std::vector<std::pair<std::string, std::string>> counters_in(const db::Schema &schema,
                                                             const std::string &table) {
  std::vector<std::pair<std::string, std::string>> found;
  for (const std::string &counter : counters_of(schema)) {
    for (const db::Schema::CounterUse &use : schema.counter_uses(counter)) {
      if (use.table == table) found.emplace_back(counter, use.field);
    }
  }
  return found;
}

/* The greatest id that the rows have in a field, 0 when there is none. */
std::int64_t greatest_id(const NewRows &added, const std::string &field) {
  const db::IntegerColumn column(added.layout, field);
  std::int64_t greatest = 0, id = 0;
  for (const std::string &row : added.rows) {
    if (column.valid() && column.read(row, id)) greatest = std::max(greatest, id);
  }
  return greatest;
}

/* Raises existing counters to the ids that the rows use, such as the commid of a remark:
 * an id that is handed out later must not be one of them. */
bool raise_counters(db::DatabaseStore &store, db::Transaction &step,
                    const NewRows &added) {
  for (const auto &[counter, field] : counters_in(*store.schema(), added.layout.name)) {
    std::int64_t unused = 0;
    if (!take_new_ids(store, step, 0, counter, 0, greatest_id(added, field), unused)) {
      return false;
    }
  }
  return true;
}

/* Assigns ids to the rows without one, and raises the counter to the ids that were
 * given. */
bool give_ids(db::DatabaseStore &store, db::Transaction &step, NewRows &added) {
  const db::Field *const field = added.layout.find(added.layout.id_field);
  if (field == nullptr) return true;
  std::int64_t id = 0;
  if (!take_new_ids(store, step, 0, field->name,
                    static_cast<std::int64_t>(added.without_id.size()),
                    greatest_id(added, field->name), id)) {
    return false;
  }
  for (const std::size_t index : added.without_id) {
    if (!db::write_integer(*field, id++, added.rows[index])) return false;
  }
  return true;
}

/* Whether each row can be identified by its keys and no other row has these. */
bool is_sound(const db::Snapshot &rows, const NewRows &added, Refusal &refusal) {
  const db::Relation &layout = added.layout;
  const KeyReader primary(layout, layout.primary);
  std::vector<ChangedRow> changed;
  std::string key;
  for (const std::string &text : added.rows) {
    if (primary.valid() && !primary.read(text, key)) {
      refusal.without_key = "a row without " +
                            (layout.primary.empty() ? "" : layout.primary[0]) +
                            ", which is the key of " + layout.name;
      return false;
    }
    changed.push_back({rows.count() + static_cast<long>(changed.size()), text});
  }
  const std::string repeated = repeated_key(rows, layout, changed);
  if (repeated.empty()) return true;
  refusal.repeated = layout.name + ": " + repeated;
  return false;
}

}  // namespace

bool add_new_rows(db::DatabaseStore &store, NewRows &added, bool force, bool dry_run,
                  long &first, Refusal &refusal) {
  const std::string &name = added.layout.name;
  const bool counted = name != "lastid" && store.schema()->find("lastid") != nullptr &&
                       !counters_in(*store.schema(), name).empty();
  std::vector<std::string> tables{name};
  if (counted) tables.insert(tables.begin(), "lastid");
  const std::size_t place = tables.size() - 1;
  bool ready = false;
  long found = -1;
  const bool done = store.transaction(tables, [&](db::Transaction &step) {
    refusal = {};
    const auto rows = step.snapshot(place);
    if (rows == nullptr) return false;
    if (!same_fields(step.layout(place), added.layout)) {
      elog_log(0,
               "add_new_rows: the layout of %s has changed meanwhile; nothing is "
               "added\n",
               name.c_str());
      return false;
    }
    if (counted && !added.layout.id_field.empty() && !give_ids(store, step, added)) {
      return false;
    }
    if (counted && !raise_counters(store, step, added)) return false;
    if (!force && !is_sound(*rows, added, refusal)) return false;
    std::string text;
    for (const std::string &row : added.rows) text += row;
    found = text.empty() ? rows->count() : step.append(place, text);
    ready = found >= 0;
    return ready && !dry_run;
  });
  if (!done && !(ready && dry_run)) return false;
  first = found;
  return true;
}

}  // namespace ksutil::tools
