/* PgOptions: the words of a connection text, with the limits that it leaves open filled
 * in. */
#ifndef KSUTIL_PLATFORM_DB_POSTGRESQL_INTERNAL_PG_OPTIONS_H
#define KSUTIL_PLATFORM_DB_POSTGRESQL_INTERNAL_PG_OPTIONS_H

#include <string>
#include <string_view>
#include <utility>
#include <vector>

namespace ksutil::db {

struct PgOptions {
  std::vector<std::pair<std::string, std::string>> words;
  double answer_seconds = 30.0;  // KSUTIL_STORE_TIMEOUT

  /* False, with a message in the name of `who`, when the text is not understood or holds
   * a password. */
  bool parse(const char *who, const std::string &connection);
  /* The hosts and the database, for messages. */
  std::string place() const;
};

/* The text of an SQL name. */
std::string pg_name(std::string_view name);

}  // namespace ksutil::db
#endif
