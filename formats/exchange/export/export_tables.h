/* ExportTables: the tables of a database as they are at the beginning of an export, with
 * indexes that find the rows of an event. */
#ifndef KSUTIL_FORMATS_EXCHANGE_EXPORT_EXPORT_TABLES_H
#define KSUTIL_FORMATS_EXCHANGE_EXPORT_EXPORT_TABLES_H

#include <memory>
#include <string>
#include <string_view>
#include <unordered_map>
#include <unordered_set>

#include "formats/exchange/import/row_index.h"
#include "formats/exchange/records.h"
#include "platform/db/store.h"

namespace ksutil::exchange {

/* One table with the index of a field.  A table that the schema lacks has no rows. */
class ExportTable {
 public:
  /* False with a message when the table cannot be read.  `index` may be null. */
  bool open(db::DatabaseStore &store, const char *name, const char *index);

  bool there() const { return rows_ != nullptr; }
  const db::Relation &layout() const { return layout_; }
  long count() const { return rows_ == nullptr ? 0 : rows_->count(); }
  std::string_view row(std::int64_t record) const { return rows_->row(record); }
  /* False once rows could not be read because the disk or memory failed. */
  bool complete() const { return rows_ == nullptr || rows_->complete(); }
  /* The rows in which the indexed field is `key`, ascending; none for a key below 0. */
  RowIndex::Rows find(std::int64_t key) const {
    if (key < 0) return {};
    return index_.find(static_cast<std::uint64_t>(key));
  }

 private:
  std::shared_ptr<const db::Snapshot> rows_;
  db::Relation layout_;
  RowIndex index_;
};

/* The text ids of publicid, by the ids that they stand for. */
class PublicIds {
 public:
  bool open(db::DatabaseStore &store);
  bool there() const { return table_.there(); }
  int width() const { return width_; }  // of a text id
  /* The text id of a row, "" when there is none.  `tag` names its id field. */
  std::string find(std::string_view tag, std::int64_t id) const;
  /* Its further ones. */
  std::vector<std::string> others(std::string_view tag, std::int64_t id) const;
  /* How often a row could not be read; without it a text id may be missing. */
  std::int64_t unreadable() const { return unreadable_; }

 private:
  std::vector<std::string> all(std::string_view tag, std::int64_t id,
                               std::size_t most) const;

  ExportTable table_;
  db::TextColumn text_, tag_;
  int width_ = 0;
  mutable std::int64_t unreadable_ = 0;
};

/* The SEED codes of channels, from seedcode and, for the network, affiliation. */
class SeedCodes {
 public:
  bool open(db::DatabaseStore &store);
  /* Turns station and channel of the database into the codes of the channel. */
  void restore(ChannelCode &channel) const;
  /* Whether there are codes of channels of a station. */
  bool has_channels(const std::string &station) const {
    return stations_.contains(station);
  }

 private:
  std::unordered_map<std::string, ChannelCode> channels_;  // by "sta chan"
  std::unordered_set<std::string> stations_;               // of these
  std::unordered_map<std::string, std::string> networks_;  // by station
};

struct ExportTables {
  /* Parents first: what they refer to is then in the later snapshots.  False with a message. */
  bool open(db::DatabaseStore &store);

  ExportTable event, origin, origerr, netmag, stamag, assoc, arrival, mt, remark;
  PublicIds ids;
  SeedCodes codes;
};

}  // namespace ksutil::exchange
#endif
