#include "events/server/commands/internal/station_codes.h"

#include <algorithm>
#include <array>
#include <string>
#include <string_view>

#include "events/server/commands/internal/table_scan.h"
#include "events/server/internal/server_state.h"
#include "platform/db/columns.h"
#include "platform/elog/elog.h"
#include "platform/elog/failure.h"
#include "platform/stock/text.h"

namespace ksutil::events {
namespace {

/* Length of a SEED channel code; the letters after it are the location. */
constexpr std::size_t kSeedChannel = 3;

constexpr std::array<const char *, 6> kFields = {"sta",     "chan",     "net",
                                                 "seedsta", "seedchan", "loc"};
enum { kSta, kChan, kNet, kSeedSta, kSeedChan, kLoc };

/* One row of seedcode; nulls are empty. */
template <class Text>
using CodesOf = std::array<Text, kFields.size()>;
using Codes = CodesOf<std::string_view>;

bool given(const char *who, const std::string &sta, const std::string &chan) {
  if (!trimmed(sta).empty() && !trimmed(chan).empty()) return true;
  fail(who, "no station or no channel is given");
  return false;
}

/* Finds the first row of seedcode that `is_meant` accepts and passes it to `use`. 1:
 * found; 0: not found, or the schema has no such table; -1 with a message. */
template <class IsMeant, class Use>
int find_codes(ServerState &state, const char *who, IsMeant is_meant, Use use) {
  Command command(state, who);
  if (!command.open()) return -1;
  {
    const ElogScope quiet;
    if (command.table("seedcode").table == dbINVALID) return 0;
  }
  CodesOf<std::string> meant;
  const auto find_first = [&](TableScan &scan) {
    std::array<db::TextColumn, kFields.size()> columns;
    for (std::size_t i = 0; i < columns.size(); i++) {
      columns[i] = db::TextColumn(scan.rows()->layout(), kFields[i]);
    }
    bool found = false;
    const bool complete = scan.each([&](long, std::string_view row) {
      Codes codes;
      for (std::size_t i = 0; !found && i < columns.size(); i++) {
        if (!columns[i].read(row, codes[i])) return;
        if (columns[i].is_null(codes[i])) codes[i] = {};
      }
      if (found || !is_meant(codes)) return;
      found = true;
      std::copy(codes.begin(), codes.end(), meant.begin());
    });
    if (!complete) return -1;
    return found ? 1 : 0;
  };
  const int found = scan_table(command, "seedcode", find_first, -1);
  if (found == 1) use(meant);
  return found;
}

}  // namespace

CodeMapping exec_dbseed2css(ServerState &state, const std::string &net,
                            const std::string &sta, const std::string &chan,
                            const std::string &loc) {
  constexpr const char *kWho = "EVServer::execDbseed2css";
  CodeMapping mapping;
  if (!given(kWho, sta, chan)) return mapping;
  const std::string_view of_net = trimmed(net), of_sta = trimmed(sta),
                         of_chan = trimmed(chan);
  /* A blank location is often printed as two hyphens. */
  const std::string_view of_loc = trimmed(loc) == "--" ? "" : trimmed(loc);
  const int found = find_codes(
      state, kWho,
      [&](const Codes &codes) {
        return codes[kSeedSta] == of_sta && codes[kSeedChan] == of_chan &&
               codes[kLoc] == of_loc && (of_net.empty() || codes[kNet] == of_net);
      },
      [&](const CodesOf<std::string> &codes) {
        mapping.out2 = codes[kSta];
        mapping.out3 = codes[kChan];
      });
  if (found == 0) {
    mapping.out2 = of_sta;
    mapping.out3 = std::string(of_chan).append(of_loc);
  }
  mapping.status = found < 0 ? -1 : 0;
  return mapping;
}

CodeMapping exec_dbcss2seed(ServerState &state, const std::string &sta,
                            const std::string &chan) {
  constexpr const char *kWho = "EVServer::execDbcss2seed";
  CodeMapping mapping;
  if (!given(kWho, sta, chan)) return mapping;
  const std::string_view of_sta = trimmed(sta), of_chan = trimmed(chan);
  const int found = find_codes(
      state, kWho,
      [&](const Codes &codes) {
        return codes[kSta] == of_sta && codes[kChan] == of_chan;
      },
      [&](const CodesOf<std::string> &codes) {
        mapping.out1 = codes[kNet];
        mapping.out2 = codes[kSeedSta];
        mapping.out3 = codes[kSeedChan];
        mapping.out4 = codes[kLoc];
      });
  if (found == 0) {
    mapping.out2 = of_sta;
    mapping.out3 = of_chan.substr(0, kSeedChannel);
    if (of_chan.size() > kSeedChannel) mapping.out4 = of_chan.substr(kSeedChannel);
  }
  mapping.status = found < 0 ? -1 : 0;
  return mapping;
}

}  // namespace ksutil::events
