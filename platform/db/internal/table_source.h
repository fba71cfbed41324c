/* TableSource: reads and writes one stored table under one database handle.  It holds the
 * rows that the handle saw last, its scratch record and its null record. */
#ifndef KSUTIL_PLATFORM_DB_INTERNAL_TABLE_SOURCE_H
#define KSUTIL_PLATFORM_DB_INTERNAL_TABLE_SOURCE_H

#include <functional>
#include <memory>
#include <string>
#include <string_view>

#include "platform/db/internal/bound_layout.h"
#include "platform/db/internal/record_source.h"
#include "platform/db/row_text.h"
#include "platform/db/snapshot.h"
#include "platform/db/store.h"

namespace ksutil::db {

/* Makes `row` the text of a whole record, whose newline may be missing; false, with a
 * message in the name of `who`, for a text that is not one. */
bool replace_row(const char *who, const Relation &layout, std::string_view text,
                 std::string &row);

class TableSource final : public RecordSource {
 public:
  /* `number` is the source's own for the life of the process. */
  TableSource(TableStore &store, long number, bool writable);

  const std::string &name() const override { return layout_->relation().name; }
  int field_count() const override;
  const Field &field(int index) const override;
  int find_field(std::string_view name) const override;
  std::uint64_t signature() const override { return layout_->signature(); }
  bool count(const char *who, long &count) override;
  bool unreadable(const char *who, long &count) override;
  const expr::Record *record(const char *who, long number) override;
  TableSource *table() override { return this; }

  TableStore &store() { return store_; }
  long number() const { return number_; }
  const Relation &relation() const { return layout_->relation(); }
  /* The layout of the rows that the last look gave. */
  std::shared_ptr<const BoundLayout> bound_layout() const { return layout_; }

  /* Looks at the table once; later reads show the rows of that look. */
  bool stamp(const char *who, Stamp &stamp);
  /* The rows as they are now, which later reads show; null with a message. */
  std::shared_ptr<const Snapshot> look(const char *who);
  /* The same with every row read anew, see TableStore::snapshot_anew. */
  std::shared_ptr<const Snapshot> look_anew(const char *who);

  /* The text of a record with its newline, valid until the next call; empty with a
   * message. */
  std::string_view row(const char *who, long number);
  RowText text(const char *who, long number);

  bool set_scratch(const char *who, std::string_view text);

  /* Changes one record: `edit` gets its text and gives false, with a message, to leave
   * it as it is.  A stored record is edited as it is under the table's lock. */
  using Edit = std::function<bool(const Relation &, std::string &row)>;
  bool rewrite(const char *who, long number, const Edit &edit);

  /* TableStore::exclusively, if the handle may write; later reads show the result. */
  bool exclusively(const char *who,
                   const std::function<bool(TableStore::Exclusive &)> &work);

  /* Appends a row that starts as the null record: its number, or -1. */
  long append(const char *who, const Edit &edit);

 private:
  void adopt(const Relation &layout);
  std::shared_ptr<const Snapshot> show(const char *who,
                                       std::shared_ptr<const Snapshot> now);
  bool refresh(const char *who, long number);
  bool look_again(const char *who, long number);

  TableStore &store_;
  const long number_;
  const bool writable_;
  std::shared_ptr<const BoundLayout> layout_;
  std::shared_ptr<const Snapshot> snapshot_;
  bool stale_ = true;  // the table has changed or was never read
  std::string null_, scratch_;
  RowRecord current_;
};

}  // namespace ksutil::db
#endif
