#include "tests/support/postgresql_cluster.h"

#include <fcntl.h>
#include <sys/wait.h>
#include <unistd.h>

#include <chrono>
#include <cstdlib>
#include <stdexcept>
#include <thread>

namespace ksutil::test {
namespace {

const char kScript[] = KSUTIL_SOURCE_DIR "/tests/support/postgresql_cluster";

}  // namespace

bool PostgresqlCluster::available() {
  static const bool found =
      std::system((std::string(kScript) + " --check >/dev/null").c_str()) == 0;
  return found;
}

PostgresqlCluster::PostgresqlCluster() {
  int commands[2], answers[2];
  if (pipe2(commands, O_CLOEXEC) != 0 || pipe2(answers, O_CLOEXEC) != 0) {
    throw std::runtime_error("no pipe");
  }
  const std::string watched = std::to_string(getpid());
  script_ = fork();
  if (script_ == 0) {
    dup2(commands[0], STDIN_FILENO);
    dup2(answers[1], STDOUT_FILENO);
    execl(kScript, kScript, watched.c_str(), static_cast<char *>(nullptr));
    _exit(127);
  }
  close(commands[0]);
  close(answers[1]);
  to_script_ = commands[1];
  from_script_ = answers[0];
  const std::string line = read_line();
  if (!line.starts_with("ready ")) throw std::runtime_error("no cluster: " + line);
  folder_ = line.substr(6);
}

PostgresqlCluster::~PostgresqlCluster() {
  close(to_script_);
  close(from_script_);
  waitpid(script_, nullptr, 0);
}

std::string PostgresqlCluster::read_line() {
  std::size_t end;
  while ((end = pending_.find('\n')) == std::string::npos) {
    char bytes[512];
    const ssize_t count = read(from_script_, bytes, sizeof bytes);
    if (count < 0 && errno == EINTR) continue;
    if (count <= 0) return "the script has ended";
    pending_.append(bytes, static_cast<std::size_t>(count));
  }
  std::string line = pending_.substr(0, end);
  pending_.erase(0, end + 1);
  return line;
}

std::string PostgresqlCluster::run(const std::string &command) {
  const std::string line = command + "\n";
  if (write(to_script_, line.data(), line.size()) !=
      static_cast<ssize_t>(line.size())) {
    return "the script has ended";
  }
  const std::string answer = read_line();
  return answer == "ok" ? "" : answer;
}

std::string PostgresqlCluster::make_database(const std::string &settings) {
  const std::string name = "test" + std::to_string(++databases_);
  Sql(connection()).run("CREATE DATABASE " + name + " " + settings);
  return name;
}

PostgresqlCluster &shared_cluster() {
  static PostgresqlCluster cluster;
  return cluster;
}

Sql::Sql(const std::string &connection)
    : session_(PQconnectdb(connection.c_str()), PQfinish) {
  EXPECT_EQ(PQstatus(session_.get()), CONNECTION_OK) << PQerrorMessage(session_.get());
  PQsetNoticeProcessor(
      session_.get(), [](void *, const char *) {}, nullptr);
}

void Sql::run(const std::string &statements) {
  EXPECT_TRUE(try_run(statements))
      << statements << ": " << PQerrorMessage(session_.get());
}

bool Sql::try_run(const std::string &statements) {
  const std::unique_ptr<PGresult, void (*)(PGresult *)> result(
      PQexec(session_.get(), statements.c_str()), PQclear);
  const ExecStatusType status = PQresultStatus(result.get());
  return status == PGRES_COMMAND_OK || status == PGRES_TUPLES_OK;
}

std::string Sql::value(const std::string &query) {
  const std::unique_ptr<PGresult, void (*)(PGresult *)> result(
      PQexec(session_.get(), query.c_str()), PQclear);
  if (PQresultStatus(result.get()) != PGRES_TUPLES_OK || PQntuples(result.get()) < 1) {
    ADD_FAILURE() << query << ": " << PQerrorMessage(session_.get());
    return "";
  }
  return PQgetvalue(result.get(), 0, 0);
}

void Sql::copy_in(const std::string &target, const std::string &lines) {
  const std::unique_ptr<PGresult, void (*)(PGresult *)> begun(
      PQexec(session_.get(), ("COPY " + target + " FROM STDIN").c_str()), PQclear);
  ASSERT_EQ(PQresultStatus(begun.get()), PGRES_COPY_IN)
      << PQerrorMessage(session_.get());
  EXPECT_EQ(PQputCopyData(session_.get(), lines.data(), static_cast<int>(lines.size())),
            1);
  EXPECT_EQ(PQputCopyEnd(session_.get(), nullptr), 1);
  const std::unique_ptr<PGresult, void (*)(PGresult *)> ended(
      PQgetResult(session_.get()), PQclear);
  EXPECT_EQ(PQresultStatus(ended.get()), PGRES_COMMAND_OK)
      << PQerrorMessage(session_.get());
  while (PGresult *more = PQgetResult(session_.get())) PQclear(more);
}

void Sql::wait_until(const std::string &query) {
  for (int i = 0; i < 2000; i++) {
    if (value(query) == "t") return;
    std::this_thread::sleep_for(std::chrono::milliseconds(10));
  }
  ADD_FAILURE() << "not within 20 s: " << query;
}

}  // namespace ksutil::test
