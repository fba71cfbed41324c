/* Two other ways to load a catalogue into a tree, to stand beside the event server. */
#ifndef KSUTIL_BENCH_LOADERS_H
#define KSUTIL_BENCH_LOADERS_H

#include <string>

#include "core/Table.h"
#include "events/records.h"

namespace ksutil::bench {

/* The floor: maps the files, joins them with hash tables written for this purpose alone
 * and owns its texts, one string a row.  Returns the number of magnitudes in the tree. */
long load_with_floor(const std::string &path);

/* Copies a catalogue into a SQLite file, clustered by the keys that the load follows. */
void make_sqlite(const std::string &path, const std::string &sqlite_path);

/* Loads the same tree as the server's from it, by merging one ordered scan of each
 * table, with row texts. */
Table<EVEvent> load_with_sqlite(const std::string &sqlite_path);

}  // namespace ksutil::bench
#endif
