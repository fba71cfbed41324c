/* Table files made by hand, for the tests of the storage half of db. */
#ifndef KSUTIL_TESTS_PLATFORM_DB_TABLE_FILES_H
#define KSUTIL_TESTS_PLATFORM_DB_TABLE_FILES_H

#include <gtest/gtest.h>
#include <stdlib.h>
#include <sys/stat.h>

#include <cstdlib>
#include <filesystem>
#include <fstream>
#include <iterator>
#include <memory>
#include <string>

#include "platform/db/columns.h"
#include "platform/db/store/internal/flat_files.h"
#include "platform/elog/elog.h"
#include "tests/support/folder.h"
#include "tests/support/register.h"

namespace ksutil::db::testing {

using TempDirectory = ksutil::test::TempFolder;

using ksutil::test::write_file;

inline std::string file_text(const std::string &path) {
  return ksutil::test::read_file(path);
}

inline std::string messages() { return ksutil::test::taken_messages(); }

inline const Relation &relation(const std::string &schema, const std::string &table) {
  return *Schema::load(schema)->find(table);
}

/* A row of lastid, the shortest table: counter `name` at `value`. */
inline std::string lastid_row(const std::string &name, long value) {
  const Relation &layout = relation("css3.0", "lastid");
  std::string row = null_record(layout);
  EXPECT_TRUE(write_text(layout.fields[0], name, row));
  EXPECT_TRUE(write_integer(layout.fields[1], value, row));
  return row;
}

inline std::string origin_row(const std::string &schema, long orid, double lat) {
  const Relation &layout = relation(schema, "origin");
  std::string row = null_record(layout);
  EXPECT_TRUE(write_integer(*layout.find("orid"), orid, row));
  EXPECT_TRUE(write_real(*layout.find("lat"), lat, row));
  EXPECT_TRUE(write_real(*layout.find("time"), 1274400000.25, row));
  return row;
}

inline std::int64_t integer_of(TableStore &table, const char *field, long record) {
  const auto snapshot = table.snapshot();
  std::int64_t value = -999;
  EXPECT_TRUE(
      IntegerColumn(snapshot->layout(), field).read(snapshot->row(record), value));
  return value;
}

inline double real_of(TableStore &table, const char *field, long record) {
  const auto snapshot = table.snapshot();
  double value = -12345.0;
  EXPECT_TRUE(RealColumn(snapshot->layout(), field).read(snapshot->row(record), value));
  return value;
}

inline long append(TableStore &table, const std::string &row) {
  long record = -1;
  table.exclusively([&](TableStore::Exclusive &rows) {
    record = rows.append(row);
    return record >= 0;
  });
  return record;
}

inline bool overwrite(TableStore &table, long record, const std::string &row) {
  return table.exclusively(
      [&](TableStore::Exclusive &rows) { return rows.overwrite(record, row); });
}

}  // namespace ksutil::db::testing
#endif
