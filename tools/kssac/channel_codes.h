/* ChannelCodes: keeps the SEED codes of SAC channels in the table seedcode.
 *
 * A database knows a channel by station and channel code alone.  Sensors of one station that
 * differ only in their location code (KHOLE) get channel codes of their own: the channel
 * code with the location code behind it, as the event server maps codes, unless seedcode
 * says otherwise. */
#ifndef KSUTIL_TOOLS_KSSAC_CHANNEL_CODES_H
#define KSUTIL_TOOLS_KSSAC_CHANNEL_CODES_H

#include <string>

#include "platform/db/db.h"
#include "tools/kssac/row_lookup.h"
#include "tools/kssac/sac_file.h"

namespace ksutil::tools {

class ChannelCodes {
 public:
  /* `db` must stay open for longer. */
  explicit ChannelCodes(Dbptr db) : db_(db) {}

  /* Gives the channel code of the database for KSTNM, KCMPNM and KHOLE of a file, and enters
   * a row of seedcode if it is new.  False with messages. */
  bool enter(KSSac *kssac, std::string &chan);

  /* Replaces KCMPNM by the SEED channel code that seedcode has for a row of wfdisc, if
   * any.  False with messages. */
  bool restore(Dbptr row, KSSac *kssac);

 private:
  bool add_row(Dbptr row);

  const Dbptr db_;
  RowLookup by_seed_{{"sta", "seedchan", "loc"}, {"sta", "seedchan", "loc"}};
  RowLookup by_channel_{{"sta", "chan"}, {"sta", "chan"}};
};

}  // namespace ksutil::tools
#endif
