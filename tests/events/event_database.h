/* A small database of events in a directory of its own, written through the library's
 * own functions, and a client that collects what a server reports. */
#ifndef KSUTIL_TESTS_EVENTS_EVENT_DATABASE_H
#define KSUTIL_TESTS_EVENTS_EVENT_DATABASE_H

#include <fcntl.h>
#include <gtest/gtest.h>
#include <stdlib.h>
#include <sys/stat.h>
#include <unistd.h>

#include <cmath>
#include <filesystem>
#include <string>
#include <vector>

#include "events/evclient.h"
#include "events/evserver.h"
#include "events/records/internal/compare.h"
#include "platform/db/db.h"
#include "tests/support/folder.h"
#include "tests/support/rows.h"

namespace ksutil::events::test {

class EventDatabase {
 public:
  EventDatabase() {
    EXPECT_EQ(dbcreate(name().c_str(), "css3.0"), 0);
    EXPECT_EQ(dbopen_noshare(name().c_str(), "r+", &db_), 0);
  }
  ~EventDatabase() { dbclose(db_); }
  EventDatabase(const EventDatabase &) = delete;
  EventDatabase &operator=(const EventDatabase &) = delete;

  std::string name() const { return folder_ / "test"; }
  std::string file(const std::string &table) const { return name() + "." + table; }
  Dbptr table(const std::string &table) const {
    return dblookup(db_, nullptr, table.c_str(), nullptr, nullptr);
  }
  Dbptr row(const std::string &name_of_table, long record) const {
    Dbptr found = table(name_of_table);
    found.record = record;
    return found;
  }
  long count(const std::string &name_of_table) const {
    long records = 0;
    dbquery(table(name_of_table), dbq_record_count, &records);
    return records;
  }

  /* An event with one origin, whose orid is 10 * evid, and one magnitude.  The event row
   * comes last, as programs write it, so that no reader sees it without its origin. */
  void add_located_event(long evid, double time) {
    EXPECT_GE(add_origin(10 * evid, evid, time), 0);
    EXPECT_GE(add_netmag(evid, 10 * evid, "mw", 5.5), 0);
    EXPECT_GE(add_event(evid, 10 * evid), 0);
  }

  long add_event(long evid, long prefor, double lddate = 1000.0) {
    return dbaddv(table("event"), "evid", evid, "prefor", prefor, "lddate", lddate,
                  ksutil::test::kEndOfArguments);
  }
  long add_origin(long orid, long evid, double time, double lddate = 1000.0) {
    return dbaddv(table("origin"), "orid", orid, "evid", evid, "time", time, "lat",
                  10.0, "lon", 20.0, "depth", 33.0, "lddate", lddate,
                  ksutil::test::kEndOfArguments);
  }
  long add_netmag(long magid, long orid, const char *type, double magnitude,
                  double lddate = 1000.0) {
    return dbaddv(table("netmag"), "magid", magid, "orid", orid, "magtype", type,
                  "magnitude", magnitude, "lddate", lddate,
                  ksutil::test::kEndOfArguments);
  }
  long add_origerr(long orid, double lddate = 1000.0) {
    return dbaddv(table("origerr"), "orid", orid, "lddate", lddate,
                  ksutil::test::kEndOfArguments);
  }
  long add_mt(long orid, double lddate) {
    return dbaddv(table("mt"), "orid", orid, "lddate", lddate,
                  ksutil::test::kEndOfArguments);
  }
  long add_stamag(long magid, const char *sta, double magnitude) {
    return dbaddv(table("stamag"), "magid", magid, "sta", sta, "magtype", "mb",
                  "magnitude", magnitude, "lddate", 1000.0,
                  ksutil::test::kEndOfArguments);
  }
  long add_arrival(long arid, const char *sta, double time) {
    return dbaddv(table("arrival"), "arid", arid, "sta", sta, "chan", "BHZ", "time",
                  time, "lddate", 1000.0, ksutil::test::kEndOfArguments);
  }
  long add_assoc(long arid, long orid, const char *sta, const char *timedef) {
    return dbaddv(table("assoc"), "arid", arid, "orid", orid, "sta", sta, "timedef",
                  timedef, "lddate", 1000.0, ksutil::test::kEndOfArguments);
  }
  long add_site(const char *sta, long ondate, long offdate, double lat, double lon) {
    return dbaddv(table("site"), "sta", sta, "ondate", ondate, "offdate", offdate,
                  "lat", lat, "lon", lon, "lddate", 1000.0,
                  ksutil::test::kEndOfArguments);
  }
  long add_detection(const char *sta, double time, const char *state) {
    return dbaddv(table("detection"), "sta", sta, "chan", "BHZ", "time", time, "state",
                  state, "lddate", 1000.0, ksutil::test::kEndOfArguments);
  }

  /* Overwrites bytes of a table's file as a careless editor would. */
  void overwrite(const std::string &name_of_table, long offset,
                 const std::string &text) {
    const int fd = open(file(name_of_table).c_str(), O_WRONLY);
    EXPECT_EQ(pwrite(fd, text.data(), text.size(), offset),
              static_cast<ssize_t>(text.size()));
    close(fd);
    touch(name_of_table);
  }
  void remove_last_row(const std::string &name_of_table) {
    long size = 0;
    dbquery(table(name_of_table), dbq_record_size, &size);
    const std::string path = file(name_of_table);
    std::filesystem::resize_file(
        path, std::filesystem::file_size(path) - static_cast<std::size_t>(size));
  }

 private:
  /* Later than the last write, however coarse the file system's clock is. */
  void touch(const std::string &name_of_table) {
    struct stat now;
    stat(file(name_of_table).c_str(), &now);
    timespec times[2] = {now.st_mtim, now.st_mtim};
    times[1].tv_nsec += 2000;
    if (times[1].tv_nsec >= 1000000000) {
      times[1].tv_sec++;
      times[1].tv_nsec -= 1000000000;
    }
    utimensat(AT_FDCWD, file(name_of_table).c_str(), times, 0);
  }

  ksutil::test::TempFolder folder_;
  Dbptr db_ = dbinvalid();
};

/* Collects what its server reports. */
class Listener : public EVClient {
 public:
  explicit Listener(EVServer &served) : EVClient(&served), server_(served) {}
  ~Listener() { server_.deregisterClient(this); }
  void responseCallback(EVResponse response) override { reports.push_back(response); }
  void checkDatabaseCallback(Array<std::string, int> changes) override {
    checks.push_back(changes);
  }

  std::vector<EVResponse> reports;
  std::vector<Array<std::string, int>> checks;

 private:
  EVServer &server_;
};

/* The same events in the same places, with all that is derived of them. */
inline testing::AssertionResult same_lists(const Table<EVEvent> &a,
                                           const Table<EVEvent> &b) {
  if (a.size() != b.size()) {
    return testing::AssertionFailure() << a.size() << " and " << b.size() << " events";
  }
  for (long i = 0; i < a.size(); i++) {
    const EVEvent &x = *a.ptr(i);
    const EVEvent &y = *b.ptr(i);
    if (!equal(x, y) || x.order != y.order || x.time != y.time ||
        x.magnitude != y.magnitude || x.magtype != y.magtype) {
      return testing::AssertionFailure()
             << "event " << i << ", evid " << x.evid << " and " << y.evid << ", differ";
    }
  }
  return testing::AssertionSuccess();
}

inline std::vector<long> values(const Table<long> &table) {
  return {table.begin(), table.end()};
}

}  // namespace ksutil::events::test
#endif
