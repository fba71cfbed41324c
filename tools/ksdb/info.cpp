#include <memory>
#include <string>

#include "platform/clock/clock.h"
#include "platform/db/access.h"
#include "platform/elog/elog.h"
#include "tools/common/rows.h"
#include "tools/ksdb/commands.h"

namespace ksutil::tools {
namespace {

struct InfoOptions {
  std::string database;
  Form form = Form::kText;
  bool all = false;
};

int info(const InfoOptions &options) {
  const OpenDatabase database(options.database, "r");
  if (!database) return kFailure;
  const db::DatabaseStore *store = db::database_store(database.get());
  if (store == nullptr) return kFailure;
  const std::shared_ptr<const db::Schema> schema = store->schema();

  if (options.form == Form::kText) {
    std::printf("database  %s\nschema    %s\n\n", store->name().c_str(),
                schema->name().c_str());
  }
  Rows rows(
      {{"table"}, {"rows", true, true}, {"record", true, true}, {"changed"}, {"file"}},
      options.form);
  bool good = true;
  for (const db::Relation &relation : schema->relations()) {
    const Dbptr table = database.table(relation.name);
    db::Stamp stamp;
    if (!db::table_stamp(table, stamp)) {
      good = false;
      continue;
    }
    if (!stamp.exists && !options.all) continue;
    long size = 0;
    const char *file = "";
    dbquery(table, dbq_record_size, &size);
    dbquery(table, dbq_file_name, &file);
    rows.add({relation.name, std::to_string(stamp.count), std::to_string(size),
              stamp.exists ? time_text(stamp.time, 0) : "", file});
  }
  rows.print();
  return good ? kOk : kFailure;
}

}  // namespace

void add_info(CLI::App &app, Action &action) {
  auto options = std::make_shared<InfoOptions>();
  CLI::App *command =
      app.add_subcommand("info", "Shows the tables of a database and their sizes");
  command->add_option("database", options->database, "path/name")->required();
  command->add_flag("--all", options->all, "Tables without a file too");
  add_form_options(*command, options->form);
  command->callback(
      [options, &action] { action = [options] { return info(*options); }; });
}

}  // namespace ksutil::tools
