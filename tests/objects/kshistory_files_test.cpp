/* Histories in files are what a monitor finds again after it was stopped; two programs
 * that both write one, or a writer killed at work, must not cost it. */
#include <fcntl.h>
#include <gmock/gmock.h>
#include <signal.h>
#include <sys/wait.h>
#include <unistd.h>

#include <chrono>
#include <cstring>
#include <thread>

#include "tests/objects/kshistory_support.h"

namespace ksutil::test {
namespace {

using testing::HasSubstr;

class KshistoryFile : public ListFolder {
 protected:
  const char *file() const { return file_.c_str(); }

  /* Whether a history of that file can be had; what a failure prints is kept. */
  bool available(std::string *printed = nullptr) const {
    testing::internal::CaptureStderr();
    const bool made = History(3, file()).made();
    const std::string text = testing::internal::GetCapturedStderr();
    if (printed != nullptr) *printed = text;
    return made;
  }
};

/* Whether `work` is true in a process of its own. */
template <class Work>
bool in_child(const Work &work) {
  const pid_t child = fork();
  if (child == 0) _exit(work() ? 0 : 1);
  int status = 0;
  return waitpid(child, &status, 0) == child && WIFEXITED(status) &&
         WEXITSTATUS(status) == 0;
}

TEST_F(KshistoryFile, OutlivesItsProcessWithItsNewestEntries) {
  for (int i = 0; i < 5; ++i) {
    const History history(3, file());
    ASSERT_TRUE(history.made()) << messages();
    ASSERT_TRUE(history.add(i, 10 * i));
  }
  EXPECT_EQ(History(10, file()).points(), (Points{{2, 20}, {3, 30}, {4, 40}}));
  const History history(2, file());
  EXPECT_EQ(history.points(), (Points{{3, 30}, {4, 40}}));
  EXPECT_TRUE(history.add(5, 50));
  EXPECT_EQ(history.points(), (Points{{4, 40}, {5, 50}}));
  EXPECT_EQ(messages(), "");
}

TEST_F(KshistoryFile, BelongsToOneHistoryAtATime) {
  {
    const History history(3, file());
    ASSERT_TRUE(history.add(1, 2));
    const std::string complaint = "Can't lock '" + file_ + "' for exclusive use\n";
    for (int i = 0; i < 2; ++i) {  // a failed attempt does not break the lock
      std::string printed;
      EXPECT_FALSE(available(&printed));
      EXPECT_THAT(printed, HasSubstr(complaint));
    }
    EXPECT_TRUE(in_child([&] { return !available(); }));
    /* Nor can those lock it who know nothing of histories. */
    EXPECT_TRUE(in_child([&] {
      const int fd = open(file(), O_RDWR);
      return fd >= 0 && lockf(fd, F_TLOCK, 1) != 0;
    }));
    EXPECT_TRUE(history.add(2, 3)) << "the holder cannot go on";
  }
  EXPECT_TRUE(available());
  const int other = open(file(), O_RDWR);
  ASSERT_EQ(lockf(other, F_TLOCK, 1), 0);
  EXPECT_FALSE(available());
  close(other);
  EXPECT_EQ(History(3, file()).points(), (Points{{1, 2}, {2, 3}}));
}

TEST_F(KshistoryFile, StaysLockedWhenAForkedProcessFreesItsCopy) {
  const History history(3, file());
  ASSERT_TRUE(history.made()) << messages();
  EXPECT_TRUE(in_child([&] { return kshistory_free(history.tag()) == 0; }));
  EXPECT_FALSE(available());
  messages();
}

/* A monitor that starts programs must be able to start again after it has died, while
 * those still run. */
TEST_F(KshistoryFile, IsFreeWhenItsProcessHasEndedThoughAForkedChildLives) {
  int ends[2], started[2];
  ASSERT_EQ(pipe(ends), 0);
  ASSERT_EQ(pipe(started), 0);
  const pid_t owner = fork();
  if (owner == 0) {
    close(ends[1]);
    const History history(3, file_.c_str());
    char byte = 0;
    if (fork() == 0) {
      if (::write(started[1], &byte, 1) != 1) _exit(1);
      _exit(::read(ends[0], &byte, 1) == 0 ? 0
                                           : 1);  // lives until the test closes its end
    }
    const bool child_runs = ::read(started[0], &byte, 1) == 1;
    _exit(child_runs && history.made() && history.add(1, 2) ? 0 : 1);
  }
  close(started[0]);
  close(started[1]);
  close(ends[0]);
  int status = -1;
  ASSERT_EQ(waitpid(owner, &status, 0), owner);
  EXPECT_EQ(status, 0);
  {
    const History again(3, file_.c_str());
    ASSERT_TRUE(again.made()) << messages();
    EXPECT_EQ(again.points(), (Points{{1, 2}}));
  }
  close(ends[1]);
}

TEST_F(KshistoryFile, TakesNoMoreEntriesThanAFileCanHold) {
  char tag[KS_TAG_SIZE];
  const KSHistory *const history =
      kshistory_create(2147483647, nullptr, file_.c_str(), tag);
  ASSERT_NE(history, nullptr) << messages();
  EXPECT_EQ(history->maxn, ((1 << 30) - 192) / 20);
  kshistory_free(tag);
}

TEST_F(KshistoryFile, SurvivesAKilledWriter) {
  for (int round = 0; round < 5; ++round) {
    const pid_t child = fork();
    if (child == 0) {
      const History history(50, file());
      for (int i = 0; history.made(); ++i) history.add(i, -i);
      _exit(1);
    }
    std::this_thread::sleep_for(std::chrono::milliseconds(3 + 2 * round));
    kill(child, SIGKILL);
    waitpid(child, nullptr, 0);
    const History history(50, file());
    ASSERT_TRUE(history.made()) << messages();
    const Points points = history.points();
    ASSERT_LE(points.size(), 50U);
    for (std::size_t i = 0; i < points.size(); ++i) {
      ASSERT_EQ(points[i].second, -points[i].first);
    }
    ASSERT_EQ(messages(), "") << "entries were lost";
  }
}

TEST_F(KshistoryFile, RefusesOtherFilesAndImpossibleMaxima) {
  write(file_, "time value\n1 2\n");
  EXPECT_FALSE(History(3, file()).made());
  EXPECT_THAT(messages(),
              HasSubstr("kshistory_create: filetbl(" + file_ + ") error.\n"));
  EXPECT_EQ(read(file_), "time value\n1 2\n");
  std::filesystem::remove(file_);
  EXPECT_FALSE(History(0, file()).made());
  EXPECT_FALSE(std::filesystem::exists(file_));
  EXPECT_FALSE(History(3, (file_ + "/none").c_str()).made());
  EXPECT_THAT(messages(), HasSubstr(std::strerror(ENOENT)));
}

TEST_F(KshistoryFile, TellsOfAFullDiskAndGoesOnAfterIt) {
  const History history(3, file());
  for (int i = 0; i < 3; ++i) ASSERT_TRUE(history.add(i, i));
  {
    const FullDisk disk(0);
    EXPECT_FALSE(history.add(3, 3));
    EXPECT_THAT(messages(), HasSubstr("kshistory_add: shifttbl() error.\n"));
    EXPECT_EQ(history.points(), (Points{{0, 0}, {1, 1}, {2, 2}}));
  }
  {
    const FullDisk disk(70);  // the shift and a part of the entry
    EXPECT_FALSE(history.add(3, 3));
    EXPECT_THAT(messages(), HasSubstr("kshistory_add: pushtbl() error.\n"));
  }
  EXPECT_TRUE(history.add(4, 4));
  EXPECT_EQ(history.points(), (Points{{1, 1}, {2, 2}, {4, 4}}));
}

}  // namespace
}  // namespace ksutil::test
