/* plugin_loading: finds and loads the plug-ins of store_plugin.h. */
#ifndef KSUTIL_PLATFORM_DB_STORE_INTERNAL_PLUGIN_LOADING_H
#define KSUTIL_PLATFORM_DB_STORE_INTERNAL_PLUGIN_LOADING_H

#include <cstddef>
#include <memory>
#include <string>

#include "platform/db/store_plugin.h"

namespace ksutil::db {

/* The plug-in of that name, loaded when it is first asked for; null, with a message that
 * names the missing file and the folders, on failure. */
const StorePlugin *find_plugin(const std::string &store);

/* Opens a database of a plug-in; null, with a message, on failure. */
std::unique_ptr<DatabaseStore> open_with_plugin(const StoreDescriptor &descriptor,
                                                bool writable,
                                                std::size_t block_budget);

}  // namespace ksutil::db
#endif
