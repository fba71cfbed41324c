/* db_views: implements dbsubset, dbsort and dbgroup, which make views by the values of
 * expressions. */
#include <algorithm>
#include <numeric>

#include "platform/db/views/internal/view_source.h"
#include "platform/elog/elog.h"
#include "platform/elog/failure.h"
#include "platform/expr/expr.h"

namespace ksutil::db {
namespace {

using ProgramPtr = std::unique_ptr<const expr::Program>;

ProgramPtr compile(const char *who, const RecordSource &source,
                   const std::string &text) {
  expr::Error error;
  ProgramPtr program = expr::Program::compile(text, SourceFields(&source), error);
  if (program == nullptr) {
    fail(who, "Can't compile '%s': %s at position %zu", text.c_str(),
         error.message.c_str(), error.position);
  }
  return program;
}

/* Calls visit(number, record) for each record of a source.  Leaves out, with one
 * message for all of them, the records that cannot be read and those for which visit is
 * false, and returns their number. */
template <class Visit>
long each_record(const char *who, RecordSource &source, long count, Visit visit) {
  long left_out = 0;
  {
    const ElogScope quiet;
    for (long i = 0; i < count; ++i) {
      const expr::Record *const record = source.record(who, i);
      if (record == nullptr || !visit(i, *record)) ++left_out;
    }
  }
  if (left_out > 0) {
    elog_log(0, "%s: %ld records of %s cannot be read and are left out.\n", who,
             left_out, source.name().c_str());
  }
  return left_out;
}

/* The value of one key of one record; nulls come first. */
struct KeyValue {
  bool null = false;
  std::int64_t integer = 0;
  double real = 0.0;
  std::string text;

  explicit KeyValue(const expr::Value &value) : null(value.null) {
    if (null) return;
    if (value.type == expr::Type::kText) {
      text = value.text;
    } else if (value.type == expr::Type::kReal || value.type == expr::Type::kTime) {
      real = value.real;
    } else {
      integer = value.integer;
    }
  }
  /* Negative, 0 or positive; both values are of the same key and so have one type. */
  int compare(const KeyValue &other) const {
    if (null != other.null) return null ? -1 : 1;
    if (integer != other.integer) return integer < other.integer ? -1 : 1;
    if (real != other.real) return real < other.real ? -1 : 1;
    return text.compare(other.text);
  }
};

/* The records of a source that can be read, each with the values of some keys. */
class KeyedRecords {
 public:
  bool read(const char *who, Dbptr db, RecordSource &source, Tbl *keys) {
    std::vector<std::string> texts;
    if (!key_texts(who, keys, texts) || !list_tuples(who, db, source, tuples)) {
      return false;
    }
    std::vector<ProgramPtr> programs;
    for (const std::string &text : texts) {
      programs.push_back(compile(who, source, text));
      if (programs.back() == nullptr) return false;
    }
    width_ = programs.size();
    expr::Workspace workspace;
    tuples.left_out += each_record(
        who, source, tuples.count(), [&](long i, const expr::Record &record) {
          const std::size_t size = values_.size();
          for (const ProgramPtr &program : programs) {
            expr::Value value;
            if (!program->evaluate(record, workspace, value)) {
              values_.erase(values_.begin() + static_cast<std::ptrdiff_t>(size),
                            values_.end());
              return false;
            }
            values_.emplace_back(value);
          }
          numbers.push_back(i);
          return true;
        });
    return true;
  }

  /* Compares the records at two places of `numbers`. */
  int compare(std::size_t a, std::size_t b) const {
    for (std::size_t k = 0; k < width_; ++k) {
      const int order = values_[a * width_ + k].compare(values_[b * width_ + k]);
      if (order != 0) return order;
    }
    return 0;
  }

  Tuples tuples;
  std::vector<long> numbers;  // in the source

 private:
  std::size_t width_ = 0;
  std::vector<KeyValue> values_;  // of each record, key by key
};

Dbptr subset(const Opened &opened, Dbptr db, const char *expression) {
  RecordSource *const source = opened.source("dbsubset", db);
  if (source == nullptr) return dbinvalid();
  Tuples all, chosen;
  const ProgramPtr program =
      compile("dbsubset", *source, expression == nullptr ? "" : expression);
  if (program == nullptr || !list_tuples("dbsubset", db, *source, all)) {
    return dbinvalid();
  }
  chosen.parts = all.parts;
  expr::Workspace workspace;
  chosen.left_out = all.left_out;
  chosen.left_out += each_record(
      "dbsubset", *source, all.count(), [&](long i, const expr::Record &record) {
        expr::Value value, truth;
        if (!program->evaluate(record, workspace, value) ||
            !expr::convert(value, expr::Type::kBoolean, workspace, truth)) {
          return false;
        }
        if (!truth.null && truth.integer != 0) chosen.add(all.tuple(i));
        return true;
      });
  return add_view(*opened, db, std::move(chosen));
}

Dbptr sort(const Opened &opened, Dbptr db, Tbl *keys, int flags) {
  RecordSource *const source = opened.source("dbsort", db);
  KeyedRecords records;
  if (source == nullptr || !records.read("dbsort", db, *source, keys)) {
    return dbinvalid();
  }
  std::vector<std::size_t> order(records.numbers.size());
  std::iota(order.begin(), order.end(), std::size_t{0});
  const bool reverse = (flags & dbSORT_REVERSE) != 0;
  std::stable_sort(order.begin(), order.end(), [&](std::size_t a, std::size_t b) {
    const int compared = records.compare(a, b);
    return reverse ? compared > 0 : compared < 0;
  });
  if ((flags & dbSORT_UNIQUE) != 0) {
    const auto same = [&](std::size_t a, std::size_t b) {
      return records.compare(a, b) == 0;
    };
    order.erase(std::unique(order.begin(), order.end(), same), order.end());
  }
  Tuples sorted;
  sorted.parts = records.tuples.parts;
  sorted.left_out = records.tuples.left_out;
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
    if (i > 0 && records.compare(i - 1, i) == 0) continue;
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
    fail("dbget_range", "record %ld of %s is no group", group.record,
         source->name().c_str());
    return -1;
  });
}

int dbfree_view(Dbptr view) {
  return at_boundary("dbfree_view", -1, [&] {
    const Opened opened("dbfree_view", view);
    if (!opened) return -1;
    if (opened->free_view(view.table)) return 0;
    fail("dbfree_view", "%d is no view", view.table);
    return -1;
  });
}
