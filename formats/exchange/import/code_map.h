/* CodeMap: gives station channels of other systems their codes in the database.
 *
 * The table seedcode decides; a channel that it lacks keeps its station code, and its
 * channel code gets the location code behind it, as the event server maps codes.  Such a
 * channel is entered into seedcode, its station into affiliation, and its network into
 * network where the database has that table. */
#ifndef KSUTIL_FORMATS_EXCHANGE_IMPORT_CODE_MAP_H
#define KSUTIL_FORMATS_EXCHANGE_IMPORT_CODE_MAP_H

#include <functional>
#include <string>
#include <string_view>
#include <unordered_map>
#include <unordered_set>
#include <vector>

#include "formats/exchange/import/event_rows.h"
#include "formats/exchange/import/import_tables.h"
#include "formats/exchange/records.h"

namespace ksutil::exchange {

class CodeMap {
 public:
  explicit CodeMap(const ImportTables &tables) : tables_(tables) {}

  /* The codes of a channel.  `add` takes the rows that are missing; what cannot be told
   * apart is counted in the report. */
  using AddRow = std::function<void(Table table, std::string row)>;
  const StationCode &find(const ChannelCode &channel, const AddRow &add,
                          FillReport &report);

  /* The rows given since the last call are written, or are not. */
  void keep() { fresh_.clear(), fresh_keys_.clear(); }
  void forget();

 private:
  StationCode look_up(const ChannelCode &channel, const AddRow &add,
                      FillReport &report);
  void add_network(std::string_view network, const AddRow &add, FillReport &report);
  bool enter(Table table, std::uint64_t key);

  const ImportTables &tables_;
  std::unordered_map<std::string, StationCode> known_;
  std::unordered_set<std::uint64_t> keys_;  // of rows that this import has added
  std::vector<std::string> fresh_;          // of known_
  std::vector<std::uint64_t> fresh_keys_;
};

}  // namespace ksutil::exchange
#endif
