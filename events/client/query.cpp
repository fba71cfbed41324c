#include "events/query.h"

#include <algorithm>
#include <cmath>
#include <cstring>
#include <mutex>
#include <optional>

#include "core/register.h"
#include "events/client/internal/query.h"
#include "events/evclient.h"
#include "events/server/internal/live_servers.h"
#include "events/server/internal/server_state.h"
#include "platform/db/access.h"
#include "platform/elog/elog.h"

namespace ksutil::events {
namespace {

/* Binds the names of one query to paths. */
class PathFields final : public expr::Fields {
 public:
  PathFields(const RecordKind &kind, PathFinder &finder, std::vector<QueryPath> &paths)
      : kind_(kind), finder_(finder), paths_(paths) {}

  bool bind(std::string_view name, int &slot, expr::Type &type) const override {
    QueryPath path;
    if (!finder_.find(kind_, name, path)) return false;
    slot = static_cast<int>(paths_.size());
    type = path.type();
    paths_.push_back(std::move(path));
    return true;
  }

 private:
  const RecordKind &kind_;
  PathFinder &finder_;
  std::vector<QueryPath> &paths_;
};

class PathRecord final : public expr::Record {
 public:
  PathRecord(const std::vector<QueryPath> &paths, const void *record)
      : paths_(paths), record_(record) {}
  bool value(int slot, expr::Value &value) const override {
    return paths_[static_cast<std::size_t>(slot)].read(record_, value);
  }

 private:
  const std::vector<QueryPath> &paths_;
  const void *record_;
};

}  // namespace

Query::Program Query::compile(std::string_view text, const RecordKind &kind,
                              PathFinder &finder) {
  Program program;
  const PathFields fields(kind, finder, program.paths);
  program.code = expr::Program::compile(text, fields, program.error);
  return program;
}

std::shared_ptr<const Query> Query::compile(std::string_view text,
                                            const LayoutSource &layouts,
                                            expr::Error &error) {
  PathFinder finder(layouts);
  auto query = std::make_shared<Query>();
  query->event_ = compile(text, event_kind(), finder);
  query->origin_ = compile(text, origin_kind(), finder);
  if (query->event_.code != nullptr || query->origin_.code != nullptr) return query;
  /* The one that understood more of it says what is wrong. */
  error = query->event_.error.position >= query->origin_.error.position
              ? query->event_.error
              : query->origin_.error;
  return nullptr;
}

int Query::evaluate(const Program &program, const char *kind, const void *record,
                    expr::Value &value) {
  if (program.code == nullptr) {
    ks_register_error(
        0, "EVClient::getValue: the query is not about %s: %s at position %zu.\n", kind,
        program.error.message.c_str(), program.error.position);
    return -1;
  }
  const int slot = program.code->only_slot();
  if (slot >= 0) {
    if (!program.paths[static_cast<std::size_t>(slot)].read(record, value)) return -1;
  } else {
    thread_local expr::Workspace workspace;
    const PathRecord view(program.paths, record);
    if (!program.code->evaluate(view, workspace, value)) return -1;
  }
  const bool real = value.type == expr::Type::kReal || value.type == expr::Type::kTime;
  return value.null || (real && std::isnan(value.real)) ? 1 : 0;
}

int Query::evaluate(const EVEvent &event, expr::Value &value) const {
  return evaluate(event_, "events", &event, value);
}

int Query::evaluate(const EVOrigin &origin, expr::Value &value) const {
  return evaluate(origin_, "origins", &origin, value);
}

namespace {

/* The layout that the server reads a table with now; null without one. */
std::shared_ptr<const db::Relation> server_layout(const EVServer *server,
                                                  std::string_view table) {
  const ServerPin pin(server);
  if (pin.state() == nullptr) return nullptr;
  const std::lock_guard lock(pin.state()->database_lock);
  const EVTable *const known = pin.state()->vars.tables.find(std::string(table));
  if (known == nullptr || known->db.database == dbINVALID) return nullptr;
  const ElogScope quiet;  // the layouts of the schemas do without it
  db::TableStore *const store = db::table_store(known->db);
  return store == nullptr ? nullptr : std::make_shared<db::Relation>(store->layout());
}

void add_layout(const std::shared_ptr<const db::Schema> &schema, std::string_view table,
                Layouts &layouts) {
  const db::Relation *const relation =
      schema == nullptr ? nullptr : schema->find(table);
  if (relation != nullptr) layouts.emplace_back(schema, relation);
}

/* The server's layout, that of its schema, and those of the schemas that files have
 * without saying so. */
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

/* Puts a value where the caller wants it; its type code. */
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
    ks_register_error(0, "EVClient::getValue: no record, no query or no result.\n");
    return -1;
  }
  expr::Value value;
  const int status = tokens.front().query->evaluate(*record, value);
  if (status < 0) {
    ks_register_error(0, "EVClient::getValue: no value of '%s'.\n",
                      tokens.front().text.c_str());
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
    ks_register_error(0, "EVClient::parse_query: %s at position %zu of '%s'.\n",
                      error.message.c_str(), error.position, query.c_str());
    return -1;
  }
  tokens.assign(1, {std::move(query), std::move(compiled)});
  return 0;
}

int EVClient::getValue(EVEvent *event, const std::vector<EVQueryToken> &tokens,
                       int *type, void *value) {
  return get_value(event, tokens, type, value);
}

int EVClient::getValue(EVOrigin *origin, const std::vector<EVQueryToken> &tokens,
                       int *type, void *value) {
  return get_value(origin, tokens, type, value);
}
