/* PostgresqlCluster: PostgreSQL servers of the tests' own, in a temporary folder that is
 * removed with them, even when the test is killed; Sql: one session of a plain SQL
 * client. */
#ifndef KSUTIL_TESTS_SUPPORT_POSTGRESQL_CLUSTER_H
#define KSUTIL_TESTS_SUPPORT_POSTGRESQL_CLUSTER_H

#include <gtest/gtest.h>
#include <libpq-fe.h>
#include <sys/types.h>

#include <memory>
#include <string>

namespace ksutil::test {

class PostgresqlCluster {
 public:
  /* Whether PostgreSQL's programs are installed. */
  static bool available();

  /* Starts the server "primary"; throws std::runtime_error. */
  PostgresqlCluster();
  ~PostgresqlCluster();
  PostgresqlCluster(const PostgresqlCluster &) = delete;
  PostgresqlCluster &operator=(const PostgresqlCluster &) = delete;

  const std::string &folder() const { return folder_; }
  /* The folder of a server's socket, which libpq takes for a host. */
  std::string host(const std::string &server = "primary") const {
    return folder_ + "/" + server;
  }
  std::string connection(const std::string &database = "postgres",
                         const std::string &server = "primary") const {
    return "host=" + host(server) + " user=postgres dbname=" + database;
  }

  /* One command of the script postgresql_cluster, such as "kill primary": "" or what was
   * wrong. */
  std::string run(const std::string &command);

  /* Makes an empty SQL database with a name that no other has. */
  std::string make_database(const std::string &settings = "");

 private:
  std::string read_line();

  pid_t script_ = -1;
  int to_script_ = -1, from_script_ = -1;
  std::string pending_, folder_;
  int databases_ = 0;
};

/* The servers that the tests of one program share; started when first asked for. */
PostgresqlCluster &shared_cluster();

/* A session with a server.  What fails is a failure of the test. */
class Sql {
 public:
  explicit Sql(const std::string &connection);

  /* Runs statements. */
  void run(const std::string &statements);
  /* The same, where a failure is not a failure of the test: whether they ran. */
  bool try_run(const std::string &statements);
  /* The first value of the answer, "" for a null. */
  std::string value(const std::string &query);
  /* COPY `target` FROM STDIN with lines of values between tabs. */
  void copy_in(const std::string &target, const std::string &lines);
  /* Waits until the query gives "t", at most 20 s. */
  void wait_until(const std::string &query);

 private:
  std::unique_ptr<PGconn, void (*)(PGconn *)> session_;
};

}  // namespace ksutil::test

/* Skips a test where PostgreSQL is not installed; KSUTIL_NEED_POSTGRESQL makes that a
 * failure. */
#define KSUTIL_SKIP_WITHOUT_POSTGRESQL()                       \
  if (!ksutil::test::PostgresqlCluster::available()) {         \
    if (std::getenv("KSUTIL_NEED_POSTGRESQL") != nullptr) {    \
      FAIL() << "PostgreSQL's programs are not installed";     \
    }                                                          \
    GTEST_SKIP() << "PostgreSQL's programs are not installed"; \
  }                                                            \
  static_assert(true, "")

#endif
