/* Expressions: compiled as each type and evaluated on a record with and without nulls; as a
 * condition, a subset has the records for which it is true one by one.
 * Words: platform/expr */
#include <cstdlib>
#include <cstring>

#include "platform/db/db.h"
#include "tests/fuzz/subject.h"

namespace ksutil::fuzz {

namespace {

/* A table with usual values, limits and nulls. */
Dbptr origins() {
  const Dbptr origin = dblookup(dbtmp("css3.0"), nullptr, "origin", nullptr, nullptr);
  constexpr char *kEnd = nullptr;
  dbaddv(origin, "lat", 40.5, "lon", -120.25, "time", 1440000000.5, "orid", 7L, "auth",
         "net", kEnd);
  dbaddv(origin, "lat", -90.0, "lon", 180.0, "depth", 0.0, "time", 0.0, "orid", 1L,
         "evid", 3L, "mb", -1.5, "auth", "a b", "dtype", "f", kEnd);
  dbaddv(origin, "lat", 90.0, "lon", -180.0, "depth", 700.0, "time", -1.0, "orid", 2L,
         "evid", 3L, "nass", 9999L, "ndef", 0L, "algorithm", "nll-oct.tree(x)", kEnd);
  dbaddv(origin, "time", 9999999999.0, "orid", 99999999L, "ml", 9.99, kEnd);
  dbaddv(origin, "orid", 4L, kEnd);
  return origin;
}

void evaluate(Dbptr record, const char *text, int type) {
  Expression *expression = nullptr;
  if (dbex_compile(record, text, &expression, type) < 0) return;
  union {
    long integer;
    double real;
    char *string;
    int boolean;
  } result{};
  if (dbex_eval(record, expression, &result) >= 0 && type == dbexTEXT) {
    std::free(result.string);
  }
  dbex_free(expression);
}

void compare_subset(Dbptr table, const char *text) {
  long count = 0;
  dbquery(table, dbq_record_count, &count);
  Expression *expression = nullptr;
  if (dbex_compile(table, text, &expression, dbexBOOLEAN) < 0) return;
  long wanted = 0;
  bool good = true;
  for (table.record = 0; good && table.record < count; table.record++) {
    int is_true = 0;
    const int result = dbex_eval(table, expression, &is_true);
    good = result >= 0;
    if (result == 0 && is_true == 1) wanted++;
  }
  dbex_free(expression);
  table.record = dbALL;
  const Dbptr subset = dbsubset(table, text);
  long found = 0;
  require(!good || subset.table != dbINVALID, "a condition chooses records");
  if (subset.table == dbINVALID) return;
  require(dbquery(subset, dbq_record_count, &found) == 0, "a subset can be counted");
  require(!good || found == wanted || std::strstr(text, "now") != nullptr,
          "a subset has the records for which the condition is true");
  dbfree_view(subset);
}

}  // namespace

void read_input(std::string_view input) {
  static const Dbptr table = origins();
  Dbptr record = table;
  record.record = 0;
  const std::string text = text_of(input);
  for (const int type : {dbexINTEGER, dbexREAL, dbexTEXT, dbexBOOLEAN, dbexTIME}) {
    evaluate(record, text.c_str(), type);
  }
  compare_subset(table, text.c_str());
}

}  // namespace ksutil::fuzz
