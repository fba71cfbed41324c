#include "events/server/commands/internal/table_scan.h"

#include "events/server/internal/server_state.h"
#include "platform/db/access.h"
#include "platform/elog/elog.h"
#include "platform/elog/failure.h"

namespace ksutil::events {
namespace {

/* Rows in a step of the lock: a fraction of a millisecond. */
constexpr int kRowsPerStep = 2000;

}  // namespace

Command::Command(ServerState &state, const char *who)
    : who_(who), steps_(state.database, kRowsPerStep) {}

bool Command::open() const {
  if (closed_) return fail(who_, "The database has been closed");
  return database().require_open(who_);
}

Dbptr Command::table(const std::string &name) const {
  if (!name.empty()) {
    const Dbptr found =
        dblookup(database().handle(), nullptr, name.c_str(), nullptr, nullptr);
    if (found.table != dbINVALID) return found;
  }
  fail(who_, "no table '%s'", name.c_str());
  return dbinvalid();
}

TableScan::TableScan(Command &command, const std::string &table)
    : command_(command), name_(table), table_(dbinvalid()) {
  if (!command.open()) return;
  table_ = command.table(table);
  if (table_.table == dbINVALID) return;
  rows_ = db::table_snapshot(table_);
  if (rows_ == nullptr) fail(command.who(), "cannot read table %s", table.c_str());
}

TableScan::TableScan(Command &command, Dbptr table,
                     std::shared_ptr<const db::Snapshot> rows)
    : command_(command),
      name_(rows->layout().name),
      table_(table),
      rows_(std::move(rows)) {}

template <class RecordAt>
bool TableScan::visit_all(long count, RecordAt record_at, const Visit &visit) {
  long unreadable = 0;
  bool closed = false;
  {
    const ElogScope quiet;
    for (long i = 0; i < count; i++) {
      closed = !command_.step();
      if (closed) break;
      const long record = record_at(i);
      const std::string_view row = rows_->row(record);
      if (row.empty()) {
        unreadable++;
      } else {
        visit(record, row);
      }
    }
  }
  if (closed) return command_.open();  // false, with its message
  if (unreadable > 0) {
    fail(command_.who(), "%ld records of %s cannot be read", unreadable, name_.c_str());
  }
  return true;
}

bool TableScan::each(const Visit &visit) {
  return visit_all(
      rows_->count(), [](long i) { return i; }, visit);
}

bool TableScan::each(const std::vector<long> &records, const Visit &visit) {
  return visit_all(
      static_cast<long>(records.size()),
      [&](long i) { return records[static_cast<std::size_t>(i)]; }, visit);
}

}  // namespace ksutil::events
