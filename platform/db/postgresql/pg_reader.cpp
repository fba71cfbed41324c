#include "platform/db/postgresql/internal/pg_reader.h"

#include "platform/elog/failure.h"

namespace ksutil::db {

bool PgReader::ask(const char *who, const std::string &statements,
                   const PgAnswers &answers, const std::function<void()> &begin) {
  constexpr int kAttempts = 2;
  for (int attempt = 1;; ++attempt) {
    if (!connection_->connect()) break;
    begin();
    if (connection_->run(statements, answers)) return true;
    connection_->roll_back();
    /* A server that did not answer in time would let the caller wait twice. */
    const bool once_more =
        (connection_->lost() && !connection_->timed_out()) || connection_->again();
    if (attempt == kAttempts || !once_more) break;
  }
  return fail(who, "%s", connection_->error().c_str());
}

}  // namespace ksutil::db
