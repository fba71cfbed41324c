/* PgRequest: asks for the keys of a table, or for its changes since a snapshot, and makes
 * the next snapshot of the answer. */
#ifndef KSUTIL_PLATFORM_DB_POSTGRESQL_INTERNAL_PG_REQUEST_H
#define KSUTIL_PLATFORM_DB_POSTGRESQL_INTERNAL_PG_REQUEST_H

#include <memory>
#include <string>
#include <string_view>

#include "platform/db/postgresql/internal/pg_snapshot.h"

namespace ksutil::db {

class PgRequest {
 public:
  /* `before` is the snapshot whose changes are asked for; with `whole` the keys of all
   * rows are asked for, and `before`, which may be null, only lends its blocks. */
  PgRequest(PgPlace place, std::string table, std::shared_ptr<const PgSnapshot> before,
            bool whole);

  bool whole() const { return whole_; }
  /* The statements, kStatements of them, each with a semicolon in front. */
  static constexpr int kStatements = 3;
  std::string statements() const;
  /* Reads a line of the answer to one of them; false when it makes no sense. */
  bool read_line(int statement, std::string_view line);
  /* Forgets what was read, before the question is asked again. */
  void clear();

  /* The snapshot of the table in that state; null when the answer does not lead there,
   * because rows were changed without the triggers: then the whole is to be asked for.
   * The answer to the whole makes a snapshot in any case. */
  std::shared_ptr<const PgSnapshot> snapshot(const char *who,
                                             const PgState &state) const;

 private:
  const PgPlace place_;
  const std::string table_;
  const std::shared_ptr<const PgSnapshot> before_;
  const bool whole_;
  PgKeys keys_;
  PgDelta delta_;
  std::string told_;  // about the first value that does not fit its field
};

}  // namespace ksutil::db
#endif
