/* The event that docs/query-language.md is about, in a database of any schema. */
#ifndef KSUTIL_TESTS_EVENTS_QUERY_DATABASE_H
#define KSUTIL_TESTS_EVENTS_QUERY_DATABASE_H

#include <gtest/gtest.h>
#include <stdlib.h>

#include <cstring>
#include <filesystem>
#include <fstream>
#include <memory>
#include <sstream>
#include <string>
#include <vector>

#include "events/evclient.h"
#include "events/evserver.h"
#include "platform/db/db.h"
#include "platform/stock/text.h"
#include "tests/support/folder.h"

namespace ksutil::events::test {

class QueryDatabase {
 public:
  explicit QueryDatabase(const char *schema) {
    EXPECT_EQ(dbcreate(name().c_str(), schema), 0);
    fill();
  }

  std::string name() const { return folder_ / "test"; }

  /* Makes the database say that it has another schema than its files. */
  void pretend(const std::string &schema) {
    std::ofstream(name()) << "schema " << schema << "\n";
  }

  /* Rewrites every line of a table's file. */
  template <class Edit>
  void edit(const std::string &table, Edit change) {
    const std::string path = name() + "." + table;
    std::ifstream file(path);
    std::string text, line;
    while (std::getline(file, line)) text += change(line) + "\n";
    file.close();
    std::ofstream(path) << text;
  }

 private:
  void fill() {
    Dbptr db;
    ASSERT_EQ(dbopen_noshare(name().c_str(), "r+", &db), 0);
    const auto table = [db](const char *t) {
      return dblookup(db, nullptr, t, nullptr, nullptr);
    };
    char *const end = nullptr;
    const double time = 1562383193.04;
    dbaddv(table("event"), "evid", 17L, "prefor", 171L, "evname", "Ridge", "auth",
           "OPS", "lddate", 1000.0, end);
    dbaddv(table("origin"), "orid", 170L, "evid", 17L, "lat", 35.8, "lon", -117.6,
           "depth", 2.5, "time", 1562383192.5, "auth", "AUTO", "nass", 5L, "lddate",
           1000.0, end);
    dbaddv(table("origin"), "orid", 171L, "evid", 17L, "lat", 35.7695, "lon", -117.5993,
           "depth", 8.0, "time", time, "auth", "RELOC", "nass", 12L, "lddate", 1234.5,
           end);
    dbaddv(table("origerr"), "orid", 171L, "sdobs", 0.52, "lddate", 1000.0, end);
    const auto netmag = [&](long magid, long orid, const char *type, double magnitude) {
      dbaddv(table("netmag"), "magid", magid, "orid", orid, "evid", 17L, "magtype",
             type, "magnitude", magnitude, "uncertainty", 0.05, "lddate", 1000.0, end);
    };
    netmag(1, 171, "mw", 7.1);
    netmag(2, 171, "ml", 6.9);
    netmag(3, 170, "mb", 6.5);
    const auto pick = [&](long arid, const char *sta, double at) {
      dbaddv(table("arrival"), "arid", arid, "sta", sta, "chan", "BHZ", "time", at,
             "iphase", "P", "lddate", 1000.0, end);
      dbaddv(table("assoc"), "arid", arid, "orid", 171L, "sta", sta, "phase", "P",
             "timedef", "d", "lddate", 1000.0, end);
    };
    pick(1, "TIN", time + 3.25);
    pick(2, "CWC", time + 5.5);
    dbaddv(table("site"), "sta", "TIN", "ondate", 2000001L, "lat", 37.05, "lon",
           -118.23, "lddate", 1000.0, end);
    dbclose(db);
  }

  ksutil::test::TempFolder folder_;
};

/* A client on a server of its own. */
struct Session {
  explicit Session(const QueryDatabase &database)
      : server(std::make_unique<EVServer>(database.name(), 0, 0, -1)),
        client(server.get()) {
    client.grabEventsLock();
    events = client.getEvents();
    EXPECT_EQ(client.getExpandedEvent(17, expanded), 0);
    client.releaseEventsLock();
  }
  ~Session() { leave(); }
  void leave() {
    if (server != nullptr) server->deregisterClient(&client);
    server.reset();
  }

  std::unique_ptr<EVServer> server;
  EVClient client;
  Table<EVEvent> events;
  EVEvent expanded;
};

/* What a query gives, as the manual writes it. */
template <class Record>
std::string answer(EVClient &client, Record &record, const std::string &query) {
  std::vector<EVQueryToken> tokens;
  if (client.parse_query(query, tokens) < 0) return "error";
  alignas(8) char value[EV_VALUE_SIZE];
  int type = 0;
  const int status = client.getValue(&record, tokens, &type, value);
  if (status != 0) return status < 0 ? "error" : "none";
  int64_t integer;
  double real;
  std::memcpy(&integer, value, sizeof integer);
  std::memcpy(&real, value, sizeof real);
  if (type == EV_INTEGER) return std::to_string(integer);
  return type == EV_DOUBLE ? format_text("%.12g", real) : std::string(value);
}

}  // namespace ksutil::events::test
#endif
