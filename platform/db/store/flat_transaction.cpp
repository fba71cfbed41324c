#include "platform/db/store/internal/flat_transaction.h"

#include <sys/stat.h>

#include <algorithm>
#include <cstring>
#include <utility>

#include "platform/elog/failure.h"

namespace ksutil::db {
namespace {

/* Rows are gathered up to this size before they go into the journal. */
constexpr std::size_t kBuffer = std::size_t{1} << 18;
/* Attempts to begin; each waits for the end of another transaction. */
constexpr int kBeginAttempts = 1000;

}  // namespace

FlatTransaction::FlatTransaction(FlatPlaces places, std::vector<FlatTable *> tables)
    : places_(std::move(places)), tables_(std::move(tables)), journal_(places_) {}

FlatTransaction::~FlatTransaction() {
  if (active_) journal_.remove();
}

/* Locks are taken in the order of the names, the same for all transactions; other
 * writers lock one table at a time. */
bool FlatTransaction::lock_tables(std::vector<JournalTable> &entries) {
  std::vector<Target *> in_order;
  for (FlatTable *table : tables_) in_order.push_back(&targets_.emplace_back(*table));
  std::sort(in_order.begin(), in_order.end(), [](const Target *a, const Target *b) {
    return a->table->relation_.name < b->table->relation_.name;
  });
  for (Target *target : in_order) {
    if (!target->file.open_locked()) return false;
  }
  for (Target &target : targets_) {
    if (!target.file.prepare()) return false;
    target.size = target.table->seen_.st_size;
    entries.push_back({target.table->relation_.name, target.size,
                       static_cast<std::int64_t>(target.table->record_length()),
                       !target.file.created_});
  }
  return true;
}

bool FlatTransaction::begin() {
  for (int attempt = 0; attempt < kBeginAttempts; ++attempt) {
    /* Waits for another program's transaction without holding a lock. */
    const auto settled = FlatJournal::settle(places_, FileLock::Wait::kUntilFree);
    if (settled == FlatJournal::Settled::kFailed) return false;
    if (settled == FlatJournal::Settled::kBusy) {
      return fail("dbput", "%s: A transaction of another program is not finished",
                  places_.name.c_str());
    }
    std::vector<JournalTable> entries;
    if (!lock_tables(entries)) return false;
    switch (journal_.create(entries)) {
      case FlatJournal::Created::kYes:
        active_ = true;
        return true;
      case FlatJournal::Created::kFailed:
        return false;
      case FlatJournal::Created::kBusy:
        targets_.clear();
    }
  }
  return fail("dbput", "%s: Other programs write without end", places_.name.c_str());
}

const Relation &FlatTransaction::layout(std::size_t table) const {
  if (targets_[table].replacement) return targets_[table].table->relation_;
  return *targets_[table].table->file_.layout;
}

std::shared_ptr<const Snapshot> FlatTransaction::snapshot(std::size_t table) {
  return targets_[table].table->snapshot();
}

bool FlatTransaction::flush(std::size_t index) {
  Target &target = targets_[index];
  const auto table = static_cast<std::uint32_t>(index);
  if (!target.appended.empty()) {
    const std::int64_t at =
        target.size + target.added - static_cast<std::int64_t>(target.appended.size());
    if (!journal_.add(table, FlatJournal::kAppend, at, target.appended)) return false;
    target.appended.clear();
  }
  if (!target.replaced.empty()) {
    if (!journal_.add(table, FlatJournal::kReplace, 0, target.replaced)) return false;
    target.replaced.clear();
  }
  return true;
}

bool FlatTransaction::clear(std::size_t index) {
  Target &target = targets_[index];
  if (target.changed) {
    return fail("dbput", "%s: The table was changed before it was cleared",
                target.table->file_.path.c_str());
  }
  target.replacement.emplace();
  target.changed = true;
  return target.replacement->make(target.table->file_.path, target.file.handle_.get());
}

long FlatTransaction::append_to_replacement(Target &target, std::string_view rows) {
  const Relation &layout = target.table->relation_;
  const auto length = static_cast<std::int64_t>(layout.width) + 1;
  std::string text(rows);
  if (!FlatExclusive::are_rows(text, layout, false, target.table->file_.path))
    return -1;
  const auto first = static_cast<long>(target.replacement->size() / length);
  return target.replacement->append(text) ? first : -1;
}

long FlatTransaction::append(std::size_t index, std::string_view rows) {
  Target &target = targets_[index];
  if (target.replacement) return append_to_replacement(target, rows);
  std::string text(rows);
  if (!target.file.check_rows(text)) return -1;
  const auto length = static_cast<std::int64_t>(target.table->record_length());
  const long first = static_cast<long>((target.size + target.added) / length);
  target.changed = true;
  for (std::size_t at = 0; at < text.size(); at += kBuffer) {
    const std::size_t piece = std::min(kBuffer, text.size() - at);
    target.appended.append(text, at, piece);
    target.added += static_cast<std::int64_t>(piece);
    if (target.appended.size() >= kBuffer && !flush(index)) return -1;
  }
  return first;
}

bool FlatTransaction::overwrite(std::size_t index, long record, std::string_view row) {
  Target &target = targets_[index];
  if (target.replacement) {
    return fail("dbput", "%s: The table was cleared", target.table->file_.path.c_str());
  }
  std::string text(row);
  if (!target.file.check_rows(text)) return false;
  const std::shared_ptr<const Snapshot> rows = target.table->snapshot();
  if (rows == nullptr) return false;
  const std::string_view old_row = rows->row(record);
  if (old_row.empty() || old_row.size() != text.size()) return false;
  const auto at = record * static_cast<std::int64_t>(target.table->record_length());
  char place[sizeof at];
  std::memcpy(place, &at, sizeof at);
  target.changed = true;
  target.replaced.append(place, sizeof place).append(old_row).append(text);
  return target.replaced.size() < kBuffer || flush(index);
}

/* Programs that do not respect locks may have written meanwhile. */
bool FlatTransaction::unchanged() {
  for (Target &target : targets_) {
    struct stat status;
    if (::fstat(target.file.handle_.get(), &status) == 0 &&
        status.st_size == target.size && target.file.still_at_path()) {
      continue;
    }
    return fail("dbput", "%s: Another program has changed the file meanwhile",
                target.table->file_.path.c_str());
  }
  return true;
}

/* Makes the new file ready to take its place, and tells the journal. */
bool FlatTransaction::finish_replacement(std::size_t index) {
  Target &target = targets_[index];
  if (!target.replacement->finish()) return false;
  /* Readers that know the old file take a later time for a change. */
  std::swap(target.file.handle_, target.replacement->file());
  const bool moved = target.file.move_time_forward();
  std::swap(target.file.handle_, target.replacement->file());
  return moved && journal_.add(static_cast<std::uint32_t>(index),
                               FlatJournal::kExchange, target.replacement->size(), {});
}

/* Leaves the journal, and the files that it names, to the next process. */
void FlatTransaction::leave_to_the_next() {
  for (Target &target : targets_) {
    if (target.replacement) target.replacement->keep();
  }
  active_ = false;
}

/* From the first one on the changes can only be completed: by this process or the next. */
bool FlatTransaction::put_replacements_in_place() {
  bool begun = false;
  for (Target &target : targets_) {
    if (!target.replacement) continue;
    if (target.replacement->put_in_place()) {
      begun = true;
      continue;
    }
    if (!begun) return false;
    leave_to_the_next();
    return fail("dbput", "%s: The next program that writes completes the change",
                places_.journal().c_str());
  }
  return true;
}

bool FlatTransaction::publish(std::size_t index) {
  Target &target = targets_[index];
  if (!target.changed || target.replacement) return true;
  if (!target.file.set_append(false)) return false;
  const int file = target.file.handle_.get();
  const bool written = journal_.new_bytes(
      static_cast<std::uint32_t>(index), [&](std::int64_t at, std::string_view bytes) {
        return write_whole(file, bytes, at) || target.file.fail(1, "Cannot write");
      });
  return written && target.file.sync() && target.file.move_time_forward();
}

bool FlatTransaction::publish() {
  bool changed = false;
  for (std::size_t i = 0; i < targets_.size(); ++i) {
    if (!flush(i)) return false;
    if (targets_[i].replacement && !finish_replacement(i)) return false;
    changed = changed || targets_[i].changed;
  }
  if (!changed) return true;
  if (!unchanged() || !journal_.commit()) return false;
  for (std::size_t i = 0; i < targets_.size(); ++i) {
    if (publish(i)) continue;
    undo();
    return false;
  }
  if (!put_replacements_in_place()) {
    if (active_) undo();
    return false;
  }
  active_ = false;
  return journal_.remove();
}

void FlatTransaction::undo() {
  /* When this fails and the process dies before the tables are restored, the next
   * process makes the changes after all. */
  journal_.revert();
  bool undone = true;
  for (std::size_t i = targets_.size(); i-- > 0;) {
    Target &target = targets_[i];
    if (!target.changed || target.replacement) continue;
    const int file = target.file.handle_.get();
    const bool restored =
        target.file.set_append(false) &&
        journal_.old_bytes(static_cast<std::uint32_t>(i),
                           [&](std::int64_t at, std::string_view bytes) {
                             return write_whole(file, bytes, at);
                           });
    undone = restored && truncate_file(file, target.size) == 0 &&
             target.file.move_time_forward() && undone;
  }
  if (!undone) {
    const int cause = errno;
    leave_to_the_next();
    errno = cause;
    fail_errno("dbput", "%s: Cannot undo; the next program that writes goes on",
               places_.journal().c_str());
  }
}

}  // namespace ksutil::db
