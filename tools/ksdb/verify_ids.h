/* verify_ids: checks the ids of tables, and what refers to them, for ksdb verify. */
#ifndef KSUTIL_TOOLS_KSDB_VERIFY_IDS_H
#define KSUTIL_TOOLS_KSDB_VERIFY_IDS_H

#include <map>
#include <string>
#include <utility>

#include "platform/db/snapshot.h"
#include "tools/ksdb/id_reader.h"
#include "tools/ksdb/verify_problems.h"
#include "tools/ksdb/verify_tables.h"

namespace ksutil::tools {

/* The id of a table given to one row only. */
void verify_ids(const db::Snapshot &rows, const Report &report);

/* Checks that every id and code that names a row of another table names an existing one.
 * Tables without rows are not searched.  The ids of a table are read once and kept for
 * all tables that refer to them. */
class ReferenceVerifier {
 public:
  explicit ReferenceVerifier(const Tables &tables) : tables_(tables) {}
  void verify(const db::Snapshot &rows, const Report &report);

 private:
  const IdSet &ids_of(const db::Snapshot &rows, const std::string &field);

  const Tables &tables_;
  TextNumbers texts_;
  std::map<std::pair<std::string, std::string>, IdSet> ids_;  // by table and field
};

/* Every preferred origin belongs to the event that prefers it. */
void verify_preferred_origins(const Tables &tables, const Report &report);

}  // namespace ksutil::tools
#endif
