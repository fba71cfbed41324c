/* FlatTransaction: changes of several table files that are made in one step.
 *
 * All rows go into a FlatJournal first; publish() then copies them into the table files,
 * table by table.  See flat_journal.h for what happens to a process that dies. */
#ifndef KSUTIL_PLATFORM_DB_STORE_INTERNAL_FLAT_TRANSACTION_H
#define KSUTIL_PLATFORM_DB_STORE_INTERNAL_FLAT_TRANSACTION_H

#include <deque>
#include <memory>
#include <string>
#include <string_view>
#include <vector>

#include "platform/db/store.h"
#include "platform/db/store/internal/flat_exclusive.h"
#include "platform/db/store/internal/flat_journal.h"

namespace ksutil::db {

class FlatTransaction final : public Transaction {
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
  };

  bool lock_tables(std::vector<JournalTable> &entries);
  bool flush(std::size_t table);
  bool unchanged();
  bool publish(std::size_t table);
  void undo();

  const FlatPlaces places_;
  const std::vector<FlatTable *> tables_;
  std::deque<Target> targets_;
  FlatJournal journal_;
  bool active_ = false;  // the journal exists
};

}  // namespace ksutil::db
#endif
