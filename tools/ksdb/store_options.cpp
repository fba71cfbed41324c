#include "tools/ksdb/store_options.h"

#include "platform/db/store_plugin.h"
#include "tools/common/messages.h"

namespace ksutil::tools {

void add_store_options(CLI::App &command, StoreOptions &options) {
  command
      .add_option("--store", options.store,
                  "Where the tables are kept: files, or postgresql")
      ->type_name("STORE")
      ->capture_default_str();
  command
      .add_option("--connection", options.connection,
                  "How the server is reached: \"host=db1 dbname=seismic\"")
      ->type_name("TEXT");
}

bool make_sense(const StoreOptions &options) {
  const bool files = options.store == db::kFlatFilesStore;
  if (files == options.connection.empty()) return true;
  complain(files ? "--connection needs --store, for example --store postgresql"
                 : "--store " + options.store +
                       " needs --connection, for example \"host=db1 dbname=seismic\"");
  return false;
}

}  // namespace ksutil::tools
