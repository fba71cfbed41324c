#include "platform/db/postgresql/internal/pg_store.h"

#include <algorithm>
#include <utility>

#include "platform/db/postgresql/internal/pg_create.h"
#include "platform/db/postgresql/internal/pg_table.h"
#include "platform/db/postgresql/internal/pg_write.h"
#include "platform/elog/failure.h"
#include "platform/stock/export.h"
#include "platform/stock/fspath.h"
#include "platform/stock/text.h"

namespace ksutil::db {
namespace {

constexpr const char *kNoSuchTable = "42P01";  // a state of the protocol

std::string directory_of(const std::string &name) {
  const std::size_t slash = name.rfind('/');
  return slash == name.npos ? "." : name.substr(0, std::max<std::size_t>(slash, 1));
}

}  // namespace

PgStore::PgStore(const StoreDescriptor &descriptor, PgOptions options, bool writable,
                 std::size_t block_budget)
    : descriptor_(descriptor),
      options_(std::move(options)),
      writable_(writable),
      directory_(directory_of(absolute_path(descriptor.name))),
      reader_(std::make_shared<PgReader>(
          std::make_shared<PgConnection>(options_, PgConnection::Purpose::kRead))),
      budget_(std::make_shared<BlockBudget>(block_budget)),
      writers_(std::make_unique<PgWriters>(options_)) {}

PgStore::~PgStore() = default;

bool PgStore::open() {
  std::string found;
  int format = 0;
  const PgAnswers answers{[&](int statement, const PGresult &result) {
                            if (statement == 0) {
                              database_ = PQgetvalue(&result, 0, 0);
                              return true;
                            }
                            return read_database_words(result, found, format);
                          },
                          {}};
  if (!reader_->ask("dbopen",
                    "SELECT current_database(); SELECT name, value FROM ks_database",
                    answers, [] {})) {
    if (reader_->connection().state() == kNoSuchTable) {
      fail("dbopen", "The database of the server has no tables of this kind yet");
    }
    return fail("dbopen", "Cannot open %s", descriptor_.name.c_str());
  }
  if (found.empty() || format != kPgFormat) {
    return fail("dbopen", "%s: The server's tables are of version %d, not %d",
                descriptor_.name.c_str(), format, kPgFormat);
  }
  if (!descriptor_.schema.empty() && descriptor_.schema != found) {
    return fail("dbopen", "%s names schema %s, but the server's database has schema %s",
                descriptor_.name.c_str(), descriptor_.schema.c_str(), found.c_str());
  }
  schema_ = Schema::load(found);
  return schema_ != nullptr ||
         fail("dbopen", "Cannot open %s", descriptor_.name.c_str());
}

std::string PgStore::description() const {
  const PgConnection &connection = reader_->connection();
  std::string text = "postgresql " + options_.place();
  if (!connection.lost()) {
    text += "; reading from " +
            connection.server().substr(0, connection.server().find(' '));
    if (connection.replica()) text += " (replica)";
  }
  return text;
}

std::string PgStore::file_name(const std::string &table) const {
  return "postgresql:" + database_ + "." + table;
}

PgPlace PgStore::place(const Relation &relation) const {
  const std::shared_ptr<const Relation> layout(schema_, &relation);
  return {std::make_shared<const PgRows>(layout), reader_, budget_,
          file_name(relation.name), pg_name(relation.name)};
}

PgTable *PgStore::own_table(std::string_view name) {
  const auto known = tables_.find(name);
  if (known != tables_.end()) return known->second.get();
  const Relation *const relation = schema_->find(name);
  if (relation == nullptr) {
    return fail("dblookup", "%s: The schema %s has no table %.*s",
                descriptor_.name.c_str(), schema_->name().c_str(),
                static_cast<int>(name.size()), name.data());
  }
  return tables_.emplace(relation->name, std::make_unique<PgTable>(*this, *relation))
      .first->second.get();
}

TableStore *PgStore::table(std::string_view name) { return own_table(name); }

void PgStore::begin_look() {
  looking_ = true;
  states_hold_ = false;
}

void PgStore::end_look() { looking_ = states_hold_ = false; }

void PgStore::begin_write() {
  end_look();
  reader_->connection().set_purpose(PgConnection::Purpose::kWrite);
}

/* Whether a state that was seen before is newer: a replica that has not caught up. */
bool PgStore::behind(const PgStates &states) const {
  if (!reader_->connection().replica()) return false;
  return std::any_of(states_.begin(), states_.end(), [&](const auto &known) {
    const auto now = states.find(known.first);
    return now == states.end() || now->second.version < known.second.version;
  });
}

bool PgStore::ask_states(const char *who, PgStates &states) {
  const std::string statement =
      std::string("SELECT ") + kPgStateColumns + " FROM ks_tables";
  const PgAnswers answers{
      [&](int, const PGresult &result) { return read_states(result, states); }, {}};
  return reader_->ask(who, statement, answers, [&] { states.clear(); });
}

const PgStates *PgStore::states(const char *who) {
  if (states_hold_) return &states_;
  PgStates now;
  if (!ask_states(who, now)) return nullptr;
  if (behind(now)) {
    reader_->connection().set_purpose(PgConnection::Purpose::kWrite);
    if (!ask_states(who, now)) return nullptr;
  }
  states_ = std::move(now);
  states_hold_ = looking_;
  return &states_;
}

/* Asks for the states and the requests, all of one moment, in one message. */
bool PgStore::ask(const char *who, std::vector<PgRequest> &requests, PgStates &states) {
  constexpr int kFirst = 2;  // statement of the requests
  std::string text = "BEGIN ISOLATION LEVEL REPEATABLE READ READ ONLY; SELECT " +
                     std::string(kPgStateColumns) + " FROM ks_tables";
  for (const PgRequest &request : requests) text += request.statements();
  text += "; COMMIT";
  const PgAnswers answers{
      [&](int statement, const PGresult &result) {
        return statement != 1 || read_states(result, states);
      },
      [&](int statement, std::string_view line) {
        const int part = statement - kFirst;
        const auto at = static_cast<std::size_t>(part / PgRequest::kStatements);
        return part >= 0 && at < requests.size() &&
               requests[at].read_line(part % PgRequest::kStatements, line);
      }};
  const auto ask_once = [&] {
    return reader_->ask(who, text, answers, [&] {
      states.clear();
      for (PgRequest &request : requests) request.clear();
    });
  };
  if (!ask_once()) return false;
  if (!behind(states)) return true;
  reader_->connection().set_purpose(PgConnection::Purpose::kWrite);
  return ask_once();
}

bool PgStore::refresh(const char *who, PgTable &wanted, bool anew) {
  const auto unchanged = [&](const PgTable &table) {
    const auto known = states_.find(table.name());
    return known != states_.end() && known->second.same_as(table.held()->state());
  };
  if (!anew && states_hold_ && wanted.held() != nullptr && wanted.held()->complete() &&
      unchanged(wanted)) {
    return true;
  }
  std::vector<PgTable *> tables{&wanted};
  for (const auto &[name, table] : tables_) {
    if (states_hold_ && table.get() != &wanted && table->held() != nullptr &&
        !unchanged(*table)) {
      tables.push_back(table.get());
    }
  }
  /* Those whose changes are not known are read from their beginning. */
  PgStates now;
  for (bool whole : {false, true}) {
    std::vector<PgRequest> requests;
    for (const PgTable *table : tables) {
      requests.emplace_back(table->place(), table->name(), table->held(),
                            whole || anew);
    }
    if (!ask(who, requests, now)) return false;
    const std::string &server = reader_->connection().server();
    std::vector<PgTable *> left;
    for (std::size_t i = 0; i < tables.size(); ++i) {
      PgTable &table = *tables[i];
      const auto state = now.find(table.name());
      if (state == now.end()) {
        return fail(who, "%s: ks_tables has no row for it", table.file_name().c_str());
      }
      std::shared_ptr<const PgSnapshot> next;
      if (requests[i].whole() || table.continues(state->second, server)) {
        next = requests[i].snapshot(who, state->second);
      }
      if (next == nullptr) {
        left.push_back(&table);
      } else {
        table.adopt(std::move(next), server);
      }
    }
    tables = std::move(left);
    if (tables.empty()) break;
  }
  states_ = std::move(now);
  states_hold_ = looking_;
  return true;
}

bool PgStore::transaction(const std::vector<std::string> &names,
                          const std::function<bool(Transaction &)> &work) {
  if (!writable_) {
    return fail("dbput", "%s: The database is open for reading only", name().c_str());
  }
  std::vector<PgTable *> tables;
  for (const std::string &name : names) {
    PgTable *const table = own_table(name);
    if (table == nullptr) return false;
    tables.push_back(table);
  }
  PgWrite write(*this, std::move(tables));
  if (!write.begin()) return false;
  PgTransaction transaction(write);
  return work(transaction) && write.commit();
}

}  // namespace ksutil::db
