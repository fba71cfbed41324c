/* A small CSS3.0 database in a directory of its own, removed at the end. */
#ifndef KSUTIL_TESTS_EVENTS_TEMPORARY_DATABASE_H
#define KSUTIL_TESTS_EVENTS_TEMPORARY_DATABASE_H

#include <gtest/gtest.h>
#include <stdlib.h>

#include <filesystem>
#include <string>

#include "platform/db/db.h"

class TemporaryDatabase {
 public:
  TemporaryDatabase() {
    std::string directory =
        (std::filesystem::temp_directory_path() / "ksutil-XXXXXX").string();
    EXPECT_NE(mkdtemp(directory.data()), nullptr);
    directory_ = directory;
    name_ = directory + "/net";
    EXPECT_EQ(dbcreate(name_.c_str(), "css3.0"), 0);
    EXPECT_EQ(dbopen_noshare(name_.c_str(), "r+", &db_), 0);
  }
  ~TemporaryDatabase() {
    dbclose(db_);
    std::filesystem::remove_all(directory_);
  }
  TemporaryDatabase(const TemporaryDatabase &) = delete;
  TemporaryDatabase &operator=(const TemporaryDatabase &) = delete;

  const std::string &name() const { return name_; }
  Dbptr table(const char *name) {
    return dblookup(db_, nullptr, name, nullptr, nullptr);
  }

  /* An event with one origin, whose orid is 10 * evid, and one netmag row.  The event row
   * comes last, as programs write it, so that no reader sees it without its origin. */
  void add_event(long evid, double time) {
    const long orid = 10 * evid;
    EXPECT_GE(dbaddv(table("origin"), "orid", orid, "evid", evid, "lat", 35.0, "lon",
                     -110.0, "depth", 10.0, "time", time, nullptr),
              0);
    EXPECT_GE(dbaddv(table("netmag"), "magid", evid, "orid", orid, "evid", evid,
                     "magtype", "mw", "magnitude", 5.5, nullptr),
              0);
    EXPECT_GE(dbaddv(table("event"), "evid", evid, "prefor", orid, nullptr), 0);
  }

 private:
  std::filesystem::path directory_;
  std::string name_;
  Dbptr db_ = dbinvalid();
};

#endif
