#include "tools/kssac/channel_codes.h"

#include "platform/clock/clock.h"
#include "platform/db/access.h"
#include "platform/stock/text.h"
#include "tools/common/cli.h"

namespace ksutil::tools {

bool ChannelCodes::enter(KSSac *kssac, std::string &chan) {
  std::string sta, seedchan, loc, net;
  known(kssac, "KSTNM", sta);
  known(kssac, "KCMPNM", seedchan);
  chan = seedchan;
  if (!known(kssac, "KHOLE", loc)) return true;
  loc = std::string(location_code(loc));
  chan += loc;
  if (!db::has_table(db_, "seedcode")) return true;

  Dbptr row = dblookup(db_, "", "seedcode", "", "");
  row.record = dbNULL;
  if (dbget(row, nullptr) != 0) return false;
  row.record = dbSCRATCH;
  if (dbputv(row, "sta", sta.c_str(), "chan", chan.c_str(), "seedsta", sta.c_str(),
             "seedchan", seedchan.c_str(), "loc", loc.c_str(), "lddate", std_now(),
             (char *)nullptr) != 0 ||
      (known(kssac, "KNETWK", net) &&
       dbputv(row, "net", net.c_str(), (char *)nullptr) != 0)) {
    return false;
  }
  Dbptr found = dblookup(db_, "", "seedcode", "", "");
  const long count = by_seed_.find(row, found);
  if (count <= 0) return count == 0 && add_row(row);
  char code[64];
  if (dbgetv(found, "chan", code, (char *)nullptr) != 0) return false;
  chan = code;
  return true;
}

/* Adds a row of new SEED codes.  A channel code that stands for others is an error. */
bool ChannelCodes::add_row(Dbptr row) {
  Dbptr found = dblookup(db_, "", "seedcode", "", "");
  const long taken = by_channel_.find(row, found);
  if (taken < 0) return false;
  if (taken > 0) {
    char sta[64], chan[64];
    dbgetv(row, "sta", sta, "chan", chan, (char *)nullptr);
    complain(std::string("channel ") + chan + " of station " + sta +
             " stands for other codes in seedcode");
    return false;
  }
  return dbadd(row, nullptr) >= 0;
}

bool ChannelCodes::restore(Dbptr row, KSSac *kssac) {
  if (!db::has_table(db_, "seedcode")) return true;
  Dbptr found = dblookup(db_, "", "seedcode", "", "");
  const long count = by_channel_.find(row, found);
  if (count < 1) return count == 0;
  char seedchan[64];
  return dbgetv(found, "seedchan", seedchan, (char *)nullptr) == 0 &&
         (std::string_view(seedchan) == "-" ||
          kssac_puthdr_kssac(kssac, "KCMPNM", seedchan, (char *)nullptr) == 0);
}

}  // namespace ksutil::tools
