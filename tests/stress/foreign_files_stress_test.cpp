/* Programs that know nothing of locks truncate, remove, replace and rewrite tables under a
 * running server: it must not crash, and once they are done it must show what is there. */
#include <fcntl.h>
#include <gtest/gtest.h>
#include <sys/stat.h>
#include <unistd.h>

#include <ctime>
#include <filesystem>
#include <fstream>
#include <iterator>
#include <map>

#include "core/register.h"
#include "platform/db/access.h"
#include "platform/stock/files.h"
#include "tests/events/bare_server.h"
#include "tests/events/event_database.h"
#include "tests/stress/stress_support.h"

using namespace stress;

namespace {

struct timespec later_by(struct timespec time, long nanoseconds) {
  time.tv_nsec += nanoseconds;
  time.tv_sec += time.tv_nsec / 1'000'000'000;
  time.tv_nsec %= 1'000'000'000;
  return time;
}

constexpr const char *kTables[] = {"event",   "origin", "netmag",
                                   "arrival", "assoc",  "detection"};

class ForeignFiles : public testing::Test {
 protected:
  ForeignFiles() {
    for (long evid = 1; evid <= 60; evid++) {
      const double time = 1e9 + 60.0 * static_cast<double>(evid);
      database.add_located_event(evid, time);
      dbaddv(database.table("arrival"), "sta", "ANMO", "time", time + 30.0, "arid",
             evid, "iphase", "P", nullptr);
      dbaddv(database.table("assoc"), "arid", evid, "orid", 10 * evid, "sta", "ANMO",
             "phase", "P", nullptr);
      dbaddv(database.table("detection"), "sta", "ANMO", "chan", "BHZ", "time",
             time + 30.0, nullptr);
    }
    for (const char *table : kTables) saved_[table] = text(path(table));
  }

  std::string path(const std::string &table) const {
    return database.name() + "." + table;
  }
  static std::string text(const std::string &path) {
    std::ifstream file(path, std::ios::binary);
    return {std::istreambuf_iterator<char>(file), {}};
  }
  /* Puts another file in the table's place. */
  void replace(const std::string &table, const std::string &content) {
    const std::string fresh = path(table) + "-new";
    std::ofstream(fresh, std::ios::binary) << content;
    std::filesystem::rename(fresh, path(table));
  }
  /* Writes without locks, in two parts; at < 0: at the end. */
  void write_in_parts(const std::string &table, const std::string &bytes, long at) {
    const ksutil::FileHandle file = ksutil::open_file(path(table), O_WRONLY | O_CREAT);
    const off_t begin = at < 0 ? ::lseek(file.get(), 0, SEEK_END) : at;
    const auto part = below(random, static_cast<unsigned>(bytes.size()));
    EXPECT_EQ(::pwrite(file.get(), bytes.data(), part, begin), part);
    pause();
    const auto rest = static_cast<ssize_t>(bytes.size() - part);
    EXPECT_EQ(::pwrite(file.get(), bytes.data() + part, bytes.size() - part,
                       begin + static_cast<off_t>(part)),
              rest);
  }
  void pause() { usleep(below(random, 4000)); }

  void disturb(const std::string &table) {
    const std::string &rows = saved_[table];
    const std::size_t length = rows.find('\n') + 1;
    const auto count = static_cast<unsigned>(rows.size() / length);
    const std::string row = rows.substr(below(random, count) * length, length);
    struct stat status = {};
    ::stat(path(table).c_str(), &status);
    const auto size = static_cast<unsigned>(status.st_size);
    switch (below(random, 10)) {
      case 0:
        EXPECT_TRUE(::truncate(path(table).c_str(), below(random, size + 1)) == 0 ||
                    errno == ENOENT);
        break;
      case 1:
        std::filesystem::remove(path(table));
        break;
      case 2:
        replace(table, rows.substr(0, length * (1 + below(random, count))));
        break;
      case 3: {
        std::string lines;
        for (std::size_t at = 0; at < rows.size(); at += length) {
          lines += rows.substr(at, length - 1) + "\r\n";
        }
        replace(table, lines);
        break;
      }
      case 4:  // wherever the file ends
        write_in_parts(table, row, -1);
        break;
      case 5:
      case 6:
        if (size % length == 0) write_in_parts(table, row, -1);
        break;
      case 7:
        if (size >= length) {
          write_in_parts(
              table, row,
              static_cast<long>(length * below(random, size / unsigned(length))));
        }
        break;
      case 8:
        if (size >= length) {
          write_in_parts(table, "?\nx", below(random, size - 3));
        }
        break;
      default:
        std::filesystem::remove(path(table) + "-away");
        if (::rename(path(table).c_str(), (path(table) + "-away").c_str()) == 0) {
          pause();
          std::filesystem::rename(path(table) + "-away", path(table));
        }
    }
    pause();
  }

  /* A program of the library between the others; it may fail. */
  void write_by_the_rules(const char *table) {
    Dbptr row = database.table(table);
    if (below(random, 2) == 0) {
      dbaddv(row, "lddate", 1e9, nullptr);
    } else {
      row.record = static_cast<long>(below(random, 60));
      dbputv(row, "lddate", 1e9 + static_cast<double>(below(random, 1000)), nullptr);
    }
  }

  /* Leaves the tables as they are, unless they cannot be read at all, with a new time. */
  void calm() {
    Dbptr db;
    ASSERT_EQ(dbopen_noshare(database.name().c_str(), "r", &db), 0);
    for (const char *table : kTables) {
      if (ksutil::db::table_snapshot(dblookup(db, nullptr, table, nullptr, nullptr)) ==
          nullptr) {
        replace(table, saved_[table]);
      }
      /* The next microsecond at least: times of files are compared as doubles. */
      struct stat status = {};
      ::stat(path(table).c_str(), &status);
      struct timespec times[2];
      ::clock_gettime(CLOCK_REALTIME, &times[0]);
      const long between = (times[0].tv_sec - status.st_mtim.tv_sec) * 1'000'000'000 +
                           times[0].tv_nsec - status.st_mtim.tv_nsec;
      if (between < 1000) times[0] = later_by(status.st_mtim, 1000);
      times[1] = times[0];
      ::utimensat(AT_FDCWD, path(table).c_str(), times, 0);
    }
    dbclose(db);
  }

  std::mt19937 random{seed()};
  ksutil::events::test::EventDatabase database;
  std::map<std::string, std::string> saved_;
};

TEST_F(ForeignFiles, NeverUpsetAServer) {
  const Watchdog watchdog("a server on disturbed files");
  EVServer server(database.name(), 0, 0, -1);
  Witness witness(server);
  server.autoRefreshEvents(0.002);
  server.autoCheckDatabase(0.002);
  const Deadline deadline;
  int rounds = 0;
  for (; !deadline.over() && !HasFailure(); rounds++) {
    for (unsigned i = below(random, 12); i > 0; i--) {
      disturb(kTables[below(random, 6)]);
      const long evid = 1 + static_cast<long>(below(random, 60));
      EVEvent event;
      witness.grabEventsLock();
      witness.getExpandedEvent(evid, event);
      witness.releaseEventsLock();
      if (below(random, 3) == 0) witness.getArrivals("ANMO", "BHZ", 1e9, 1e9 + 6e3);
      if (below(random, 3) == 0) witness.dbsubset("origin", "depth > 5.0");
      if (below(random, 3) == 0) write_by_the_rules(kTables[below(random, 6)]);
    }
    calm();
    settle(witness);
    SCOPED_TRACE("round " + std::to_string(rounds));
    expect_same_as_fresh(server, database.name());
    taken_messages();
  }
  std::printf("%d rounds\n", rounds);
  server.deregisterClient(&witness);
}

}  // namespace
