/* StationTable: the rows of one table while an import looks at them and changes them.
 *
 * Changes are kept until write().  Rows are numbered from 0, those of the database first;
 * memory holds the changed and the new ones, and about 40 bytes for each row and key. */
#ifndef KSUTIL_FORMATS_EXCHANGE_STATIONS_STATION_TABLE_H
#define KSUTIL_FORMATS_EXCHANGE_STATIONS_STATION_TABLE_H

#include <cstdint>
#include <memory>
#include <string>
#include <string_view>
#include <unordered_map>
#include <vector>

#include "platform/db/store.h"

namespace ksutil::exchange {

class StationTable {
 public:
  /* A key of the index: the values of these fields, as texts without blanks around them. */
  using Fields = std::vector<const char *>;

  /* Takes the rows of the table at `place` in the list of the transaction, and indexes them
   * by each of the keys; false with a message. */
  bool open(db::Transaction &step, std::size_t place, const std::vector<Fields> &keys);
  bool is_open() const { return step_ != nullptr; }

  /* The rows of the database, without the changes. */
  const db::Snapshot &stored() const { return *old_; }
  const db::Relation &layout() const { return *layout_; }
  const std::string &null_row() const { return null_row_; }
  std::size_t size() const {
    return static_cast<std::size_t>(old_count_) + new_.size();
  }
  std::string_view row(std::size_t index) const;
  int width(std::string_view field) const;

  /* The rows that have these values in a key, ascending; nulls are "". */
  std::vector<std::size_t> find(std::size_t key,
                                const std::vector<std::string> &values) const;
  /* The rows that agree with a row in a key. */
  std::vector<std::size_t> find_like(std::size_t key, std::string_view row) const;

  std::size_t add(std::string row);
  /* False when the row is as it was, which changes nothing. */
  bool set(std::size_t index, std::string row);
  /* Whether a row was added, or differs from that of the database. */
  bool is_new(std::size_t index) const {
    return index >= static_cast<std::size_t>(old_count_);
  }
  bool is_changed(std::size_t index) const { return changed_.contains(index); }

  /* Values of a row: nulls, and what cannot be read, as "", the null or `missing`. */
  std::string text(std::size_t index, std::string_view field) const;
  std::int64_t integer(std::size_t index, std::string_view field) const;
  double real(std::size_t index, std::string_view field, double missing) const;

  /* Writes all changes, with the load date; false with a message. */
  bool write(double now);

 private:
  std::string value_of(std::string_view row, const db::Field &field) const;
  std::uint64_t hash_of_row(std::size_t key, std::string_view row) const;
  void index(std::size_t number);

  db::Transaction *step_ = nullptr;
  std::size_t place_ = 0;
  const db::Relation *layout_ = nullptr;
  std::shared_ptr<const db::Snapshot> old_;
  long old_count_ = 0;
  std::string null_row_;
  std::vector<std::vector<const db::Field *>> keys_;
  std::vector<std::unordered_multimap<std::uint64_t, std::size_t>> indexes_;
  std::unordered_map<std::size_t, std::string> changed_;
  std::vector<std::string> new_;
};

/* The last ids that were given out.  write() enters those that have been used into lastid. */
class StationCounters {
 public:
  StationCounters(db::DatabaseStore &store, StationTable &lastid)
      : store_(store), lastid_(lastid) {}

  /* The next id of a counter, such as "chanid"; -1 with a message. */
  std::int64_t take(const std::string &key);
  /* Enters the counters into lastid. */
  bool write(std::string &problem);

 private:
  db::DatabaseStore &store_;
  StationTable &lastid_;
  std::unordered_map<std::string, std::int64_t> last_;
};

}  // namespace ksutil::exchange
#endif
