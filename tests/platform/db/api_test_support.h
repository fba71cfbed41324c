/* Databases for the tests of the programmer's functions: table files written row by row
 * as another program would, so that what is read does not depend on what is written. */
#ifndef KSUTIL_TESTS_PLATFORM_DB_API_TEST_SUPPORT_H
#define KSUTIL_TESTS_PLATFORM_DB_API_TEST_SUPPORT_H

#include <fcntl.h>
#include <gmock/gmock.h>
#include <gtest/gtest.h>
#include <stdlib.h>
#include <sys/stat.h>

#include <cstdlib>
#include <filesystem>
#include <fstream>
#include <memory>
#include <string>
#include <vector>

#include "platform/db/columns.h"
#include "platform/db/db.h"
#include "platform/db/schema.h"
#include "platform/elog/elog.h"
#include "tests/support/folder.h"
#include "tests/support/rows.h"

namespace ksutil::db::test {

/* A css3.0 database in a directory of its own. */
class TestDatabase {
 public:
  TestDatabase() { std::ofstream(name()) << "schema css3.0\n"; }

  std::string name() const { return folder_ / "test"; }
  std::string file(const std::string &table) const { return name() + "." + table; }

  /* Rewrites a table's file, and moves its time forward as every writer does. */
  void write(const std::string &table, const std::vector<std::string> &rows) {
    std::ofstream out(file(table),
                      std::ios::binary | std::ios::in | std::ios::out | std::ios::ate);
    if (!out) out.open(file(table), std::ios::binary);
    out.seekp(0);
    std::size_t size = 0;
    for (const std::string &row : rows) {
      out << row;
      size += row.size();
    }
    out.close();
    std::filesystem::resize_file(file(table), size);
    const timespec time{1700000000 + ++writes_, 0};
    const timespec times[2] = {time, time};
    utimensat(AT_FDCWD, file(table).c_str(), times, 0);
  }

 private:
  ksutil::test::TempFolder folder_;
  long writes_ = 0;
};

using ksutil::test::RowMaker;

using Handle = ksutil::test::OpenDatabase;

inline std::string messages() { return ksutil::test::taken_messages(); }

/* A list of texts for a match pattern. */
class Pattern {
 public:
  explicit Pattern(const std::vector<const char *> &texts) : list_(newtbl(0)) {
    for (const char *text : texts) pushtbl(list_, strdup(text));
  }
  ~Pattern() { freetbl(list_, std::free); }
  Pattern(const Pattern &) = delete;
  Pattern &operator=(const Pattern &) = delete;
  Tbl **list() { return &list_; }

 private:
  Tbl *list_;
};

/* A match hook, freed at the end of its scope. */
class HookHolder {
 public:
  HookHolder() = default;
  ~HookHolder() { free_hook(&hook_); }
  HookHolder(const HookHolder &) = delete;
  HookHolder &operator=(const HookHolder &) = delete;
  Hook **hook() { return &hook_; }

 private:
  Hook *hook_ = nullptr;
};

/* The record numbers that match; {-1} for a failure. */
inline std::vector<long> matches(Dbptr key, Dbptr table, Pattern &kpattern,
                                 Pattern &tpattern, HookHolder &hook) {
  Tbl *records = nullptr;
  const long count =
      dbmatches(key, table, kpattern.list(), tpattern.list(), hook.hook(), &records);
  if (count < 0) return {-1};
  std::vector<long> rows;
  for (long i = 0; i < counttbl(records); ++i) {
    rows.push_back(reinterpret_cast<long>(gettbl(records, i)));
  }
  EXPECT_EQ(count, static_cast<long>(rows.size()));
  freetbl(records, nullptr);
  return rows;
}

}  // namespace ksutil::db::test
#endif
