/* seen_rows: keeps the rows of tables as a view or a slice found them, so that a change
 * through it meets no other rows. */
#ifndef KSUTIL_PYTHON_BINDINGS_DATABASE_SEEN_ROWS_H
#define KSUTIL_PYTHON_BINDINGS_DATABASE_SEEN_ROWS_H

#include <memory>
#include <string>
#include <vector>

#include "bindings/database/database.h"
#include "platform/db/snapshot.h"

namespace ksutil::python {

/* Names snapshots that a Handle keeps: for each table of a view its rows when the view was
 * made, null when the table changed meanwhile.  The snapshots hold fingerprints of 8 bytes
 * for each row, and share them with later snapshots; of the bytes the store's budget
 * decides.  They end with this object or when the handle is closed. */
struct SeenRows {
  SeenRows(std::shared_ptr<Handle> of, long number)
      : handle(std::move(of)), id(number) {}
  ~SeenRows() { handle->retire_seen(id); }
  SeenRows(const SeenRows &) = delete;
  SeenRows &operator=(const SeenRows &) = delete;

  const std::shared_ptr<Handle> handle;
  const long id;
};

/* Makes a view of `sources` by make(), and gives it with the rows that it was made from,
 * for each table of the sources; none for a handle that does not write.  Makes the view
 * again, a few times, when a table changes meanwhile.  Inside Handle::use. */
struct WatchedView {
  Dbptr view;
  SeenTables seen;
};
template <class Make>
WatchedView make_watched(const std::vector<const View *> &sources, const Make &make);

/* The rows of a table as they are now, after records start <= record < end have been read;
 * null for a handle that does not write.  Needs the GIL, and gives it up meanwhile. */
std::shared_ptr<SeenRows> see_rows(const View &table, long start, long end);

/* Whether a record is still the row that was seen; false as well when that is not known.
 * Inside Handle::use. */
bool is_as_seen(const db::Snapshot &seen, const db::Snapshot &now, long record);

/* The rows of the tables of all sources as they are now, or as their views saw them. */
SeenTables seen_tables(const std::vector<const View *> &sources);

/* Whether what was made between two looks was made from the rows of the second one; sets
 * the tables of `after` null for which that is not so.  `moved`: one of them has changed,
 * so that another attempt may succeed. */
bool settle_seen(const SeenTables &before, SeenTables &after, bool &moved);

template <class Make>
WatchedView make_watched(const std::vector<const View *> &sources, const Make &make) {
  constexpr int kAttempts = 4;
  for (int attempt = 1;; attempt++) {
    const SeenTables before = seen_tables(sources);
    const Dbptr view = make();
    if (view.table < 0 || view.database < 0 || before.empty()) return {view, {}};
    SeenTables after = seen_tables(sources);
    bool moved = false;
    if (settle_seen(before, after, moved) || !moved || attempt == kAttempts) {
      return {view, std::move(after)};
    }
    dbfree_view(view);
  }
}

}  // namespace ksutil::python
#endif
