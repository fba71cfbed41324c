/* db_views: implements dbsubset, dbsort and dbgroup, which make views by the values of
 * expressions. */
#include <algorithm>
#include <optional>

#include "platform/db/views/internal/sort_keys.h"
#include "platform/db/views/internal/tuple_rows.h"
#include "platform/db/views/internal/view_source.h"
#include "platform/elog/elog.h"
#include "platform/elog/failure.h"
#include "platform/expr/expr.h"

namespace ksutil::db {
namespace {

using ProgramPtr = std::unique_ptr<const expr::Program>;

/* Calls visit(number, record) for each record of a list.  Leaves out, with one message
 * for all of them, the records that cannot be read and those for which visit is false, and
 * counts them in the list.  False, with a message, when a table cannot be read at all. */
template <class Visit>
bool each_record(const char *who, const RecordSource &source, Tuples &tuples,
                 Visit visit) {
  long left_out = 0;
  TupleRows rows(tuples);
  if (!rows.look(who)) return false;
  {
    const ElogScope quiet;
    TupleRecord record(source, rows);
    for (long i = 0; i < tuples.count(); ++i) {
      const std::string_view *const found = rows.read(i);
      record.show(found);
      if (found == nullptr || !visit(i, record)) ++left_out;
    }
  }
  if (left_out > 0) {
    elog_log(0, "%s: %ld records of %s cannot be read and are left out.\n", who,
             left_out, source.name().c_str());
  }
  tuples.left_out += left_out;
  return true;
}

/* The records of a source that can be read, each with the values of some keys. */
struct KeyedRecords {
  Tuples tuples;
  std::vector<long> numbers;  // of the records in `tuples`
  std::optional<SortKeys> keys;

  bool read(const char *who, Dbptr db, RecordSource &source, Tbl *list) {
    std::vector<std::string> texts;
    if (!key_texts(who, list, texts) || !list_tuples(who, db, source, tuples)) {
      return false;
    }
    std::vector<ProgramPtr> programs;
    std::vector<expr::Type> types;
    for (const std::string &text : texts) {
      programs.push_back(compile_expression(who, source, text));
      if (programs.back() == nullptr) return false;
      types.push_back(programs.back()->type());
    }
    keys.emplace(types);
    /* Each program has a workspace: the values of a record live together. */
    std::vector<expr::Workspace> workspaces(programs.size());
    std::vector<expr::Value> values(programs.size());
    const bool done =
        each_record(who, source, tuples, [&](long i, const expr::Record &record) {
          for (std::size_t k = 0; k < programs.size(); ++k) {
            if (!programs[k]->evaluate(record, workspaces[k], values[k])) return false;
          }
          keys->add(values);
          numbers.push_back(i);
          return true;
        });
    keys->settle();
    return done;
  }
};

Dbptr subset(const Opened &opened, Dbptr db, const char *expression) {
  RecordSource *const source = opened.source("dbsubset", db);
  if (source == nullptr) return dbinvalid();
  Tuples all, chosen;
  const ProgramPtr program =
      compile_expression("dbsubset", *source, expression == nullptr ? "" : expression);
  if (program == nullptr || !list_tuples("dbsubset", db, *source, all)) {
    return dbinvalid();
  }
  chosen.parts = all.parts;
  expr::Workspace workspace;
  const bool read =
      each_record("dbsubset", *source, all, [&](long i, const expr::Record &record) {
        expr::Value value, truth;
        if (!program->evaluate(record, workspace, value) ||
            !expr::convert(value, expr::Type::kBoolean, workspace, truth)) {
          return false;
        }
        if (!truth.null && truth.integer != 0) chosen.add(all.tuple(i));
        return true;
      });
  chosen.left_out = all.left_out;
  return read ? add_view(*opened, db, std::move(chosen)) : dbinvalid();
}

Dbptr sort(const Opened &opened, Dbptr db, Tbl *keys, int flags) {
  RecordSource *const source = opened.source("dbsort", db);
  KeyedRecords records;
  if (source == nullptr || !records.read("dbsort", db, *source, keys)) {
    return dbinvalid();
  }
  std::vector<std::size_t> order = records.keys->sorted((flags & dbSORT_REVERSE) != 0);
  if ((flags & dbSORT_UNIQUE) != 0) {
    const auto same = [&](std::size_t a, std::size_t b) {
      return records.keys->equal(a, b);
    };
    order.erase(std::unique(order.begin(), order.end(), same), order.end());
  }
  Tuples sorted;
  sorted.parts = records.tuples.parts;
  sorted.left_out = records.tuples.left_out;
  sorted.records.reserve(order.size() * sorted.parts.size());
  for (const std::size_t at : order)
    sorted.add(records.tuples.tuple(records.numbers[at]));
  return add_view(*opened, db, std::move(sorted));
}

Dbptr group(const Opened &opened, Dbptr db, Tbl *keys) {
  RecordSource *const source = opened.source("dbgroup", db);
  KeyedRecords records;
  if (source == nullptr || !records.read("dbgroup", db, *source, keys)) {
    return dbinvalid();
  }
  /* A record that was left out would still be counted in the range of its group. */
  if (static_cast<long>(records.numbers.size()) != records.tuples.count()) {
    fail("dbgroup", "%s cannot be grouped", source->name().c_str());
    return dbinvalid();
  }
  Tuples groups;
  groups.parts = records.tuples.parts;
  groups.left_out = records.tuples.left_out;
  std::vector<long> starts;
  for (std::size_t i = 0; i < records.numbers.size(); ++i) {
    if (i > 0 && records.keys->equal(i - 1, i)) continue;
    starts.push_back(static_cast<long>(i));
    groups.add(records.tuples.tuple(static_cast<long>(i)));
  }
  starts.push_back(records.tuples.count());
  return add_view(*opened, db, std::move(groups), std::move(starts));
}

}  // namespace
}  // namespace ksutil::db

using namespace ksutil::db;
using ksutil::at_boundary;
using ksutil::fail;

Dbptr dbsubset(Dbptr db, const char *expression) {
  return at_boundary("dbsubset", dbinvalid(), [&] {
    const Opened opened("dbsubset", db);
    return opened ? subset(opened, db, expression) : dbinvalid();
  });
}

Dbptr dbsort(Dbptr db, Tbl *keys, int flags) {
  return at_boundary("dbsort", dbinvalid(), [&] {
    const Opened opened("dbsort", db);
    return opened ? sort(opened, db, keys, flags) : dbinvalid();
  });
}

Dbptr dbgroup(Dbptr db, Tbl *keys) {
  return at_boundary("dbgroup", dbinvalid(), [&] {
    const Opened opened("dbgroup", db);
    return opened ? group(opened, db, keys) : dbinvalid();
  });
}

int dbget_range(Dbptr group, long *start, long *end) {
  return at_boundary("dbget_range", -1, [&] {
    const Opened opened("dbget_range", group);
    RecordSource *const source = opened ? opened.source("dbget_range", group) : nullptr;
    if (source == nullptr) return -1;
    if (source->table() == nullptr) {
      const auto &starts = static_cast<ViewSource *>(source)->group_starts;
      const auto i = static_cast<std::size_t>(group.record);
      if (group.record >= 0 && i + 1 < starts.size()) {
        *start = starts[i];
        *end = starts[i + 1];
        return 0;
      }
    }
    fail("dbget_range", "record %ld of %s is not a group", group.record,
         source->name().c_str());
    return -1;
  });
}

int dbfree_view(Dbptr view) {
  return at_boundary("dbfree_view", -1, [&] {
    const Opened opened("dbfree_view", view);
    if (!opened) return -1;
    if (opened->free_view(view.table)) return 0;
    fail("dbfree_view", "%d is not a view", view.table);
    return -1;
  });
}
