#include <algorithm>
#include <cstring>

#include "events/client/internal/query.h"
#include "events/evclient.h"
#include "events/query.h"
#include "events/server/internal/live_servers.h"
#include "events/server/internal/server_state.h"
#include "platform/db/access.h"
#include "platform/elog/elog.h"
#include "platform/elog/failure.h"

namespace ksutil::events {
namespace {

/* The layout that the server reads a table with now; null without one. */
std::shared_ptr<const db::Relation> server_layout(const EVServer *server,
                                                  std::string_view table) {
  const ServerPin pin(server);
  if (pin.state() == nullptr) return nullptr;
  WatchedDatabase &database = pin.state()->database;
  const WatchedDatabase::Hold hold = database.hold();
  const EVTable *const known = database.table(std::string(table));
  if (known == nullptr || known->db.database == dbINVALID) return nullptr;
  const ElogScope quiet;  // the layouts of the schemas will do
  db::TableStore *const store = db::table_store(known->db);
  return store == nullptr ? nullptr : std::make_shared<db::Relation>(store->layout());
}

void add_layout(const std::shared_ptr<const db::Schema> &schema, std::string_view table,
                Layouts &layouts) {
  const db::Relation *const relation =
      schema == nullptr ? nullptr : schema->find(table);
  if (relation != nullptr) layouts.emplace_back(schema, relation);
}

/* The server's layout, that of its schema, and those of the built-in schemas, which
 * files may have although their descriptor names another. */
Layouts table_layouts(const EVServer *server, Dbptr scratch, std::string_view table) {
  Layouts layouts;
  if (auto layout = server_layout(server, table)) layouts.push_back(std::move(layout));
  const ElogScope quiet;
  if (db::DatabaseStore *const store = db::database_store(scratch)) {
    add_layout(store->schema(), table, layouts);
  }
  for (const std::string &name : db::builtin_schemas()) {
    add_layout(db::Schema::load(name), table, layouts);
  }
  return layouts;
}

/* Writes a value into the caller's buffer and returns its type code. */
int deliver(const expr::Value &value, void *result) {
  switch (value.type) {
    case expr::Type::kInteger:
    case expr::Type::kBoolean:
      std::memcpy(result, &value.integer, sizeof value.integer);
      return EV_INTEGER;
    case expr::Type::kReal:
    case expr::Type::kTime:
      std::memcpy(result, &value.real, sizeof value.real);
      return EV_DOUBLE;
    case expr::Type::kText:
      break;
  }
  const std::size_t length = std::min(value.text.size(), EV_VALUE_SIZE - 1);
  char *const text = static_cast<char *>(result);
  if (length > 0) std::memcpy(text, value.text.data(), length);
  text[length] = '\0';
  return EV_TEXT;
}

template <class Record>
int get_value(const Record *record, const std::vector<EVQueryToken> &tokens, int *type,
              void *result) {
  if (record == nullptr || tokens.empty() || tokens.front().query == nullptr ||
      type == nullptr || result == nullptr) {
    return fail("EVClient::getValue", "no record, no query or no result");
  }
  expr::Value value;
  const int status = tokens.front().query->evaluate(*record, value);
  if (status < 0) {
    fail("EVClient::getValue", "no value of '%s'", tokens.front().text.c_str());
    return status;
  }
  *type = deliver(value, result);
  return status;
}

}  // namespace
}  // namespace ksutil::events

using namespace ksutil::events;

int EVClient::parse_query(std::string query, std::vector<EVQueryToken> &tokens) {
  ksutil::expr::Error error;
  const EVServer *const current = attached();
  auto compiled = Query::compile(
      query,
      [&](std::string_view table) { return table_layouts(current, scratch, table); },
      error);
  if (compiled == nullptr) {
    return ksutil::fail("EVClient::parse_query", "%s at position %zu of '%s'",
                        error.message.c_str(), error.position, query.c_str());
  }
  tokens.assign(1, {std::move(query), std::move(compiled)});
  return 0;
}

bool ksutil::events::needs_outline_only(const std::vector<EVQueryToken> &tokens) {
  return !tokens.empty() && tokens.front().query != nullptr &&
         tokens.front().query->needs_outline_only();
}

int EVClient::getValue(const EVEvent *event, const std::vector<EVQueryToken> &tokens,
                       int *type, void *value) {
  return get_value(event, tokens, type, value);
}

int EVClient::getValue(const EVOrigin *origin, const std::vector<EVQueryToken> &tokens,
                       int *type, void *value) {
  return get_value(origin, tokens, type, value);
}
