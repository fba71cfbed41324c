#include "platform/db/postgresql/internal/pg_connection.h"

#include <poll.h>
#include <unistd.h>

#include <algorithm>
#include <atomic>
#include <cerrno>
#include <new>

#include "platform/elog/failure.h"
#include "platform/stock/text.h"

namespace ksutil::db {
namespace {

constexpr double kFirstPause = 0.1, kLongestPause = 10.0;  // seconds
/* A statement may wait this much longer than others for a lock. */
constexpr double kLockPatience = 10.0;

/* Settings of a session.  An engine that lacks one of them does without. */
constexpr const char *kSettings[] = {
    "SET standard_conforming_strings = on",
    "SET default_transaction_isolation = 'read committed'", "SET statement_timeout = 0",
    "SET extra_float_digits = 1",
    /* All reading goes along an index, also while the server knows no statistics.  The
     * cost that this puts on a table without one would set off compiling of its plan. */
    "SET enable_seqscan = off", "SET jit = off",
    /* A writer whose machine is gone must not keep its locks. */
    "SET tcp_keepalives_idle = 10", "SET tcp_keepalives_interval = 5",
    "SET tcp_keepalives_count = 3", "SET tcp_user_timeout = 30000"};

}  // namespace

PgConnection::PgConnection(PgOptions options, Purpose purpose)
    : options_(std::move(options)), purpose_(purpose), owner_(getpid()) {}

PgConnection::~PgConnection() { close(); }

void PgConnection::close() {
  /* A child must not say good-bye in its parent's name. */
  if (connection_ != nullptr && owner_ == getpid()) PQfinish(connection_);
  connection_ = nullptr;
}

void PgConnection::set_purpose(Purpose purpose) {
  if (purpose == purpose_) return;
  purpose_ = purpose;
  if (connection_ != nullptr && !(owner_ == getpid() && !replica_)) close();
}

std::string PgConnection::clean(const char *message) const {
  std::string text = message == nullptr ? "" : message;
  while (!text.empty() && (text.back() == '\n' || text.back() == ' ')) text.pop_back();
  for (std::size_t at = 0; (at = text.find('\n', at)) != text.npos;) {
    const std::size_t next = std::min(text.find_first_not_of("\n\t ", at), text.size());
    text.replace(at, next - at, " ");  // the lines of a message may be indented
  }
  const char *const password = connection_ == nullptr ? nullptr : PQpass(connection_);
  const std::string secret = password == nullptr ? "" : password;
  for (std::size_t at = text.find(secret); !secret.empty() && at != text.npos;
       at = text.find(secret, at + 3)) {
    text.replace(at, secret.size(), "***");
  }
  return text.empty() ? "unknown cause" : text;
}

bool PgConnection::lose(const std::string &error) {
  error_ = error;
  close();
  return false;
}

void PgConnection::keep_error(const PGresult *result) {
  const char *const state = PQresultErrorField(result, PG_DIAG_SQLSTATE);
  const char *const primary = PQresultErrorField(result, PG_DIAG_MESSAGE_PRIMARY);
  state_ = state == nullptr ? "" : state;
  error_ = clean(primary == nullptr ? PQresultErrorMessage(result) : primary);
  if (const char *detail = PQresultErrorField(result, PG_DIAG_MESSAGE_DETAIL)) {
    error_ += " (" + clean(detail) + ")";
  }
}

bool PgConnection::connect() {
  if (connection_ != nullptr && owner_ != getpid()) connection_ = nullptr;
  if (connection_ != nullptr && PQstatus(connection_) == CONNECTION_OK) return true;
  close();
  const Clock::time_point now = Clock::now();
  if (now < next_try_) {
    error_ = format_text("There is no connection to %s; the next attempt is in %.1f s",
                         options_.place().c_str(),
                         std::chrono::duration<double>(next_try_ - now).count());
    return false;
  }
  if (open() && set_up()) {
    pause_ = 0.0;
    return true;
  }
  close();
  pause_ = std::clamp(2 * pause_, kFirstPause, kLongestPause);
  next_try_ = Clock::now() + std::chrono::duration_cast<Clock::duration>(
                                 std::chrono::duration<double>(pause_));
  return false;
}

bool PgConnection::open() {
  std::vector<const char *> keywords, values;
  for (const auto &[keyword, value] : options_.words) {
    if (purpose_ == Purpose::kWrite && keyword == "target_session_attrs") continue;
    keywords.push_back(keyword.c_str());
    values.push_back(value.c_str());
  }
  if (purpose_ == Purpose::kWrite) {
    keywords.push_back("target_session_attrs");
    values.push_back("read-write");
  }
  keywords.push_back(nullptr);
  values.push_back(nullptr);
  owner_ = getpid();
  ++session_;
  state_.clear();
  timed_out_ = false;
  connection_ = PQconnectdbParams(keywords.data(), values.data(), 0);
  if (connection_ == nullptr) throw std::bad_alloc();
  if (PQstatus(connection_) == CONNECTION_OK) {
    PQsetnonblocking(connection_, 1);
    PQsetNoticeProcessor(
        connection_, [](void *, const char *) {}, nullptr);
    return true;
  }
  error_ = format_text("Cannot connect to %s: %s", options_.place().c_str(),
                       clean(PQerrorMessage(connection_)).c_str());
  return false;
}

bool PgConnection::set_up() {
  const auto try_to = [&](const std::string &statement) {
    return run(statement) || !lost();
  };
  for (const char *setting : kSettings) {
    if (!try_to(setting)) return false;
  }
  const double lock = options_.answer_seconds * kLockPatience;
  if (!try_to(format_text("SET lock_timeout = %.0f", lock * 1000))) return false;
  server_ = std::string(PQhost(connection_)) + ":" + PQport(connection_);
  replica_ = false;
  const PgAnswers answers{[&](int, const PGresult &result) {
                            if (PQntuples(&result) != 1) return true;
                            server_ += std::string(" ") + PQgetvalue(&result, 0, 0);
                            replica_ = PQgetvalue(&result, 0, 1)[0] == 't';
                            return true;
                          },
                          {}};
  const bool told =
      run("SELECT pg_postmaster_start_time()::text, pg_is_in_recovery()", answers);
  /* An engine that cannot tell counts as another one after each connection. */
  static std::atomic<long> unknown{0};
  if (!told) server_ += " unknown " + std::to_string(++unknown);
  return told || !lost();
}

bool PgConnection::wait(short events, double seconds) {
  const Clock::time_point end =
      Clock::now() + std::chrono::duration_cast<Clock::duration>(
                         std::chrono::duration<double>(seconds));
  while (true) {
    const auto left =
        std::chrono::duration_cast<std::chrono::milliseconds>(end - Clock::now());
    if (left.count() <= 0) {
      timed_out_ = true;
      return lose(format_text("No answer from %s within %.0f s",
                              options_.place().c_str(), seconds));
    }
    pollfd socket{PQsocket(connection_), events, 0};
    const int ready = ::poll(&socket, 1, static_cast<int>(left.count()) + 1);
    if (ready < 0 && errno == EINTR) continue;
    if (ready < 0) return lose("poll() error");
    if (ready == 0) continue;
    if ((socket.revents & (POLLIN | POLLERR | POLLHUP)) != 0 &&
        PQconsumeInput(connection_) == 0) {
      return lose(clean(PQerrorMessage(connection_)));
    }
    return true;
  }
}

bool PgConnection::flush(double seconds) {
  while (true) {
    const int left = PQflush(connection_);
    if (left == 0) return true;
    if (left < 0) return lose(clean(PQerrorMessage(connection_)));
    if (!wait(POLLIN | POLLOUT, seconds)) return false;
  }
}

bool PgConnection::read_lines(int statement, const PgAnswers &answers, double seconds) {
  while (true) {
    char *line = nullptr;
    const int length = PQgetCopyData(connection_, &line, 1);
    if (length == 0) {
      if (!wait(POLLIN, seconds)) return false;
      continue;
    }
    if (length < 0) return true;  // the end, or an error that the next result tells
    const std::unique_ptr<char, void (*)(void *)> owner(line, PQfreemem);
    std::string_view text(line, static_cast<std::size_t>(length));
    if (!text.empty() && text.back() == '\n') text.remove_suffix(1);
    if (answers.line && !answers.line(statement, text)) {
      return lose("The answer was not understood");
    }
  }
}

bool PgConnection::read_answers(const PgAnswers &answers, double seconds) {
  bool good = true;
  for (int statement = 0;; ++statement) {
    while (PQisBusy(connection_) != 0) {
      if (!wait(POLLIN, seconds)) return false;
    }
    const std::unique_ptr<PGresult, void (*)(PGresult *)> result(
        PQgetResult(connection_), PQclear);
    if (result == nullptr) break;
    switch (PQresultStatus(result.get())) {
      case PGRES_COPY_OUT:
        if (!read_lines(statement, answers, seconds)) return false;
        --statement;  // the end of the copy has a result of its own
        break;
      case PGRES_COMMAND_OK:
      case PGRES_TUPLES_OK:
      case PGRES_EMPTY_QUERY:
        if (good && answers.result && !answers.result(statement, *result)) {
          return lose("The answer was not understood");
        }
        break;
      case PGRES_COPY_IN:
        return true;
      default:
        if (good) keep_error(result.get());
        good = false;
        break;
    }
    if (PQstatus(connection_) == CONNECTION_BAD) {
      close();
      return false;
    }
  }
  return good;
}

bool PgConnection::run(const std::string &statements, const PgAnswers &answers,
                       bool waits_for_locks) {
  state_.clear();
  if (connection_ == nullptr) return lose("The connection was lost");
  const double seconds =
      options_.answer_seconds * (waits_for_locks ? kLockPatience + 1 : 1);
  if (PQsendQuery(connection_, statements.c_str()) == 0) {
    return lose(clean(PQerrorMessage(connection_)));
  }
  return flush(options_.answer_seconds) && read_answers(answers, seconds);
}

bool PgConnection::copy_in(const std::string &statement,
                           const std::function<std::string_view()> &more) {
  if (!run(statement, {}, true)) return false;
  const double seconds = options_.answer_seconds * (kLockPatience + 1);
  for (std::string_view lines = more(); !lines.empty(); lines = more()) {
    while (true) {
      const int sent =
          PQputCopyData(connection_, lines.data(), static_cast<int>(lines.size()));
      if (sent > 0) break;
      if (sent < 0) {
        /* The server has ended the copy: its own message says why. */
        if (PQstatus(connection_) == CONNECTION_BAD) {
          return lose(clean(PQerrorMessage(connection_)));
        }
        return read_answers({}, seconds);
      }
      if (!wait(POLLIN | POLLOUT, seconds)) return false;
    }
    if (!flush(seconds)) return false;
  }
  while (true) {
    const int ended = PQputCopyEnd(connection_, nullptr);
    if (ended > 0) break;
    if (ended < 0) return lose(clean(PQerrorMessage(connection_)));
    if (!wait(POLLIN | POLLOUT, seconds)) return false;
  }
  return flush(seconds) && read_answers({}, seconds);
}

void PgConnection::roll_back() {
  if (connection_ == nullptr || owner_ != getpid()) return;
  ++session_;
  const std::string error = error_, state = state_;
  if (PQtransactionStatus(connection_) != PQTRANS_IDLE && !run("ROLLBACK")) close();
  error_ = error;
  state_ = state;
}

std::string PgConnection::literal(std::string_view text) const {
  std::string escaped(2 * text.size() + 1, '\0');
  int error = 0;
  escaped.resize(PQescapeStringConn(connection_, escaped.data(), text.data(),
                                    text.size(), &error));
  return "'" + escaped + "'";
}

}  // namespace ksutil::db
