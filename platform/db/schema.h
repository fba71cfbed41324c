/* schema: describes the tables of a database and the layout of their records. */
#ifndef KSUTIL_PLATFORM_DB_SCHEMA_H
#define KSUTIL_PLATFORM_DB_SCHEMA_H

#include <cstdint>
#include <memory>
#include <string>
#include <string_view>
#include <vector>

#include "platform/stock/export.h"

namespace ksutil::db {

/* kDate is a load date: written as epoch seconds, read as epoch seconds or as a date
 * text.  kYearday is an integer YYYYDDD.  kPointer is a pointer of a scratch table. */
enum class FieldType { kInteger, kReal, kText, kTime, kDate, kYearday, kPointer };

struct Field {
  std::string name;
  FieldType type = FieldType::kText;
  int offset = 0;      // of its first character in the record, from 0
  int width = 0;       // characters
  std::string format;  // printf format, such as "%17.5f"
  std::string null_text;
  std::int64_t null_integer = -1;  // the null as a number, for numeric types
  double null_real = -999.0;
  std::string meaning;
};

/* A key: names of fields, or "low::high" for a range. */
using Key = std::vector<std::string>;

struct ForeignKey {
  std::string field, table, table_field;
};

/* The layout of one table's records. */
struct KSUTIL_API Relation {
  std::string name;
  std::vector<Field> fields;
  int width = 0;  // characters of a record without its newline
  Key primary;
  std::vector<Key> alternate;
  std::vector<ForeignKey> foreign;
  std::string id_field;  // the field whose id identifies a row, "" if there is none

  const Field *find(std::string_view field) const;  // null: no such field
  int index(std::string_view field) const;          // -1: no such field
};

/* Whether rows of both layouts are of one table and have the same fields in the same
 * places. */
bool same_layout(const Relation &a, const Relation &b);

/* A schema is immutable and shared; it is read once in a process. */
class KSUTIL_API Schema {
 public:
  /* The schema of that name: a file of that name in the directories of the
   * colon-separated KSUTIL_SCHEMA_PATH, else the built-in one ("css3.0", "kbcore",
   * "trace").  Null, with a message that names file and line, when there is none or it
   * is damaged. */
  static std::shared_ptr<const Schema> load(std::string_view name);

  const std::string &name() const { return name_; }
  const std::string &description() const { return description_; }
  const std::vector<Relation> &relations() const { return relations_; }
  const Relation *find(std::string_view table) const;  // null: no such table
  int index(std::string_view table) const;             // -1: no such table

  /* The tables that hold ids of a counter, as (table, field); for example prefor of
   * event holds ids of the counter orid. */
  struct CounterUse {
    std::string table, field;
  };
  std::vector<CounterUse> counter_uses(std::string_view counter) const;

 private:
  friend class SchemaReader;
  struct Counter {
    std::string name;
    std::vector<std::string> fields;  // fields that hold its ids
  };
  std::string name_, description_;
  std::vector<Relation> relations_;
  std::vector<Counter> counters_;
};

/* The names of the built-in schemas, the default one first. */
KSUTIL_API std::vector<std::string> builtin_schemas();

/* The null record of a table, newline included. */
KSUTIL_API std::string null_record(const Relation &relation);

}  // namespace ksutil::db
#endif
