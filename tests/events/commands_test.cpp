/* The commands are how programs look into the database of a running server: a row missed
 * is a waveform that nobody sees, half a row written damages the network's archive, and a
 * list written back to a caller that has gone corrupts its memory. */
#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <algorithm>
#include <atomic>
#include <cmath>
#include <fstream>
#include <iterator>
#include <memory>
#include <mutex>
#include <optional>
#include <random>
#include <set>
#include <string>
#include <thread>
#include <vector>

#include "events/evclient.h"
#include "events/evserver.h"
#include "platform/clock/clock.h"
#include "platform/db/store/internal/flat_files.h"
#include "platform/stock/files.h"
#include "tests/events/bare_server.h"
#include "tests/events/event_database.h"
#include "tests/events/meddler.h"
#include "tests/support/rows.h"

namespace ksutil::events::test {
namespace {

using testing::ElementsAre;
using testing::HasSubstr;

constexpr double kEpoch = 1.4e9, kNoEnd = 9999999999.999;
using ksutil::test::kEndOfArguments;

template <class Records>
std::vector<long> numbers(const Records &records) {
  std::vector<long> found;
  for (const auto &record : records) {
    if constexpr (requires { record.recno; }) {
      found.push_back(record.recno);
    } else {
      found.push_back(record.recno_arrival);
    }
  }
  return found;
}

std::string file_text(const std::string &path) {
  std::ifstream file(path, std::ios::binary);
  return {std::istreambuf_iterator<char>(file), {}};
}

std::string row_text(Dbptr row) {
  std::string text(2000, '\0');
  EXPECT_EQ(dbget(row, text.data()), 0);
  return text.c_str();
}

struct Row {
  std::string sta, chan;
  double time, endtime;
};

/* A wildcard for each way in which a row is found: by key, by station, by looking at all
 * rows. */
struct Codes {
  const char *sta, *chan;
  bool (*accept)(const Row &);
};
const Codes kCodes[] = {
    {"AAK", "BHZ", [](const Row &r) { return r.sta == "AAK" && r.chan == "BHZ"; }},
    {"AAK", "", [](const Row &r) { return r.sta == "AAK"; }},
    {"AAK", "BH?", [](const Row &r) { return r.sta == "AAK" && r.chan != "SHZ"; }},
    {"[AB]*", "BHZ", [](const Row &r) { return r.sta != "KURK" && r.chan == "BHZ"; }},
    {"", "", [](const Row &) { return true; }},
    {"", "SHZ", [](const Row &r) { return r.chan == "SHZ"; }},
    {"A", "BHZ", [](const Row &) { return false; }},
    {"WAYTOOLONGNAME", "BHZ", [](const Row &) { return false; }}};

class ByStation : public testing::Test {
 protected:
  /* Whole seconds within few minutes, so that ends often coincide. */
  ByStation() {
    std::mt19937 random(7);
    const auto below = [&](unsigned n) { return static_cast<unsigned>(random() % n); };
    for (int i = 0; i < 300; i++) {
      Row row{std::vector<const char *>{"AAK", "BRVK", "KURK"}[below(3)],
              std::vector<const char *>{"BHZ", "BHN", "SHZ"}[below(3)],
              kEpoch + below(120), 0.0};
      row.endtime = below(9) == 0 ? kNoEnd : row.time + below(30);
      rows.push_back(row);
    }
  }

  std::vector<long> expected(const Codes &codes,
                             bool (*in)(const Row &, double, double), double tstart,
                             double tend) const {
    std::vector<long> found;
    for (std::size_t i = 0; i < rows.size(); i++) {
      if (codes.accept(rows[i]) && in(rows[i], tstart, tend)) {
        found.push_back(static_cast<long>(i));
      }
    }
    std::stable_sort(found.begin(), found.end(), [&](long a, long b) {
      return rows[static_cast<std::size_t>(a)].time <
             rows[static_cast<std::size_t>(b)].time;
    });
    return found;
  }

  static constexpr double kWindows[][2] = {{kEpoch + 10, kEpoch + 10},
                                           {kEpoch + 20, kEpoch + 45},
                                           {-kNoEnd, kNoEnd},
                                           {kEpoch + 30, kEpoch + 29},
                                           {NAN, kNoEnd},
                                           {0.0, NAN},
                                           {0.0, 1e12}};
  EventDatabase database;
  std::vector<Row> rows;
};

TEST_F(ByStation, ArrivalsAndDetectionsAreThoseInTheWindow) {
  for (const Row &row : rows) {
    ASSERT_GE(dbaddv(database.table("arrival"), "sta", row.sta.c_str(), "chan",
                     row.chan.c_str(), "time", row.time, "arid", 5L, kEndOfArguments),
              0);
    ASSERT_GE(dbaddv(database.table("detection"), "sta", row.sta.c_str(), "chan",
                     row.chan.c_str(), "time", row.time, kEndOfArguments),
              0);
  }
  EVServer server(database.name(), 0, 0, -1);
  Listener client(server);
  const auto in = [](const Row &row, double tstart, double tend) {
    return tstart <= row.time && row.time <= tend;
  };
  for (const Codes &codes : kCodes) {
    for (const auto &[tstart, tend] : kWindows) {
      SCOPED_TRACE(std::string(codes.sta) + " " + codes.chan);
      const std::vector<long> found = expected(codes, in, tstart, tend);
      EXPECT_EQ(numbers(client.getArrivals(codes.sta, codes.chan, tstart, tend)),
                found);
      EXPECT_EQ(numbers(client.getRawDetections(codes.sta, codes.chan, tstart, tend)),
                found);
    }
  }
}

TEST_F(ByStation, WaveformRowsOverlapTheWindowOrLieInIt) {
  for (const Row &row : rows) {
    ASSERT_GE(dbaddv(database.table("wfdisc"), "sta", row.sta.c_str(), "chan",
                     row.chan.c_str(), "time", row.time, "endtime", row.endtime,
                     kEndOfArguments),
              0);
  }
  EVServer server(database.name(), 0, 0, -1);
  Listener client(server);
  const auto overlaps = [](const Row &row, double tstart, double tend) {
    return tstart <= tend && row.time <= tend && row.endtime >= tstart;
  };
  const auto inside = [](const Row &row, double tstart, double tend) {
    return row.time >= tstart && row.endtime <= tend;
  };
  for (const Codes &codes : kCodes) {
    for (const auto &[tstart, tend] : kWindows) {
      if (tstart > tend) continue;
      SCOPED_TRACE(std::string(codes.sta) + " " + codes.chan);
      EXPECT_EQ(numbers(client.getWfdiscs(codes.sta, codes.chan, tstart, tend, 0)),
                expected(codes, overlaps, tstart, tend));
      EXPECT_EQ(numbers(client.getWfdiscs(codes.sta, codes.chan, tstart, tend, 1)),
                expected(codes, inside, tstart, tend));
    }
  }
}

/* A table that needs several readings, and a program that overwrites it all the while:
 * nothing that is selected may be missing, and nothing needs a message. */
TEST_F(ByStation, RowsThatAreOverwrittenUnderTheReadingAreReadAgain) {
  constexpr long kArid = 32;  // the last digit of arid
  for (int round = 0; round < 40; round++) {
    for (const Row &row : rows) {
      ASSERT_GE(dbaddv(database.table("arrival"), "sta", row.sta.c_str(), "chan",
                       row.chan.c_str(), "time", row.time, "arid", 5L, kEndOfArguments),
                0);
    }
  }
  const db::ScopedBlockBudget tiny(1);
  EVServer server(database.name(), 0, 0, -1);
  Listener client(server);
  const Codes &codes = kCodes[0];
  const auto all = client.getArrivals(codes.sta, codes.chan, -kNoEnd, kNoEnd);
  const auto selected = client.dbsubset("arrival", "sta == 'AAK'");
  Meddler meddler(database, {"arrival", {kArid}}, 3, 2);
  for (int i = 0; i < 10; i++) {
    meddler.start(i % 2 == 0 ? 3 : -1);
    taken_messages();
    EXPECT_EQ(numbers(client.getArrivals(codes.sta, codes.chan, -kNoEnd, kNoEnd)),
              numbers(all));
    EXPECT_EQ(numbers(client.dbsubset("arrival", "sta == 'AAK'")), numbers(selected));
    EXPECT_EQ(taken_messages(), "");
  }
  EXPECT_GT(meddler.done(), 20);
}

TEST(StationCommands, ScanJoinsTheRowsOfAChannelAndLeavesOutWhatIsNotWanted) {
  EventDatabase database;
  const auto add = [&](const char *sta, const char *chan, double time, double endtime) {
    dbaddv(database.table("wfdisc"), "sta", sta, "chan", chan, "time", time, "endtime",
           endtime, kEndOfArguments);
  };
  add("KURK", "BHZ", kEpoch + 50, kEpoch + 60);
  add("AAK", "BHZ", kEpoch + 20, kEpoch + 30);
  add("AAK", "BHZ", kEpoch + 5, kEpoch + 90);
  add("AAK", "BHN", kEpoch, kEpoch + 10);
  add("AAK", "SHZ", kEpoch, kEpoch + 10);
  add("BRVK", "BHZ", kEpoch, kEpoch + 10);
  EVServer server(database.name(), 0, 0, -1);
  Listener client(server);
  const Table<EVStaChan> found =
      client.scanWfdisc("K$", "^BH[ZN]$", "^BR", "N", 0.0, kNoEnd);
  ASSERT_EQ(found.size(), 2);
  EXPECT_EQ(found.ptr(0)->sta + found.ptr(0)->chan, "AAKBHZ");
  EXPECT_EQ(found.ptr(0)->tstart, kEpoch + 5);
  EXPECT_EQ(found.ptr(0)->tend, kEpoch + 90);
  EXPECT_EQ(found.ptr(1)->sta, "KURK");
  EXPECT_EQ(client.scanWfdisc("", "", "", "", kEpoch + 10, kEpoch + 10).size(), 4);
  taken_messages();
  EXPECT_EQ(client.scanWfdisc("AAK", "B[", "", "", 0.0, kNoEnd).size(), 0);
  EXPECT_THAT(taken_messages(),
              HasSubstr("EVServer::scanWfdisc: 'B[' is not a regular expression: "));
}

TEST(StationCommands, GiveTheAssocOfAnArrivalAndTheSiteOfTheDay) {
  EventDatabase database;
  database.add_arrival(7, "AAK", kEpoch);
  database.add_arrival(8, "AAK", kEpoch + 1);
  database.add_assoc(3, 1, "AAK", "d");
  database.add_assoc(7, 1, "AAK", "d");
  database.add_assoc(7, 2, "AAK", "d");
  const long day = yearday(kEpoch);
  database.add_site("AAK", 2000001, day - 1, 1.0, 1.0);
  database.add_site("AAK", day, -1, 2.0, 2.0);
  EVServer server(database.name(), 0, 0, -1);
  Listener client(server);
  const Table<EVArrival> arrivals =
      client.getArrivals("AAK", "BHZ", kEpoch, kEpoch + 1);
  ASSERT_EQ(arrivals.size(), 2);
  EXPECT_EQ(arrivals.ptr(0)->recno_assoc, 1);
  EXPECT_EQ(arrivals.ptr(1)->recno_assoc, -1);
  EXPECT_EQ(arrivals.ptr(0)->record_arrival, row_text(database.row("arrival", 0)));
  EXPECT_EQ(client.getSite("AAK", kEpoch).recno, 1);
  EXPECT_EQ(client.getSite("AAK", kEpoch - 86400.0).recno, 0);
  EXPECT_EQ(client.getSite("AAK", kEpoch).record, row_text(database.row("site", 1)));
  EXPECT_EQ(client.getSite("AA*", kEpoch).recno, -1);
}

TEST(DatabaseCommands, MatchFillsInPatternsAndKeepsTheCallersHook) {
  EventDatabase database;
  for (const long orid : {10, 20, 30}) database.add_origin(orid, orid / 20, kEpoch);
  database.add_event(1, 20);
  EVServer server(database.name(), 0, 0, -1);
  Listener client(server);
  EVMatch match;
  const std::string key = row_text(database.row("event", 0));
  const auto match_origins = [&] {
    return numbers(client.dbmatches("event", key, "origin", &match.kpattern,
                                    &match.tpattern, &match.hook));
  };
  EXPECT_THAT(match_origins(), ElementsAre(1, 2)) << taken_messages();
  ASSERT_NE(match.kpattern, nullptr);
  Tbl *const filled = match.kpattern;
  Hook *const hook = match.hook;
  ASSERT_NE(hook, nullptr);
  database.add_origin(40, 1, kEpoch);
  EXPECT_THAT(match_origins(), ElementsAre(1, 2, 3));
  EXPECT_EQ(match.kpattern, filled);
  EXPECT_EQ(match.hook, hook);
  taken_messages();
  EXPECT_EQ(client
                .dbmatches("event", "short", "origin", &match.kpattern, &match.tpattern,
                           &match.hook)
                .size(),
            0);
  EXPECT_EQ(match.hook, hook) << "given back after a failure too";
  EXPECT_THAT(taken_messages(),
              HasSubstr("EVServer::execDbmatches: cannot match event with origin.\n"));
}

/* Rows that another program turns into others between the match and the reading of what it
 * has found are no result. */
TEST(DatabaseCommands, MatchGivesRowsThatMatchWhileTheyAreOverwritten) {
  constexpr long kEvid = 57, kWidth = 8;
  EventDatabase database;
  for (long orid = 1; orid <= 300; orid++) {
    database.add_origin(orid, orid % 10, kEpoch);
  }
  database.add_event(3, 3);
  const db::ScopedBlockBudget tiny(1);
  EVServer server(database.name(), 0, 0, -1);
  Listener client(server);
  const std::string key = row_text(database.row("event", 0));
  EVMatch match;
  Meddler meddler(database, {"origin", {kEvid + kWidth - 1}}, 5, 1);
  meddler.start(-1);
  for (int i = 0; i < 200; i++) {
    database.add_origin(301 + i, i % 10, kEpoch);  // so that the table is read again
    const auto found = client.dbmatches("event", key, "origin", &match.kpattern,
                                        &match.tpattern, &match.hook);
    EXPECT_GT(found.size(), 0) << taken_messages();
    for (const EVTableRecord &each : found) {
      ASSERT_EQ(each.record.substr(kEvid, kWidth), "       3");
    }
  }
  meddler.stop();
  EXPECT_GT(meddler.done(), 100);
}

/* A client may leave while its command waits, and its caller then frees the lists. */
TEST(DatabaseCommands, MatchTouchesNothingOfACallerThatHasGone) {
  EventDatabase database;
  database.add_event(1, 10);
  database.add_origin(10, 1, kEpoch);
  EVServer server(database.name(), 0, 0, -1);
  Listener client(server);
  const std::string key = row_text(database.row("event", 0));
  std::atomic<bool> done{false};
  std::thread leaver([&] {
    while (!done) {
      server.deregisterClient(&client);
      server.registerClient(&client);
    }
  });
  for (int i = 0; i < 300; i++) {
    EVMatch fleeting({"evid"}, {"evid"});
    const auto found = client.dbmatches("event", key, "origin", &fleeting.kpattern,
                                        &fleeting.tpattern, &fleeting.hook);
    EXPECT_LE(found.size(), 1);
  }
  done = true;
  leaver.join();
}

TEST(DatabaseCommands, SubsetGivesTheRowsThatAnExpressionIsTrueFor) {
  EventDatabase database;
  for (const long orid : {10, 20, 30}) {
    database.add_origin(orid, 1, kEpoch + static_cast<double>(orid));
  }
  EVServer server(database.name(), 0, 0, -1);
  Listener client(server);
  const Table<EVTableRecord> found =
      client.dbsubset("origin", "origin.orid >= 20 && time < 1400000030.0");
  EXPECT_THAT(numbers(found), ElementsAre(1));
  EXPECT_EQ(found.ptr(0)->record, row_text(database.row("origin", 1)));
  EXPECT_EQ(client.dbsubset("origin", "mb > 1").size(), 0) << "a null is not true";
  taken_messages();
  EXPECT_EQ(client.dbsubset("origin", "nosuch > 1").size(), 0);
  EXPECT_THAT(taken_messages(),
              HasSubstr("EVServer::execDbsubset: Can't compile 'nosuch > 1'"));
  EXPECT_EQ(client.dbsubset("nosuch", "1").size(), 0);
  EXPECT_THAT(taken_messages(),
              HasSubstr("EVServer::execDbsubset: no table 'nosuch'.\n"));
}

TEST(DatabaseCommands, PutrecordWritesWholeRowsOnly) {
  EventDatabase database;
  database.add_event(1, 10);
  database.add_event(2, 20);
  EVServer server(database.name(), 0, 0, -1);
  Listener client(server);
  const std::string before = file_text(database.file("event"));
  std::string row = row_text(database.row("event", 0));
  std::string bad_number = row, control = row;
  bad_number.replace(row.find('1'), 1, "x");
  control.replace(20, 1, "\t");
  for (const std::string &refused :
       {row.substr(1), row + row, std::string(), bad_number, control,
        row.substr(0, 10) + "\n" + row.substr(11)}) {
    EXPECT_EQ(client.dbputrecord("event", -1, 0, refused), -1) << refused;
    EXPECT_EQ(client.dbputrecord("event", 0, 1, refused), -1) << refused;
  }
  EXPECT_EQ(client.dbputrecord("event", 2, 0, row), -1) << "no such record";
  EXPECT_EQ(client.dbputrecord("event", -2, 0, row), -1);
  EXPECT_EQ(client.dbputrecord("event", 0, 2, row), -1) << "an unknown flag";
  EXPECT_EQ(client.dbputrecord("nosuch", 0, 0, row), -1);
  EXPECT_EQ(file_text(database.file("event")), before);

  EXPECT_EQ(client.dbputrecord("event", -1, 0, row.substr(0, row.size() - 1)), 2);
  EXPECT_EQ(file_text(database.file("event")), before + row) << "as it was given";
  const double now = std_now();
  EXPECT_EQ(client.dbputrecord("event", 1, 1, row), 1);
  EXPECT_EQ(database.count("event"), 3);
  double lddate = 0.0;
  long evid = 0;
  EXPECT_EQ(dbgetv(database.row("event", 1), "lddate", &lddate, "evid", &evid,
                   kEndOfArguments),
            0);
  EXPECT_EQ(evid, 1);
  EXPECT_NEAR(lddate, now, 10.0);
}

/* How often files were opened for writing. */
std::atomic<int> openings_to_write{0};

int open_and_count(const char *path, int flags, mode_t mode) {
  if ((flags & O_ACCMODE) == O_RDWR) openings_to_write++;
  return ksutil::system_file_calls().open(path, flags, mode);
}

/* A program that holds the lock of a table, perhaps for long. */
struct OtherWriter {
  explicit OtherWriter(const std::string &path) : file(open_file(path, O_RDWR)) {
    lock.emplace(file.get());
    openings_to_write = 0;
  }
  /* Whether a write has found the lock taken and opened the file anew to wait for it. */
  static bool is_in_the_way() {
    return comes_true([] { return openings_to_write >= 2; });
  }
  FileHandle file;
  std::optional<FileLock> lock;
};

TEST(DatabaseCommands, LetOthersReadWhileTheyWaitForAnotherWriter) {
  EventDatabase database;
  database.add_located_event(1, kEpoch);
  EVServer server(database.name(), 0, 0, -1);
  ASSERT_EQ(server.execDbnextid("orid"), 11);
  const std::string row = row_text(database.row("event", 0));
  FileCalls calls = system_file_calls();
  calls.open = open_and_count;
  const ScopedFileCalls scope(calls);
  taken_messages();
  long written = 0;
  std::string messages;
  const auto put = [&] {
    written = server.dbputrecord("event", -1, 0, row);
    messages = taken_messages();
  };
  {
    OtherWriter other(database.file("event"));
    std::thread thread(put);
    EXPECT_TRUE(other.is_in_the_way());
    EXPECT_EQ(server.refreshEvents(1), 0);
    EXPECT_EQ(server.execDbsubset("event", "evid == 1").size(), 1);
    other.lock.reset();
    thread.join();
    EXPECT_EQ(written, 1);
    EXPECT_EQ(messages, "");
  }
  {
    OtherWriter other(database.file("lastid"));
    std::thread thread([&] { written = server.execDbnextid("orid"); });
    EXPECT_TRUE(other.is_in_the_way());
    EXPECT_EQ(server.execDbsubset("event", "evid == 1").size(), 2);
    other.lock.reset();
    thread.join();
    EXPECT_EQ(written, 12);
  }
  OtherWriter other(database.file("event"));
  std::thread thread(put);
  EXPECT_TRUE(other.is_in_the_way());
  server.closeDb();
  other.lock.reset();
  thread.join();
  EXPECT_EQ(written, -1);
  EXPECT_EQ(messages, "EVServer::dbputrecord: The database has been closed.\n");
  EXPECT_EQ(database.count("event"), 2);
}

/* A write that nobody waits for any more must not come later: the caller may have tried
 * again.  A server must end, however long the other program holds the lock. */
TEST(DatabaseCommands, GiveUpWaitingToWriteWithTheirClientAndTheirServer) {
  EventDatabase database;
  database.add_located_event(1, kEpoch);
  auto server = std::make_unique<EVServer>(database.name(), 0, 0, -1);
  const std::string row = row_text(database.row("event", 0));
  FileCalls calls = system_file_calls();
  calls.open = open_and_count;
  const ScopedFileCalls scope(calls);
  EVClient leaving(server.get()), staying(server.get());
  OtherWriter other(database.file("event"));
  long written = 0;
  const auto put = [&](EVClient &client) {
    openings_to_write = 0;
    return std::thread([&] { written = client.dbputrecord("event", -1, 0, row); });
  };
  std::thread thread = put(leaving);
  EXPECT_TRUE(other.is_in_the_way());
  server->deregisterClient(&leaving);
  thread.join();
  EXPECT_EQ(written, -1);
  EXPECT_EQ(staying.dbsubset("event", "evid == 1").size(), 1)
      << "the worker is free again";
  thread = put(staying);
  EXPECT_TRUE(other.is_in_the_way());
  server.reset();
  thread.join();
  EXPECT_EQ(written, -1);
  other.lock.reset();
  EXPECT_EQ(database.count("event"), 1);
  EXPECT_THAT(taken_messages(), HasSubstr("given up while another program holds"));
}

TEST(DatabaseCommands, MapStationCodesByTheTableElseByRule) {
  EventDatabase database;
  dbaddv(database.table("seedcode"), "sta", "AAKB", "chan", "BHZ_01", "net", "II",
         "seedsta", "AAK", "seedchan", "BHZ", "loc", "10", kEndOfArguments);
  dbaddv(database.table("seedcode"), "sta", "AAKX", "chan", "BHZ", "net", "XX",
         "seedsta", "AAK", "seedchan", "BHZ", kEndOfArguments);
  EVServer server(database.name(), 0, 0, -1);
  Listener client(server);
  struct {
    const char *net, *sta, *chan, *loc, *css_sta, *css_chan;
  } const cases[] = {{"II", "AAK", "BHZ", "10", "AAKB", "BHZ_01"},
                     {"", "AAK", "BHZ", "--", "AAKX", "BHZ"},
                     {"II", "AAK", "BHZ", "", "AAK", "BHZ"},
                     {"IU", "ANMO", "BHZ", "00", "ANMO", "BHZ00"}};
  for (const auto &c : cases) {
    std::string sta, chan;
    EXPECT_EQ(client.dbseed2css(c.net, c.sta, c.chan, c.loc, sta, chan), 0);
    EXPECT_EQ(sta + " " + chan, std::string(c.css_sta) + " " + c.css_chan);
  }
  std::string net, sta, chan, loc;
  EXPECT_EQ(client.dbcss2seed("AAKB", "BHZ_01", net, sta, chan, loc), 0);
  EXPECT_EQ(net + "." + sta + "." + chan + "." + loc, "II.AAK.BHZ.10");
  EXPECT_EQ(client.dbcss2seed("AAKX", "BHZ", net, sta, chan, loc), 0);
  EXPECT_EQ(loc, "") << "a null location is a blank one";
  EXPECT_EQ(client.dbcss2seed("ANMO", "BHZ00", net, sta, chan, loc), 0);
  EXPECT_EQ(net + "." + sta + "." + chan + "." + loc, ".ANMO.BHZ.00");
  EXPECT_EQ(client.dbseed2css("II", "AAK", "BHZ", "10", sta, chan), 0);
  EXPECT_EQ(client.out4, "00") << "the other command fills it";
  EXPECT_EQ(client.dbcss2seed("", "BHZ", net, sta, chan, loc), -1);
  EXPECT_EQ(sta, "");
}

TEST(DatabaseCommands, OfManyClientsAtOnceKeepTheirResultsApart) {
  EventDatabase database;
  for (long i = 0; i < 50; i++) {
    database.add_detection(i % 2 == 0 ? "AAK" : "BRVK", kEpoch + static_cast<double>(i),
                           "D");
    database.add_arrival(i + 1, "AAK", kEpoch + static_cast<double>(i));
  }
  EVServer server(database.name(), 0, 0, -1);
  server.autoRefreshEvents(0.01);
  const std::string row = row_text(database.row("arrival", 0));
  std::mutex mutex;
  std::set<long> ids, records;
  std::vector<std::thread> threads;
  for (int t = 0; t < 8; t++) {
    threads.emplace_back([&, t] {
      Listener client(server);
      const std::string sta = t % 2 == 0 ? "AAK" : "BRVK";
      EVMatch match({"arid"}, {"arid"});
      for (int i = 0; i < 10; i++) {
        EXPECT_EQ(client.getRawDetections(sta, "", 0.0, kNoEnd).size(), 25);
        EXPECT_THAT(numbers(client.dbmatches("arrival", row, "arrival", &match.kpattern,
                                             &match.tpattern, &match.hook)),
                    testing::Contains(0));
        const long id = client.dbnextid("arid");
        const long record = client.dbputrecord("arrival", -1, 1, row);
        EXPECT_GE(server.getArrivals("AAK", "BHZ", 0.0, kNoEnd).size(), 51);
        const std::lock_guard lock(mutex);
        EXPECT_TRUE(ids.insert(id).second) << id;
        EXPECT_TRUE(records.insert(record).second) << record;
      }
    });
  }
  for (std::thread &thread : threads) thread.join();
  EXPECT_EQ(*ids.begin(), 51);
  EXPECT_EQ(*records.rbegin(), 129);
  EXPECT_EQ(database.count("arrival"), 130);
}

TEST(DatabaseCommands, AnswerWithoutADatabase) {
  EventDatabase database;
  EVServer server(database.name(), 0, 0, -1);
  Listener client(server);
  server.closeDb();
  taken_messages();
  EXPECT_EQ(client.getArrivals("", "", 0.0, kNoEnd).size(), 0);
  EXPECT_EQ(client.dbputrecord("event", -1, 0, "x"), -1);
  EXPECT_EQ(client.dbnextid("orid"), -1);
  std::string a, b;
  EXPECT_EQ(client.dbseed2css("II", "AAK", "BHZ", "", a, b), -1);
  EXPECT_THAT(taken_messages(),
              HasSubstr("EVServer::getArrivals: No database currently open.\n"));
}

}  // namespace
}  // namespace ksutil::events::test
