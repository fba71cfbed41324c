/* create_command: ksdb create. */
#include "platform/db/store_plugin.h"
#include "tools/common/messages.h"
#include "tools/ksdb/commands.h"
#include "tools/ksdb/store_options.h"

namespace ksutil::tools {
namespace {

struct CreateOptions {
  std::string database, schema = "css3.0";
  StoreOptions store;
};

int create(const CreateOptions &options) {
  if (!make_sense(options.store)) return kUsage;
  return db::create_database({options.database, options.schema, options.store.store,
                              options.store.connection})
             ? kOk
             : kFailure;
}

void describe_create(CLI::App &command, CreateOptions &options) {
  command.add_option("database", options.database, "path/name of the new database")
      ->required();
  command.add_option("--schema", options.schema, "css3.0, kbcore, or a schema file")
      ->type_name("NAME")
      ->capture_default_str();
  add_store_options(command, options.store);
}

}  // namespace

Command create_command() {
  return make_command<CreateOptions>(
      "create", "Makes an empty database, in files or on a database server",
      {"ksdb create --schema css3.0 newdb"}, describe_create, create);
}

}  // namespace ksutil::tools
