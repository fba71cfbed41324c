/* IndexTables: the tables of a database while waveform files are entered. */
#ifndef KSUTIL_FORMATS_WAVEFORM_INDEX_INDEX_TABLES_H
#define KSUTIL_FORMATS_WAVEFORM_INDEX_INDEX_TABLES_H

#include <array>
#include <cstdint>
#include <map>
#include <memory>
#include <set>
#include <string>
#include <string_view>
#include <utility>
#include <vector>

#include "formats/waveform_index/waveform_scan.h"
#include "platform/db/columns.h"
#include "platform/db/store.h"

namespace ksutil::waveform_index {

/* Children before their parents: readers see a row of wfdisc when its channel is there. */
enum Table : std::size_t {
  kLastid,
  kNetwork,
  kAffiliation,
  kSeedcode,
  kSitechan,
  kWfdisc,
  kTableCount
};

/* Sets fields of a row; the first value that does not fit is remembered. */
class RowFill {
 public:
  RowFill(const db::Relation &layout, std::string &row) : layout_(layout), row_(row) {}
  RowFill &put(std::string_view name, std::int64_t value);
  RowFill &put(std::string_view name, double value);
  RowFill &put(std::string_view name, std::string_view value);
  const std::string &refused() const {
    return refused_;
  }  // the field's name; "" all fit

 private:
  const db::Relation &layout_;
  std::string &row_;
  std::string refused_;
};

/* The rows of wfdisc by the files that they point to. */
class FileRows {
 public:
  void add(std::string_view path, long row) { items_.emplace_back(hash(path), row); }
  void settle();
  /* Rows whose path has the hash of this one, ascending. */
  std::vector<long> find(std::string_view path) const;

 private:
  static std::uint64_t hash(std::string_view path);
  std::vector<std::pair<std::uint64_t, long>> items_;
};

class IndexTables {
 public:
  static std::vector<std::string> names(db::DatabaseStore &store);

  IndexTables(db::DatabaseStore &store, db::Transaction &step,
              const std::vector<std::string> &names);

  /* Takes snapshots and indexes them; false with a message. */
  bool open();

  bool has(Table table) const { return places_[table] != kAbsent; }
  const db::Relation &layout(Table table) const { return step_.layout(places_[table]); }
  const db::Snapshot &rows(Table table) const { return *snapshots_[table]; }
  std::string null_row(Table table) const { return db::null_record(layout(table)); }
  int width(Table table, std::string_view field) const;

  /* The folder of the table wfdisc, absolute. */
  const std::string &folder() const { return folder_; }
  /* The file of a row of wfdisc, absolute. */
  std::string path_of(std::string_view row);
  const FileRows &file_rows() const { return file_rows_; }

  /* The station and channel codes of the database for a channel; rows of seedcode,
   * affiliation and, where the database has that table, network are added as needed.
   * False with `why`, or, for a failure, with a message and an empty `why`. */
  struct Channel {
    std::string sta, chan;
  };
  bool find_channel(const ChannelCodes &codes, Channel &channel, std::string &why);
  /* The chanid at a time; a row of sitechan is added for a channel that has none. */
  bool find_chanid(const Channel &channel, double time, std::int64_t &chanid,
                   bool &added);

  std::int64_t take_wfid() { return take_id(wfid_); }
  bool write_counters();

  bool add(Table table, const std::string &row) {
    return step_.append(places_[table], row) >= 0;
  }
  bool change(Table table, long record, const std::string &row) {
    return step_.overwrite(places_[table], record, row);
  }
  double now() const { return now_; }

 private:
  static constexpr std::size_t kAbsent = static_cast<std::size_t>(-1);
  struct Counter {
    const char *key;
    std::int64_t next = -1;
    long record = -1;
  };
  struct Epoch {
    std::int64_t ondate, offdate, chanid;
  };
  using Pair = std::pair<std::string, std::string>;

  std::string text_of(Table table, std::string_view field, std::string_view row) const;
  bool index_codes();
  bool fit(const ChannelCodes &codes, const Channel &channel) const;
  bool add_codes(const ChannelCodes &codes, const Channel &channel);
  bool add_network(const std::string &net);
  bool start_counter(Counter &counter);
  std::int64_t take_id(Counter &counter);

  db::DatabaseStore &store_;
  db::Transaction &step_;
  const double now_;
  std::array<std::size_t, kTableCount> places_;
  std::array<std::shared_ptr<const db::Snapshot>, kTableCount> snapshots_;
  std::string folder_;
  std::map<std::string, std::string, std::less<>> folders_;  // by the text of dir
  FileRows file_rows_;
  std::multimap<ChannelCodes, std::pair<std::string, Channel>> by_seed_;  // without net
  std::map<Pair, ChannelCodes> by_channel_;
  std::set<std::string> networks_;     // of the table network
  std::map<Pair, bool> affiliated_;    // net and sta
  std::multimap<Pair, Epoch> epochs_;  // sta and chan
  std::map<ChannelCodes, Channel> found_;
  Counter wfid_{"wfid"}, chanid_{"chanid"};
};

}  // namespace ksutil::waveform_index
#endif
