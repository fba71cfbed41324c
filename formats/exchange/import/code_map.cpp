#include "formats/exchange/import/code_map.h"

#include "platform/db/columns.h"

namespace ksutil::exchange {
namespace {

std::string text_of(const db::Snapshot &rows, std::int64_t row, const char *field) {
  const db::TextColumn column(rows.layout(), field);
  std::string_view text;
  return column.read(rows.row(row), text) && !column.is_null(text) ? std::string(text)
                                                                   : "";
}

}  // namespace

bool CodeMap::enter(Table table, std::uint64_t key) {
  key = key * kTableCount + table;
  if (!keys_.insert(key).second) return false;
  fresh_keys_.push_back(key);
  return true;
}

void CodeMap::forget() {
  for (const std::string &name : fresh_) known_.erase(name);
  for (const std::uint64_t key : fresh_keys_) keys_.erase(key);
  keep();
}

const StationCode &CodeMap::find(const ChannelCode &channel, const AddRow &add,
                                 FillReport &report) {
  std::string name = channel.network + '\n' + channel.station + '\n' +
                     channel.location + '\n' + channel.channel;
  const auto known = known_.find(name);
  if (known != known_.end()) return known->second;
  fresh_.push_back(name);
  return known_.emplace(std::move(name), look_up(channel, add, report)).first->second;
}

/* A database without networks gets none from picks; one with networks gets all that rows
 * name. */
void CodeMap::add_network(std::string_view network, const AddRow &add,
                          FillReport &report) {
  if (!tables_.has(kNetwork) || tables_.rows(kNetwork).count() == 0) return;
  std::string row = tables_.null_row(kNetwork);
  RowPut(tables_.layout(kNetwork), row, report).lenient().put("net", network);
  const std::uint64_t key = tables_.key_of(RowKey::kNetwork, row);
  if (tables_.rows_with(RowKey::kNetwork, key).empty() && enter(kNetwork, key)) {
    add(kNetwork, std::move(row));
  }
}

StationCode CodeMap::look_up(const ChannelCode &channel, const AddRow &add,
                             FillReport &report) {
  StationCode code{channel.station, channel.channel + channel.location};
  if (channel.network.empty() || channel.station.empty()) return code;
  const auto network = std::string_view(channel.network);
  if (tables_.has(kSeedcode) && !channel.channel.empty()) {
    std::string row = tables_.null_row(kSeedcode);
    RowPut(tables_.layout(kSeedcode), row, report)
        .lenient()
        .put("sta", std::string_view(code.sta))
        .put("chan", std::string_view(code.chan))
        .put("net", network)
        .put("seedsta", std::string_view(channel.station))
        .put("seedchan", std::string_view(channel.channel))
        .put("loc", std::string_view(channel.location));
    const auto named =
        tables_.rows_with(RowKey::kSeedName, tables_.key_of(RowKey::kSeedName, row));
    const std::uint64_t key = tables_.key_of(RowKey::kChannel, row);
    if (!named.empty()) {
      code.sta = text_of(tables_.rows(kSeedcode), named.front().row, "sta");
      code.chan = text_of(tables_.rows(kSeedcode), named.front().row, "chan");
    } else if (!tables_.rows_with(RowKey::kChannel, key).empty() ||
               !enter(kSeedcode, key)) {
      report.left_out.add("the SEED codes of a channel whose code stands for another");
    } else {
      add(kSeedcode, std::move(row));
    }
  }
  add_network(network, add, report);
  if (!tables_.has(kAffiliation)) return code;
  std::string row = tables_.null_row(kAffiliation);
  RowPut(tables_.layout(kAffiliation), row, report)
      .lenient()
      .put("net", network)
      .put("sta", std::string_view(code.sta));
  const std::uint64_t key = tables_.key_of(RowKey::kAffiliation, row);
  if (tables_.rows_with(RowKey::kAffiliation, key).empty() &&
      enter(kAffiliation, key)) {
    add(kAffiliation, std::move(row));
  }
  return code;
}

}  // namespace ksutil::exchange
