/* PgKeys: holds the keys of a table's rows in record order, as runs without gaps. */
#ifndef KSUTIL_PLATFORM_DB_POSTGRESQL_INTERNAL_PG_KEYS_H
#define KSUTIL_PLATFORM_DB_POSTGRESQL_INTERNAL_PG_KEYS_H

#include <cstdint>
#include <vector>

namespace ksutil::db {

class PgKeys {
 public:
  long count() const { return count_; }
  /* The greatest key; 0 when there is none. */
  std::int64_t last() const;
  /* Of a record below count(). */
  std::int64_t key_of(long record) const;
  /* -1: no record has the key. */
  long record_of(std::int64_t key) const;
  /* False when the key is not greater than last(). */
  bool append(std::int64_t key);
  /* The same keys without some of them, which ascend; unknown ones do not matter. */
  PgKeys without(const std::vector<std::int64_t> &keys) const;

 private:
  struct Run {
    long record;       // the first
    std::int64_t key;  // of that record
  };
  /* The end of a run, as a record. */
  long end_of(std::size_t run) const {
    return run + 1 < runs_.size() ? runs_[run + 1].record : count_;
  }

  std::vector<Run> runs_;
  long count_ = 0;
};

}  // namespace ksutil::db
#endif
