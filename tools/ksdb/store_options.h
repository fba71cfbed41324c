/* store_options: adds the options that say where a new database keeps its tables. */
#ifndef KSUTIL_TOOLS_KSDB_STORE_OPTIONS_H
#define KSUTIL_TOOLS_KSDB_STORE_OPTIONS_H

#include <CLI/CLI.hpp>
#include <string>

namespace ksutil::tools {

struct StoreOptions {
  std::string store = "files", connection;
};

/* --store and --connection. */
void add_store_options(CLI::App &command, StoreOptions &options);

/* Whether a connection is given where the store needs one, and only there; complains. */
bool make_sense(const StoreOptions &options);

}  // namespace ksutil::tools
#endif
