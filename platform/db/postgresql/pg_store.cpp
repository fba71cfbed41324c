#include "platform/db/postgresql/internal/pg_store.h"

#include <algorithm>
#include <utility>

#include "platform/db/postgresql/internal/pg_create.h"
#include "platform/db/postgresql/internal/pg_table.h"
#include "platform/db/postgresql/internal/pg_write.h"
#include "platform/elog/failure.h"
#include "platform/stock/export.h"
#include "platform/stock/text.h"

namespace ksutil::db {
namespace {

/* Bytes of new or changed rows that are kept from one answer; others are read when they
 * are asked for. */
constexpr std::size_t kMostKeptBytes = std::size_t{64} << 20;

std::string directory_of(const std::string &name) {
  const std::size_t slash = name.rfind('/');
  return slash == name.npos ? "." : name.substr(0, std::max<std::size_t>(slash, 1));
}

}  // namespace

/* One table within a question for changes. */
struct PgStore::Request {
  PgTable *table = nullptr;
  bool whole = false;                        // all keys are read, not the changes
  std::shared_ptr<const PgSnapshot> before;  // the snapshot that changes are asked from
  PgKeys keys;
  PgDelta delta;
  std::string told;  // the first value that did not fit
};

PgStore::PgStore(const StoreDescriptor &descriptor, PgOptions options, bool writable,
                 std::size_t block_budget)
    : descriptor_(descriptor),
      options_(std::move(options)),
      writable_(writable),
      directory_(directory_of(descriptor.name)),
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

/* Asks for the states, and for the keys or the changes of some tables, all of one moment,
 * in one message. */
bool PgStore::ask(const char *who, std::vector<Request> &requests, PgStates &states) {
  constexpr int kFirst = 2, kEach = 3;  // numbers of statements
  std::string text = "BEGIN ISOLATION LEVEL REPEATABLE READ READ ONLY; SELECT " +
                     std::string(kPgStateColumns) + " FROM ks_tables";
  for (const Request &request : requests) {
    const PgPlace &place = request.table->place();
    const std::string from = " FROM " + place.sql_name;
    const std::string rows = "; COPY (SELECT ks_record," + place.rows->columns() + from;
    if (request.whole) {
      text += "; COPY (SELECT ks_record" + from +
              " ORDER BY ks_record) TO STDOUT; SELECT 1; SELECT 1";
      continue;
    }
    const auto last = static_cast<long long>(request.before->keys().last());
    const auto version = static_cast<long long>(request.before->state().version);
    text += rows +
            format_text(" WHERE ks_record > %lld ORDER BY ks_record) TO STDOUT", last);
    text += rows + format_text(
                       " WHERE ks_version > %lld AND ks_version > 0 AND ks_record <= "
                       "%lld ORDER BY ks_record) TO STDOUT",
                       version, last);
    text += "; COPY (SELECT record FROM ks_removed WHERE name = '" +
            request.table->name() +
            format_text("' AND version > %lld ORDER BY record) TO STDOUT", version);
  }
  text += "; COMMIT";

  const auto read_line = [&](int statement, std::string_view line) {
    const auto at = static_cast<std::size_t>((statement - kFirst) / kEach);
    const int part = (statement - kFirst) % kEach;
    if (statement < kFirst || at >= requests.size()) return false;
    Request &request = requests[at];
    PgDelta &delta = request.delta;
    const std::size_t tab = std::min(line.find('\t'), line.size());
    std::int64_t key = 0;
    if (!read_key(line.substr(0, tab), key)) return false;
    if (request.whole) return request.keys.append(key);
    if (part == 2) {
      delta.removed.push_back(key);
      return true;
    }
    (part == 0 ? delta.new_keys : delta.changed_keys).push_back(key);
    std::string &kept = part == 0 ? delta.new_rows : delta.changed_rows;
    const PgRows &rows = *request.table->place().rows;
    const std::size_t before =
        (part == 0 ? delta.new_keys : delta.changed_keys).size() - 1;
    /* Changed rows are all kept: they belong to blocks that are held. */
    if (part == 0 &&
        (kept.size() >= kMostKeptBytes || kept.size() != before * rows.length())) {
      return true;
    }
    std::string cause;
    kept.resize(kept.size() + rows.length());
    const bool good = rows.render(line.substr(std::min(tab + 1, line.size())),
                                  kept.data() + kept.size() - rows.length(), cause);
    if (!good && request.told.empty()) request.told = cause;
    return true;
  };
  const PgAnswers answers{[&](int statement, const PGresult &result) {
                            return statement != 1 || read_states(result, states);
                          },
                          read_line};
  return reader_->ask(who, text, answers, [&] {
    states.clear();
    for (Request &request : requests) {
      request.keys = PgKeys();
      request.delta = PgDelta();
      request.told.clear();
    }
  });
}

bool PgStore::refresh(const char *who, PgTable &wanted, bool anew) {
  if (!anew && states_hold_ && wanted.held() != nullptr && wanted.held()->complete()) {
    const auto known = states_.find(wanted.name());
    if (known != states_.end() && known->second.same_as(wanted.held()->state())) {
      return true;
    }
  }
  std::vector<Request> requests;
  const auto add = [&](PgTable &table, bool whole) {
    Request request;
    request.table = &table;
    request.before = table.held();
    request.whole = whole || request.before == nullptr;
    requests.push_back(std::move(request));
  };
  add(wanted, anew);
  if (states_hold_) {
    for (const auto &[name, table] : tables_) {
      const auto known = states_.find(name);
      if (table.get() != &wanted && table->held() != nullptr &&
          known != states_.end() && !known->second.same_as(table->held()->state())) {
        add(*table, false);
      }
    }
  }
  PgStates now;
  if (!ask(who, requests, now)) return false;
  if (behind(now)) {
    reader_->connection().set_purpose(PgConnection::Purpose::kWrite);
    if (!ask(who, requests, now)) return false;
  }
  const auto adopt = [&](Request &request) {
    const auto state = now.find(request.table->name());
    if (state == now.end()) {
      return bool(fail(who, "%s: ks_tables has no row for it",
                       request.table->file_name().c_str()));
    }
    const std::string &server = reader_->connection().server();
    if (!request.told.empty()) {
      fail(who, "%s: A row cannot be shown: %s", request.table->file_name().c_str(),
           request.told.c_str());
    }
    std::shared_ptr<const PgSnapshot> next;
    if (request.whole) {
      auto made = std::make_shared<PgSnapshot>(
          request.table->place(), state->second,
          std::make_shared<const PgKeys>(std::move(request.keys)),
          std::make_shared<PgLog>());
      if (request.before != nullptr) made->compare_with(*request.before);
      next = std::move(made);
    } else if (state->second.same_as(request.before->state())) {
      next = request.before->complete() ? request.before : request.before->once_more();
    } else {
      next = request.before->followed_by(state->second, request.delta);
      if (next == nullptr) return bool(fail(who, "The keys do not ascend"));
    }
    if (next->count() != state->second.rows) {
      fail(who, "%s has %ld rows, but its row_count in ks_tables is %ld",
           request.table->file_name().c_str(), next->count(),
           static_cast<long>(state->second.rows));
    }
    request.table->adopt(std::move(next), server);
    return true;
  };
  /* Those whose changes are not known are read from their beginning. */
  std::vector<Request> whole;
  for (Request &request : requests) {
    const auto state = now.find(request.table->name());
    const bool follows =
        request.whole ||
        (state != now.end() &&
         request.table->continues(state->second, reader_->connection().server()));
    if (follows) {
      if (!adopt(request)) return false;
    } else {
      Request again;
      again.table = request.table;
      again.before = request.before;
      again.whole = true;
      whole.push_back(std::move(again));
    }
  }
  if (!whole.empty()) {
    if (!ask(who, whole, now)) return false;
    for (Request &request : whole) {
      if (!adopt(request)) return false;
    }
  }
  states_ = std::move(now);
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
