#include "tests/stress/writer.h"

#include <fcntl.h>
#include <gtest/gtest.h>
#include <signal.h>
#include <spawn.h>
#include <sys/wait.h>
#include <unistd.h>

#include <cstdio>
#include <cstdlib>
#include <fstream>
#include <sstream>

#include "core/register.h"
#include "tests/stress/stress_support.h"

namespace stress {

Writer::Writer(const std::string &database, const std::string &journal, unsigned seed,
               int number)
    : journal_(ksutil::open_file(journal, O_WRONLY | O_CREAT | O_APPEND)),
      random_(seed),
      number_(number) {
  dbopen_noshare(database.c_str(), "r+", &db_);
}

Dbptr Writer::table(const char *name, long record) const {
  Dbptr table = dblookup(db_, nullptr, name, nullptr, nullptr);
  table.record = record;
  return table;
}

/* With one call, so that a killed writer leaves no half line. */
void Writer::note(const std::string &line) {
  const std::string text = line + "\n";
  if (::write(journal_.get(), text.data(), text.size()) < 0) std::perror("journal");
}

bool Writer::add_origin(long evid, Row &origin) {
  const long orid = dbnextid(db_, "orid");
  const long magid = dbnextid(db_, "magid");
  if (orid < 0 || magid < 0) return false;
  const double time = 1e9 + static_cast<double>(random_() % 100000000);
  const long record = dbaddv(table("origin", dbALL), "orid", orid, "evid", evid, "lat",
                             35.0, "lon", -110.0, "depth", 10.0, "time", time, nullptr);
  origin = Row{orid, record};
  return record >= 0 &&
         dbaddv(table("netmag", dbALL), "magid", magid, "orid", orid, "evid", evid,
                "magtype", "mw", "magnitude", 5.5, nullptr) >= 0;
}

bool Writer::add_event() {
  Event event;
  event.row.id = dbnextid(db_, "evid");
  event.origins.emplace_back();
  if (event.row.id < 0 || !add_origin(event.row.id, event.origins.back())) return false;
  event.row.record = dbaddv(table("event", dbALL), "evid", event.row.id, "prefor",
                            event.origins.back().id, nullptr);
  if (event.row.record < 0) return false;
  note("event " + std::to_string(event.row.id) + " " +
       std::to_string(event.origins.back().id));
  events_.push_back(event);
  return true;
}

bool Writer::add_to_event() {
  Event &event = events_[random_() % events_.size()];
  Row origin;
  if (!add_origin(event.row.id, origin) ||
      dbputv(table("event", event.row.record), "prefor", origin.id, nullptr) < 0) {
    return false;
  }
  note("event " + std::to_string(event.row.id) + " " + std::to_string(origin.id));
  event.origins.push_back(origin);
  return true;
}

bool Writer::move_origin() {
  const Event &event = events_[random_() % events_.size()];
  const Row &origin = event.origins[random_() % event.origins.size()];
  const long time = 1000000000 + static_cast<long>(random_() % 100000000);
  if (dbputv(table("origin", origin.record), "time", static_cast<double>(time),
             nullptr) < 0) {
    return false;
  }
  note("time " + std::to_string(origin.id) + " " + std::to_string(time));
  return true;
}

bool Writer::count_on() {
  const long count = (count_ + 1) % 9999;
  if (dbputv(table("origin", 0), kSharedFields[number_], count, nullptr) < 0) {
    return false;
  }
  count_ = count;
  note("count " + std::to_string(number_) + " " + std::to_string(count));
  return true;
}

bool Writer::step() {
  const unsigned choice = below(random_, 10);
  if (events_.empty() || choice < 4) return add_event();
  if (choice < 6) return add_to_event();
  return choice < 9 ? move_origin() : count_on();
}

void Written::read(const std::string &journal) {
  std::ifstream file(journal);
  std::string line;
  while (std::getline(file, line)) {
    std::istringstream words(line);
    std::string what;
    long id = 0, value = 0;
    words >> what >> id >> value;
    if (what == "event") origins[id].insert(value);
    if (what == "time") times[id] = value;
    if (what == "count" && id >= 0 && id < 3) counts[id] = value;
  }
}

namespace {

std::mt19937 fate;

/* Kills the process now and then: before or after a write, or in the middle of one that
 * appends. */
ssize_t fatal_pwrite(int fd, const void *from, std::size_t bytes, off_t at) {
  const unsigned choice = below(fate, 200);
  if (choice > 2) return ::pwrite(fd, from, bytes, at);
  struct stat status;
  const bool appends = ::fstat(fd, &status) == 0 && at >= status.st_size;
  std::size_t part = choice == 0 ? 0 : bytes;
  if (choice == 1 && appends) part = below(fate, static_cast<unsigned>(bytes));
  if (part > 0 && ::pwrite(fd, from, part, at) < 0) std::perror("pwrite");
  ::kill(::getpid(), SIGKILL);
  return -1;
}

}  // namespace

pid_t spawn_writer(const std::string &database, const std::string &journal,
                   unsigned seed, int number, double seconds, End end) {
  std::string words[] = {"ksutil_stress",
                         "--writer",
                         database,
                         journal,
                         std::to_string(seed),
                         std::to_string(number),
                         std::to_string(static_cast<long>(1000.0 * seconds)),
                         end == End::after_its_time ? "0" : "1"};
  std::vector<char *> argv;
  for (std::string &word : words) argv.push_back(word.data());
  argv.push_back(nullptr);
  pid_t process = -1;
  EXPECT_EQ(
      posix_spawn(&process, "/proc/self/exe", nullptr, nullptr, argv.data(), environ),
      0);
  return process;
}

int writer_main(char **argv) {
  const auto seed = static_cast<unsigned>(std::atol(argv[4]));
  ksutil::FileCalls calls = ksutil::system_file_calls();
  fate.seed(seed + 1);
  if (std::atol(argv[7]) != 0) calls.pwrite = fatal_pwrite;
  const ksutil::ScopedFileCalls scope(calls);
  Writer writer(argv[2], argv[3], seed, static_cast<int>(std::atol(argv[5])));
  const Deadline deadline(0.001 * static_cast<double>(std::atol(argv[6])));
  while (!deadline.over()) {
    if (!writer.step()) {
      ks_complain(0, "writer: a step has failed.\n");
      return 1;
    }
    usleep(200);
  }
  return 0;
}

int wait_for(pid_t process) {
  int status = 0;
  if (process <= 0 || ::waitpid(process, &status, 0) != process) return -1000;
  return WIFSIGNALED(status) ? -WTERMSIG(status) : WEXITSTATUS(status);
}

}  // namespace stress
