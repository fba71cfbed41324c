#include "formats/waveform_index/index_tables.h"

#include <algorithm>
#include <filesystem>
#include <functional>
#include <limits>

#include "platform/clock/clock.h"
#include "platform/elog/elog.h"

namespace ksutil::waveform_index {
namespace {

namespace fs = std::filesystem;

struct TableName {
  const char *name;
  bool needed;
};
constexpr std::array<TableName, kTableCount> kNames{{{"lastid", true},
                                                     {"network", false},
                                                     {"affiliation", false},
                                                     {"seedcode", false},
                                                     {"sitechan", true},
                                                     {"wfdisc", true}}};

std::int64_t integer_of(const db::IntegerColumn &column, std::string_view row) {
  std::int64_t value = column.null();
  return column.read(row, value) ? value : column.null();
}

bool is_graphic(char c) { return c > ' ' && c <= '~'; }

/* The codes for a message: net.sta.loc.chan. */
std::string printable(const ChannelCodes &codes) {
  std::string text = codes.net + "." + codes.sta + "." + codes.loc + "." + codes.chan;
  std::replace_if(
      text.begin(), text.end(), [](char c) { return !is_graphic(c); }, '?');
  return text;
}

/* What a database without a row of seedcode makes of SEED codes. */
IndexTables::Channel default_channel(const ChannelCodes &codes) {
  return {codes.sta, codes.chan + codes.loc};
}

}  // namespace

RowFill &RowFill::put(std::string_view name, std::int64_t value) {
  const db::Field *const field = layout_.find(name);
  if (field != nullptr && !db::write_integer(*field, value, row_) && refused_.empty()) {
    refused_ = name;
  }
  return *this;
}
RowFill &RowFill::put(std::string_view name, double value) {
  const db::Field *const field = layout_.find(name);
  if (field != nullptr && !db::write_real(*field, value, row_) && refused_.empty()) {
    refused_ = name;
  }
  return *this;
}
RowFill &RowFill::put(std::string_view name, std::string_view value) {
  const db::Field *const field = layout_.find(name);
  if (field == nullptr) return *this;
  const bool fits = value.size() <= static_cast<std::size_t>(field->width);
  if ((!fits || !db::write_text(*field, value, row_)) && refused_.empty()) {
    refused_ = name;
  }
  return *this;
}

std::uint64_t FileRows::hash(std::string_view path) {
  return std::hash<std::string_view>{}(path);
}
void FileRows::settle() { std::sort(items_.begin(), items_.end()); }

std::vector<long> FileRows::find(std::string_view path) const {
  std::vector<long> rows;
  const std::uint64_t key = hash(path);
  for (auto item = std::lower_bound(items_.begin(), items_.end(), std::pair(key, 0L));
       item != items_.end() && item->first == key; ++item) {
    rows.push_back(item->second);
  }
  return rows;
}

std::vector<std::string> IndexTables::names(db::DatabaseStore &store) {
  std::vector<std::string> names;
  for (const TableName &table : kNames) {
    if (store.schema()->find(table.name) != nullptr) {
      names.emplace_back(table.name);
    } else if (table.needed) {
      elog_log(0, "import: the schema %s has no table %s.\n",
               store.schema()->name().c_str(), table.name);
      return {};
    }
  }
  return names;
}

IndexTables::IndexTables(db::DatabaseStore &store, db::Transaction &step,
                         const std::vector<std::string> &names)
    : store_(store), step_(step), now_(std_now()) {
  for (std::size_t table = 0; table < kTableCount; table++) {
    const auto place = std::find(names.begin(), names.end(), kNames[table].name);
    places_[table] = place == names.end()
                         ? kAbsent
                         : static_cast<std::size_t>(place - names.begin());
  }
}

int IndexTables::width(Table table, std::string_view field) const {
  const db::Field *const found = layout(table).find(field);
  return found == nullptr ? std::numeric_limits<int>::max() : found->width;
}

std::string IndexTables::text_of(Table table, std::string_view field,
                                 std::string_view row) const {
  const db::TextColumn column(layout(table), field);
  std::string_view value;
  if (!column.valid() || !column.read(row, value) || column.is_null(value)) return "";
  return std::string(value);
}

bool IndexTables::open() {
  for (std::size_t table = 0; table < kTableCount; table++) {
    if (places_[table] == kAbsent) continue;
    snapshots_[table] = step_.snapshot(places_[table]);
    if (snapshots_[table] == nullptr) return false;
  }
  const std::string &directory = store_.table("wfdisc")->directory();
  folder_ = fs::weakly_canonical(directory.empty() ? "." : directory).string();
  const db::Snapshot &wfdisc = rows(kWfdisc);
  for (long row = 0; row < wfdisc.count(); row++) {
    const std::string_view record = wfdisc.row(row);
    if (!record.empty()) file_rows_.add(path_of(record), row);
  }
  file_rows_.settle();
  return index_codes() && wfdisc.complete();
}

std::string IndexTables::path_of(std::string_view row) {
  const std::string dir = text_of(kWfdisc, "dir", row);
  auto known = folders_.find(dir);
  if (known == folders_.end()) {
    std::string folder = fs::weakly_canonical(fs::path(folder_) / dir).string();
    while (!folder.empty() && folder.back() == '/') folder.pop_back();
    known = folders_.emplace(dir, std::move(folder)).first;
  }
  return known->second + "/" + text_of(kWfdisc, "dfile", row);
}

bool IndexTables::index_codes() {
  const db::Snapshot &channels = rows(kSitechan);
  const db::IntegerColumn ondate(channels.layout(), "ondate");
  const db::IntegerColumn offdate(channels.layout(), "offdate");
  const db::IntegerColumn chanid(channels.layout(), "chanid");
  for (long row = 0; row < channels.count(); row++) {
    const std::string_view record = channels.row(row);
    if (record.empty()) continue;
    epochs_.emplace(
        Pair(text_of(kSitechan, "sta", record), text_of(kSitechan, "chan", record)),
        Epoch{integer_of(ondate, record), integer_of(offdate, record),
              integer_of(chanid, record)});
  }
  for (long row = 0; has(kAffiliation) && row < rows(kAffiliation).count(); row++) {
    const std::string_view record = rows(kAffiliation).row(row);
    if (record.empty()) continue;
    affiliated_[{text_of(kAffiliation, "net", record),
                 text_of(kAffiliation, "sta", record)}] = true;
  }
  for (long row = 0; has(kNetwork) && row < rows(kNetwork).count(); row++) {
    networks_.insert(text_of(kNetwork, "net", rows(kNetwork).row(row)));
  }
  for (long row = 0; has(kSeedcode) && row < rows(kSeedcode).count(); row++) {
    const std::string_view record = rows(kSeedcode).row(row);
    if (record.empty()) continue;
    const auto text = [&](const char *field) {
      return text_of(kSeedcode, field, record);
    };
    const ChannelCodes codes{"", text("seedsta"), text("loc"), text("seedchan")};
    const Channel channel{text("sta"), text("chan")};
    by_seed_.emplace(codes, std::pair(text("net"), channel));
    by_channel_.emplace(Pair(channel.sta, channel.chan),
                        ChannelCodes{text("net"), codes.sta, codes.loc, codes.chan});
  }
  return channels.complete();
}

bool IndexTables::find_channel(const ChannelCodes &codes, Channel &channel,
                               std::string &why) {
  if (const auto known = found_.find(codes); known != found_.end()) {
    channel = known->second;
    return true;
  }
  /* A row without network is of any. */
  const auto range = by_seed_.equal_range({"", codes.sta, codes.loc, codes.chan});
  const auto row = std::find_if(range.first, range.second, [&](const auto &item) {
    const std::string &net = item.second.first;
    return net.empty() || codes.net.empty() || net == codes.net;
  });
  const bool fresh = row == range.second;
  channel = fresh ? default_channel(codes) : row->second.second;
  if (channel.sta.empty() || channel.chan.empty()) {
    why = "a record has no station or channel code";
  } else if (!fit(codes, channel)) {
    why = "the codes " + printable(codes) + " do not fit the tables";
  } else if (fresh && by_channel_.contains({channel.sta, channel.chan})) {
    why = "channel " + channel.chan + " of station " + channel.sta +
          " stands for other codes in seedcode";
  }
  if (!why.empty()) return false;
  if (fresh && !add_codes(codes, channel)) return false;
  found_.emplace(codes, channel);
  return true;
}

/* Whether all codes can be written. */
bool IndexTables::fit(const ChannelCodes &codes, const Channel &channel) const {
  const auto fits = [&](Table table, const char *field, const std::string &code) {
    return !has(table) ||
           (code != "-" &&  // the null
            code.size() <= static_cast<std::size_t>(width(table, field)) &&
            std::all_of(code.begin(), code.end(), is_graphic));
  };
  return fits(kWfdisc, "sta", channel.sta) && fits(kWfdisc, "chan", channel.chan) &&
         fits(kSeedcode, "seedsta", codes.sta) &&
         fits(kSeedcode, "seedchan", codes.chan) && fits(kSeedcode, "loc", codes.loc) &&
         fits(kSeedcode, "net", codes.net) && fits(kAffiliation, "net", codes.net) &&
         fits(kNetwork, "net", codes.net);
}

bool IndexTables::add_codes(const ChannelCodes &codes, const Channel &channel) {
  if (has(kSeedcode) && !(codes.net.empty() && codes.loc.empty())) {
    std::string row = null_row(kSeedcode);
    RowFill fill(layout(kSeedcode), row);
    fill.put("sta", channel.sta)
        .put("chan", channel.chan)
        .put("net", codes.net)
        .put("seedsta", codes.sta)
        .put("seedchan", codes.chan)
        .put("loc", codes.loc)
        .put("lddate", now_);
    if (!fill.refused().empty() || !add(kSeedcode, row)) return false;
    by_channel_.emplace(Pair(channel.sta, channel.chan), codes);
    by_seed_.emplace(ChannelCodes{"", codes.sta, codes.loc, codes.chan},
                     std::pair(codes.net, channel));
  }
  if (!add_network(codes.net)) return false;
  if (!has(kAffiliation) || codes.net.empty() ||
      affiliated_.contains({codes.net, channel.sta})) {
    return true;
  }
  std::string row = null_row(kAffiliation);
  RowFill fill(layout(kAffiliation), row);
  fill.put("net", codes.net).put("sta", channel.sta).put("lddate", now_);
  affiliated_[{codes.net, channel.sta}] = true;
  return fill.refused().empty() && add(kAffiliation, row);
}

/* A database without the table network gets none from waveforms. */
bool IndexTables::add_network(const std::string &net) {
  if (net.empty() || !has(kNetwork) || rows(kNetwork).count() == 0 ||
      !networks_.insert(net).second) {
    return true;
  }
  std::string row = null_row(kNetwork);
  RowFill fill(layout(kNetwork), row);
  fill.put("net", net).put("lddate", now_);
  return fill.refused().empty() && add(kNetwork, row);
}

bool IndexTables::find_chanid(const Channel &channel, double time, std::int64_t &chanid,
                              bool &added) {
  const Pair key(channel.sta, channel.chan);
  const std::int64_t day = yearday(time);
  const auto range = epochs_.equal_range(key);
  added = false;
  for (auto epoch = range.first; epoch != range.second; ++epoch) {
    const auto &[ondate, offdate, id] = epoch->second;
    if (day < ondate || (offdate > 0 && day > offdate)) continue;
    chanid = id;
    return true;
  }
  chanid = -1;
  if (range.first != range.second) return true;  // of no epoch that is known
  chanid = take_id(chanid_);
  if (chanid < 0) return false;
  std::string row = null_row(kSitechan);
  RowFill fill(layout(kSitechan), row);
  fill.put("sta", channel.sta)
      .put("chan", channel.chan)
      .put("ondate", day)
      .put("chanid", chanid)
      .put("ctype", "n")
      .put("lddate", now_);
  epochs_.emplace(key, Epoch{day, -1, chanid});
  added = true;
  return fill.refused().empty() && add(kSitechan, row);
}

/* The counter's last value: the greatest of its row and of the ids in use. */
bool IndexTables::start_counter(Counter &counter) {
  std::int64_t last = 0;
  const db::Snapshot &lastid = rows(kLastid);
  const db::IntegerColumn value(lastid.layout(), "keyvalue");
  for (long row = 0; row < lastid.count(); row++) {
    const std::string_view record = lastid.row(row);
    if (record.empty() || text_of(kLastid, "keyname", record) != counter.key) continue;
    if (counter.record < 0 || integer_of(value, record) > last) counter.record = row;
    last = std::max(last, integer_of(value, record));
  }
  for (const auto &use : store_.schema()->counter_uses(counter.key)) {
    std::shared_ptr<const db::Snapshot> table;
    for (std::size_t i = 0; i < kTableCount; i++) {
      if (use.table == kNames[i].name) table = snapshots_[i];
    }
    if (table == nullptr) {
      db::TableStore *const other = store_.table(use.table);
      if (other != nullptr) table = other->snapshot();
    }
    if (table == nullptr) return false;
    const db::IntegerColumn column(table->layout(), use.field);
    for (long row = 0; row < table->count(); row++) {
      const std::string_view record = table->row(row);
      if (!record.empty()) last = std::max(last, integer_of(column, record));
    }
    if (!table->complete()) return false;
  }
  counter.next = last + 1;
  return true;
}

std::int64_t IndexTables::take_id(Counter &counter) {
  if (counter.next < 0 && !start_counter(counter)) return -1;
  return counter.next++;
}

bool IndexTables::write_counters() {
  for (const Counter *const counter : {&wfid_, &chanid_}) {
    if (counter->next < 0) continue;
    std::string row = counter->record < 0
                          ? null_row(kLastid)
                          : std::string(rows(kLastid).row(counter->record));
    RowFill fill(layout(kLastid), row);
    fill.put("keyname", std::string_view(counter->key))
        .put("keyvalue", counter->next - 1)
        .put("lddate", now_);
    if (!fill.refused().empty()) {
      elog_log(0, "import: lastid cannot count %s any further.\n", counter->key);
      return false;
    }
    if (!(counter->record < 0 ? add(kLastid, row)
                              : change(kLastid, counter->record, row))) {
      return false;
    }
  }
  return true;
}

}  // namespace ksutil::waveform_index
