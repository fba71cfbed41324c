#include <cstdarg>
#include <cstring>
#include <utility>

#include "platform/db/db.h"
#include "platform/db/internal/assignments.h"
#include "platform/db/internal/registry.h"
#include "platform/elog/failure.h"
#include "platform/stock/arguments.h"
#include "platform/stock/text.h"

using namespace ksutil::db;
using ksutil::Arguments;
using ksutil::at_boundary;
using ksutil::fail;

namespace {

/* The field of that name; -1 with a message. */
int find_field(const char *who, const RecordSource &source, const char *name) {
  const int field = source.find_field(name);
  if (field < 0) {
    fail(who, "%s has no field '%s'", source.name().c_str(), name);
  }
  return field;
}

/* --- reading --- */

struct Reading {
  FieldType type;
  void *to;
  ksutil::expr::Value value;
};

void deliver(const Reading &reading) {
  switch (reading.type) {
    case FieldType::kInteger:
    case FieldType::kYearday:
      *static_cast<long *>(reading.to) = static_cast<long>(reading.value.integer);
      break;
    case FieldType::kReal:
    case FieldType::kTime:
    case FieldType::kDate:
      *static_cast<double *>(reading.to) = reading.value.real;
      break;
    case FieldType::kText: {
      const std::string_view text = reading.value.text;
      char *const to = static_cast<char *>(reading.to);
      if (!text.empty()) std::memcpy(to, text.data(), text.size());
      to[text.size()] = '\0';
      break;
    }
    case FieldType::kPointer:
      *static_cast<void **>(reading.to) =
          reinterpret_cast<void *>(static_cast<std::uintptr_t>(reading.value.integer));
      break;
  }
}

int read_fields(Dbptr db, Arguments &arguments) {
  const Opened opened("dbgetv", db);
  if (!opened) return -1;
  RecordSource *const source = opened.source("dbgetv", db);
  if (source == nullptr) return -1;
  const ksutil::expr::Record *const record = source->record("dbgetv", db.record);
  if (record == nullptr) return -1;
  std::vector<Reading> readings;
  readings.reserve(16);
  while (const char *const name = arguments.next<const char *>()) {
    const int field = find_field("dbgetv", *source, name);
    if (field < 0) return -1;
    Reading reading{source->field(field).type, arguments.next<void *>(), {}};
    if (!record->value(field, reading.value)) {
      return fail("dbgetv", "cannot read field '%s' of %s", name,
                  source->name().c_str());
    }
    readings.push_back(reading);
  }
  for (const Reading &reading : readings) deliver(reading);
  return 0;
}

/* --- writing --- */

/* A text with a null address stands for a null pointer, which is refused. */
std::string_view given_text(const char *text) {
  return text == nullptr ? std::string_view() : std::string_view(text);
}

bool collect(const char *who, const TableSource &table, Arguments &arguments,
             std::vector<Assignment> &assignments) {
  while (const char *const name = arguments.next<const char *>()) {
    const int field = find_field(who, table, name);
    if (field < 0) return false;
    switch (table.field(field).type) {
      case FieldType::kInteger:
      case FieldType::kYearday:
        assignments.push_back({field, std::int64_t{arguments.next<long>()}});
        break;
      case FieldType::kReal:
      case FieldType::kTime:
      case FieldType::kDate:
        assignments.push_back({field, arguments.next<double>()});
        break;
      case FieldType::kText:
        assignments.push_back({field, given_text(arguments.next<const char *>())});
        break;
      case FieldType::kPointer:
        assignments.push_back({field, arguments.next<void *>()});
        break;
    }
  }
  return true;
}

int write_fields(Dbptr db, Arguments &arguments) {
  const Opened opened("dbputv", db);
  TableSource *const table = opened ? opened.table("dbputv", db) : nullptr;
  std::vector<Assignment> assignments;
  if (table == nullptr || !collect("dbputv", *table, arguments, assignments)) return -1;
  return table->rewrite("dbputv", db.record,
                        [&](const Relation &layout, std::string &row) {
                          return assign("dbputv", layout, assignments, row);
                        })
             ? 0
             : -1;
}

long add_fields(Dbptr db, Arguments &arguments) {
  const Opened opened("dbaddv", db);
  TableSource *const table = opened ? opened.table("dbaddv", db) : nullptr;
  std::vector<Assignment> assignments;
  if (table == nullptr || !collect("dbaddv", *table, arguments, assignments)) return -1;
  return append_assigned("dbaddv", *table, std::move(assignments));
}

int get_text(const Opened &opened, Dbptr db, char *text) {
  TableSource *const table = opened.table("dbget", db);
  if (table == nullptr) return -1;
  std::string_view row = table->row("dbget", db.record);
  if (row.empty()) return -1;
  if (text == nullptr) return table->set_scratch("dbget", row) ? 0 : -1;
  if (db.field >= 0 && db.field < table->field_count()) {
    const Field &field = table->field(db.field);
    row = ksutil::right_trimmed(row.substr(static_cast<std::size_t>(field.offset),
                                           static_cast<std::size_t>(field.width)));
  }
  if (!row.empty()) std::memcpy(text, row.data(), row.size());
  text[row.size()] = '\0';
  return 0;
}

int put_text(const Opened &opened, Dbptr db, const char *text) {
  TableSource *const table = opened.table("dbput", db);
  if (table == nullptr) return -1;
  const bool to_field = db.field >= 0 && db.field < table->field_count();
  const std::string value(text == nullptr ? table->row("dbput", dbSCRATCH) : text);
  const auto edit = [&](const Relation &layout, std::string &row) {
    return to_field && text != nullptr
               ? assign("dbput", layout, {{db.field, std::string_view(value)}}, row)
               : replace_row("dbput", layout, value, row);
  };
  return table->rewrite("dbput", db.record, edit) ? 0 : -1;
}

}  // namespace

int dbget(Dbptr db, char *text) {
  return at_boundary("dbget", -1, [&] {
    const Opened opened("dbget", db);
    return opened ? get_text(opened, db, text) : -1;
  });
}

int dbgetv(Dbptr db, ...) {
  va_list args;
  va_start(args, db);
  Arguments arguments(args);
  va_end(args);
  return at_boundary("dbgetv", -1, [&] { return read_fields(db, arguments); });
}

int dbputv(Dbptr db, ...) {
  va_list args;
  va_start(args, db);
  Arguments arguments(args);
  va_end(args);
  return at_boundary("dbputv", -1, [&] { return write_fields(db, arguments); });
}

long dbaddv(Dbptr db, ...) {
  va_list args;
  va_start(args, db);
  Arguments arguments(args);
  va_end(args);
  return at_boundary("dbaddv", -1L, [&] { return add_fields(db, arguments); });
}

long dbadd(Dbptr db, const char *text) {
  return at_boundary("dbadd", -1L, [&] {
    const Opened opened("dbadd", db);
    TableSource *const table = opened ? opened.table("dbadd", db) : nullptr;
    if (table == nullptr) return -1L;
    return table->append("dbadd", [&](const Relation &layout, std::string &row) {
      return replace_row("dbadd", layout,
                         text == nullptr ? table->row("dbadd", dbSCRATCH) : text, row);
    });
  });
}

int dbput(Dbptr db, const char *text) {
  return at_boundary("dbput", -1, [&] {
    const Opened opened("dbput", db);
    return opened ? put_text(opened, db, text) : -1;
  });
}
