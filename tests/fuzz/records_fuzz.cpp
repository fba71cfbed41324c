/* Table files of a database: every record is given out as it stands, or refused. */
#include <stdlib.h>

#include <filesystem>
#include <fstream>
#include <vector>

#include "platform/db/db.h"
#include "tests/fuzz/subject.h"

namespace ksutil::fuzz {

class ScratchDatabase {
 public:
  ScratchDatabase() {
    std::string folder = std::filesystem::temp_directory_path() / "ksutil-fuzz-XXXXXX";
    folder_ = mkdtemp(folder.data());
  }
  ~ScratchDatabase() { std::filesystem::remove_all(folder_); }
  ScratchDatabase(const ScratchDatabase &) = delete;
  ScratchDatabase &operator=(const ScratchDatabase &) = delete;
  std::string name() const { return folder_ + "/db"; }

 private:
  std::string folder_;
};

void read_records(Dbptr table) {
  long count = 0, size = 0;
  if (dbquery(table, dbq_record_count, &count) < 0) return;
  require(dbquery(table, dbq_record_size, &size) == 0,
          "a table knows its records' size");
  std::vector<char> text(static_cast<std::size_t>(size) + 1);
  for (table.record = 0; table.record < count; table.record++) {
    long orid = 0;
    double lat = 0, time = 0, lddate = 0;
    char auth[65536];
    dbgetv(table, "orid", &orid, "lat", &lat, "time", &time, "auth", auth, "lddate",
           &lddate, static_cast<char *>(nullptr));
    if (dbget(table, text.data()) == 0) {
      require(text[static_cast<std::size_t>(size)] == '\0',
              "row texts have one length");
    }
  }
}

void read_input(std::string_view input) {
  static const ScratchDatabase scratch;
  std::ofstream(scratch.name() + ".origin", std::ios::binary) << input;
  Dbptr db;
  if (dbopen_noshare(scratch.name().c_str(), "r", &db) < 0) return;
  const Dbptr origin = dblookup(db, nullptr, "origin", nullptr, nullptr);
  if (origin.table != dbINVALID) read_records(origin);
  dbclose(db);
}

}  // namespace ksutil::fuzz
