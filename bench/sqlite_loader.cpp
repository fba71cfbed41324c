#include <sqlite3.h>

#include <filesystem>
#include <fstream>
#include <memory>
#include <stdexcept>
#include <string_view>
#include <vector>

#include "bench/loaders.h"
#include "platform/db/columns.h"
#include "platform/db/schema.h"

namespace ksutil::bench {
namespace {

using Database = std::unique_ptr<sqlite3, decltype(&sqlite3_close)>;
using Statement = std::unique_ptr<sqlite3_stmt, decltype(&sqlite3_finalize)>;

Database open_database(const std::string &path) {
  sqlite3 *opened = nullptr;
  if (sqlite3_open(path.c_str(), &opened) != SQLITE_OK) {
    throw std::runtime_error("cannot open the SQLite file");
  }
  return {opened, &sqlite3_close};
}

void run(sqlite3 *database, const std::string &sql) {
  if (sqlite3_exec(database, sql.c_str(), nullptr, nullptr, nullptr) != SQLITE_OK) {
    throw std::runtime_error(sql + ": " + sqlite3_errmsg(database));
  }
}

Statement prepare(sqlite3 *database, const std::string &sql) {
  sqlite3_stmt *statement = nullptr;
  if (sqlite3_prepare_v2(database, sql.c_str(), -1, &statement, nullptr) != SQLITE_OK) {
    throw std::runtime_error(sql + ": " + sqlite3_errmsg(database));
  }
  return {statement, &sqlite3_finalize};
}

/* What is copied of each table: integer keys, real values, texts, the clustering key. */
struct TablePlan {
  const char *name;
  std::vector<const char *> integers, reals, texts;
  const char *key;
};
const TablePlan kPlans[] = {
    {"event", {"evid", "prefor"}, {"lddate"}, {}, "evid"},
    {"origin",
     {"evid", "orid", "mbid", "msid", "mlid"},
     {"time", "lddate", "mb", "ms", "ml"},
     {},
     "evid, lddate"},
    {"origerr", {"orid"}, {}, {}, "orid"},
    {"netmag", {"orid", "magid"}, {"magnitude", "lddate"}, {"magtype"}, "orid"},
    {"mt", {"orid"}, {"lddate"}, {}, "orid"},
};

void copy_table(sqlite3 *database, const db::Schema &schema, const std::string &path,
                const TablePlan &plan) {
  std::string columns = "recno INTEGER, record TEXT", marks = "?, ?";
  for (const char *f : plan.integers) columns += std::string(", ") + f + " INTEGER";
  for (const char *f : plan.reals) columns += std::string(", ") + f + " REAL";
  for (const char *f : plan.texts) columns += std::string(", ") + f + " TEXT";
  const std::size_t fields =
      plan.integers.size() + plan.reals.size() + plan.texts.size();
  for (std::size_t i = 0; i < fields; i++) marks += ", ?";
  run(database, std::string("CREATE TABLE ") + plan.name + " (" + columns +
                    ", PRIMARY KEY (" + plan.key + ", recno)) WITHOUT ROWID");
  const Statement insert = prepare(
      database, std::string("INSERT INTO ") + plan.name + " VALUES (" + marks + ")");

  const db::Relation &relation = *schema.find(plan.name);
  std::ifstream file(path + "." + plan.name);
  std::string row;
  for (long recno = 0; std::getline(file, row); recno++) {
    row += '\n';
    int at = 1;
    sqlite3_bind_int64(insert.get(), at++, recno);
    sqlite3_bind_text(insert.get(), at++, row.data(), static_cast<int>(row.size()),
                      SQLITE_TRANSIENT);
    for (const char *field : plan.integers) {
      std::int64_t value = -1;
      db::IntegerColumn(relation, field).read(row, value);
      sqlite3_bind_int64(insert.get(), at++, value);
    }
    for (const char *field : plan.reals) {
      double value = 0.0;
      db::RealColumn(relation, field).read(row, value);
      sqlite3_bind_double(insert.get(), at++, value);
    }
    for (const char *field : plan.texts) {
      std::string_view value;
      db::TextColumn(relation, field).read(row, value);
      sqlite3_bind_text(insert.get(), at++, value.data(),
                        static_cast<int>(value.size()), SQLITE_TRANSIENT);
    }
    sqlite3_step(insert.get());
    sqlite3_reset(insert.get());
  }
}

/* An ordered scan that knows whether it stands on a row. */
class Scan {
 public:
  Scan(sqlite3 *database, const std::string &sql) : statement_(prepare(database, sql)) {
    next();
  }
  void next() { on_row_ = sqlite3_step(statement_.get()) == SQLITE_ROW; }
  bool on_key(long key) const { return on_row_ && integer(0) == key; }
  bool on_row() const { return on_row_; }
  long integer(int i) const { return sqlite3_column_int64(statement_.get(), i); }
  double real(int i) const { return sqlite3_column_double(statement_.get(), i); }
  std::string_view text(int i) const {
    const auto *bytes =
        reinterpret_cast<const char *>(sqlite3_column_text(statement_.get(), i));
    return {bytes, static_cast<std::size_t>(sqlite3_column_bytes(statement_.get(), i))};
  }

 private:
  Statement statement_;
  bool on_row_ = false;
};

}  // namespace

void make_sqlite(const std::string &path, const std::string &sqlite_path) {
  std::filesystem::remove(sqlite_path);
  const Database database = open_database(sqlite_path);
  const std::shared_ptr<const db::Schema> schema = db::Schema::load("css3.0");
  run(database.get(), "PRAGMA synchronous = OFF; PRAGMA journal_mode = OFF; BEGIN");
  for (const TablePlan &plan : kPlans) copy_table(database.get(), *schema, path, plan);
  run(database.get(), "COMMIT; ANALYZE");
}

Table<EVEvent> load_with_sqlite(const std::string &sqlite_path) {
  const Database database = open_database(sqlite_path);
  sqlite3 *db = database.get();
  /* Origins of one event follow each other, and their children are found by key in
   * clustered tables: the plan with the least work for this tree. */
  Scan events(db,
              "SELECT evid, recno, record, prefor, lddate FROM event ORDER BY evid");
  Scan origins(db,
               "SELECT evid, recno, record, orid, time, lddate, mb, ms, ml FROM origin "
               "ORDER BY evid, lddate, recno");
  const Statement errors =
      prepare(db, "SELECT recno, record FROM origerr WHERE orid = ?");
  const Statement mags = prepare(
      db,
      "SELECT recno, record, magnitude, lddate, magtype FROM netmag WHERE orid = ?");
  const Statement moments =
      prepare(db, "SELECT recno, record, lddate FROM mt WHERE orid = ?");
  const auto text = [](sqlite3_stmt *row, int i) {
    return ksutil::db::RowText(
        std::string_view(reinterpret_cast<const char *>(sqlite3_column_text(row, i)),
                         static_cast<std::size_t>(sqlite3_column_bytes(row, i))));
  };

  Table<EVEvent> list;
  for (; events.on_row(); events.next()) {
    EVEvent event;
    event.evid = events.integer(0);
    event.recno_event = events.integer(1);
    event.record_event = events.text(2);
    event.prefor = events.integer(3);
    event.lddate_event = events.real(4);
    for (; origins.on_key(event.evid); origins.next()) {
      EVOrigin origin;
      origin.recno_origin = origins.integer(1);
      origin.record_origin = origins.text(2);
      origin.orid = origins.integer(3);
      origin.time = origins.real(4);
      origin.lddate_origin = origins.real(5);
      sqlite3_bind_int64(errors.get(), 1, origin.orid);
      if (sqlite3_step(errors.get()) == SQLITE_ROW) {
        origin.recno_origerr = sqlite3_column_int64(errors.get(), 0);
        origin.record_origerr = text(errors.get(), 1);
      }
      sqlite3_reset(errors.get());
      sqlite3_bind_int64(mags.get(), 1, origin.orid);
      while (sqlite3_step(mags.get()) == SQLITE_ROW) {
        EVMagnitude magnitude;
        magnitude.recno_netmag = sqlite3_column_int64(mags.get(), 0);
        magnitude.record_netmag = text(mags.get(), 1);
        magnitude.magnitude = sqlite3_column_double(mags.get(), 2);
        magnitude.lddate_netmag = sqlite3_column_double(mags.get(), 3);
        magnitude.magtype =
            reinterpret_cast<const char *>(sqlite3_column_text(mags.get(), 4));
        origin.magnitudes.push(std::move(magnitude));
      }
      sqlite3_reset(mags.get());
      sqlite3_bind_int64(moments.get(), 1, origin.orid);
      while (sqlite3_step(moments.get()) == SQLITE_ROW) {
        EVMoment moment;
        moment.recno_mt = sqlite3_column_int64(moments.get(), 0);
        moment.record_mt = text(moments.get(), 1);
        moment.lddate_mt = sqlite3_column_double(moments.get(), 2);
        origin.moments.push(std::move(moment));
      }
      sqlite3_reset(moments.get());
      event.origins.push(std::move(origin));
    }
    list.push(std::move(event));
  }
  return list;
}

}  // namespace ksutil::bench
