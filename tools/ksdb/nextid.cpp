#include <cstdio>
#include <memory>
#include <set>
#include <string>

#include "platform/db/access.h"
#include "tools/common/options.h"
#include "tools/ksdb/commands.h"
#include "tools/ksdb/verify_counters.h"

namespace ksutil::tools {
namespace {

struct NextidOptions {
  std::string database, counter;
};

/* Whether a table of the schema has ids of this counter: dbnextid accepts any name, and
 * would make a counter that nothing else uses.  False with a message that names the
 * counters. */
bool is_counter(Dbptr database, const std::string &counter) {
  const db::DatabaseStore *store = db::database_store(database);
  if (store == nullptr) return false;
  const std::shared_ptr<const db::Schema> schema = store->schema();
  const std::set<std::string> counters = counters_of(*schema);
  if (counters.contains(counter)) return true;
  std::string names;
  for (const std::string &name : counters) names += (names.empty() ? "" : ", ") + name;
  complain("'" + counter + "' is not a counter of schema " + schema->name() + " (" +
           names + ")");
  return false;
}

int next_id(const NextidOptions &options) {
  const OpenDatabase database(options.database, "r+");
  if (!database) return kFailure;
  if (!is_counter(database.get(), options.counter)) return kUsage;
  const long id = dbnextid(database.get(), options.counter.c_str());
  if (id < 0) return kFailure;
  std::printf("%ld\n", id);
  return kOk;
}

void describe_nextid(CLI::App &command, NextidOptions &options) {
  add_database(command, options.database);
  command.add_option("counter", options.counter, "evid, orid, arid, magid, ...")
      ->required();
}

}  // namespace

Command nextid_command() {
  return make_command<NextidOptions>(
      "nextid", "Allocates the next id of a counter and prints it",
      {"ksdb nextid mydb evid"}, describe_nextid, next_id);
}

}  // namespace ksutil::tools
