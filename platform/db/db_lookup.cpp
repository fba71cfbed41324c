#include <charconv>
#include <cstring>
#include <string_view>
#include <vector>

#include "platform/db/db.h"
#include "platform/db/internal/registry.h"
#include "platform/elog/failure.h"
#include "platform/stock/nearest_name.h"

using namespace ksutil::db;
using ksutil::at_boundary;
using ksutil::fail;
using ksutil::nearest_hint;

namespace {

bool given(const char *text) { return text != nullptr && *text != '\0'; }

/* The record number that a text names; dbINVALID when it does not name one. */
long record_number(const char *text) {
  static constexpr struct {
    const char *name;
    long number;
  } kNames[] = {{"dbALL", dbALL}, {"dbNULL", dbNULL}, {"dbSCRATCH", dbSCRATCH}};
  for (const auto &special : kNames) {
    if (std::strcmp(text, special.name) == 0) return special.number;
  }
  long number = 0;
  const char *const end = text + std::strlen(text);
  const auto [at, error] = std::from_chars(text, end, number);
  return error == std::errc() && at == end && number >= 0 ? number : long{dbINVALID};
}

void look_up_table(Database &database, const char *table, Dbptr &dbp) {
  dbp.field = dbALL;
  dbp.record = dbALL;
  dbp.table = database.table_index(table);
  if (dbp.table >= 0) return;
  dbp.table = dbINVALID;
  std::vector<std::string_view> names;
  for (const Relation &known : database.schema().relations()) {
    names.push_back(known.name);
  }
  fail("dblookup", "schema %s has no table '%s'%s", database.schema().name().c_str(),
       table, nearest_hint(table, names).c_str());
}

void look_up_field(Database &database, const char *field, Dbptr &dbp) {
  const RecordSource *const source = database.source(dbp.table);
  dbp.field = source == nullptr ? -1 : source->find_field(field);
  if (dbp.field >= 0) return;
  dbp.field = dbINVALID;
  if (source == nullptr) {
    fail("dblookup", "no table is chosen for field '%s'", field);
  } else {
    fail("dblookup", "%s has no field '%s'", source->name().c_str(), field);
  }
}

/* Facts about the database as a whole. */
int query_database(Database &database, int code, void *result) {
  switch (code) {
    case dbq_database_name:
      *static_cast<const char **>(result) = database.keep(database.store().name());
      return 0;
    case dbq_schema_name:
      *static_cast<const char **>(result) = database.keep(database.schema().name());
      return 0;
    case dbq_tables: {
      std::vector<std::string> names;
      for (const Relation &table : database.schema().relations()) {
        names.push_back(table.name);
      }
      *static_cast<Tbl **>(result) = database.keep_list("tables", names);
      return 0;
    }
    default:
      return 1;
  }
}

/* Facts about any source of records. */
int query_source(Database &database, RecordSource &source, int code, void *result) {
  switch (code) {
    case dbq_record_count:
      return source.count("dbquery", *static_cast<long *>(result)) ? 0 : -1;
    case dbq_unreadable_count:
      return source.unreadable("dbquery", *static_cast<long *>(result)) ? 0 : -1;
    case dbq_table_name:
      *static_cast<const char **>(result) = database.keep(source.name());
      return 0;
    case dbq_fields: {
      std::vector<std::string> names;
      for (int i = 0; i < source.field_count(); ++i)
        names.push_back(source.field(i).name);
      *static_cast<Tbl **>(result) =
          database.keep_list("fields of " + source.name(), names);
      return 0;
    }
    default:
      return 1;
  }
}

/* Facts about a stored table. */
int query_table(Database &database, TableSource &table, int code, void *result) {
  switch (code) {
    case dbq_file_name:
      *static_cast<const char **>(result) = database.keep(table.store().file_name());
      return 0;
    case dbq_dir_name:
      *static_cast<const char **>(result) = database.keep(table.store().directory());
      return 0;
    case dbq_table_present: {
      Stamp stamp;
      if (!table.stamp("dbquery", stamp)) return -1;
      *static_cast<int *>(result) = stamp.exists ? 1 : 0;
      return 0;
    }
    case dbq_record_size:
      *static_cast<long *>(result) = table.relation().width + 1;
      return 0;
    case dbq_primary_key:
      *static_cast<Tbl **>(result) =
          database.keep_list("key of " + table.name(), table.relation().primary);
      return 0;
    default:
      return 1;
  }
}

int type_code(FieldType type) {
  switch (type) {
    case FieldType::kInteger:
      return dbINTEGER;
    case FieldType::kReal:
      return dbREAL;
    case FieldType::kText:
      return dbSTRING;
    case FieldType::kTime:
      return dbTIME;
    case FieldType::kDate:
      return dbDATE;
    case FieldType::kYearday:
      return dbYEARDAY;
    case FieldType::kPointer:
      return dbPOINTER;
  }
  return dbSTRING;
}

int query_field(Database &database, const Field &field, int code, void *result) {
  switch (code) {
    case dbq_field_type:
      *static_cast<int *>(result) = type_code(field.type);
      return 0;
    case dbq_field_size:
      *static_cast<int *>(result) = field.width;
      return 0;
    case dbq_field_format:
      *static_cast<const char **>(result) = database.keep(field.format);
      return 0;
    default:
      *static_cast<const char **>(result) = database.keep(field.null_text);
      return 0;
  }
}

bool is_field_code(int code) {
  return code == dbq_field_type || code == dbq_field_size || code == dbq_field_format ||
         code == dbq_field_null;
}

int query(const Opened &opened, Dbptr db, int code, void *result) {
  const int of_database = query_database(*opened, code, result);
  if (of_database <= 0) return of_database;
  RecordSource *const source = opened.source("dbquery", db);
  if (source == nullptr) return -1;
  if (is_field_code(code)) {
    if (db.field >= 0 && db.field < source->field_count()) {
      return query_field(*opened, source->field(db.field), code, result);
    }
    return fail("dbquery", "no field of %s is chosen", source->name().c_str());
  }
  const int of_source = query_source(*opened, *source, code, result);
  if (of_source <= 0) return of_source;
  TableSource *const table = opened.table("dbquery", db);
  if (table == nullptr) return -1;
  const int of_table = query_table(*opened, *table, code, result);
  if (of_table > 0) fail("dbquery", "unknown code %d", code);
  return of_table > 0 ? -1 : of_table;
}

}  // namespace

Dbptr dblookup(Dbptr dbp, const char *, const char *table, const char *field,
               const char *record) {
  return at_boundary("dblookup", dbinvalid(), [&] {
    const Opened opened("dblookup", dbp);
    if (!opened) return dbinvalid();
    if (given(table)) look_up_table(*opened, table, dbp);
    if (given(field)) look_up_field(*opened, field, dbp);
    if (given(record)) {
      dbp.record = record_number(record);
      if (dbp.record == dbINVALID) {
        fail("dblookup", "'%s' is not a record", record);
      }
    }
    return dbp;
  });
}

int dbquery(Dbptr db, int code, void *result) {
  return at_boundary("dbquery", -1, [&] {
    const Opened opened("dbquery", db);
    return opened ? query(opened, db, code, result) : -1;
  });
}

double dfiletime(Dbptr db) {
  constexpr double kNever = -9999999999.999;
  return at_boundary("dfiletime", kNever, [&] {
    const Opened opened("dfiletime", db);
    if (!opened) return kNever;
    TableSource *const table = opened.table("dfiletime", db);
    Stamp stamp;
    if (table == nullptr || !table->stamp("dfiletime", stamp)) return kNever;
    if (stamp.exists) return stamp.time;
    fail("dfiletime", "table %s has no file", table->name().c_str());
    return kNever;
  });
}
