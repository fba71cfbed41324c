/* PgConnection: one connection to a server that speaks the PostgreSQL protocol.
 *
 * Nothing here waits without a limit: a server that does not answer, or does not go on
 * answering, is left after answer_seconds.  A lost connection is an error; the next
 * connect() opens a new one, after a pause that grows while this fails.
 * A connection that a fork has copied is left to the parent; the child opens its own.
 * Messages never hold a password. */
#ifndef KSUTIL_PLATFORM_DB_POSTGRESQL_INTERNAL_PG_CONNECTION_H
#define KSUTIL_PLATFORM_DB_POSTGRESQL_INTERNAL_PG_CONNECTION_H

#include <libpq-fe.h>
#include <sys/types.h>

#include <chrono>
#include <functional>
#include <memory>
#include <string>
#include <string_view>

#include "platform/db/postgresql/internal/pg_options.h"

namespace ksutil::db {

/* Reads the answers to the statements of one message. */
struct PgAnswers {
  /* The result of the statement of that number, from 0; false ends the reading. */
  std::function<bool(int statement, const PGresult &result)> result;
  /* A line of a COPY TO STDOUT, without its newline. */
  std::function<bool(int statement, std::string_view line)> line;
};

class PgConnection {
 public:
  enum class Purpose { kRead, kWrite };  // kWrite: only a server that accepts writes

  PgConnection(PgOptions options, Purpose purpose);
  ~PgConnection();
  PgConnection(const PgConnection &) = delete;
  PgConnection &operator=(const PgConnection &) = delete;

  /* Opens the connection if there is none; false with error(). */
  bool connect();
  void close();
  /* Whether the last failure was the loss of the connection. */
  bool lost() const { return connection_ == nullptr; }
  /* Whether it was given up because the server did not answer in time. */
  bool timed_out() const { return timed_out_; }

  /* Increases with each new connection, and with each transaction that is rolled back: a
   * transaction lives in one session. */
  long session() const { return session_; }

  /* Sends statements in one message and reads the answers; false with error().  With an
   * open transaction the caller rolls back. */
  bool run(const std::string &statements, const PgAnswers &answers = {},
           bool waits_for_locks = false);
  /* COPY ... FROM STDIN of the lines that `more` gives until an empty text. */
  bool copy_in(const std::string &statement,
               const std::function<std::string_view()> &more);
  /* Ends an open transaction; closes the connection when that is impossible. */
  void roll_back();

  /* "'...'" with everything escaped; throws std::bad_alloc. */
  std::string literal(std::string_view text) const;

  const PgOptions &options() const { return options_; }
  const std::string &error() const { return error_; }
  /* The five characters of the last error that the server reported, or "". */
  const std::string &state() const { return state_; }
  /* True when the server asks to run the transaction again: deadlock, serialisation. */
  bool again() const { return state_ == "40001" || state_ == "40P01"; }

  /* Another text means another server, or the same after a restart. */
  const std::string &server() const { return server_; }
  bool replica() const { return replica_; }
  void set_purpose(Purpose purpose);

 private:
  using Clock = std::chrono::steady_clock;

  bool open();
  bool set_up();
  bool wait(short events, double seconds);
  bool flush(double seconds);
  bool read_answers(const PgAnswers &answers, double seconds);
  bool read_lines(int statement, const PgAnswers &answers, double seconds);
  bool lose(const std::string &error);
  void keep_error(const PGresult *result);
  std::string clean(const char *message) const;

  const PgOptions options_;
  Purpose purpose_;
  PGconn *connection_ = nullptr;
  pid_t owner_;  // the process that opened the connection
  std::string error_, state_, server_;
  bool replica_ = false, timed_out_ = false;
  long session_ = 0;
  Clock::time_point next_try_{};
  double pause_ = 0.0;  // seconds
};

}  // namespace ksutil::db
#endif
