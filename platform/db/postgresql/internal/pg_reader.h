/* PgReader: asks a server, and asks once more on a new connection when the old one turns
 * out to be lost. */
#ifndef KSUTIL_PLATFORM_DB_POSTGRESQL_INTERNAL_PG_READER_H
#define KSUTIL_PLATFORM_DB_POSTGRESQL_INTERNAL_PG_READER_H

#include <functional>
#include <memory>
#include <string>

#include "platform/db/postgresql/internal/pg_connection.h"
#include "platform/db/postgresql/internal/pg_state.h"

namespace ksutil::db {

/* Belongs to a store and to the snapshots that read their rows through it. */
class PgReader {
 public:
  explicit PgReader(std::shared_ptr<PgConnection> connection)
      : connection_(std::move(connection)) {}

  /* Runs statements; `begin` is called first, a second time when they are run a second
   * time.  False, with a message in the name of `who`, on failure; no transaction is
   * open then. */
  bool ask(const char *who, const std::string &statements, const PgAnswers &answers,
           const std::function<void()> &begin);

  PgConnection &connection() { return *connection_; }

 private:
  const std::shared_ptr<PgConnection> connection_;
};

}  // namespace ksutil::db
#endif
