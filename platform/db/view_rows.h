/* view_rows: gives C++ code the stored rows behind the records of a table or view, and the
 * values of expressions on them, for programs that read many records.
 *
 * Threads: as the database handle.  The handle stays open, and the view is not freed, while
 * these objects live.  Records of a view are read in ascending order; the memory for them
 * is bounded, in whatever order the view has its rows. */
#ifndef KSUTIL_PLATFORM_DB_VIEW_ROWS_H
#define KSUTIL_PLATFORM_DB_VIEW_ROWS_H

#include <memory>
#include <string>
#include <string_view>
#include <vector>

#include "platform/db/db.h"
#include "platform/db/snapshot.h"
#include "platform/expr/expr.h"
#include "platform/stock/export.h"

namespace ksutil::db {

class KSUTIL_API ViewRows {
 public:
  /* Takes the rows as they are now.  Not good(), with a message, when there is no such
   * table or view, or when a table cannot be read. */
  explicit ViewRows(Dbptr view);
  ~ViewRows();
  ViewRows(const ViewRows &) = delete;
  ViewRows &operator=(const ViewRows &) = delete;

  bool good() const { return impl_ != nullptr; }
  long count() const;
  /* Bytes of the rows of a record. */
  std::size_t record_bytes() const;

  /* The rows of record 0 <= record < count(), one for each table in the order of
   * view_parts, valid until the next call.  Null, with a message, when one of them cannot
   * be read. */
  const std::string_view *read(long record);

  /* Gives records of a table, as they are asked for, to a taker on two threads; the
   * result is those that are to be read by read(), see Snapshot::scan.  All of them for a
   * view. */
  std::vector<RowRange> scan(RowTaker &taker, RowRange records);

 private:
  struct Impl;
  std::unique_ptr<Impl> impl_;
};

/* Whether dbjoin refuses to join two tables or views by these keys (null or lists as for
 * dbjoin) whatever their records are.  Reads no record; false when memory is short. */
KSUTIL_API bool refuses_join(Dbptr left, Dbptr right, Tbl *lkeys, Tbl *rkeys);

/* A condition on the records of a table or view. */
class KSUTIL_API ViewCondition {
 public:
  /* Null, with the message of dbsubset, when the text is not an expression over the fields,
   * and when a table cannot be read or memory is short.  `wrong`, when given, tells whether
   * the text is the reason. */
  static std::unique_ptr<ViewCondition> compile(Dbptr view, const std::string &text,
                                                bool *wrong = nullptr);
  ~ViewCondition();

  /* Whether the condition is true for the rows of a record: 1; 0 also for a null; -1, with
   * a message, when it has no value there or its value is not true or false. */
  int accepts(const std::string_view *rows);

 private:
  struct Impl;
  explicit ViewCondition(std::unique_ptr<Impl> impl);
  std::unique_ptr<Impl> impl_;
};

}  // namespace ksutil::db
#endif
