/* pg_plugin: the store "postgresql" as a plug-in. */
#ifndef KSUTIL_PLATFORM_DB_POSTGRESQL_INTERNAL_PG_PLUGIN_H
#define KSUTIL_PLATFORM_DB_POSTGRESQL_INTERNAL_PG_PLUGIN_H

#include "platform/db/store_plugin.h"

extern "C" KSUTIL_API const ksutil::db::StorePlugin *ksutil_store_plugin();

#endif
