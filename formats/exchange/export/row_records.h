/* row_records: gives the rows of a database as the records of the exchange formats: what
 * import/event_rows.h does, the other way round. */
#ifndef KSUTIL_FORMATS_EXCHANGE_EXPORT_ROW_RECORDS_H
#define KSUTIL_FORMATS_EXCHANGE_EXPORT_ROW_RECORDS_H

#include <array>
#include <cstdint>
#include <string>
#include <string_view>

#include "formats/exchange/export/left_out.h"
#include "formats/exchange/import/remark_lines.h"
#include "formats/exchange/records.h"
#include "platform/db/columns.h"

namespace ksutil::exchange {

/* Reads values of one row.  A null, and a value that cannot be read, which is counted,
 * gives the null that is asked for. */
class RowGet {
 public:
  RowGet(std::string_view row, std::int64_t &unreadable)
      : row_(row), unreadable_(unreadable) {}

  double real(const db::RealColumn &column, double null = -1.0) const;
  std::int64_t integer(const db::IntegerColumn &column) const;  // null: -1
  std::string text(const db::TextColumn &column) const;
  /* The first character of a text; 0 for a null. */
  char letter(const db::TextColumn &column) const;

 private:
  std::string_view row_;
  std::int64_t &unreadable_;
};

/* The readers below are bound to the layout of their table once.  What a row has and the
 * records have no place for goes into `left_out`. */

struct OriginRows {
  explicit OriginRows(const db::Relation &layout);
  void read(const RowGet &row, Origin &origin, LeftOut &left_out) const;

  /* A magnitude of the row itself, with the id of the netmag row behind it, if any. */
  struct Own {
    const char *type = "";
    double value = -999.0;
    std::int64_t magid = -1;
  };
  std::array<Own, 3> own_magnitudes(const RowGet &row) const;

  db::IntegerColumn orid, evid, commid;
  db::RealColumn time;
  db::TextColumn etype;

 private:
  db::RealColumn lat_, lon_, depth_, depdp_;
  db::IntegerColumn nass_, ndef_, ndp_;
  std::array<db::RealColumn, 3> own_values_;
  std::array<db::IntegerColumn, 3> own_ids_;
  db::TextColumn dtype_, algorithm_, auth_;
};

struct OrigerrRows {
  explicit OrigerrRows(const db::Relation &layout);
  void read(const RowGet &row, Origin &origin) const;

  db::IntegerColumn commid;

 private:
  std::array<db::RealColumn, 10> covariance_;
  db::RealColumn sdobs_, smajax_, sminax_, strike_, sdepth_, stime_, conf_;
};

struct NetmagRows {
  explicit NetmagRows(const db::Relation &layout);
  void read(const RowGet &row, Magnitude &magnitude, LeftOut &left_out) const;

  db::IntegerColumn magid, commid;

 private:
  db::TextColumn net_, magtype_, auth_;
  db::IntegerColumn nsta_;
  db::RealColumn magnitude_, uncertainty_;
};

struct StamagRows {
  explicit StamagRows(const db::Relation &layout);
  void read(const RowGet &row, StationMagnitude &magnitude, LeftOut &left_out) const;

  db::IntegerColumn magid, arid;

 private:
  db::IntegerColumn ampid_, commid_;
  db::TextColumn sta_, phase_, magtype_, magdef_, mmodel_, auth_;
  db::RealColumn delta_, magnitude_, uncertainty_, magres_;
};

struct ArrivalRows {
  explicit ArrivalRows(const db::Relation &layout);
  /* Station and channel as the database names them, in pick.at. */
  void read(const RowGet &row, Pick &pick, LeftOut &left_out) const;

  db::IntegerColumn arid, commid;

 private:
  db::IntegerColumn stassid_;
  db::TextColumn sta_, chan_, iphase_, stype_, clip_, fm_, qual_, auth_;
  db::RealColumn time_, deltim_, azimuth_, delaz_, slow_, delslo_, ema_, rect_, amp_,
      per_, logat_, snr_;
};

struct AssocRows {
  explicit AssocRows(const db::Relation &layout);
  void read(const RowGet &row, Association &association, LeftOut &left_out) const;

  db::IntegerColumn arid;

 private:
  db::IntegerColumn commid_;
  db::TextColumn phase_, timedef_, azdef_, slodef_, vmodel_;
  db::RealColumn belief_, delta_, seaz_, esaz_, timeres_, azres_, slores_, emares_,
      wgt_;
};

struct MtRows {
  explicit MtRows(const db::Relation &layout);
  void read(const RowGet &row, MomentTensor &tensor) const;

  db::IntegerColumn mtid, magid, commid;

 private:
  db::RealColumn ctime_, clat_, clon_, cdepth_, moment_, mw_, pctdc_, pctclvd_, pctiso_,
      varred_;
  std::array<db::RealColumn, 6> elements_, planes_;
  std::array<db::RealColumn, 9> axes_;
  db::IntegerColumn nsta_, ncomp_;
  db::TextColumn evalmode_, algorithm_, auth_;
};

/* Take a comment line of an event, of an origin, of an origerr row: what the importer keeps
 * there goes back to its place, anything else to the comments.  `magid` is that of the
 * preferred magnitude when the line names it. */
void read_event_remark(std::string_view line, Event &event, PreferredIds &preferred);
void read_origin_remark(std::string_view line, Origin &origin);
void read_origerr_remark(std::string_view line, Origin &origin);

}  // namespace ksutil::exchange
#endif
