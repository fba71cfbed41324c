/* verify: implements ksdb verify. */
#include <algorithm>
#include <cstdio>
#include <optional>
#include <string>

#include "platform/clock/clock.h"
#include "platform/db/access.h"
#include "tools/common/options.h"
#include "tools/common/progress.h"
#include "tools/ksdb/commands.h"
#include "tools/ksdb/verify_counters.h"
#include "tools/ksdb/verify_ids.h"
#include "tools/ksdb/verify_mechanisms.h"
#include "tools/ksdb/verify_mend.h"
#include "tools/ksdb/verify_rows.h"
#include "tools/ksdb/verify_waveforms.h"

namespace ksutil::tools {
namespace {

struct VerifyOptions {
  std::string database;
  long limit = 5;
  bool quiet = false, json = false, fix = false;
};

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
    if (name == "wfdisc") verify_waveforms(database.table(name), report);
    progress.reach(++done);
  }
  verify_preferred_origins(tables, problems.report_for("event"));
  const db::DatabaseStore *store = db::database_store(database.get());
  verify_counters(*store->schema(), tables, problems.report_for("lastid"));
}

bool mend(const std::string &name, std::vector<std::string> &mended) {
  const OpenDatabase database(name, "r+");
  return database && mend_orphans(database, mended) && mend_counters(database, mended);
}

/* How often the tables are read when other programs overwrite rows meanwhile; the last time
 * all rows are held, so that they are those of one moment. */
constexpr int kAttempts = 4;

/* Whether rows were overwritten after they had left memory. */
bool is_overtaken(const Tables &tables) {
  return std::any_of(tables.begin(), tables.end(),
                     [](const auto &table) { return table.second->overtaken(); });
}

int verify(const VerifyOptions &options) {
  std::vector<std::string> mended;
  if (options.fix && !mend(options.database, mended)) return kFailure;
  const OpenDatabase database(options.database, "r");
  if (!database) return kFailure;
  Tables tables;
  bool readable = false;
  std::optional<Problems> problems;
  for (int attempt = 1; attempt <= kAttempts; attempt++) {
    tables.clear();
    readable = read_tables(database, tables);
    if (attempt == kAttempts) {
      for (const auto &[name, rows] : tables) rows->keep_rows();
    }
    problems.emplace(options.limit);
    verify_tables(database, tables, options.quiet, *problems);
    if (!is_overtaken(tables)) break;
  }
  const bool good = readable && !problems->any();
  if (options.json) {
    problems->print_object(options.database, mended);
  } else {
    for (const std::string &line : mended) std::printf("mended %s\n", line.c_str());
    problems->print_text();
    if (good && !options.quiet) std::printf("%zu tables, no problems\n", tables.size());
  }
  return good ? kOk : kFailure;
}

void describe_verify(CLI::App &command, VerifyOptions &options) {
  add_database(command, options.database);
  add_limit(command, options.limit, "problems of each kind and table (5)");
  command.add_flag(
      "--fix", options.fix,
      "First mend what can be mended without losing a row: origins without "
      "event, counters behind the ids in use");
  command.add_flag("--json", options.json, "Print an object instead of lines");
  add_quiet(command, options.quiet);
}

}  // namespace

Command verify_command() {
  return make_command<VerifyOptions>(
      "verify",
      "Checks that records are readable, ids unique, references resolved, load dates "
      "sane, mechanisms in accord with their tensors, and waveform files there; exit "
      "code 1 when something is wrong",
      {"ksdb verify data/aug2015", "ksdb verify --json data/aug2015",
       "ksdb verify --fix --limit 20 mydb"},
      describe_verify, verify);
}

}  // namespace ksutil::tools
