/* HeaderEvent: enters the picks and the origin of a SAC header into a database. */
#ifndef KSUTIL_TOOLS_KSSAC_HEADER_EVENT_H
#define KSUTIL_TOOLS_KSSAC_HEADER_EVENT_H

#include <string>
#include <vector>

#include "platform/db/db.h"
#include "tools/kssac/row_lookup.h"
#include "tools/kssac/sac_file.h"

namespace ksutil::tools {

/* A becomes an arrival with the phase of KA, or P; T0 to T9 arrivals with the phase of KT0 to
 * KT9, if any.  O with EVLA and EVLO becomes an origin and its event, the depth being
 * EVDP.  Arrivals of a header are associated with its origin.  What the database has
 * already is not entered again: an arrival of the same channel, phase and time, and an
 * origin of the same place and time, as headers of several stations round them. */
class HeaderEvent {
 public:
  /* `db` must stay open for longer. */
  HeaderEvent(Dbptr db, bool picks, bool origin)
      : db_(db), with_picks_(picks), with_origin_(origin) {}

  /* Whether the header can be entered; complains in the name of the file if not. */
  bool check(KSSac *kssac, const std::string &file) const;

  /* Enters a header; `wfdisc` is a row with its station, channel and chanid.  False with
   * messages. */
  bool enter(KSSac *kssac, Dbptr wfdisc);

 private:
  struct Origin {
    double time, lat, lon, depth;  // degrees; km, -999 unknown
    long orid, record;
  };
  struct Arrival {
    long arid;
    std::string phase;
  };

  Dbptr table(const char *name) const { return dblookup(db_, "", name, "", ""); }
  Dbptr scratch(const char *name) const;
  bool read_origins();
  bool enter_origin(KSSac *kssac, Origin &origin);
  bool enter_arrival(KSSac *kssac, Dbptr wfdisc, const char *variable, double time,
                     std::vector<Arrival> &arrivals);
  bool associate(KSSac *kssac, Dbptr wfdisc, const Origin &origin,
                 const std::vector<Arrival> &arrivals);

  const Dbptr db_;
  const bool with_picks_, with_origin_;
  bool read_ = false;
  std::vector<Origin> origins_;
  RowLookup arrivals_{{"sta", "chan", "time", "iphase"},
                      {"sta", "chan", "time", "iphase"}};
  RowLookup assocs_{{"arid", "orid"}, {"arid", "orid"}};
};

}  // namespace ksutil::tools
#endif
