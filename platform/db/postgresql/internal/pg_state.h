/* pg_state: the rows of ks_tables and ks_database. */
#ifndef KSUTIL_PLATFORM_DB_POSTGRESQL_INTERNAL_PG_STATE_H
#define KSUTIL_PLATFORM_DB_POSTGRESQL_INTERNAL_PG_STATE_H

#include <libpq-fe.h>

#include <cstdint>
#include <functional>
#include <map>
#include <string>
#include <string_view>

#include "platform/db/snapshot.h"

namespace ksutil::db {

/* The version of the tables that pg_create makes. */
inline constexpr int kPgFormat = 1;

/* The state of a table; see pg_create.h. */
struct PgState {
  std::int64_t version = 0, rows = 0, floor = 0;
  double changed = 0.0, mark = 0.0;

  /* Equal texts of a history of changes: no two changes draw the same number. */
  bool same_as(const PgState &other) const {
    return version == other.version && mark == other.mark;
  }
  Stamp stamp() const;
};

using PgStates = std::map<std::string, PgState, std::less<>>;

/* The columns that read_states reads, in their order. */
inline constexpr const char *kPgStateColumns =
    "name, version, row_count, changed, mark, floor";

/* False when the result has other columns. */
bool read_states(const PGresult &result, PgStates &states);

/* Reads name and value of ks_database. */
bool read_database_words(const PGresult &result, std::string &schema, int &format);

/* An integer that is the whole text; false for any other text. */
bool read_key(std::string_view text, std::int64_t &key);

}  // namespace ksutil::db
#endif
