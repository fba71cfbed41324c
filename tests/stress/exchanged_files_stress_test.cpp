/* A program that knows nothing of locks removes, cuts, replaces and relinks tables while
 * clients have rows written: a row that a client was told is there and that nobody finds
 * is an analyst's lost work, and a crash is everybody's.
 *
 * The other program reads each file after it has taken it away, so that every row that was
 * in the table before is accounted for; a row that goes into the file later is not. */
#include <fcntl.h>
#include <gtest/gtest.h>
#include <signal.h>
#include <sys/stat.h>
#include <sys/wait.h>
#include <unistd.h>

#include <atomic>
#include <ctime>
#include <filesystem>
#include <fstream>
#include <functional>
#include <iterator>
#include <map>
#include <set>
#include <thread>
#include <vector>

#include "platform/db/access.h"
#include "platform/db/columns.h"
#include "platform/db/schema.h"
#include "platform/elog/elog.h"
#include "platform/stock/files.h"
#include "tests/events/event_database.h"
#include "tests/stress/stress_support.h"
#include "tests/stress/writer.h"

using namespace stress;

namespace {

/* Tables with the field that identifies a row. */
constexpr struct {
  const char *table, *id;
} kTables[] = {{"origin", "orid"}, {"arrival", "arid"}};
constexpr long kFirstId = 100000;

using Ids = std::map<std::string, std::set<long>>;  // by table

const ksutil::db::Relation &layout_of(const std::string &table) {
  static const auto schema = ksutil::db::Schema::load("css3.0");
  return *schema->find(table);
}

/* The times of all processes, s. */
double now() {
  struct timespec time;
  ::clock_gettime(CLOCK_MONOTONIC, &time);
  return static_cast<double>(time.tv_sec) + 1e-9 * static_cast<double>(time.tv_nsec);
}

void add_ids(const std::string &table, const char *id, const std::string &text,
             std::set<long> &ids) {
  const ksutil::db::IntegerColumn column(layout_of(table), id);
  const auto length = static_cast<std::size_t>(layout_of(table).width) + 1;
  for (std::size_t at = 0; at + length <= text.size(); at += length) {
    std::int64_t value;
    if (column.read(std::string_view(text).substr(at, length), value)) {
      ids.insert(static_cast<long>(value));
    }
  }
}

/* What the other program reports: rows that it has taken away, and when it cut a table. */
struct Taken {
  struct Cut {
    std::string table;
    double from, to;
  };
  Ids ids;
  std::vector<Cut> cuts;

  void write(const std::string &path) const {
    std::ofstream out(path);
    out.precision(17);
    for (const auto &[table, list] : ids) {
      for (const long id : list) out << "id " << table << ' ' << id << '\n';
    }
    for (const Cut &cut : cuts) {
      out << "cut " << cut.table << ' ' << cut.from << ' ' << cut.to << '\n';
    }
  }
  void read(const std::string &path) {
    std::ifstream in(path);
    std::string what, table;
    while (in >> what >> table) {
      if (what == "id") {
        long id = 0;
        in >> id;
        ids[table].insert(id);
      } else {
        Cut cut{table, 0.0, 0.0};
        in >> cut.from >> cut.to;
        cuts.push_back(cut);
      }
    }
  }
};

/* The other program. */
class Meddler {
 public:
  Meddler(std::string database, unsigned seed)
      : database_(std::move(database)), random_(seed) {}

  void run(const std::string &report, const std::function<bool()> &over) {
    while (!over()) {
      const auto &[table, id] = kTables[below(random_, std::size(kTables))];
      meddle(table, id);
      ::usleep(below(random_, 3000));
    }
    taken_.write(report);
  }

 private:
  std::string path(const std::string &table) const { return database_ + "." + table; }

  static std::string text(int fd) {
    std::string text;
    char piece[65536];
    ssize_t got;
    while ((got = ::pread(fd, piece, sizeof piece, static_cast<off_t>(text.size()))) >
           0) {
      text.append(piece, static_cast<std::size_t>(got));
    }
    return text;
  }

  void meddle(const std::string &table, const char *id) {
    const std::string file = path(table);
    const ksutil::FileHandle old = ksutil::open_file(file, O_RDWR);
    if (!old) return;
    const auto length = static_cast<std::size_t>(layout_of(table).width) + 1;
    const auto take = [&] { add_ids(table, id, text(old.get()), taken_.ids[table]); };
    switch (below(random_, 5)) {
      case 0:  // removed
        ::unlink(file.c_str());
        take();
        break;
      case 1: {  // cut, in place
        const double from = now();
        take();
        struct stat status;
        if (::fstat(old.get(), &status) != 0) break;
        const auto rows =
            static_cast<unsigned>(static_cast<std::size_t>(status.st_size) / length);
        EXPECT_EQ(::ftruncate(old.get(), static_cast<off_t>(
                                             length * below(random_, rows / 4 + 1))),
                  0);
        taken_.cuts.push_back({table, from, now()});
        break;
      }
      case 2:  // replaced by some of its rows
        copy(text(old.get()), file + "-new", length);
        ::rename((file + "-new").c_str(), file.c_str());
        take();
        break;
      case 3: {  // moved, and linked to a copy elsewhere
        const std::string elsewhere = file + "-" + std::to_string(++files_);
        copy(text(old.get()), elsewhere, length);
        EXPECT_EQ(::symlink(elsewhere.c_str(), (file + "-link").c_str()), 0);
        ::rename((file + "-link").c_str(), file.c_str());
        take();
        break;
      }
      default:  // moved away first, then removed
        ::rename(file.c_str(), (file + "-away").c_str());
        take();
        ::unlink((file + "-away").c_str());
    }
  }

  void copy(const std::string &text, const std::string &to, std::size_t length) {
    const auto rows = static_cast<unsigned>(text.size() / length);
    std::ofstream(to, std::ios::binary | std::ios::trunc)
        << text.substr(0, length * below(random_, rows / 2 + 1));
  }

  const std::string database_;
  std::mt19937 random_;
  Taken taken_;
  long files_ = 0;
};

struct Answered {
  std::string table;
  long id;
  double asked, told;
};

/* Has rows appended until the time is over; those that the server said were written. */
std::vector<Answered> command(EVServer &server, int number, const Deadline &deadline,
                              std::atomic<long> &refused) {
  std::vector<Answered> answered;
  Witness client(server);
  std::mt19937 random(static_cast<unsigned>(number));
  for (long i = 0; !deadline.over(); ++i) {
    const auto &[table, field] = kTables[below(random, std::size(kTables))];
    const ksutil::db::Relation &layout = layout_of(table);
    const long id = kFirstId + 4 * i + number;
    std::string row = ksutil::db::null_record(layout);
    EXPECT_TRUE(ksutil::db::write_integer(*layout.find(field), id, row));
    const double asked = now();
    if (client.dbputrecord(table, -1, 0, row) >= 0) {
      answered.push_back({table, id, asked, now()});
    } else {
      ++refused;
    }
    switch (below(random, 8)) {
      case 0:
        client.dbsubset(table, std::string(field) + " > 0");
        break;
      case 1:
        client.dbnextid(field);
        break;
      default:
        break;
    }
  }
  server.deregisterClient(&client);
  return answered;
}

TEST(ExchangedFiles, NoRowIsReportedWrittenThatIsNotThere) {
  const unsigned chance = seed();
  ksutil::events::test::EventDatabase database;
  for (long evid = 1; evid <= 20; evid++) {
    database.add_located_event(evid, 1e9 + 60.0 * static_cast<double>(evid));
  }
  const std::string report = database.name() + "-report";
  int stop[2];
  ASSERT_EQ(::pipe2(stop, O_CLOEXEC | O_NONBLOCK), 0);
  const pid_t meddler = ::fork();
  ASSERT_GE(meddler, 0);
  if (meddler == 0) {
    ::close(stop[1]);
    /* The end of the pipe is the end of the test, also when that crashes. */
    Meddler(database.name(), chance).run(report, [&] {
      char byte;
      return ::read(stop[0], &byte, 1) == 0;
    });
    ::_exit(testing::Test::HasFailure() ? 1 : 0);
  }
  ::close(stop[0]);
  const Watchdog watchdog("a server whose files are exchanged");

  std::vector<std::vector<Answered>> answered(4);
  std::atomic<long> refused{0};
  {
    EVServer server(database.name(), 0, 0, -1);
    server.autoRefreshEvents(0.005);
    const Deadline deadline;
    std::vector<std::thread> clients;
    for (int number = 0; number < 4; number++) {
      clients.emplace_back([&, number] {
        answered[static_cast<std::size_t>(number)] =
            command(server, number, deadline, refused);
      });
    }
    for (std::thread &client : clients) client.join();
    ::close(stop[1]);
    EXPECT_EQ(wait_for(meddler), 0);
    Witness witness(server);
    settle(witness);
    expect_same_as_fresh(server, database.name());
    server.deregisterClient(&witness);
  }

  Taken taken;
  taken.read(report);
  for (const auto &[table, id] : kTables) {
    add_ids(
        table, id,
        [&] {
          std::ifstream file(database.file(table), std::ios::binary);
          return std::string(std::istreambuf_iterator<char>(file), {});
        }(),
        taken.ids[table]);
  }
  long rows = 0;
  for (const auto &list : answered) {
    for (const Answered &row : list) {
      ++rows;
      bool accounted = taken.ids[row.table].count(row.id) > 0;
      for (const Taken::Cut &cut : taken.cuts) {
        accounted = accounted || (cut.table == row.table && row.asked <= cut.to &&
                                  row.told >= cut.from);
      }
      EXPECT_TRUE(accounted) << row.table << " row " << row.id << " is nowhere";
    }
  }
  EXPECT_GT(rows, 0);
  std::printf("%ld rows written, %ld refused, %zu cuts\n", rows, refused.load(),
              taken.cuts.size());
  elog_clear_register(0);
}

}  // namespace
