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

namespace ksutil::db::test {

/* A css3.0 database in a directory of its own. */
class TestDatabase {
 public:
  TestDatabase() {
    char path[] = "/tmp/ksutil_db_XXXXXX";
    directory_ = mkdtemp(path);
    std::ofstream(name()) << "schema css3.0\n";
  }
  ~TestDatabase() { std::filesystem::remove_all(directory_); }
  TestDatabase(const TestDatabase &) = delete;
  TestDatabase &operator=(const TestDatabase &) = delete;

  std::string name() const { return directory_ + "/test"; }
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
  std::string directory_;
  long writes_ = 0;
};

/* The text of a row, from the null record on. */
class RowMaker {
 public:
  explicit RowMaker(const char *table)
      : schema_(Schema::load("css3.0")),
        relation_(*schema_->find(table)),
        row_(null_record(relation_)) {}
  RowMaker &set(const char *field, long value) {
    return check(write_integer(*relation_.find(field), value, row_), field);
  }
  RowMaker &set(const char *field, double value) {
    return check(write_real(*relation_.find(field), value, row_), field);
  }
  RowMaker &set(const char *field, const std::string &value) {
    return check(write_text(*relation_.find(field), value, row_), field);
  }
  bool has(const char *field) const { return relation_.find(field) != nullptr; }
  const std::string &text() const { return row_; }

 private:
  RowMaker &check(bool written, const char *field) {
    EXPECT_TRUE(written) << field;
    return *this;
  }
  std::shared_ptr<const Schema> schema_;
  const Relation &relation_;
  std::string row_;
};

/* An open database handle, closed at the end of its scope. */
class Handle {
 public:
  explicit Handle(Dbptr db) : db_(db) {}
  Handle(const std::string &name, const char *mode) {
    EXPECT_EQ(dbopen_noshare(name.c_str(), mode, &db_), 0) << messages();
  }
  ~Handle() { dbclose(db_); }
  Handle(const Handle &) = delete;
  Handle &operator=(const Handle &) = delete;
  operator Dbptr() const { return db_; }
  Dbptr at(const char *table, long record = dbALL) const {
    Dbptr found = dblookup(db_, nullptr, table, nullptr, nullptr);
    found.record = record;
    return found;
  }

  /* All messages so far, which are then gone. */
  static std::string messages() {
    const std::unique_ptr<char, void (*)(void *)> text(elog_string(0), std::free);
    elog_clear_register(0);
    return text.get();
  }

 private:
  Dbptr db_ = dbinvalid();
};

inline std::string messages() { return Handle::messages(); }

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
