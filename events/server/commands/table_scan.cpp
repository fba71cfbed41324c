#include "events/server/commands/internal/table_scan.h"

#include "core/register.h"
#include "events/server/internal/list_follower.h"
#include "events/server/internal/tables.h"
#include "platform/db/access.h"
#include "platform/elog/elog.h"

namespace ksutil::events {
namespace {

/* A fraction of a millisecond. */
constexpr int kRowsPerStep = 2000;

}  // namespace

CommandSteps::CommandSteps(ServerState &state, const char *who)
    : state_(state),
      who_(who),
      lock_(state.database_lock),
      binding_(state.follower.binding()) {}

bool CommandSteps::open() const { return database_open(state_, who_); }

bool CommandSteps::step() {
  if (++rows_ % kRowsPerStep != 0) return true;
  lock_.unlock();
  lock_.lock();
  return state_.follower.binding() == binding_;
}

Dbptr CommandSteps::table(const std::string &name) const {
  if (!name.empty()) {
    const Dbptr found = dblookup(state_.db, nullptr, name.c_str(), nullptr, nullptr);
    if (found.table != dbINVALID) return found;
  }
  ks_register_error(0, "%s: no table '%s'.\n", who_, name.c_str());
  return dbinvalid();
}

TableScan::TableScan(CommandSteps &steps, const std::string &table)
    : steps_(steps), name_(table), table_(dbinvalid()) {
  if (!steps.open()) return;
  table_ = steps.table(table);
  if (table_.table == dbINVALID) return;
  rows_ = db::table_snapshot(table_);
  if (rows_ == nullptr) {
    ks_register_error(0, "%s: cannot read table %s.\n", steps.who(), table.c_str());
  }
}

template <class RecordAt>
bool TableScan::visit_all(long count, RecordAt record_at, const Visit &visit) {
  long unreadable = 0;
  bool closed = false;
  {
    const ElogScope quiet;
    for (long i = 0; i < count; i++) {
      closed = !steps_.step();
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
  if (closed) {
    ks_register_error(0, "%s: The database has been closed.\n", steps_.who());
    return false;
  }
  if (unreadable > 0) {
    ks_register_error(0, "%s: %ld records of %s cannot be read.\n", steps_.who(),
                      unreadable, name_.c_str());
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
