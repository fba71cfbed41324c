#include "formats/exchange/export/export_tables.h"

#include "formats/exchange/export/row_records.h"
#include "platform/elog/elog.h"

namespace ksutil::exchange {
namespace {

/* Puts one message in the place of those of a table's rows.  Always false. */
bool refuse_table(ElogScope &messages, const std::string &name) {
  messages.drop();
  messages.keep();
  elog_log(0, "export: the table %s cannot be read.\n", name.c_str());
  return false;
}

}  // namespace

bool ExportTable::open(db::DatabaseStore &store, const char *name, const char *index) {
  if (store.schema()->find(name) == nullptr) {
    layout_.name = name;
    return true;
  }
  db::TableStore *table = store.table(name);
  if (table == nullptr) return false;
  rows_ = table->snapshot();
  if (rows_ == nullptr) return false;
  layout_ = rows_->layout();
  if (index == nullptr) return true;
  /* A row that cannot be read is counted where it is used; here its message would stand
   * beside that. */
  ElogScope messages;
  if (index_by(*rows_, index, index_)) return true;
  return refuse_table(messages, name);
}

bool PublicIds::open(db::DatabaseStore &store) {
  if (!table_.open(store, "publicid", "tagid")) return false;
  const db::Field *text = table_.layout().find("textid");
  width_ = text == nullptr ? 0 : text->width;
  text_ = db::TextColumn(table_.layout(), "textid");
  tag_ = db::TextColumn(table_.layout(), "tagname");
  return true;
}

std::vector<std::string> PublicIds::all(std::string_view tag, std::int64_t id,
                                        std::size_t most) const {
  std::vector<std::string> texts;
  for (const RowIndex::Item item : table_.find(id)) {
    const std::string_view row = table_.row(item.row);
    std::string_view name, text;
    if (row.empty()) unreadable_++;
    if (tag_.read(row, name) && name == tag && text_.read(row, text) &&
        !text_.is_null(text)) {
      texts.emplace_back(text);
      if (texts.size() == most) break;
    }
  }
  return texts;
}

std::string PublicIds::find(std::string_view tag, std::int64_t id) const {
  std::vector<std::string> texts = all(tag, id, 1);
  return texts.empty() ? "" : std::move(texts.front());
}

std::vector<std::string> PublicIds::others(std::string_view tag,
                                           std::int64_t id) const {
  std::vector<std::string> texts = all(tag, id, kMostRecords);
  if (!texts.empty()) texts.erase(texts.begin());
  return texts;
}

bool SeedCodes::open(db::DatabaseStore &store) {
  ExportTable seedcode, affiliation;
  if (!seedcode.open(store, "seedcode", nullptr) ||
      !affiliation.open(store, "affiliation", nullptr)) {
    return false;
  }
  ElogScope messages;  // broken rows are of no channel
  std::int64_t unreadable = 0;
  const db::TextColumn sta(seedcode.layout(), "sta"), chan(seedcode.layout(), "chan"),
      net(seedcode.layout(), "net"), seedsta(seedcode.layout(), "seedsta"),
      seedchan(seedcode.layout(), "seedchan"), loc(seedcode.layout(), "loc");
  for (long record = 0; record < seedcode.count(); record++) {
    const std::string_view text = seedcode.row(record);
    if (text.empty()) continue;
    const RowGet row(text, unreadable);
    stations_.insert(row.text(sta));
    channels_.try_emplace(row.text(sta) + ' ' + row.text(chan),
                          ChannelCode{row.text(net), row.text(seedsta), row.text(loc),
                                      row.text(seedchan)});
  }
  const db::TextColumn of_sta(affiliation.layout(), "sta"),
      of_net(affiliation.layout(), "net");
  for (long record = 0; record < affiliation.count(); record++) {
    const std::string_view text = affiliation.row(record);
    if (text.empty()) continue;
    const RowGet row(text, unreadable);
    networks_.try_emplace(row.text(of_sta), row.text(of_net));
  }
  for (const ExportTable *table : {&seedcode, &affiliation}) {
    if (table->complete()) continue;
    return refuse_table(messages, table->layout().name);
  }
  return true;
}

void SeedCodes::restore(ChannelCode &channel) const {
  const auto known = channels_.find(channel.station + ' ' + channel.channel);
  const auto network = networks_.find(channel.station);
  if (known != channels_.end()) {
    const ChannelCode &seed = known->second;
    channel.network = seed.network;
    channel.location = seed.location;
    if (!seed.station.empty()) channel.station = seed.station;
    /* The field may have cut the code of the channel. */
    const bool cut =
        channel.channel.starts_with(seed.channel) &&
        channel.channel.size() > seed.channel.size() + seed.location.size();
    if (cut) {
      channel.channel.resize(channel.channel.size() - seed.location.size());
    } else if (!seed.channel.empty()) {
      channel.channel = seed.channel;
    }
  }
  if (channel.network.empty() && network != networks_.end()) {
    channel.network = network->second;
  }
}

bool ExportTables::open(db::DatabaseStore &store) {
  return event.open(store, "event", nullptr) && origin.open(store, "origin", "evid") &&
         origerr.open(store, "origerr", "orid") &&
         netmag.open(store, "netmag", "orid") && mt.open(store, "mt", "orid") &&
         assoc.open(store, "assoc", "orid") && stamag.open(store, "stamag", "orid") &&
         arrival.open(store, "arrival", "arid") &&
         remark.open(store, "remark", "commid") && ids.open(store) && codes.open(store);
}

}  // namespace ksutil::exchange
