#include "tools/ksdb/verify_database.h"

#include <algorithm>

#include "platform/clock/clock.h"
#include "platform/db/access.h"
#include "tools/common/progress.h"
#include "tools/ksdb/verify_counters.h"
#include "tools/ksdb/verify_ids.h"
#include "tools/ksdb/verify_mechanisms.h"
#include "tools/ksdb/verify_rows.h"
#include "tools/ksdb/verify_waveforms.h"

namespace ksutil::tools {
namespace {

void verify_tables(const OpenDatabase &database, const Tables &tables, bool quiet,
                   Problems &problems) {
  Progress progress("verifying tables", static_cast<long>(tables.size()), quiet);
  ReferenceVerifier references(tables);
  long done = 0;
  for (const auto &[name, rows] : tables) {
    const Report report = problems.report_for(name);
    verify_readable(*rows, report);
    verify_load_dates(*rows, std_now(), report);
    verify_ids(*rows, report);
    references.verify(*rows, report);
    if (name == "mt") verify_mechanisms(database.table(name), report);
    if (name == "wfdisc") {
      const auto seedcode = tables.find("seedcode");
      verify_waveforms(database.table(name),
                       seedcode == tables.end() ? nullptr : seedcode->second.get(),
                       report);
    }
    progress.reach(++done);
  }
  verify_preferred_origins(tables, problems.report_for("event"));
  const db::DatabaseStore *store = db::database_store(database.get());
  verify_counters(*store->schema(), tables, problems.report_for("lastid"));
}

/* How often the tables are read when other programs overwrite rows meanwhile; the last time
 * all rows are held, so that they are those of one moment. */
constexpr int kAttempts = 4;

/* Whether rows were overwritten after they had left memory. */
bool is_overtaken(const Tables &tables) {
  return std::any_of(tables.begin(), tables.end(),
                     [](const auto &table) { return table.second->overtaken(); });
}

}  // namespace

bool verify_database(const OpenDatabase &database, bool quiet, Problems &problems,
                     std::size_t *count) {
  bool readable = false;
  for (int attempt = 1; attempt <= kAttempts; attempt++) {
    Tables tables;
    readable = read_tables(database, tables);
    if (attempt == kAttempts) {
      for (const auto &[name, rows] : tables) rows->keep_rows();
    }
    problems.clear();
    verify_tables(database, tables, quiet, problems);
    if (count != nullptr) *count = tables.size();
    if (!is_overtaken(tables)) break;
  }
  return readable;
}

}  // namespace ksutil::tools
