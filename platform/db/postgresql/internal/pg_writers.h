/* PgWriters: the connections of one store that write, and the tokens of their
 * transactions. */
#ifndef KSUTIL_PLATFORM_DB_POSTGRESQL_INTERNAL_PG_WRITERS_H
#define KSUTIL_PLATFORM_DB_POSTGRESQL_INTERNAL_PG_WRITERS_H

#include <memory>
#include <string>
#include <utility>
#include <vector>

#include "platform/db/postgresql/internal/pg_connection.h"

namespace ksutil::db {

/* Changes within changes take a connection each. */
class PgWriters {
 public:
  explicit PgWriters(PgOptions options) : options_(std::move(options)) {}

  std::shared_ptr<PgConnection> take();
  void give_back(std::shared_ptr<PgConnection> connection);

  /* A token that no other transaction has. */
  static std::string new_token();
  enum class Outcome { kMade, kNotMade, kUnknown };
  /* Whether the transaction of the token was made; when it was not, it never will be.
   * Tries for as long as an answer may take. */
  Outcome settle(PgConnection &connection, const std::string &token);

  std::vector<std::string> settled;  // tokens whose rows are no longer needed
  std::vector<std::string> unknown;  // tokens that could not be settled yet, in order

 private:
  const PgOptions options_;
  std::vector<std::shared_ptr<PgConnection>> idle_;
};

}  // namespace ksutil::db
#endif
