/* verify: implements ksdb verify. */
#include <cstdio>
#include <string>

#include "tools/common/messages.h"
#include "tools/common/options.h"
#include "tools/ksdb/commands.h"
#include "tools/ksdb/verify_database.h"
#include "tools/ksdb/verify_mend.h"

namespace ksutil::tools {
namespace {

struct VerifyOptions {
  std::string database;
  long limit = 5;
  bool quiet = false, json = false, fix = false;
};

bool mend(const std::string &name, std::vector<std::string> &mended) {
  const OpenDatabase database(name, "r+");
  return database && mend_orphans(database, mended) && mend_counters(database, mended);
}

int verify(const VerifyOptions &options) {
  std::vector<std::string> mended;
  if (options.fix && !mend(options.database, mended)) return kFailure;
  const OpenDatabase database(options.database, "r");
  if (!database) return kFailure;
  if (anything_registered()) print_register();  // news of an interrupted change
  Problems problems(options.limit);
  std::size_t tables = 0;
  const bool readable = verify_database(database, options.quiet, problems, &tables);
  const bool good = readable && !problems.any();
  if (options.json) {
    problems.print_object(options.database, mended);
  } else {
    for (const std::string &line : mended) std::printf("mended %s\n", line.c_str());
    problems.print_text();
    if (good && !options.quiet) std::printf("%zu tables, no problems\n", tables);
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
