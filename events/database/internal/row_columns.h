/* row_columns: the fields that readings use of each table, bound to a layout. */
#ifndef KSUTIL_EVENTS_DATABASE_INTERNAL_ROW_COLUMNS_H
#define KSUTIL_EVENTS_DATABASE_INTERNAL_ROW_COLUMNS_H

#include "platform/db/columns.h"

namespace ksutil::events {

/* Times at or before this are null. */
inline constexpr double kNoTimeBelow = -9999999999.0;
/* The null value of magnitudes, positions and residuals. */
inline constexpr double kNoValue = -999.0;

struct EventColumns {
  EventColumns() = default;
  explicit EventColumns(const db::Relation &layout)
      : evid(layout, "evid"), prefor(layout, "prefor"), lddate(layout, "lddate") {}
  db::IntegerColumn evid, prefor;
  db::RealColumn lddate;
};

struct OriginColumns {
  OriginColumns() = default;
  explicit OriginColumns(const db::Relation &layout)
      : orid(layout, "orid"),
        evid(layout, "evid"),
        mbid(layout, "mbid"),
        msid(layout, "msid"),
        mlid(layout, "mlid"),
        time(layout, "time"),
        lddate(layout, "lddate"),
        mb(layout, "mb"),
        ms(layout, "ms"),
        ml(layout, "ml"),
        lat(layout, "lat"),
        lon(layout, "lon"),
        depth(layout, "depth") {}
  db::IntegerColumn orid, evid, mbid, msid, mlid;
  db::RealColumn time, lddate, mb, ms, ml, lat, lon, depth;
};

/* A row that refers to an origin: of origerr or mt. */
struct OridColumns {
  OridColumns() = default;
  explicit OridColumns(const db::Relation &layout)
      : orid(layout, "orid"), lddate(layout, "lddate") {}
  db::IntegerColumn orid;
  db::RealColumn lddate;
};

struct NetmagColumns {
  NetmagColumns() = default;
  explicit NetmagColumns(const db::Relation &layout)
      : orid(layout, "orid"),
        magid(layout, "magid"),
        magtype(layout, "magtype"),
        magnitude(layout, "magnitude"),
        lddate(layout, "lddate") {}
  db::IntegerColumn orid, magid;
  db::TextColumn magtype;
  db::RealColumn magnitude, lddate;
};

struct StamagColumns {
  StamagColumns() = default;
  explicit StamagColumns(const db::Relation &layout)
      : sta(layout, "sta"),
        magtype(layout, "magtype"),
        magnitude(layout, "magnitude"),
        lddate(layout, "lddate") {}
  db::TextColumn sta, magtype;
  db::RealColumn magnitude, lddate;
};

struct AssocColumns {
  AssocColumns() = default;
  explicit AssocColumns(const db::Relation &layout)
      : arid(layout, "arid"),
        orid(layout, "orid"),
        sta(layout, "sta"),
        phase(layout, "phase"),
        timedef(layout, "timedef"),
        timeres(layout, "timeres"),
        lddate(layout, "lddate") {}
  db::IntegerColumn arid, orid;
  db::TextColumn sta, phase, timedef;
  db::RealColumn timeres, lddate;
};

struct ArrivalColumns {
  ArrivalColumns() = default;
  explicit ArrivalColumns(const db::Relation &layout)
      : sta(layout, "sta"), time(layout, "time"), lddate(layout, "lddate") {}
  db::TextColumn sta;
  db::RealColumn time, lddate;
};

struct SiteColumns {
  SiteColumns() = default;
  explicit SiteColumns(const db::Relation &layout)
      : ondate(layout, "ondate"),
        offdate(layout, "offdate"),
        sta(layout, "sta"),
        lat(layout, "lat"),
        lon(layout, "lon"),
        elev(layout, "elev") {}
  db::IntegerColumn ondate, offdate;
  db::TextColumn sta;
  db::RealColumn lat, lon, elev;
};

struct DetectionColumns {
  DetectionColumns() = default;
  explicit DetectionColumns(const db::Relation &layout)
      : sta(layout, "sta"),
        chan(layout, "chan"),
        state(layout, "state"),
        time(layout, "time"),
        lddate(layout, "lddate") {}
  db::TextColumn sta, chan, state;
  db::RealColumn time, lddate;
};

}  // namespace ksutil::events
#endif
