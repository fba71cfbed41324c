/* MatchState: holds what a match hook keeps between calls: the compiled patterns and the
 * index of the table.
 *
 * It holds no database handle, so a hook may outlive the database.
 * Threads: one at a time. */
#ifndef KSUTIL_PLATFORM_DB_MATCH_INTERNAL_MATCH_STATE_H
#define KSUTIL_PLATFORM_DB_MATCH_INTERNAL_MATCH_STATE_H

#include <memory>
#include <string>
#include <vector>

#include "platform/db/internal/table_source.h"
#include "platform/db/key_index.h"
#include "platform/db/match/internal/group_index.h"
#include "platform/db/match/internal/match_plan.h"
#include "platform/stock/hook.h"
#include "platform/stock/tbl.h"

namespace ksutil::db {

class MatchState {
 public:
  /* The state in the hook, made when the hook is null; null, with a message, when the
   * hook belongs to another function. */
  static MatchState *in(const char *who, Hook **hook);
  /* The state in a hook; null when the hook has none. */
  static const MatchState *of(const Hook *hook);

  /* Compiles the patterns unless they are compiled already; false with a message. */
  bool prepare(const RecordSource &key, const RecordSource &table, Tbl *kpattern,
               Tbl *tpattern);

  /* Finds the rows of the table, as it is now, that match the record; rows() has them.
   * False with a message.  After prepare(). */
  bool find(const expr::Record &record, TableSource &table);
  const std::vector<long> &rows() const { return rows_; }
  /* The rows of the table among which the last find() has looked; null before. */
  std::shared_ptr<const Snapshot> table_rows() const;

  /* The index for patterns of one integer field each of a table with the layout, to be
   * followed by the caller; null with a message. */
  KeyIndex *ids(const Relation &layout, Tbl *kpattern, Tbl *tpattern);

 private:
  bool find_rows(TableSource &table);

  std::unique_ptr<const MatchPlan> plan_;               // null until prepare()
  std::vector<std::string> id_kpattern_, id_tpattern_;  // last seen by ids()
  std::unique_ptr<KeyIndex> ids_;                       // of a match by id
  std::unique_ptr<GroupIndex> groups_;                  // of any other match
  long table_ = 0;  // the number of the table source that was indexed
  MatchKey key_;
  std::vector<long> rows_;
};

}  // namespace ksutil::db
#endif
