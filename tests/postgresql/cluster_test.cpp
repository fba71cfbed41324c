/* The tests' own servers: what they leave behind fills the disks of every machine that
 * runs the tests. */
#include <signal.h>
#include <sys/wait.h>
#include <unistd.h>

#include <cstdio>
#include <filesystem>
#include <thread>

#include "tests/support/postgresql_cluster.h"
#include "tests/support/socket_proxy.h"

namespace ksutil::test {
namespace {

using namespace std::chrono_literals;

bool gone(const std::string &folder) {
  for (int i = 0; i < 3000 && std::filesystem::exists(folder); i++) {
    std::this_thread::sleep_for(10ms);
  }
  return !std::filesystem::exists(folder);
}

TEST(Cluster, GoesWithAKilledTest) {
  KSUTIL_SKIP_WITHOUT_POSTGRESQL();
  int ends[2];
  ASSERT_EQ(pipe(ends), 0);
  const pid_t child = fork();
  if (child == 0) {
    PostgresqlCluster cluster;
    const std::string folder = cluster.folder() + "\n";
    if (write(ends[1], folder.data(), folder.size()) < 0) _exit(1);
    for (;;) pause();
  }
  close(ends[1]);
  FILE *const from_child = fdopen(ends[0], "r");
  char line[4096] = "";
  ASSERT_NE(std::fgets(line, sizeof line, from_child), nullptr);
  std::fclose(from_child);
  std::string folder = line;
  folder.pop_back();
  EXPECT_TRUE(std::filesystem::exists(folder + "/primary.data/postmaster.pid"));
  kill(child, SIGKILL);
  waitpid(child, nullptr, 0);
  EXPECT_TRUE(gone(folder)) << folder;
}

TEST(Cluster, KeepsWhatWasCommittedWhenItIsKilledAndHasAReplica) {
  KSUTIL_SKIP_WITHOUT_POSTGRESQL();
  std::string folder;
  {
    PostgresqlCluster cluster;
    folder = cluster.folder();
    Sql(cluster.connection()).run("CREATE TABLE t (n integer)");
    ASSERT_EQ(cluster.run("replica second"), "");
    Sql(cluster.connection()).run("INSERT INTO t VALUES (7)");
    Sql copy(cluster.connection("postgres", "second"));
    copy.wait_until("SELECT count(*) = 1 FROM t");
    ASSERT_EQ(cluster.run("kill primary"), "");
    EXPECT_EQ(copy.value("SELECT n FROM t"), "7");
    ASSERT_EQ(cluster.run("start primary"), "");
    EXPECT_EQ(Sql(cluster.connection()).value("SELECT n FROM t"), "7");
    EXPECT_NE(cluster.run("nonsense primary"), "");

    SocketProxy proxy(cluster.folder() + "/proxy", cluster.host());
    Sql through(cluster.connection("postgres", "proxy"));
    EXPECT_EQ(through.value("SELECT n FROM t"), "7");
    proxy.cut_after(-1, 10);
    EXPECT_FALSE(through.try_run("SELECT repeat('x', 1000)"));
    EXPECT_TRUE(proxy.has_cut());
    EXPECT_EQ(
        Sql(cluster.connection("postgres", "proxy")).value("SELECT length('abc')"),
        "3");
  }
  EXPECT_TRUE(gone(folder));
}

}  // namespace
}  // namespace ksutil::test
