#include "platform/db/postgresql/internal/pg_writers.h"

#include <unistd.h>

#include <atomic>
#include <chrono>
#include <random>
#include <thread>

#include "platform/stock/text.h"

namespace ksutil::db {

std::shared_ptr<PgConnection> PgWriters::take() {
  if (idle_.empty()) {
    return std::make_shared<PgConnection>(options_, PgConnection::Purpose::kWrite);
  }
  std::shared_ptr<PgConnection> connection = std::move(idle_.back());
  idle_.pop_back();
  return connection;
}

void PgWriters::give_back(std::shared_ptr<PgConnection> connection) {
  idle_.push_back(std::move(connection));
}

std::string PgWriters::new_token() {
  static std::atomic<unsigned> number{0};
  std::random_device random;
  return format_text("%08x%08x%08x%08x-%ld-%u", random(), random(), random(), random(),
                     static_cast<long>(getpid()), ++number);
}

PgWriters::Outcome PgWriters::settle(PgConnection &connection,
                                     const std::string &token) {
  using Clock = std::chrono::steady_clock;
  const auto end =
      Clock::now() +
      std::chrono::duration_cast<Clock::duration>(
          std::chrono::duration<double>(connection.options().answer_seconds));
  /* The row of a transaction that goes on keeps this statement waiting; a row of our own
   * makes that transaction fail if it comes later. */
  const std::string statement =
      "INSERT INTO ks_commits (token, made) VALUES ('" + token +
      "', extract(epoch FROM clock_timestamp())) ON CONFLICT (token) DO NOTHING";
  while (true) {
    Outcome outcome = Outcome::kUnknown;
    const PgAnswers answers{
        [&](int, const PGresult &result) {
          const std::string_view rows = PQcmdTuples(const_cast<PGresult *>(&result));
          outcome = rows == "0" ? Outcome::kMade : Outcome::kNotMade;
          return true;
        },
        {}};
    if (connection.connect() && connection.run(statement, answers, true))
      return outcome;
    if (Clock::now() > end) return Outcome::kUnknown;
    std::this_thread::sleep_for(std::chrono::milliseconds(50));
  }
}

}  // namespace ksutil::db
