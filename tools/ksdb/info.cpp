#include <memory>
#include <string>

#include "platform/db/access.h"
#include "platform/stock/text.h"
#include "tools/common/cells.h"
#include "tools/common/messages.h"
#include "tools/common/options.h"
#include "tools/common/rows.h"
#include "tools/ksdb/commands.h"

namespace ksutil::tools {
namespace {

struct InfoOptions {
  std::string database;
  Form form = Form::kText;
  bool all = false, raw = false;
};

std::string changed_cell(const db::Stamp &stamp, bool raw) {
  if (!stamp.exists) return "";
  return raw ? format_text("%.5f", stamp.time) : time_cell(stamp.time);
}

int info(const InfoOptions &options) {
  const OpenDatabase database(options.database, "r");
  if (!database) return kFailure;
  if (anything_registered()) print_register();  // news of an interrupted change
  const db::DatabaseStore *store = db::database_store(database.get());
  if (store == nullptr) return kFailure;
  const std::shared_ptr<const db::Schema> schema = store->schema();

  if (options.form == Form::kText) {
    std::printf("database  %s\nschema    %s\nstore     %s\n\n", store->name().c_str(),
                schema->name().c_str(), store->description().c_str());
  }
  Rows rows({{"table"},
             {"rows", true, true},
             {"record", true, true, "bytes"},
             {"changed", options.raw, options.raw},
             {"file"}},
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
              changed_cell(stamp, options.raw), file});
  }
  rows.print();
  return good ? kOk : kFailure;
}

void describe_info(CLI::App &command, InfoOptions &options) {
  add_database(command, options.database);
  command.add_flag("--all", options.all, "Tables without a file too");
  add_raw(command, options.raw);
  add_form_options(command, options.form);
}

}  // namespace

Command info_command() {
  return make_command<InfoOptions>(
      "info", "Shows the tables of a database and their sizes",
      {"ksdb info data/aug2015", "ksdb info --all --json data/aug2015"}, describe_info,
      info);
}

}  // namespace ksutil::tools
