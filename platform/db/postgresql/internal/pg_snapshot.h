/* PgSnapshot: holds the rows of a table on a server, read block by block when they are
 * first asked for.
 *
 * A block that is read late may show rows that were changed after the snapshot; the
 * snapshot that follows then knows them as they are.  A row that has been removed
 * meanwhile cannot be read. */
#ifndef KSUTIL_PLATFORM_DB_POSTGRESQL_INTERNAL_PG_SNAPSHOT_H
#define KSUTIL_PLATFORM_DB_POSTGRESQL_INTERNAL_PG_SNAPSHOT_H

#include <cstdint>
#include <memory>
#include <string>
#include <utility>
#include <vector>

#include "platform/db/postgresql/internal/pg_keys.h"
#include "platform/db/postgresql/internal/pg_reader.h"
#include "platform/db/postgresql/internal/pg_rows.h"
#include "platform/db/postgresql/internal/pg_state.h"
#include "platform/db/store/internal/block_snapshot.h"

namespace ksutil::db {

/* The difference between two states of a table. */
struct PgDelta {
  std::vector<std::int64_t> new_keys;  // ascending, all above those before
  std::string new_rows;                // of the first of them; the others are not kept
  std::vector<std::int64_t> changed_keys;  // ascending
  std::string changed_rows;                // of all of them
  std::vector<std::int64_t> removed;       // ascending
};

/* The changes of a table since its records got their numbers, in order. */
struct PgLog {
  std::vector<long> records;
};

/* The parts that all snapshots of a table share. */
struct PgPlace {
  std::shared_ptr<const PgRows> rows;
  std::shared_ptr<PgReader> reader;
  std::shared_ptr<BlockBudget> budget;
  std::string file;  // for messages
  std::string sql_name;
};

class PgSnapshot final : public BlockSnapshot {
 public:
  PgSnapshot(PgPlace place, const PgState &state, std::shared_ptr<const PgKeys> keys,
             std::shared_ptr<PgLog> log);

  const PgState &state() const { return state_; }
  const PgKeys &keys() const { return *keys_; }
  Changes changes_to(const Snapshot &later) const override;

  /* The snapshot with the same rows but for a difference, to which the server gave the
   * state. */
  std::shared_ptr<const PgSnapshot> followed_by(const PgState &state,
                                                const PgDelta &delta) const;
  /* Takes the blocks of another snapshot, to be compared with the rows of this one when
   * they are read. */
  void compare_with(const PgSnapshot &before);
  /* A new object with the same blocks, for one that could not be read. */
  std::shared_ptr<const PgSnapshot> once_more() const;

 private:
  void load(std::size_t index, BlockSlot &slot, bool bytes) const override;
  bool load_row(std::size_t number, char *to) const override;
  const char *broken() const override;
  /* Reads records in a row; those that are not there are blank. */
  bool fetch(std::size_t first, std::size_t rows, char *to) const;
  std::shared_ptr<const RowPrints> prints_of(const BlockPtr &block) const;
  bool ends_well(const BlockPtr &block) const;
  void fill(std::size_t index, BlockPtr block);
  void take_slots(const PgSnapshot &before);
  void take_appended(const PgSnapshot &before, const PgDelta &delta);
  void take_changed(const PgDelta &delta);
  void take_kept(const PgSnapshot &before);

  const PgPlace place_;
  const PgState state_;
  const std::shared_ptr<const PgKeys> keys_;
  const std::shared_ptr<PgLog> log_;
  std::size_t logged_;  // entries of the log that this snapshot holds
};

}  // namespace ksutil::db
#endif
