/* WatchedDatabase: opens a database with its tables, notices changes of the tables, and
 * keeps the indexes that one reading leaves to the next.
 *
 * A server holds one, and every view holds one; no two share a handle.  A typical use:
 *
 *     const WatchedDatabase::Hold hold = database.hold();
 *     if (!database.require_open("EVServer::checkTable")) return -1;
 *     return database.check(*database.table("origin"));
 *
 * read_rows ("events/reading/internal/read_rows.h") is the frame of a short reading,
 * Steps (below) the lock of a long one.
 *
 * Lock: one fair lock guards the handle, the tables, the keys and the indexes, as a
 * handle belongs to one thread at a time.  Every member but hold() needs it: the caller
 * keeps a Hold or a Steps meanwhile.  It is a leaf: no other lock is acquired and no
 * callback runs under it.
 * Messages: members that have a parameter `who`
 * ("EVServer::setDb") register a failure in that name and return false.  Shortage of
 * memory throws std::bad_alloc, and leaves open what was open. */
#ifndef KSUTIL_EVENTS_DATABASE_INTERNAL_WATCHED_DATABASE_H
#define KSUTIL_EVENTS_DATABASE_INTERNAL_WATCHED_DATABASE_H

#include <functional>
#include <initializer_list>
#include <memory>
#include <mutex>
#include <span>
#include <string>

#include "events/database/internal/fair_lock.h"
#include "events/database/internal/site_index.h"
#include "events/database/internal/time_index.h"
#include "events/vars.h"
#include "platform/db/db.h"
#include "platform/db/key_index.h"
#include "platform/db/snapshot.h"

namespace ksutil::events {

/* The class that holds a WatchedDatabase: its tables, and the words of its messages. */
struct DatabaseOwner {
  const char *name;                     // of the class: "EVServer"
  std::span<const char *const> tables;  // in the order in which they are opened
  const char *mode;                     // of dbopen_noshare: "r" or "r+"
  const char *open_function;            // in "<who>: <open_function>(<name>) error\n"
  const char *table_function;  // in "<who>: <table>: <table_function>() error.\n"
  /* Looks up a table of `db` and sets the members of `table`, db at least; false after
   * it has registered a message of its own.  Called with the lock held. */
  std::function<bool(Dbptr db, const char *name, EVTable &table)> open_table;
};

class WatchedDatabase {
 public:
  using Hold = std::unique_lock<FairLock>;

  /* Opens nothing yet. */
  explicit WatchedDatabase(DatabaseOwner owner);
  ~WatchedDatabase();  // closes; no thread may hold the lock or wait for it
  WatchedDatabase(const WatchedDatabase &) = delete;
  WatchedDatabase &operator=(const WatchedDatabase &) = delete;

  /* Waits for the lock and holds it while the result lives. */
  [[nodiscard]] Hold hold() { return Hold(lock_); }

  /* --- binding -------------------------------------------------------------------- */

  /* Opens the database `name` with all tables of the owner, and only then closes the
   * one that is open, if any.  Afterwards check() finds every table added. */
  bool open(const std::string &name, const char *who);
  /* Opens the same database anew, as after another program has replaced its files; also
   * after close(), and after the program has changed its working directory.
   * "<who>: No database currently open.\n" without a name. */
  bool reopen(const char *who);
  /* Closes the handle, if any: the table pointers become invalid, and the tables and
   * indexes are forgotten.  The name stays, for reopen(). */
  void close();
  /* close(), and the name becomes empty. */
  void unbind();

  bool is_open() const { return db_.database != dbINVALID; }
  /* is_open(); if not, registers "<who>: No database currently open.\n". */
  bool require_open(const char *who) const;
  /* Of the last database opened; empty: none, or unbound. */
  const std::string &name() const { return name_; }
  const std::string &schema_name() const { return schema_name_; }
  Dbptr handle() const { return db_; }
  /* Increases with each open() and close(): a reading that has let go of the lock sees
   * by it that its tables are not the open ones any more. */
  long binding() const { return binding_; }

  /* --- tables --------------------------------------------------------------------- */

  /* The bookkeeping of a table; null when EVVars has no such table.  Its pointer is
   * invalid without an open database, and for tables the owner does not name. */
  EVTable *table(const std::string &name) { return vars_.tables.find(name); }
  /* Looks at a table: 0 unchanged since the last check that remembered, 1 rows modified
   * (as many rows, a later time), 2 rows added (also at the first check, whatever the
   * table holds), 3 rows removed; -1 with a message of the platform, and nothing
   * remembered, when the table cannot be looked at.  `table` need not be one of
   * table(). */
  static int check(EVTable &table, bool remember = true);
  /* Forgets counts and times, so that the next check() of every table is a first
   * one. */
  void forget_changes();
  /* The rows of a table as they are now; null, with a message of the platform, when
   * they cannot be had. */
  std::shared_ptr<const db::Snapshot> rows(const char *table);

  /* --- indexes -------------------------------------------------------------------- */

  /* The index of a snapshot by a key of vars(), valid until the next call for this key
   * or free_indexes(); null, with a message of the platform, when it cannot be had. */
  const db::KeyIndex *index(const std::shared_ptr<const db::Snapshot> &rows,
                            EVMatch &key);
  /* The same for several keys, whose tables are read once; false when one of the indexes
   * cannot be had. */
  struct Wanted {
    const std::shared_ptr<const db::Snapshot> &rows;
    EVMatch &key;
    const db::KeyIndex *&found;
  };
  bool index(std::initializer_list<Wanted> all);
  SiteIndex &sites() { return sites_; }
  TimeIndex &detection_times() { return detection_times_; }
  /* Frees all indexes; a reading builds those that it needs again. */
  void free_indexes();

  EVVars &vars() { return vars_; }
  const DatabaseOwner &owner() const { return owner_; }

 private:
  class Opened;

  const DatabaseOwner owner_;
  FairLock lock_;
  std::string name_, schema_name_;
  std::string path_;  // of the database from the root, for reopen()
  Dbptr db_ = dbinvalid();
  long binding_ = 0;
  EVVars vars_;
  SiteIndex sites_;
  TimeIndex detection_times_;
};

/* Steps: holds the lock of a database during a long reading, in short steps, so that
 * other threads get in between. */
class Steps {
 public:
  /* Takes the lock.  `rows_per_step` calls of step() make a step: as many rows as are
   * read in about a millisecond. */
  Steps(WatchedDatabase &database, int rows_per_step)
      : database_(database),
        rows_per_step_(rows_per_step),
        hold_(database.hold()),
        binding_(database.binding()) {}

  /* To be called after each row.  At the end of a step lets other threads in; then
   * false when the database has been closed or reopened meanwhile. */
  bool step() { return ++rows_ % rows_per_step_ != 0 || yield(); }
  /* The same for a TreeReader, whose indexes another thread may have moved to newer
   * rows: they are brought back.  False also when that fails. */
  template <class Reader>
  bool step(Reader &reader) {
    return ++rows_ % rows_per_step_ != 0 || (yield() && reader.resume());
  }

  /* Releases the lock, for something that must not be done under it. */
  void let_go() { hold_.unlock(); }
  /* Takes it again; the result is that of step(). */
  bool take_again() {
    hold_.lock();
    return database_.binding() == binding_;
  }
  template <class Reader>
  bool take_again(Reader &reader) {
    return take_again() && reader.resume();
  }

  WatchedDatabase &database() const { return database_; }

 private:
  bool yield() {
    let_go();
    return take_again();
  }

  WatchedDatabase &database_;
  const int rows_per_step_;
  WatchedDatabase::Hold hold_;
  const long binding_;
  long rows_ = 0;
};

}  // namespace ksutil::events
#endif
