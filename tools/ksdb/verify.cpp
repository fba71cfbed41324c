#include <cstdio>
#include <map>
#include <memory>
#include <string>

#include "platform/clock/clock.h"
#include "platform/db/access.h"
#include "tools/common/progress.h"
#include "tools/ksdb/commands.h"
#include "tools/ksdb/verify_rows.h"

namespace ksutil::tools {
namespace {

struct VerifyOptions {
  std::string database;
  long limit = 5;
  bool quiet = false;
};

/* Prints the first problems of each kind of a table and counts them all. */
class Problems {
 public:
  explicit Problems(long limit) : limit_(limit) {}

  Report report_for(const std::string &table) {
    return
        [this, table](const std::string &kind, long record, const std::string &text) {
          const long seen = ++counts_[table][kind];
          if (seen <= limit_) {
            std::printf("%s record %ld: %s\n", table.c_str(), record, text.c_str());
          }
        };
  }

  /* What was not printed of a table, and its counts. */
  void print_summary() const {
    for (const auto &[table, kinds] : counts_) {
      for (const auto &[kind, count] : kinds) {
        std::printf("%s: %ld %s%s\n", table.c_str(), count, kind.c_str(),
                    count > limit_ ? " (not all shown)" : "");
      }
    }
  }
  bool any() const { return !counts_.empty(); }

 private:
  long limit_;
  std::map<std::string, std::map<std::string, long>> counts_;
};

/* The tables with rows; null in a place where one cannot be read. */
bool read_tables(const OpenDatabase &database, Tables &tables) {
  const db::DatabaseStore *store = db::database_store(database.get());
  if (store == nullptr) return false;
  bool good = true;
  for (const db::Relation &relation : store->schema()->relations()) {
    SnapshotPtr rows = db::table_snapshot(database.table(relation.name));
    if (rows == nullptr) {
      good = false;
    } else if (rows->count() > 0) {
      tables[relation.name] = std::move(rows);
    }
  }
  return good;
}

int verify(const VerifyOptions &options) {
  const OpenDatabase database(options.database, "r");
  if (!database) return kFailure;
  Tables tables;
  bool good = read_tables(database, tables);

  Problems problems(options.limit);
  {
    Progress progress("verifying tables", static_cast<long>(tables.size()),
                      options.quiet);
    long done = 0;
    for (const auto &[name, rows] : tables) {
      const Report report = problems.report_for(name);
      verify_readable(*rows, report);
      verify_load_dates(*rows, std_now(), report);
      verify_ids(*rows, report);
      verify_references(*rows, tables, report);
      progress.reach(++done);
    }
    verify_preferred_origins(tables, problems.report_for("event"));
  }
  problems.print_summary();
  good = good && !problems.any();
  if (good && !options.quiet) std::printf("%zu tables, no problems\n", tables.size());
  return good ? kOk : kFailure;
}

}  // namespace

void add_verify(CLI::App &app, Action &action) {
  auto options = std::make_shared<VerifyOptions>();
  CLI::App *command = app.add_subcommand(
      "verify",
      "Checks that records are readable, ids unique, references resolved and load\n"
      "dates sane; exit code 1 when something is wrong");
  command->add_option("database", options->database, "path/name")->required();
  command
      ->add_option("--limit", options->limit, "Problems shown of each kind and table")
      ->check(CLI::NonNegativeNumber);
  command->add_flag("-q,--quiet", options->quiet,
                    "No progress bar, no word of success");
  command->callback(
      [options, &action] { action = [options] { return verify(*options); }; });
}

}  // namespace ksutil::tools
