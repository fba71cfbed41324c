/* Expressions: compiled as each type and evaluated on a record with and without nulls.
 * Words: platform/expr */
#include <cstdlib>

#include "platform/db/db.h"
#include "tests/fuzz/subject.h"

namespace ksutil::fuzz {

Dbptr origin_record() {
  Dbptr origin = dblookup(dbtmp("css3.0"), nullptr, "origin", nullptr, nullptr);
  origin.record = dbaddv(origin, "lat", 40.5, "lon", -120.25, "time", 1440000000.5,
                         "orid", 7L, "auth", "net", static_cast<char *>(nullptr));
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

void read_input(std::string_view input) {
  static const Dbptr record = origin_record();
  const std::string text = text_of(input);
  for (const int type : {dbexINTEGER, dbexREAL, dbexTEXT, dbexBOOLEAN, dbexTIME}) {
    evaluate(record, text.c_str(), type);
  }
}

}  // namespace ksutil::fuzz
