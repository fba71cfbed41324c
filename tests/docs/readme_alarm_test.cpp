/* The README's program is what most users begin with: an alarm that comes late, twice, or
 * ends in an abort would be copied into their own. */
#include <gtest/gtest.h>
#include <poll.h>
#include <signal.h>
#include <sys/wait.h>
#include <unistd.h>

#include <chrono>
#include <filesystem>
#include <string>

#include "tests/events/event_database.h"
#include "tests/support/folder.h"
#include "tests/tools/scratch.h"

namespace {

using ksutil::events::test::EventDatabase;
using ksutil::test::TempFolder;
using ksutil::tools::run_program;

const std::string kProgram = README_ALARM_PROGRAM;

/* The program at work in the folder of a database, its output read through a pipe. */
class Alarm {
 public:
  explicit Alarm(const std::string &folder) {
    int ends[2];
    EXPECT_EQ(pipe(ends), 0);
    child_ = fork();
    if (child_ == 0) {
      dup2(ends[1], STDOUT_FILENO);
      close(ends[0]);
      close(ends[1]);
      if (chdir(folder.c_str()) == 0)
        execl(kProgram.c_str(), kProgram.c_str(), nullptr);
      _exit(127);
    }
    close(ends[1]);
    output_ = ends[0];
  }
  ~Alarm() {
    kill(child_, SIGTERM);
    waitpid(child_, nullptr, 0);
    close(output_);
  }
  Alarm(const Alarm &) = delete;
  Alarm &operator=(const Alarm &) = delete;

  /* The next line, "" when none comes within the time. */
  std::string line(std::chrono::milliseconds within) {
    const auto end = std::chrono::steady_clock::now() + within;
    while (text_.find('\n') == std::string::npos) {
      const auto left = std::chrono::duration_cast<std::chrono::milliseconds>(
          end - std::chrono::steady_clock::now());
      pollfd ready{output_, POLLIN, 0};
      if (left.count() <= 0 || poll(&ready, 1, static_cast<int>(left.count())) <= 0) {
        return "";
      }
      char piece[256];
      const ssize_t n = read(output_, piece, sizeof piece);
      if (n <= 0) return "";
      text_.append(piece, static_cast<std::size_t>(n));
    }
    const std::string first = text_.substr(0, text_.find('\n'));
    text_.erase(0, first.size() + 1);
    return first;
  }

 private:
  pid_t child_ = -1;
  int output_ = -1;
  std::string text_;
};

TEST(ReadmeAlarm, TellsEachLargeEventOnceAndAtOnce) {
  using namespace std::chrono_literals;
  EventDatabase db;
  const std::string folder = std::filesystem::path(db.name()).parent_path();
  for (const char *table : {"", ".event", ".origin", ".netmag"}) {
    std::filesystem::create_symlink("test" + std::string(table),
                                    folder + "/mydb" + table);
  }
  db.add_located_event(1, 2e9);
  Alarm alarm(folder);
  /* Events are added until one is told of: no sleep guesses when the program is ready. */
  std::string told;
  long evid = 2;
  for (; told.empty() && evid < 40; evid++) {
    db.add_origin(10 * evid, evid, 2e9 + static_cast<double>(evid));
    db.add_netmag(evid, 10 * evid, "mw", 6.5);
    db.add_event(evid, 10 * evid);
    told = alarm.line(1s);
  }
  ASSERT_TRUE(told.starts_with("evid ")) << told;
  EXPECT_TRUE(told.ends_with(": mw 6.5")) << told;
  while (!alarm.line(3s).empty()) {
  }

  /* The magnitudes go away and come back; only the event after that is new. */
  std::filesystem::rename(folder + "/mydb.netmag", folder + "/away");
  EXPECT_EQ(alarm.line(5s), "");
  std::filesystem::rename(folder + "/away", folder + "/mydb.netmag");
  EXPECT_EQ(alarm.line(5s), "");
  db.add_origin(10 * evid, evid, 3e9);
  db.add_netmag(evid, 10 * evid, "mw", 7.5);
  db.add_event(evid, 10 * evid);
  EXPECT_EQ(alarm.line(20s), "evid " + std::to_string(evid) + ": mw 7.5");
}

TEST(ReadmeAlarm, EndsWithAMessageWhenThereIsNoDatabase) {
  const TempFolder folder;
  const auto run = run_program("cd " + folder.path() + " && " + kProgram);
  EXPECT_EQ(run.code, 1) << run.errors;
  EXPECT_NE(run.errors.find("mydb"), std::string::npos) << run.errors;
  EXPECT_EQ(run.errors.find("terminate"), std::string::npos) << run.errors;
}

}  // namespace
