/* FlatTransaction: changes of several table files that are made in one step.
 *
 * All rows go into a FlatJournal first; publish() then copies them into the table files,
 * table by table.  The rows of a table that was cleared go into a FlatReplacement, which
 * publish() puts into its place after all copies are made.  See flat_journal.h for what
 * happens to a process that dies. */
#ifndef KSUTIL_PLATFORM_DB_STORE_INTERNAL_FLAT_TRANSACTION_H
#define KSUTIL_PLATFORM_DB_STORE_INTERNAL_FLAT_TRANSACTION_H

#include <deque>
#include <memory>
#include <optional>
#include <string>
#include <string_view>
#include <vector>

#include "platform/db/row_removal.h"
#include "platform/db/store.h"
#include "platform/db/store/internal/flat_exclusive.h"
#include "platform/db/store/internal/flat_journal.h"
#include "platform/db/store/internal/flat_replacement.h"

namespace ksutil::db {

class FlatTransaction final : public Transaction, public TableClearing {
 public:
  FlatTransaction(FlatPlaces places, std::vector<FlatTable *> tables);
  /* Removes the journal unless the changes were published. */
  ~FlatTransaction() override;
  FlatTransaction(const FlatTransaction &) = delete;
  FlatTransaction &operator=(const FlatTransaction &) = delete;

  /* Locks the tables and creates the journal; false with a message. */
  bool begin();
  /* Makes all changes; false, with a message and none made. */
  bool publish();

  const Relation &layout(std::size_t table) const override;
  std::shared_ptr<const Snapshot> snapshot(std::size_t table) override;
  long append(std::size_t table, std::string_view rows) override;
  bool overwrite(std::size_t table, long record, std::string_view row) override;
  bool clear(std::size_t table) override;

 private:
  /* One table: its lock, and its rows that are not yet in the journal. */
  struct Target {
    explicit Target(FlatTable &flat) : table(&flat), file(flat) {}
    FlatTable *table;
    FlatExclusive file;
    std::int64_t size = 0;   // bytes of the file
    std::int64_t added = 0;  // bytes appended, including those in the buffer
    std::string appended;    // buffer of kAppend
    std::string replaced;    // buffer of kReplace
    bool changed = false;
    std::optional<FlatReplacement> replacement;  // of a table that was cleared
  };

  bool lock_tables(std::vector<JournalTable> &entries);
  bool flush(std::size_t table);
  bool unchanged();
  long append_to_replacement(Target &target, std::string_view rows);
  bool finish_replacement(std::size_t table);
  bool publish(std::size_t table);
  bool put_replacements_in_place();
  void leave_to_the_next();
  void undo();

  const FlatPlaces places_;
  const std::vector<FlatTable *> tables_;
  std::deque<Target> targets_;
  FlatJournal journal_;
  bool active_ = false;  // the journal exists
};

}  // namespace ksutil::db
#endif
