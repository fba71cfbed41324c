#include "platform/db/postgresql/internal/pg_create.h"

#include <string>

#include "platform/db/postgresql/internal/pg_connection.h"
#include "platform/db/postgresql/internal/pg_rows.h"
#include "platform/db/postgresql/internal/pg_state.h"
#include "platform/elog/failure.h"

namespace ksutil::db {
namespace {

constexpr const char *kWho = "dbcreate";

/* The removals of a table that are listed at most; more than these let readers read the
 * table anew. */
constexpr const char *kMostRemovals = "100000";

std::string replaced(std::string text, const std::string &word,
                     const std::string &with) {
  for (std::size_t at = text.find(word); at != text.npos;
       at = text.find(word, at + with.size())) {
    text.replace(at, word.size(), with);
  }
  return text;
}

/* In these @ stands for the SQL schema, with a point behind it. */
constexpr const char *kOwnTables = R"(
CREATE TABLE IF NOT EXISTS @ks_database (
  name text PRIMARY KEY, value text NOT NULL);
CREATE TABLE IF NOT EXISTS @ks_tables (
  name text PRIMARY KEY, version bigint NOT NULL, row_count bigint NOT NULL,
  changed double precision NOT NULL, mark double precision NOT NULL,
  floor bigint NOT NULL, listed bigint NOT NULL);
CREATE TABLE IF NOT EXISTS @ks_removed (
  name text NOT NULL, version bigint NOT NULL, record bigint NOT NULL);
CREATE INDEX IF NOT EXISTS ks_removed_version ON @ks_removed (name, version);
CREATE TABLE IF NOT EXISTS @ks_commits (
  token text PRIMARY KEY, made double precision NOT NULL);
)";

/* Every change of a table sets these columns of ks_tables.  Below ! stands for them, and #
 * for kMostRemovals. */
constexpr const char *kChange =
    "version = version + 1, mark = random(), "
    "changed = greatest(extract(epoch FROM clock_timestamp()), changed + 0.00001)";
constexpr const char *kFunctions = R"(
CREATE OR REPLACE FUNCTION @ks_lock() RETURNS trigger LANGUAGE plpgsql AS $$
BEGIN
  PERFORM 1 FROM @ks_tables WHERE name = TG_TABLE_NAME FOR UPDATE;
  IF NOT FOUND THEN
    RAISE EXCEPTION 'ks_tables has no row for table %', TG_TABLE_NAME;
  END IF;
  RETURN NULL;
END $$;
CREATE OR REPLACE FUNCTION @ks_keep_key() RETURNS trigger LANGUAGE plpgsql AS $$
BEGIN
  NEW.ks_record := OLD.ks_record;
  NEW.ks_version := (SELECT version + 1 FROM @ks_tables WHERE name = TG_TABLE_NAME);
  RETURN NEW;
END $$;
CREATE OR REPLACE FUNCTION @ks_inserted() RETURNS trigger LANGUAGE plpgsql AS $$
BEGIN
  UPDATE @ks_tables SET !, row_count = row_count + (SELECT count(*) FROM ks_new)
    WHERE name = TG_TABLE_NAME;
  RETURN NULL;
END $$;
CREATE OR REPLACE FUNCTION @ks_updated() RETURNS trigger LANGUAGE plpgsql AS $$
BEGIN
  UPDATE @ks_tables SET ! WHERE name = TG_TABLE_NAME;
  RETURN NULL;
END $$;
CREATE OR REPLACE FUNCTION @ks_deleted() RETURNS trigger LANGUAGE plpgsql AS $$
DECLARE
  gone bigint := (SELECT count(*) FROM ks_old);
BEGIN
  IF gone + (SELECT listed FROM @ks_tables WHERE name = TG_TABLE_NAME) > # THEN
    DELETE FROM @ks_removed WHERE name = TG_TABLE_NAME;
    UPDATE @ks_tables SET floor = version + 1, listed = 0 WHERE name = TG_TABLE_NAME;
  ELSE
    INSERT INTO @ks_removed (name, version, record)
      SELECT TG_TABLE_NAME,
        (SELECT version + 1 FROM @ks_tables WHERE name = TG_TABLE_NAME), ks_record
      FROM ks_old;
    UPDATE @ks_tables SET listed = listed + gone WHERE name = TG_TABLE_NAME;
  END IF;
  UPDATE @ks_tables SET !, row_count = row_count - gone WHERE name = TG_TABLE_NAME;
  RETURN NULL;
END $$;
CREATE OR REPLACE FUNCTION @ks_truncated() RETURNS trigger LANGUAGE plpgsql AS $$
BEGIN
  PERFORM 1 FROM @ks_tables WHERE name = TG_TABLE_NAME FOR UPDATE;
  DELETE FROM @ks_removed WHERE name = TG_TABLE_NAME;
  UPDATE @ks_tables SET !, row_count = 0, floor = version + 1, listed = 0
    WHERE name = TG_TABLE_NAME;
  RETURN NULL;
END $$;
)";

/* What a table does when its rows change. */
struct Trigger {
  const char *name;  // triggers of one event run in the order of their names
  const char *event;
  const char *rows;  // that the function sees besides
  const char *each;
  const char *function;
};
constexpr Trigger kTriggers[] = {
    {"ks_1_lock", "BEFORE INSERT OR UPDATE OR DELETE", "", "STATEMENT", "ks_lock"},
    {"ks_2_key", "BEFORE UPDATE", "", "ROW", "ks_keep_key"},
    {"ks_3_inserted", "AFTER INSERT", " REFERENCING NEW TABLE AS ks_new", "STATEMENT",
     "ks_inserted"},
    {"ks_3_updated", "AFTER UPDATE", "", "STATEMENT", "ks_updated"},
    {"ks_3_deleted", "AFTER DELETE", " REFERENCING OLD TABLE AS ks_old", "STATEMENT",
     "ks_deleted"},
    {"ks_3_truncated", "AFTER TRUNCATE", "", "STATEMENT", "ks_truncated"}};

/* The statements that make one table; "" with a message when it cannot be kept. */
std::string table_statements(const Relation &relation, const std::string &schema,
                             const std::string &name_literal) {
  /* In these @ stands for the SQL schema and % for the table. */
  std::string text = "CREATE TABLE IF NOT EXISTS @% (";
  for (const Field &field : relation.fields) {
    const std::string type = PgRows::type_of(field);
    if (type.empty()) {
      fail(kWho, "The table %s holds pointers, which a server cannot keep",
           relation.name.c_str());
      return "";
    }
    text += pg_name(field.name) + " " + type + ", ";
  }
  text +=
      "ks_record bigint GENERATED ALWAYS AS IDENTITY PRIMARY KEY, "
      "ks_version bigint NOT NULL DEFAULT 0);\n"
      "CREATE INDEX IF NOT EXISTS " +
      pg_name(relation.name + "_ks_version") +
      " ON @% (ks_version) WHERE ks_version > 0;\n";
  for (const Trigger &trigger : kTriggers) {
    const std::string name = trigger.name;
    text += "DROP TRIGGER IF EXISTS " + name + " ON @%;\nCREATE TRIGGER " + name + " " +
            trigger.event + " ON @%" + trigger.rows + " FOR EACH " + trigger.each +
            " EXECUTE FUNCTION @" + trigger.function + "();\n";
  }
  text = replaced(replaced(text, "%", pg_name(relation.name)), "@", schema);
  /* Rows that were there before are counted, in tables that are made they are none. */
  return text + "INSERT INTO " + schema +
         "ks_tables (name, version, row_count, changed, mark, floor, listed) "
         "SELECT " +
         name_literal +
         ", CASE WHEN count(*) > 0 THEN 1 ELSE 0 END, count(*), "
         "extract(epoch FROM clock_timestamp()), random(), 0, 0 FROM " +
         schema + pg_name(relation.name) + " ON CONFLICT (name) DO NOTHING;\n";
}

/* The name of the SQL schema that new tables go to, quoted, with a point. */
bool find_sql_schema(PgConnection &server, std::string &schema) {
  const PgAnswers answers{
      [&](int, const PGresult &result) {
        if (PQntuples(&result) == 1 && PQgetisnull(&result, 0, 0) == 0) {
          schema = pg_name(PQgetvalue(&result, 0, 0)) + ".";
        }
        return true;
      },
      {}};
  if (!server.run("SELECT current_schema()", answers)) {
    return fail(kWho, "%s", server.error().c_str());
  }
  return !schema.empty() ||
         fail(kWho, "The search path of the connection has no schema that exists");
}

/* Checks what a database that was there before says of itself. */
bool check_database(PgConnection &server, const std::string &sql_schema,
                    const std::string &schema) {
  std::string found;
  int format = 0;
  const PgAnswers answers{[&](int, const PGresult &result) {
                            return read_database_words(result, found, format);
                          },
                          {}};
  if (!server.run("SELECT name, value FROM " + sql_schema + "ks_database", answers)) {
    return fail(kWho, "%s", server.error().c_str());
  }
  if (found != schema) {
    return fail(kWho, "There is a database of schema %s already, not of %s",
                found.c_str(), schema.c_str());
  }
  return format == kPgFormat ||
         fail(kWho, "The tables that are there are of version %d, not %d", format,
              kPgFormat);
}

bool make(PgConnection &server, const Schema &schema) {
  std::string place;
  if (!find_sql_schema(server, place)) return false;
  std::string text = kOwnTables;
  text += kFunctions;
  text = replaced(replaced(text, "!", kChange), "#", kMostRemovals);
  text = replaced(text, "@", place);
  text += "INSERT INTO " + place + "ks_database (name, value) VALUES ('schema', " +
          server.literal(schema.name()) + "), ('format', '" +
          std::to_string(kPgFormat) + "') ON CONFLICT (name) DO NOTHING;\n";
  if (!server.run("BEGIN") || !server.run(text, {}, true)) {
    return fail(kWho, "%s", server.error().c_str());
  }
  if (!check_database(server, place, schema.name())) return false;
  for (const Relation &relation : schema.relations()) {
    const std::string made =
        table_statements(relation, place, server.literal(relation.name));
    if (made.empty()) return false;
    const PgRows rows(std::make_shared<const Relation>(relation));
    if (!server.run(made + "SELECT " + rows.columns() +
                        ", ks_record, ks_version FROM " + place +
                        pg_name(relation.name) + " LIMIT 0",
                    {}, true)) {
      return fail(kWho, "Table %s: %s", relation.name.c_str(), server.error().c_str());
    }
  }
  return server.run("COMMIT", {}, true) || fail(kWho, "%s", server.error().c_str());
}

}  // namespace

bool pg_create(const StoreDescriptor &descriptor) {
  return at_boundary(kWho, false, [&] {
    const auto schema = Schema::load(descriptor.schema);
    PgOptions options;
    if (schema == nullptr || !options.parse(kWho, descriptor.connection)) return false;
    PgConnection server(options, PgConnection::Purpose::kWrite);
    if (!server.connect()) return bool(fail(kWho, "%s", server.error().c_str()));
    const bool made = make(server, *schema);
    if (!made) server.roll_back();
    return made;
  });
}

}  // namespace ksutil::db
