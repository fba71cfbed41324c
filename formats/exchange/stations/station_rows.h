/* station_rows: how the records of stations stand in rows of a database. */
#ifndef KSUTIL_FORMATS_EXCHANGE_STATIONS_STATION_ROWS_H
#define KSUTIL_FORMATS_EXCHANGE_STATIONS_STATION_ROWS_H

#include <cstdint>
#include <string>
#include <string_view>

#include "formats/exchange/import/event_rows.h"
#include "formats/exchange/stations/stations.h"
#include "platform/db/schema.h"

namespace ksutil::exchange {

/* Sets fields of a row to values; a field that has the value already keeps its text, also
 * when other programs print numbers in another way.  Else as RowPut. */
class RowEdit {
 public:
  RowEdit(const db::Relation &layout, std::string &row, FillReport &report)
      : layout_(layout), row_(row), report_(report) {}
  RowEdit &put(std::string_view name, std::int64_t value);
  RowEdit &put(std::string_view name, double value);
  RowEdit &put(std::string_view name, std::string_view value);
  /* The same with all digits that the field has room for, in exponent form where its
   * decimals would lose some. */
  RowEdit &put_exactly(std::string_view name, double value);
  /* Unless the value is not given: `missing`, or "". */
  RowEdit &given(std::string_view name, double value, double missing = -999.0) {
    return value == missing ? *this : put(name, value);
  }
  RowEdit &given(std::string_view name, std::string_view value) {
    return value.empty() ? *this : put(name, value);
  }

 private:
  void take(const db::Field &field, const std::string &fresh);

  const db::Relation &layout_;
  std::string &row_;
  FillReport &report_;
};

/* Days of epochs, YYYYDDD; -1 for kNoTime.  An epoch that ends at midnight has the day
 * before as its last day. */
std::int64_t first_day(const Epoch &epoch);
std::int64_t last_day(const Epoch &epoch);

/* sitechan.vang of a dip, and back: 0 up, 90 horizontal, 180 down for -90, 0 and 90. */
inline double vang_of_dip(double dip) { return dip + 90.0; }
inline double dip_of_vang(double vang) { return vang - 90.0; }

/* The displacement in nm for one count at a frequency f in Hz, from a sensitivity S in
 * counts for an input unit: 1e9 / (S (2 pi f)^n) for n time derivatives of displacement in
 * metres, since a harmonic displacement of amplitude u has the velocity 2 pi f u (Anderson
 * et al., 1990, Center Version 3 Database, SAIC-90/1235: instrument.ncalib).  0 when the
 * unit is not one of ground motion, or S or a needed f is 0. */
double ncalib_of(double sensitivity, double frequency, const std::string &unit);

/* The sensitivity in counts for the unit that ncalib stands for: the inverse. */
double sensitivity_of(double ncalib, double frequency, const std::string &unit);

/* The frequency that gives a period of a field with six decimals, with the fewest digits
 * that do; 0 for a period that is not positive. */
double frequency_of(double period);

/* The natural unit letter of rsptype: D, V or A; "" when it is not one of ground motion. */
std::string natural_unit(const std::string &unit);

/* The unit of such a letter: "M", "M/S" or "M/S**2"; "" for others. */
std::string unit_of_letter(const std::string &letter);

/* instrument.band for the first letter of a SEED channel code (SEED manual 2.4, appendix
 * A); "" for others. */
std::string_view band_of(const std::string &channel_code);

/* Set the fields that the records give; the others and lddate stay. */
void fill_site(const Station &station, const std::string &sta, RowEdit row);
void fill_geometry(const Channel &channel, RowEdit row);  // of sitechan
/* `file`: the name of the response file, "" without one; then `kind` stays unless the
 * instrument has no file either. */
void fill_instrument(const Channel &channel, const std::string &file,
                     const std::string &kind, bool had_file, RowEdit row);
void fill_sensor(const Channel &channel, RowEdit row);

/* Whether the channel tells of its instrument: then it gets rows of sensor and
 * instrument. */
bool has_instrument(const Channel &channel);

/* The directory of response files, beside the table instrument. */
inline constexpr char kResponseFolder[] = "response";

}  // namespace ksutil::exchange
#endif
