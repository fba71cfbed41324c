#include "platform/db/postgresql/internal/pg_write.h"

#include <algorithm>
#include <set>
#include <utility>

#include "platform/db/postgresql/internal/pg_store.h"
#include "platform/db/postgresql/internal/pg_table.h"
#include "platform/elog/failure.h"
#include "platform/stock/text.h"

namespace ksutil::db {
namespace {

constexpr std::size_t kCopyBytes = std::size_t{4} << 20;  // of rows that wait for it
constexpr long kSmallAppend = 100;                        // rows sent as an INSERT
constexpr std::size_t kRowsOfAnUpdate = 500;
constexpr std::size_t kKeysOfADelete = 5000;

/* Tokens of programs that ended before their next write. */
constexpr const char *kForgetOldTokens =
    "DELETE FROM ks_commits WHERE made < extract(epoch FROM clock_timestamp()) - "
    "604800";

}  // namespace

PgWrite::PgWrite(PgStore &store, std::vector<PgTable *> tables) : store_(store) {
  for (PgTable *table : tables) {
    pending_.emplace_back();
    pending_.back().table = table;
  }
}

PgWrite::~PgWrite() {
  if (connection_ == nullptr) return;
  if (!done_) connection_->roll_back();
  store_.writers().give_back(std::move(connection_));
}

bool PgWrite::refuse(const char *who) {
  const std::string cause =
      missing_.empty() ? connection_->error() : "ks_tables has no row for " + missing_;
  return fail(who, "%s: %s", pending_.front().table->file_name().c_str(),
              cause.c_str());
}

/* A reading that failed has rolled the transaction back, or another connection has taken
 * the place of its own: what is sent now would be made without what was sent before. */
void PgWrite::keep_whole() {
  if (connection_->session() != session_) connection_->close();
}

bool PgWrite::send(const std::string &statements, const PgAnswers &answers) {
  keep_whole();
  return connection_->run(statements, answers, true);
}

bool PgWrite::lock() {
  std::set<std::string> names;
  for (const Pending &pending : pending_) names.insert(pending.table->name());
  std::string tables, literals;
  for (const std::string &name : names) {
    tables += (tables.empty() ? "" : ", ") + pg_name(name);
    literals += (literals.empty() ? "" : ", ") + connection_->literal(name);
  }
  PgStates states;
  const PgAnswers answers{[&](int statement, const PGresult &result) {
                            return statement != 2 || read_states(result, states);
                          },
                          {}};
  session_ = connection_->session();
  if (!send("BEGIN; LOCK TABLE " + tables + " IN ROW EXCLUSIVE MODE; SELECT " +
                kPgStateColumns + " FROM ks_tables WHERE name IN (" + literals +
                ") ORDER BY name FOR UPDATE",
            answers)) {
    return false;
  }
  for (Pending &pending : pending_) {
    const auto state = states.find(pending.table->name());
    if (state == states.end()) {
      missing_ = pending.table->name();
      return false;
    }
    pending.count = static_cast<long>(state->second.rows);
  }
  return true;
}

bool PgWrite::begin() {
  if (pending_.empty()) return fail("dbput", "No table is named");
  if (!store_.writable()) {
    return fail("dbput", "%s: The database is open for reading only",
                store_.name().c_str());
  }
  store_.begin_write();
  PgWriters &writers = store_.writers();
  connection_ = writers.take();
  constexpr int kAttempts = 4;
  for (int attempt = 1;; ++attempt) {
    if (!connection_->connect()) return refuse("dbput");
    while (!writers.unknown.empty()) {
      const auto outcome = writers.settle(*connection_, writers.unknown.front());
      if (outcome == PgWriters::Outcome::kUnknown) return refuse("dbput");
      fail("dbput", "The change whose answer was lost %s made",
           outcome == PgWriters::Outcome::kMade ? "was" : "was not");
      writers.settled.push_back(std::move(writers.unknown.front()));
      writers.unknown.erase(writers.unknown.begin());
    }
    if (lock()) return true;
    connection_->roll_back();
    const bool once_more =
        (connection_->lost() && !connection_->timed_out()) || connection_->again();
    if (attempt == kAttempts || !once_more) return refuse("dbput");
  }
}

const Relation &PgWrite::layout(std::size_t table) const {
  return pending_.at(table).table->layout();
}

std::shared_ptr<const PgSnapshot> PgWrite::before(std::size_t table) {
  Pending &pending = pending_.at(table);
  if (pending.before == nullptr && store_.refresh("dbget", *pending.table)) {
    pending.before = pending.table->held();
  }
  return pending.before;
}

std::shared_ptr<const PgSnapshot> PgWrite::now(std::size_t table) {
  Pending &pending = pending_.at(table);
  if (!pending.changes && pending.now != nullptr) return pending.now;
  if (!pending.changes) return pending.now = before(table);
  /* Its own changes are seen over the connection that has made them alone. */
  if (!flush()) return nullptr;
  PgPlace place = pending.table->place();
  place.reader = std::make_shared<PgReader>(connection_);
  PgStates states;
  auto keys = std::make_shared<PgKeys>();
  const PgAnswers answers{[&](int statement, const PGresult &result) {
                            return statement != 0 || read_states(result, states);
                          },
                          [&](int, std::string_view line) {
                            std::int64_t key = 0;
                            return read_key(line, key) && keys->append(key);
                          }};
  if (!send(std::string("SELECT ") + kPgStateColumns +
                " FROM ks_tables; COPY (SELECT ks_record FROM " + place.sql_name +
                " ORDER BY ks_record) TO STDOUT",
            answers)) {
    refuse("dbget");
    return nullptr;
  }
  pending.now = std::make_shared<PgSnapshot>(
      place, states[pending.table->name()], std::move(keys), std::make_shared<PgLog>());
  pending.changes = false;
  return pending.now;
}

bool PgWrite::whole_rows(const Pending &pending, std::string_view rows,
                         const char *who) const {
  const std::size_t length = pending.table->place().rows->length();
  bool whole = !rows.empty() && rows.size() % length == 0;
  for (std::size_t end = length - 1; whole && end < rows.size(); end += length) {
    whole = rows.find('\n', end + 1 - length) == end;
  }
  return whole || fail(who, "%s: A record has %zu characters and a newline",
                       pending.table->file_name().c_str(), length - 1);
}

long PgWrite::append(std::size_t table, std::string_view rows, bool at_once) {
  Pending &pending = pending_.at(table);
  std::string ended;
  if (!rows.empty() && rows.back() != '\n') {
    ended = std::string(rows) + '\n';
    rows = ended;
  }
  if (!whole_rows(pending, rows, "dbadd")) return -1;
  const PgRows &form = *pending.table->place().rows;
  const std::size_t size = pending.lines.size();
  for (std::size_t at = 0; at < rows.size(); at += form.length()) {
    if (!form.to_copy("dbadd", rows.substr(at, form.length()), pending.lines)) {
      pending.lines.resize(size);
      return -1;
    }
  }
  const auto added = static_cast<long>(rows.size() / form.length());
  const long first = pending.count;
  pending.count += added;
  pending.appended += added;
  pending.changes = written_ = true;
  const bool enough = pending.lines.size() >= kCopyBytes ||
                      (at_once && pending.appended > kSmallAppend);
  if (enough && !send_appended(pending)) return -1;
  return first;
}

bool PgWrite::overwrite(std::size_t table, long record, std::string_view row) {
  Pending &pending = pending_.at(table);
  std::string ended(row);
  if (!ended.empty() && ended.back() != '\n') ended += '\n';
  const PgRows &form = *pending.table->place().rows;
  if (!whole_rows(pending, ended, "dbput")) return false;
  if (ended.size() != form.length()) {
    return fail("dbput", "%s: One record is not %zu",
                pending.table->file_name().c_str(), ended.size() / form.length());
  }
  if (record < 0 || record >= pending.count) {
    return fail("dbput", "%s: No record %ld among %ld",
                pending.table->file_name().c_str(), record, pending.count);
  }
  /* A snapshot that is held has the keys, unless the row is newer or rows are gone. */
  std::shared_ptr<const PgSnapshot> rows =
      pending.now != nullptr ? pending.now : before(table);
  if (rows != nullptr && record >= rows->count()) rows = now(table);
  if (rows == nullptr) return false;
  std::string line;
  if (!form.to_copy("dbput", ended, line)) return false;
  pending.changed[rows->keys().key_of(record)] = std::move(line);
  pending.changes = written_ = true;
  return true;
}

bool PgWrite::remove(std::size_t table, const std::vector<long> &records) {
  Pending &pending = pending_.at(table);
  if (records.front() < 0 || records.back() >= pending.count) {
    return fail("remove_rows", "%s: A record to be removed is not there",
                pending.table->file_name().c_str());
  }
  const std::shared_ptr<const PgSnapshot> rows = now(table);
  if (rows == nullptr || !flush()) return false;
  for (std::size_t from = 0; from < records.size(); from += kKeysOfADelete) {
    std::string statement =
        "DELETE FROM " + pending.table->place().sql_name + " WHERE ks_record IN (";
    const std::size_t end = std::min(from + kKeysOfADelete, records.size());
    for (std::size_t i = from; i < end; ++i) {
      statement +=
          (i > from ? "," : "") + std::to_string(rows->keys().key_of(records[i]));
    }
    written_ = true;
    if (!send(statement + ")")) return refuse("remove_rows");
  }
  pending.count -= static_cast<long>(records.size());
  pending.changes = true;
  return now(table) != nullptr;
}

bool PgWrite::clear(std::size_t table) {
  Pending &pending = pending_.at(table);
  if (pending.appended > 0 || !pending.changed.empty() || pending.changes) {
    return fail("dbput", "%s: The table was changed before it was cleared",
                pending.table->file_name().c_str());
  }
  pending.count = 0;
  pending.changes = written_ = true;
  return send("DELETE FROM " + pending.table->place().sql_name) ||
         refuse("remove_all_rows");
}

bool PgWrite::send_appended(Pending &pending) {
  const std::string statement = "COPY " + pending.table->place().sql_name + " (" +
                                pending.table->place().rows->columns() + ") FROM STDIN";
  std::string_view left = pending.lines;
  constexpr std::size_t kChunk = std::size_t{1} << 16;
  keep_whole();
  const bool sent = connection_->copy_in(statement, [&] {
    const std::string_view chunk = left.substr(0, kChunk);
    left.remove_prefix(chunk.size());
    return chunk;
  });
  pending.lines.clear();
  pending.appended = 0;
  return sent || refuse("dbadd");
}

/* The statements for what waits, once large appends are sent. */
std::string PgWrite::small_statements() {
  const auto quote = [&](std::string_view text) { return connection_->literal(text); };
  std::string text;
  for (Pending &pending : pending_) {
    const PgPlace &place = pending.table->place();
    const PgRows &form = *place.rows;
    if (pending.appended > 0) {
      text += "INSERT INTO " + place.sql_name + " (" + form.columns() + ") VALUES ";
      std::string_view lines = pending.lines;
      while (!lines.empty()) {
        const std::size_t end = lines.find('\n') + 1;
        if (text.back() == ')') text += ',';
        form.to_values(lines.substr(0, end), false, quote, text);
        lines.remove_prefix(end);
      }
      text += ';';
      pending.lines.clear();
      pending.appended = 0;
    }
    for (auto next = pending.changed.begin(); next != pending.changed.end();) {
      std::string columns, values;
      for (const Field &field : form.relation().fields) {
        columns += (columns.empty() ? "" : ",") + pg_name(field.name) + "=n." +
                   pg_name(field.name);
      }
      for (std::size_t i = 0; i < kRowsOfAnUpdate && next != pending.changed.end();
           ++i) {
        std::string row;
        form.to_values(next->second, true, quote, row);
        row.insert(1, std::to_string(next->first) + "::bigint,");
        values += (values.empty() ? "" : ",") + row;
        next = pending.changed.erase(next);
      }
      text += "UPDATE " + place.sql_name + " AS o SET " + columns + " FROM (VALUES " +
              values + ") AS n (ks_key," + form.columns() +
              ") WHERE o.ks_record = n.ks_key;";
    }
  }
  return text;
}

/* Sends everything that waits. */
bool PgWrite::flush() {
  for (Pending &pending : pending_) {
    if (pending.appended > kSmallAppend && !send_appended(pending)) return false;
  }
  const std::string text = small_statements();
  return text.empty() || send(text) || refuse("dbput");
}

bool PgWrite::commit() {
  again_ = false;
  if (!written_) {
    connection_->roll_back();
    done_ = true;
    return true;
  }
  PgWriters &writers = store_.writers();
  for (Pending &pending : pending_) {
    if (pending.appended > kSmallAppend && !send_appended(pending)) {
      again_ = connection_->again();
      return false;
    }
  }
  const std::string token = PgWriters::new_token();
  std::string text = small_statements();
  text += "INSERT INTO ks_commits (token, made) VALUES ('" + token +
          "', extract(epoch FROM clock_timestamp()));";
  std::string settled;
  for (const std::string &each : writers.settled) {
    settled += (settled.empty() ? "'" : ",'") + each + "'";
  }
  text += settled.empty() ? std::string(kForgetOldTokens)
                          : "DELETE FROM ks_commits WHERE token IN (" + settled + ")";
  text += "; COMMIT";
  store_.end_look();
  if (send(text)) {
    writers.settled = {token};
    done_ = true;
    return true;
  }
  if (!connection_->lost()) {
    connection_->roll_back();
    again_ = connection_->again();
    return refuse("dbput");
  }
  const std::string cause = connection_->error();
  done_ = true;
  switch (writers.settle(*connection_, token)) {
    case PgWriters::Outcome::kMade:
      writers.settled.push_back(token);
      return true;
    case PgWriters::Outcome::kNotMade:
      writers.settled.push_back(token);
      return fail("dbput", "%s: %s", pending_.front().table->file_name().c_str(),
                  cause.c_str());
    case PgWriters::Outcome::kUnknown:
      break;
  }
  writers.unknown.push_back(token);
  return fail("dbput",
              "%s: The connection was lost while the change was made; whether it was "
              "made will be told by the next write: %s",
              pending_.front().table->file_name().c_str(), cause.c_str());
}

}  // namespace ksutil::db
