/* store: the interface to the place where the tables of a database are kept.
 *
 * The functions of db.h talk to these classes only, so that nothing above them assumes
 * files.  Stores: flat files, a database in memory, and those of plug-ins
 * (store_plugin.h).
 * Threads: a store belongs to one thread at a time; several stores may be open on the
 * same database, in one process or in many.
 * Errors: every failure registers a message that names what it was about. */
#ifndef KSUTIL_PLATFORM_DB_STORE_H
#define KSUTIL_PLATFORM_DB_STORE_H

#include <functional>
#include <memory>
#include <string>
#include <string_view>
#include <vector>

#include "platform/db/schema.h"
#include "platform/db/snapshot.h"
#include "platform/stock/export.h"

namespace ksutil::db {

class KSUTIL_API TableStore {
 public:
  virtual ~TableStore() = default;

  /* The layout of the records: the schema's, fitted to the records in the table. */
  virtual const Relation &layout() = 0;

  /* The state of the table now, at the cost of one look; false on an error.  A table
   * that does not exist yet is not an error. */
  virtual bool stamp(Stamp &stamp) = 0;

  /* The rows as they are now; the same object as before when nothing has changed.  Null
   * on an error. */
  virtual std::shared_ptr<const Snapshot> snapshot() = 0;

  /* The same with every row read anew: finds changes that the stamp does not show.  Always
   * a new object; what has not changed is shared with the snapshot before. */
  virtual std::shared_ptr<const Snapshot> snapshot_anew() = 0;

  /* The operations on a table that this program has locked. */
  class Exclusive {
   public:
    virtual ~Exclusive() = default;
    virtual std::shared_ptr<const Snapshot> snapshot() = 0;
    /* Adds a row (a newline at its end may be missing): its number, or -1. */
    virtual long append(std::string_view row) = 0;
    /* Adds several rows with one write: the number of the first, or -1 and none added. */
    virtual long append_all(std::string_view rows) = 0;
    virtual bool overwrite(long record, std::string_view row) = 0;
  };

  /* Runs `work` with the table locked against other writers; false when it cannot be
   * locked or work returned false.  Rows are written whole, the time of change moves
   * strictly forward after them, and a failed write leaves the table as it was.
   *
   * Programs that know nothing of locks may remove or replace the table meanwhile.  When
   * that is found before anything has been written, `work` runs again from its beginning
   * with the table that is there now, so it must set all that it hands out each time.
   * Found later, the write that met it fails, and what it wrote is taken back. */
  virtual bool exclusively(const std::function<bool(Exclusive &)> &work) = 0;

  /* The place of the table, in the store's words: a path for files. */
  virtual const std::string &file_name() const = 0;
  virtual const std::string &directory() const = 0;
};

/* The operations on several tables that this program has locked together.  Tables are
 * named by their places in the list that was given to DatabaseStore::transaction. */
class KSUTIL_API Transaction {
 public:
  virtual ~Transaction() = default;
  virtual const Relation &layout(std::size_t table) const = 0;
  /* The rows as they were before the transaction.  Null with a message. */
  virtual std::shared_ptr<const Snapshot> snapshot(std::size_t table) = 0;
  /* Adds one or several rows, each with its newline: the number that the first will have,
   * or -1 with a message. */
  virtual long append(std::size_t table, std::string_view rows) = 0;
  /* Changes a row of the snapshot, at most once; false with a message. */
  virtual bool overwrite(std::size_t table, long record, std::string_view row) = 0;
};

class KSUTIL_API DatabaseStore {
 public:
  virtual ~DatabaseStore() = default;
  virtual const std::string &name() const = 0;
  virtual std::shared_ptr<const Schema> schema() const = 0;
  virtual bool writable() const = 0;
  /* The table of that name, made when first asked for and owned by the store; null when
   * the schema has none. */
  virtual TableStore *table(std::string_view name) = 0;

  /* Runs `work` with the tables locked against other writers, and then makes all its
   * changes: in one step for writers and against failures of any kind, table by table in
   * the order of the list for readers.  List children before their parents: a reader that
   * finds a parent then finds its children.  False, with a message and no change made,
   * when a table is missing or cannot be locked, when work gives false, or when the
   * changes cannot be made.  `work` must not lock other tables.
   * A scratch database has no transactions.
   * A process that dies has made no change, or has left the rest to the next process that
   * opens the database or writes one of its tables. */
  virtual bool transaction(const std::vector<std::string> &tables,
                           const std::function<bool(Transaction &)> &work) = 0;

  /* The kind of the store and where it keeps its tables, in words for a user; never a
   * password. */
  virtual std::string description() const { return "flat files"; }

  /* Begin and end a look at several tables; see OneLook. */
  virtual void begin_look() {}
  virtual void end_look() {}
};

/* While it lives, a store on another machine may answer for all tables at once: stamps
 * and snapshots are then those of one moment, which is not before the OneLook was made,
 * and cost one round trip together.  Flat files are looked at one by one.  The looks of
 * one store are not nested, and a write inside of one ends it. */
class OneLook {
 public:
  explicit OneLook(DatabaseStore *store) : store_(store) {
    if (store_ != nullptr) store_->begin_look();
  }
  ~OneLook() {
    if (store_ != nullptr) store_->end_look();
  }
  OneLook(const OneLook &) = delete;
  OneLook &operator=(const OneLook &) = delete;

 private:
  DatabaseStore *const store_;
};

/* Opens a database without a handle; null, with a message, on failure.  The descriptor
 * decides which store it is.
 *
 * mode           "r" or "r+", as for dbopen
 * block_budget   bytes of rows that it keeps in memory beyond those that are in use; less
 *                than 8 MiB counts as 8 MiB */
KSUTIL_API std::unique_ptr<DatabaseStore> open_store(const std::string &name,
                                                     const std::string &mode,
                                                     std::size_t block_budget);

/* The same for a database in memory, with empty tables. */
KSUTIL_API std::unique_ptr<DatabaseStore> open_scratch_store(const std::string &schema);

}  // namespace ksutil::db
#endif
