/* ImportTables: the tables of a database while an import looks at them and changes them. */
#ifndef KSUTIL_FORMATS_EXCHANGE_IMPORT_IMPORT_TABLES_H
#define KSUTIL_FORMATS_EXCHANGE_IMPORT_IMPORT_TABLES_H

#include <array>
#include <cstdint>
#include <memory>
#include <string>
#include <string_view>
#include <vector>

#include "formats/exchange/import/gathering.h"
#include "formats/exchange/import/row_index.h"
#include "platform/db/store.h"

namespace ksutil::exchange {

/* The tables, children before their parents and the counters first: an event is seen by
 * readers when everything that it refers to is there. */
enum Table : std::size_t {
  kLastid,
  kRemark,
  kNetwork,
  kAffiliation,
  kSeedcode,
  kArrival,
  kAssoc,
  kStamag,
  kNetmag,
  kMt,
  kOrigerr,
  kOrigin,
  kPublicid,
  kEvent,
  kTableCount
};

/* The counters that an import takes ids from. */
enum IdKey : std::size_t { kEvid, kOrid, kMagid, kMtid, kArid, kCommid, kIdKeyCount };

/* Sets of fields by which rows are found that have no id of their own. */
enum class RowKey {
  kArrival,      // sta chan time iphase auth
  kAssoc,        // arid orid
  kStamag,       // magid orid sta magtype
  kOrigin,       // evid auth
  kSeedName,     // net seedsta seedchan loc of seedcode
  kChannel,      // sta chan of seedcode
  kAffiliation,  // net sta
  kNetwork,      // net
  kCount
};

class ImportTables {
 public:
  /* The tables of the list that the schema has and the events need; lastid, netmag,
   * origerr, origin and event must be among them: else empty, with a message. */
  static std::vector<std::string> names(db::DatabaseStore &store, const Needs &needs);

  ImportTables(db::DatabaseStore &store, db::Transaction &step,
               const std::vector<std::string> &names, const Needs &needs);

  /* Takes snapshots and indexes them; false with a message. */
  bool open();

  bool has(Table table) const { return places_[table] != kAbsent; }
  const db::Relation &layout(Table table) const { return step_.layout(places_[table]); }
  const db::Snapshot &rows(Table table) const { return *snapshots_[table]; }
  const std::string &null_row(Table table) const { return null_rows_[table]; }
  int width(Table table, std::string_view field) const;

  /* Rows by their ids, -1 when there is none. */
  std::int64_t event_of(std::int64_t evid) const { return by_evid_.first(evid); }
  std::int64_t origin_of(std::int64_t orid) const { return by_orid_.first(orid); }
  std::int64_t origerr_of(std::int64_t orid) const { return errors_.first(orid); }
  std::int64_t arrival_of(std::int64_t arid) const { return by_arid_.first(arid); }
  std::int64_t mt_of(std::int64_t mtid) const { return by_mtid_.first(mtid); }
  std::int64_t netmag_of(std::int64_t magid) const { return by_magid_.first(magid); }
  RowIndex::Rows netmags_of(std::int64_t orid) const {
    return magnitudes_.find(static_cast<std::uint64_t>(orid));
  }
  RowIndex::Rows mts_of(std::int64_t orid) const {
    return tensors_.find(static_cast<std::uint64_t>(orid));
  }
  RowIndex::Rows remarks_of(std::int64_t commid) const {
    return remarks_.find(static_cast<std::uint64_t>(commid));
  }

  /* What stands for the key fields of a row, and the rows that may have it, ascending:
   * with few exceptions they do. */
  std::uint64_t key_of(RowKey key, std::string_view row) const;
  /* Whether rows_with() finds arrivals: the import has picks without ids. */
  bool knows_arrivals_by_content() const { return needs_.bare_picks; }
  RowIndex::Rows rows_with(RowKey key, std::uint64_t value) const {
    return keyed_[static_cast<std::size_t>(key)].find(value);
  }

  /* The id that stands for a text id in publicid; -1 when there is none.  `key` is the
   * name of the id's field. */
  std::int64_t public_id(std::string_view key, const std::string &id) const;
  /* Whether publicid has a text id for an origin. */
  bool is_public_origin(std::int64_t orid) const {
    return named_orids_.first(orid) >= 0;
  }
  /* The event whose evname is the text id, among those without a public id: where
   * databases without publicid keep it.  -1 when there is none. */
  std::int64_t named_event(const std::string &id) const;
  /* An origin of the same place, depth and time whose event is not there: what an import
   * that did not end left behind.  -1 when there is none. */
  bool has_orphans() const { return !orphans_.empty(); }
  std::int64_t orphan_like(std::string_view origin_row) const;

  /* The next id of a counter; -1 with a message. */
  std::int64_t take_id(IdKey key);
  /* Counters as they are, to return to when ids have been taken in vain. */
  struct Counter {
    std::int64_t next = -1, record = -1;
    bool used = false;
  };
  using Counters = std::array<Counter, kIdKeyCount>;
  const Counters &counters() const { return counters_; }
  void return_to(const Counters &counters) { counters_ = counters; }
  /* Writes the counters that have moved. */
  bool write_counters(double now);

  bool add(Table table, const std::string &row) {
    return step_.append(places_[table], row) >= 0;
  }
  bool change(Table table, std::int64_t record, const std::string &row) {
    return step_.overwrite(places_[table], record, row);
  }

 private:
  static constexpr std::size_t kAbsent = static_cast<std::size_t>(-1);

  void index_public_ids();
  void index_names();
  void index_orphans();
  bool index_details();
  bool index_keys(RowKey key);
  bool is_named(std::int64_t evid) const;
  std::uint64_t place_key(std::string_view origin_row) const;
  bool start_counter(const char *key, Counter &counter);

  db::DatabaseStore &store_;
  db::Transaction &step_;
  std::array<std::size_t, kTableCount> places_;
  std::array<std::shared_ptr<const db::Snapshot>, kTableCount> snapshots_;
  std::array<std::string, kTableCount> null_rows_;
  const Needs needs_;
  RowIndex by_evid_, by_orid_, errors_, magnitudes_, tensors_, remarks_;
  RowIndex by_arid_, by_mtid_, by_magid_;
  std::array<RowIndex, static_cast<std::size_t>(RowKey::kCount)> keyed_;
  RowIndex public_ids_;   // by text id and key
  RowIndex named_;        // by evname
  RowIndex named_evids_;  // that publicid has
  RowIndex named_orids_;
  RowIndex
      orphans_;  // by place, depth and time: origins of no event or of one without name
  Counters counters_;
};

}  // namespace ksutil::exchange
#endif
