#include "platform/db/postgresql/internal/pg_keys.h"

#include <algorithm>

namespace ksutil::db {

std::int64_t PgKeys::last() const { return count_ == 0 ? 0 : key_of(count_ - 1); }

std::int64_t PgKeys::key_of(long record) const {
  const auto next =
      std::upper_bound(runs_.begin(), runs_.end(), record,
                       [](long wanted, const Run &run) { return wanted < run.record; });
  const Run &run = *std::prev(next);
  return run.key + (record - run.record);
}

long PgKeys::record_of(std::int64_t key) const {
  const auto next = std::upper_bound(
      runs_.begin(), runs_.end(), key,
      [](std::int64_t wanted, const Run &run) { return wanted < run.key; });
  if (next == runs_.begin()) return -1;
  const auto run = static_cast<std::size_t>(std::distance(runs_.begin(), next)) - 1;
  const long record = runs_[run].record + static_cast<long>(key - runs_[run].key);
  return record < end_of(run) ? record : -1;
}

bool PgKeys::append(std::int64_t key) {
  if (count_ > 0 && key <= last()) return false;
  if (count_ == 0 || key != last() + 1) runs_.push_back({count_, key});
  ++count_;
  return true;
}

PgKeys PgKeys::without(const std::vector<std::int64_t> &keys) const {
  PgKeys kept;
  auto gone = keys.begin();
  for (std::size_t run = 0; run < runs_.size(); ++run) {
    std::int64_t from = runs_[run].key;
    const std::int64_t end = from + (end_of(run) - runs_[run].record);
    while (from < end) {
      while (gone != keys.end() && *gone < from) ++gone;
      const std::int64_t stop = gone == keys.end() ? end : std::min(*gone, end);
      if (stop > from) {
        const bool joined = kept.count_ > 0 && kept.last() + 1 == from;
        if (!joined) kept.runs_.push_back({kept.count_, from});
        kept.count_ += static_cast<long>(stop - from);
      }
      from = stop < end ? stop + 1 : end;
    }
  }
  return kept;
}

}  // namespace ksutil::db
