#include "platform/db/postgresql/internal/pg_table.h"

#include <chrono>
#include <thread>

#include "platform/db/postgresql/internal/pg_store.h"
#include "platform/db/postgresql/internal/pg_write.h"
#include "platform/elog/failure.h"

namespace ksutil::db {

PgTable::PgTable(PgStore &store, const Relation &relation)
    : store_(store), layout_name_(relation.name), place_(store.place(relation)) {}

const std::string &PgTable::directory() const { return store_.directory(); }

bool PgTable::stamp(Stamp &stamp) {
  const PgStates *const states = store_.states("dbquery");
  if (states == nullptr) return false;
  const auto found = states->find(layout_name_);
  stamp = found == states->end() ? Stamp() : found->second.stamp();
  return true;
}

std::shared_ptr<const Snapshot> PgTable::snapshot() {
  return store_.refresh("dbget", *this) ? held_ : nullptr;
}

std::shared_ptr<const Snapshot> PgTable::snapshot_anew() {
  return store_.refresh("dbget", *this, true) ? held_ : nullptr;
}

bool PgTable::continues(const PgState &now, const std::string &server) const {
  if (held_ == nullptr) return false;
  const PgState &then = held_->state();
  if (now.same_as(then)) return true;
  return now.version > then.version && now.floor <= then.version && server == server_;
}

void PgTable::adopt(std::shared_ptr<const PgSnapshot> snapshot,
                    const std::string &server) {
  held_ = std::move(snapshot);
  server_ = server;
}

bool PgTable::exclusively(const std::function<bool(Exclusive &)> &work) {
  constexpr int kAttempts = 5;
  constexpr std::chrono::milliseconds kPause{100};
  for (int attempt = 1;; ++attempt) {
    PgWrite write(store_, {this});
    if (!write.begin()) return false;
    const int mark = elog_mark();
    PgExclusive locked(write);
    if (!work(locked)) return false;
    if (write.commit()) return true;
    /* Nothing was written; with the table as it is now it may go well. */
    if (!write.again() || attempt == kAttempts) return false;
    elog_flush(0, mark);
    /* The session that it waited for takes its locks first. */
    std::this_thread::sleep_for((1 << (attempt - 1)) * kPause);
  }
}

}  // namespace ksutil::db
