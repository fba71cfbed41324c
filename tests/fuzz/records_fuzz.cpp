/* Table files of a database: every record is given out as it stands, or refused. */
#include <vector>

#include "platform/db/db.h"
#include "tests/fuzz/subject.h"
#include "tests/support/folder.h"

namespace ksutil::fuzz {

void read_records(Dbptr table) {
  long count = 0, size = 0;
  if (dbquery(table, dbq_record_count, &count) < 0) return;
  require(dbquery(table, dbq_record_size, &size) == 0,
          "a table knows its records' size");
  std::vector<char> text(static_cast<std::size_t>(size) + 1);
  char auth[1024];  // more than a text of any schema
  for (table.record = 0; table.record < count; table.record++) {
    long orid = 0;
    double lat = 0, time = 0, lddate = 0;
    dbgetv(table, "orid", &orid, "lat", &lat, "time", &time, "auth", auth, "lddate",
           &lddate, static_cast<char *>(nullptr));
    if (dbget(table, text.data()) == 0) {
      require(text[static_cast<std::size_t>(size)] == '\0',
              "row texts have one length");
    }
  }
}

void read_input(std::string_view input) {
  static const test::TempFolder folder;
  static const std::string described = folder.write("known", "schema css3.0\n");
  /* With a descriptor, and for some inputs without: the schema is then guessed. */
  const bool guessed = input.size() % 4 == 3;
  const std::string name = guessed ? folder / "db" : described;
  folder.write(guessed ? "db.origin" : "known.origin", std::string(input));
  Dbptr db;
  if (dbopen_noshare(name.c_str(), "r", &db) < 0) return;
  const Dbptr origin = dblookup(db, nullptr, "origin", nullptr, nullptr);
  if (origin.table != dbINVALID) read_records(origin);
  dbclose(db);
}

}  // namespace ksutil::fuzz
