#include "platform/db/postgresql/internal/pg_state.h"

#include <charconv>
#include <cstdlib>

#include "platform/stock/text.h"

namespace ksutil::db {

Stamp PgState::stamp() const {
  Stamp stamp;
  stamp.exists = version > 0;
  stamp.count = rows;
  stamp.time = stamp.exists ? changed : 0.0;
  stamp.identity[0] = version;
  constexpr double kSteps = 9007199254740992.0;  // 2^53, of a number below 1
  stamp.identity[1] = static_cast<long>(mark * kSteps);
  return stamp;
}

bool read_key(std::string_view text, std::int64_t &key) {
  const char *const end = text.data() + text.size();
  const auto read = std::from_chars(text.data(), end, key);
  return read.ec == std::errc() && read.ptr == end && !text.empty();
}

bool read_states(const PGresult &result, PgStates &states) {
  if (PQnfields(&result) != 6) return false;
  for (int row = 0; row < PQntuples(&result); ++row) {
    const auto text = [&](int column) {
      return std::string_view(PQgetvalue(&result, row, column));
    };
    PgState state;
    if (!read_key(text(1), state.version) || !read_key(text(2), state.rows) ||
        !parse_real(text(3), state.changed) || !parse_real(text(4), state.mark) ||
        !read_key(text(5), state.floor) || state.rows < 0) {
      return false;
    }
    states[std::string(text(0))] = state;
  }
  return true;
}

bool read_database_words(const PGresult &result, std::string &schema, int &format) {
  if (PQnfields(&result) != 2) return false;
  for (int row = 0; row < PQntuples(&result); ++row) {
    const std::string_view name = PQgetvalue(&result, row, 0);
    if (name == "schema") schema = PQgetvalue(&result, row, 1);
    if (name == "format") format = std::atoi(PQgetvalue(&result, row, 1));
  }
  return true;
}

}  // namespace ksutil::db
