/* store_plugin: loads the store that the descriptor of a database names.
 *
 * A descriptor with the words
 *
 *   store       postgresql
 *   connection  host=db1,db2 dbname=seismic
 *
 * belongs to a database that the plug-in ksutil_store_postgresql.so keeps.  The library looks
 * for the plug-in in the folders of the colon-separated KSUTIL_STORE_PATH, then in the folder
 * `ksutil` beside the library.  The name of a store has only lower-case letters, digits and
 * "_", so that no descriptor can name another file.  A loaded plug-in stays loaded.
 * Threads: all functions may be called from any thread. */
#ifndef KSUTIL_PLATFORM_DB_STORE_PLUGIN_H
#define KSUTIL_PLATFORM_DB_STORE_PLUGIN_H

#include <cstddef>
#include <memory>
#include <string>

#include "platform/db/store.h"
#include "platform/stock/export.h"

namespace ksutil::db {

/* The content of a descriptor. */
struct StoreDescriptor {
  std::string name;        // path of the database's descriptor
  std::string schema;      // "" when it names none: the store knows it
  std::string store;       // "postgresql"; kFlatFilesStore or "" for flat files
  std::string connection;  // where the store finds its tables, in the store's own words
};

/* The store that is not a plug-in. */
inline constexpr const char *kFlatFilesStore = "files";

/* Changes with StoreDescriptor, StorePlugin and the classes of store.h and snapshot.h. */
inline constexpr int kStorePluginVersion = 1;

struct StorePlugin {
  int version;  // kStorePluginVersion of the headers that it was compiled with
  /* Null, with a message, on failure. */
  std::unique_ptr<DatabaseStore> (*open)(const StoreDescriptor &descriptor,
                                         bool writable, std::size_t block_budget);
  /* Makes an empty table for each table of the schema that the store lacks; tables that the
   * store has stay as they are.  False with a message. */
  bool (*create)(const StoreDescriptor &descriptor);
};

/* The function that a plug-in exports under the name "ksutil_store_plugin". */
using StorePluginFunction = const StorePlugin *(*)();

/* Makes a database: first its tables, in a store that is a plug-in, then its descriptor,
 * which must not exist yet.  False, with a message, on failure; no descriptor is left then. */
KSUTIL_API bool create_database(const StoreDescriptor &descriptor);

/* Names a store for a program that is linked with its plug-in and does not load it.
 * `plugin` must live as long as the program. */
KSUTIL_API void register_store(const char *name, const StorePlugin *plugin);

}  // namespace ksutil::db
#endif
