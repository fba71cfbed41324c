#include "platform/db/postgresql/internal/pg_options.h"

#include <libpq-fe.h>

#include <algorithm>
#include <cmath>
#include <cstdlib>
#include <memory>

#include "platform/elog/failure.h"
#include "platform/stock/text.h"

namespace ksutil::db {
namespace {

/* Words that a connection text may leave out.  The server, or what is between, may go
 * away without a word: the kernel then notices within half a minute. */
constexpr std::pair<const char *, const char *> kDefaults[] = {
    {"connect_timeout", "5"},      {"keepalives_idle", "10"},
    {"keepalives_interval", "5"},  {"keepalives_count", "3"},
    {"tcp_user_timeout", "30000"}, {"fallback_application_name", "libksutil"}};

double limit_seconds() {
  const char *const given = std::getenv("KSUTIL_STORE_TIMEOUT");
  double seconds = 0.0;
  if (given == nullptr || !parse_real(given, seconds) || !std::isfinite(seconds)) {
    return 30.0;
  }
  return std::clamp(seconds, 0.5, 3600.0);
}

}  // namespace

std::string pg_name(std::string_view name) {
  std::string quoted = "\"";
  for (const char c : name) {
    if (c == '"') quoted += '"';
    if (c != '\0') quoted += c;
  }
  return quoted + "\"";
}

bool PgOptions::parse(const char *who, const std::string &connection) {
  answer_seconds = limit_seconds();
  char *error = nullptr;
  const std::unique_ptr<PQconninfoOption, void (*)(PQconninfoOption *)> found(
      PQconninfoParse(connection.c_str(), &error), PQconninfoFree);
  /* libpq's own message may quote a password. */
  if (error != nullptr) PQfreemem(error);
  if (found == nullptr) {
    return fail(who,
                "The connection is neither a list of name=value nor a postgresql:// "
                "address that libpq understands");
  }
  for (const PQconninfoOption *word = found.get(); word->keyword != nullptr; ++word) {
    if (word->val == nullptr) continue;
    const std::string keyword = word->keyword;
    if (keyword == "password" || keyword == "sslpassword") {
      return fail(who,
                  "The connection holds a password; keep it in ~/.pgpass, in a service "
                  "file or in PGPASSWORD");
    }
    words.emplace_back(keyword, word->val);
  }
  for (const auto &[keyword, value] : kDefaults) {
    const bool given =
        std::any_of(words.begin(), words.end(),
                    [&name = keyword](const auto &w) { return w.first == name; });
    if (!given) words.emplace_back(keyword, value);
  }
  return true;
}

std::string PgOptions::place() const {
  std::string text;
  for (const char *wanted : {"service", "host", "hostaddr", "port", "dbname"}) {
    for (const auto &[keyword, value] : words) {
      if (keyword != wanted) continue;
      text += (text.empty() ? "" : " ") + keyword + "=" + value;
    }
  }
  return text.empty() ? "the default server" : text;
}

}  // namespace ksutil::db
