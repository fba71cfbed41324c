#include "waveforms/view/internal/row_index.h"

#include <algorithm>
#include <cmath>
#include <utility>

#include "platform/db/columns.h"
#include "platform/elog/elog.h"
#include "platform/stock/text.h"

namespace ksutil::scv {

struct RowIndex::Columns {
  explicit Columns(const db::Relation &layout)
      : sta(layout, "sta"),
        chan(layout, "chan"),
        time(layout, "time"),
        samprate(layout, "samprate"),
        nsamp(layout, "nsamp") {}
  db::TextColumn sta, chan;
  db::RealColumn time, samprate;
  db::IntegerColumn nsamp;

  bool key(std::string_view row, std::string &key) const {
    std::string_view station, channel;
    if (!sta.read(row, station) || !chan.read(row, channel)) return false;
    /* Some writers put texts at the right of their fields. */
    const auto text = [](const db::TextColumn &column, std::string_view value) {
      const std::string_view inner = trimmed(value);
      return column.is_null(inner) ? std::string() : std::string(inner);
    };
    key = channel_key(text(sta, station), text(chan, channel));
    return true;
  }
};

std::string channel_key(const std::string &sta, const std::string &chan) {
  return sta + ' ' + chan;
}

bool RowIndex::add(const Columns &columns, const db::Snapshot &rows, long record,
                   std::string *key_out) {
  const std::string_view row = rows.row(record);
  std::string key;
  if (row.empty() || !columns.key(row, key)) return false;
  if (key_out != nullptr) *key_out = key;
  Channel &channel = channels_[key];
  Entry entry{0.0, 0.0, record};
  if (!columns.time.read(row, entry.time) || !std::isfinite(entry.time) ||
      entry.time == columns.time.null()) {
    channel.bad.insert(record);
    return true;
  }
  double samprate = 0.0;
  std::int64_t nsamp = 0;
  entry.end = entry.time;
  if (columns.samprate.read(row, samprate) && samprate > 0 &&
      columns.nsamp.read(row, nsamp) && nsamp > 1) {
    entry.end += static_cast<double>(nsamp - 1) / samprate;
  }
  channel.entries.push_back(entry);
  channel.latest_end.clear();
  return true;
}

/* Takes rows away that ascend. */
void RowIndex::remove(const std::string &key, const std::vector<long> &records) {
  const auto found = channels_.find(key);
  if (found == channels_.end()) return;
  Channel &channel = found->second;
  const auto goes = [&](long record) {
    return std::binary_search(records.begin(), records.end(), record);
  };
  std::erase_if(channel.bad, goes);
  std::erase_if(channel.entries,
                [&](const Entry &entry) { return goes(entry.record); });
  channel.latest_end.clear();
  if (channel.entries.empty() && channel.bad.empty()) channels_.erase(found);
}

bool RowIndex::follow(const std::shared_ptr<const db::Snapshot> &rows,
                      const std::function<bool()> &go_on,
                      std::set<std::string> &changed, bool &all) {
  all = false;
  changed.clear();
  if (rows == rows_) return true;
  const ElogScope unreadable;  // such rows belong to no channel
  db::Changes changes;
  changes.known = false;
  if (rows_ != nullptr && rows != nullptr) {
    changes = db::changes_between(*rows_, *rows);
  }
  const std::shared_ptr<const db::Snapshot> before = std::exchange(rows_, nullptr);
  long from = 0;
  if (changes.known) {
    const Columns old_columns(before->layout()), columns(rows->layout());
    std::string key;
    /* By channel, so that its entries are gone through once. */
    std::unordered_map<std::string, std::vector<long>> gone;
    for (const long record : changes.changed) {
      const std::string_view old_row = before->row(record);
      /* Without its old text it may have belonged to any channel. */
      if (old_row.empty()) {
        changes.known = false;
        break;
      }
      if (old_columns.key(old_row, key)) gone[key].push_back(record);
    }
    for (const auto &[name, records] : gone) {
      remove(name, records);
      changed.insert(name);
    }
    for (const long record : changes.changed) {
      if (add(columns, *rows, record, &key)) changed.insert(key);
    }
    from = changes.old_count;
  }
  if (!changes.known) {
    all = true;
    from = 0;
    channels_.clear();
  }
  if (rows == nullptr) return true;
  const Columns columns(rows->layout());
  constexpr long kRowsPerQuestion = 1024;
  std::string key;
  for (long record = from; record < rows->count(); record++) {
    if (record % kRowsPerQuestion == 0 && !go_on()) {
      channels_.clear();
      return false;
    }
    if (add(columns, *rows, record, all ? nullptr : &key) && !all) changed.insert(key);
  }
  if (!rows->complete()) {
    channels_.clear();
    return false;
  }
  rows_ = rows;
  return true;
}

std::vector<long> RowIndex::find(const std::string &key, double t0, double t1) {
  std::vector<long> records;
  const auto found = channels_.find(key);
  if (found == channels_.end()) return records;
  Channel &channel = found->second;
  std::vector<Entry> &entries = channel.entries;
  if (channel.latest_end.size() != entries.size()) {
    const auto earlier = [](const Entry &a, const Entry &b) { return a.time < b.time; };
    if (!std::is_sorted(entries.begin(), entries.end(), earlier)) {
      std::stable_sort(entries.begin(), entries.end(), earlier);
    }
    channel.latest_end.reserve(entries.size());
    for (const Entry &entry : entries) {
      channel.latest_end.push_back(
          channel.latest_end.empty() ? entry.end
                                     : std::max(channel.latest_end.back(), entry.end));
    }
  }
  const auto begin =
      std::lower_bound(channel.latest_end.begin(), channel.latest_end.end(), t0) -
      channel.latest_end.begin();
  for (auto i = static_cast<std::size_t>(begin);
       i < entries.size() && entries[i].time <= t1; i++) {
    if (entries[i].end >= t0) records.push_back(entries[i].record);
  }
  std::sort(records.begin(), records.end());
  return records;
}

long RowIndex::bad_row(const std::string &key) const {
  const auto found = channels_.find(key);
  return found == channels_.end() || found->second.bad.empty()
             ? -1
             : *found->second.bad.begin();
}

}  // namespace ksutil::scv
