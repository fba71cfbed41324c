/* An import that fails must leave nothing behind, and imports at once add nothing twice. */
#include <signal.h>
#include <sys/wait.h>
#include <unistd.h>

#include <cerrno>
#include <filesystem>

#include "platform/stock/files.h"
#include "tests/formats/exchange/importer_fixture.h"

namespace ksutil::exchange {
namespace {

using testing::HasSubstr;
using testing::IsEmpty;

/* The write that fails, counted from 0, and whether the process dies there instead. */
struct {
  int at = -1, calls = 0;
  bool kill = false;
} strike;

ssize_t striking_pwrite(int fd, const void *from, std::size_t bytes, off_t at) {
  if (strike.calls++ != strike.at) return ::pwrite(fd, from, bytes, at);
  if (strike.kill) ::raise(SIGKILL);
  errno = ENOSPC;
  return -1;
}

class ImportFaults : public ImporterTest {
 protected:
  ImportFaults() : calls_(system_file_calls()) { calls_.pwrite = striking_pwrite; }
  static std::vector<Event> events() {
    std::vector<Event> events;
    for (int i = 0; i < 3000; i++) {
      events.push_back(event_at("e" + std::to_string(i), 1e9 + i));
    }
    events[0].updated += 1.0;
    return events;
  }
  FileCalls calls_;
};

TEST_F(ImportFaults, AFullDiskLeavesTheDatabaseAsItWas) {
  import({event_at("e0", 1e9)});
  const std::string before = all_tables();
  int failures = 0;
  for (int at = 0;; at++) {
    strike = {at, 0, false};
    const ScopedFileCalls scope(calls_);
    const Result result = run(events());
    if (result.imported == Imported::kYes) {
      EXPECT_EQ(result.counts.added, 2999);
      EXPECT_EQ(result.counts.updated, 1);
      break;
    }
    failures++;
    ASSERT_EQ(all_tables(), before) << "write " << at;
    ASSERT_FALSE(std::filesystem::exists(name_ + ".journal"));
  }
  EXPECT_GT(failures, 20);
  EXPECT_EQ(import(events()).unchanged, 3000);
}

TEST_F(ImportFaults, AKilledImportIsFinishedOrUndoneByTheNext) {
  import({event_at("e0", 1e9)});
  const std::string first = all_tables();
  int undone = 0, finished = 0;
  for (int at = 0; at < 1000; at += 3) {
    const pid_t child = fork();
    if (child == 0) {
      strike = {at, 0, true};
      const ScopedFileCalls scope(calls_);
      run(events());
      _exit(0);
    }
    int status = 0;
    ASSERT_EQ(waitpid(child, &status, 0), child);
    if (!WIFSIGNALED(status)) break;
    const ImportCounts counts = import({event_at("e0", 1e9)});
    EXPECT_FALSE(std::filesystem::exists(name_ + ".journal"));
    const long events = rows("event");
    EXPECT_TRUE(events == 1 || events == 3000) << events;
    EXPECT_EQ(rows("origin"), events);
    EXPECT_EQ(rows("netmag"), events);
    if (events == 1) {
      EXPECT_EQ(all_tables(), first);
      undone++;
      continue;
    }
    EXPECT_EQ(counts.older, 1);
    finished++;
    break;
  }
  EXPECT_GT(undone, 3);
  EXPECT_EQ(finished, 1);
}

TEST_F(ImporterTest, TwoImportsAtOnceAddEachEventOnce) {
  std::vector<Event> events;
  for (int i = 0; i < 200; i++) {
    events.push_back(event_at("e" + std::to_string(i), 1e9 + i));
  }
  std::vector<pid_t> children;
  for (int i = 0; i < 3; i++) {
    const pid_t child = fork();
    if (child == 0) {
      for (std::size_t at = 0; at < events.size(); at += 20) {
        import({events.begin() + static_cast<long>(at),
                events.begin() + static_cast<long>(at) + 20});
      }
      _exit(testing::Test::HasFailure() ? 1 : 0);
    }
    children.push_back(child);
  }
  for (const pid_t child : children) {
    int status = -1;
    waitpid(child, &status, 0);
    EXPECT_EQ(status, 0);
  }
  EXPECT_EQ(import(events).unchanged, 200);
  EXPECT_EQ(rows("origin"), 200);
}

}  // namespace
}  // namespace ksutil::exchange
