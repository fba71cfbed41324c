/* Rows for tests: the end mark of argument lists, an open database, the text of a row. */
#ifndef KSUTIL_TESTS_SUPPORT_ROWS_H
#define KSUTIL_TESTS_SUPPORT_ROWS_H

#include <gtest/gtest.h>

#include <memory>
#include <string>

#include "platform/db/columns.h"
#include "platform/db/db.h"
#include "platform/db/schema.h"
#include "tests/support/register.h"

namespace ksutil::test {

/* Ends the list of names and values of dbaddv, dbputv, dbgetv and their like. */
inline constexpr char *kEndOfArguments = nullptr;

/* A database handle of its own (dbopen_noshare), closed at the end of the scope. */
class OpenDatabase {
 public:
  explicit OpenDatabase(Dbptr db) : db_(db) {}
  OpenDatabase(const std::string &name, const char *mode) {
    EXPECT_EQ(dbopen_noshare(name.c_str(), mode, &db_), 0) << taken_messages();
  }
  ~OpenDatabase() { dbclose(db_); }
  OpenDatabase(const OpenDatabase &) = delete;
  OpenDatabase &operator=(const OpenDatabase &) = delete;

  operator Dbptr() const { return db_; }
  /* A table, or one row of it. */
  Dbptr at(const char *table, long record = dbALL) const {
    Dbptr found = dblookup(db_, nullptr, table, nullptr, nullptr);
    found.record = record;
    return found;
  }

 private:
  Dbptr db_ = dbinvalid();
};

/* The text of one row as it stands in a table's file, made from the null record without
 * the functions that add rows. */
class RowMaker {
 public:
  explicit RowMaker(const char *table, const char *schema = "css3.0")
      : schema_(db::Schema::load(schema)),
        layout_(*schema_->find(table)),
        text_(db::null_record(layout_)) {}

  RowMaker &set(const char *field, long value) {
    return check(db::write_integer(*layout_.find(field), value, text_), field);
  }
  RowMaker &set(const char *field, double value) {
    return check(db::write_real(*layout_.find(field), value, text_), field);
  }
  RowMaker &set(const char *field, const std::string &value) {
    return check(db::write_text(*layout_.find(field), value, text_), field);
  }
  bool has(const char *field) const { return layout_.find(field) != nullptr; }
  const std::string &text() const { return text_; }

 private:
  RowMaker &check(bool written, const char *field) {
    EXPECT_TRUE(written) << field;
    return *this;
  }

  std::shared_ptr<const db::Schema> schema_;
  const db::Relation &layout_;
  std::string text_;
};

}  // namespace ksutil::test
#endif
