#include "platform/db/values.h"

#include <vector>

#include "platform/db/internal/assignments.h"
#include "platform/db/internal/registry.h"
#include "platform/elog/failure.h"

namespace ksutil::db {
namespace {

/* The kind of value that a field holds, for messages. */
const char *holds(FieldType type) {
  switch (type) {
    case FieldType::kInteger:
    case FieldType::kYearday:
      return "an integer";
    case FieldType::kText:
      return "a text";
    case FieldType::kPointer:
      return "a pointer";
    default:
      return "a real number";
  }
}

bool is_integer(FieldType type) {
  return type == FieldType::kInteger || type == FieldType::kYearday;
}

bool is_real(FieldType type) {
  return type == FieldType::kReal || type == FieldType::kTime ||
         type == FieldType::kDate;
}

/* The field of that name; -1 with a message. */
int find_field(const char *who, const RecordSource &source, std::string_view name) {
  const int field = source.find_field(name);
  if (field < 0) {
    fail(who, "%s has no field '%.*s'", source.name().c_str(),
         static_cast<int>(name.size()), name.data());
  }
  return field;
}

bool refuse(const char *who, const RecordSource &source, const Field &field,
            const char *given) {
  return fail(who, "%s.%s holds %s, not %s", source.name().c_str(), field.name.c_str(),
              holds(field.type), given);
}

bool collect(const char *who, const TableSource &table,
             std::initializer_list<FieldValue> values,
             std::vector<Assignment> &assignments) {
  for (const FieldValue &given : values) {
    const int index = find_field(who, table, given.name);
    if (index < 0) return false;
    const Field &field = table.field(index);
    if (const auto *integer = std::get_if<std::int64_t>(&given.value)) {
      if (is_integer(field.type)) {
        assignments.push_back({index, *integer});
      } else if (is_real(field.type)) {
        assignments.push_back({index, static_cast<double>(*integer)});
      } else {
        return refuse(who, table, field, "an integer");
      }
    } else if (const auto *real = std::get_if<double>(&given.value)) {
      if (!is_real(field.type)) return refuse(who, table, field, "a real number");
      assignments.push_back({index, *real});
    } else {
      if (field.type != FieldType::kText) return refuse(who, table, field, "a text");
      const auto text = std::get<std::string_view>(given.value);
      assignments.push_back(
          {index, text.data() == nullptr ? std::string_view("") : text});
    }
  }
  return true;
}

/* Whether the variable can take the field's value. */
bool takes(const FieldResult &result, FieldType type) {
  if (std::holds_alternative<long *>(result.result)) return is_integer(type);
  if (std::holds_alternative<double *>(result.result)) {
    return is_integer(type) || is_real(type);
  }
  return type == FieldType::kText;
}

const char *wanted(const FieldResult &result) {
  if (std::holds_alternative<long *>(result.result)) return "an integer";
  return std::holds_alternative<double *>(result.result) ? "a real number" : "a text";
}

void deliver(const expr::Value &value, FieldType type, const FieldResult &result) {
  if (auto *const *integer = std::get_if<long *>(&result.result)) {
    **integer = static_cast<long>(value.integer);
  } else if (auto *const *real = std::get_if<double *>(&result.result)) {
    **real = is_integer(type) ? static_cast<double>(value.integer) : value.real;
  } else {
    *std::get<std::string *>(result.result) = std::string(value.text);
  }
}

int read_values(Dbptr db, std::initializer_list<FieldResult> results) {
  const Opened opened("get_values", db);
  RecordSource *const source = opened ? opened.source("get_values", db) : nullptr;
  if (source == nullptr) return -1;
  const expr::Record *const record = source->record("get_values", db.record);
  if (record == nullptr) return -1;
  std::vector<std::pair<expr::Value, FieldType>> values;
  values.reserve(results.size());
  for (const FieldResult &result : results) {
    const int index = find_field("get_values", *source, result.name);
    if (index < 0) return -1;
    const Field &field = source->field(index);
    if (!takes(result, field.type)) {
      refuse("get_values", *source, field, wanted(result));
      return -1;
    }
    expr::Value value;
    if (!record->value(index, value)) {
      return fail("get_values", "cannot read field '%s' of %s", field.name.c_str(),
                  source->name().c_str());
    }
    values.emplace_back(value, field.type);
  }
  const auto *value = values.data();
  for (const FieldResult &result : results) {
    deliver(value->first, value->second, result);
    ++value;
  }
  return 0;
}

}  // namespace

int get_values(Dbptr record, std::initializer_list<FieldResult> results) {
  return at_boundary("get_values", -1, [&] { return read_values(record, results); });
}

int put_values(Dbptr record, std::initializer_list<FieldValue> values) {
  return at_boundary("put_values", -1, [&] {
    const Opened opened("put_values", record);
    TableSource *const table = opened ? opened.table("put_values", record) : nullptr;
    std::vector<Assignment> assignments;
    if (table == nullptr || !collect("put_values", *table, values, assignments)) {
      return -1;
    }
    const auto edit = [&](const Relation &layout, std::string &row) {
      return assign("put_values", layout, assignments, row);
    };
    return table->rewrite("put_values", record.record, edit) ? 0 : -1;
  });
}

long add_values(Dbptr table_db, std::initializer_list<FieldValue> values) {
  return at_boundary("add_values", -1L, [&] {
    const Opened opened("add_values", table_db);
    TableSource *const table = opened ? opened.table("add_values", table_db) : nullptr;
    std::vector<Assignment> assignments;
    if (table == nullptr || !collect("add_values", *table, values, assignments)) {
      return -1L;
    }
    return append_assigned("add_values", *table, std::move(assignments));
  });
}

}  // namespace ksutil::db
