/* event_rows: how the records of an event stand in rows of a database. */
#ifndef KSUTIL_FORMATS_EXCHANGE_IMPORT_EVENT_ROWS_H
#define KSUTIL_FORMATS_EXCHANGE_IMPORT_EVENT_ROWS_H

#include <cstdint>
#include <string>
#include <string_view>

#include "formats/exchange/records.h"
#include "formats/exchange/unplaced.h"
#include "platform/db/schema.h"

namespace ksutil::exchange {

/* A text id for a field of `width` characters.  One that is longer keeps its beginning and
 * ends in "~" and `digits` characters that are computed from all of it, so that the same
 * id always gives the same text. */
std::string fitted_id(const std::string &id, int width, int digits);

/* The text id as it stands in event.evname and in publicid.textid. */
inline constexpr int kNameDigits = 6, kPublicDigits = 12;
inline std::string event_name(const std::string &id, int width) {
  return fitted_id(id, width, kNameDigits);
}
inline std::string public_text(const std::string &id, int width) {
  return fitted_id(id, width, kPublicDigits);
}

/* Whether a name in a field of `name_width` characters may be the event_name() of an id
 * that was too long for the field of its public_text(), so that only its beginning can be
 * compared. */
bool is_name_of_long_id(const std::string &name, int name_width,
                        const std::string &public_text, int text_width);

/* Faults met while rows were filled. */
struct FillReport {
  std::string refused;         // the first value that does not fit; "" when all do
  std::int64_t shortened = 0;  // texts that were cut to their fields
  UnplacedCounts cut_fields;   // these fields
  UnplacedCounts left_out;     // values that were left out, by field
};

/* Sets fields of a row of one layout.  A field that the layout lacks is left out; a text
 * that is too long keeps what fits; "" is the null.  A value that does not fit leaves a message
 * in the error register besides the one in the report. */
class RowPut {
 public:
  RowPut(const db::Relation &layout, std::string &row, FillReport &report)
      : layout_(layout), row_(row), report_(report) {}
  RowPut &put(std::string_view name, std::int64_t value);
  RowPut &put(std::string_view name, double value);
  RowPut &put(std::string_view name, std::string_view value);
  /* As put(); false when the layout lacks the field. */
  bool put_if_there(std::string_view name, std::string_view value);
  /* Counts something that the row has no field for. */
  void leave_out(std::string_view name) { report_.left_out.add(name); }
  /* From here on a value that does not fit is left out and counted, its field null. */
  RowPut &lenient();

 private:
  const db::Field *next(std::string_view name);
  void refuse(const db::Field &field, const std::string &value);

  const db::Relation &layout_;
  std::string &row_;
  FillReport &report_;
  std::size_t at_ = 0;  // where the last field was found: they come in order
  bool lenient_ = false;
  int mark_ = 0;  // of the messages before
};

/* The ids of the magnitude rows behind mb, ms and ml of an origin; -1: none. */
struct OriginMagnitudes {
  double mb = -999.0, ms = -999.0, ml = -999.0;
  std::int64_t mbid = -1, msid = -1, mlid = -1;
};
/* Takes the magnitude into the fields, when its type has one that is still free. */
void choose_magnitude(const Magnitude &magnitude, std::int64_t magid,
                      OriginMagnitudes &own);

/* The ids that a row stands under. */
struct RowIds {
  std::int64_t evid = -1, orid = -1, magid = -1, mtid = -1, arid = -1;
};

bool has_errors(const Origin &origin);

/* Set the fields that the records give; the others stay.  lddate is not set. */
void fill_origin(const Event &event, const Origin &origin, const RowIds &ids,
                 const OriginMagnitudes &own, RowPut row);
void fill_netmag(const Magnitude &magnitude, const RowIds &ids, RowPut row);
void fill_mt(const MomentTensor &tensor, const RowIds &ids, RowPut row);

/* An origin with a covariance and no ellipse gets the ellipse of the covariance, at its
 * level of confidence or, without one, that of one standard deviation. */
bool lacks_ellipse(const Origin &origin);
void fill_origerr(const Origin &origin, const RowIds &ids, RowPut row);

/* A station channel by its codes in the database. */
struct StationCode {
  std::string sta, chan;
};
void fill_arrival(const Pick &pick, const StationCode &code, const RowIds &ids,
                  RowPut row);
void fill_assoc(const Association &association, const Origin &origin,
                const std::string &sta, const RowIds &ids, RowPut row);
void fill_stamag(const StationMagnitude &magnitude, const std::string &sta,
                 const RowIds &ids, RowPut row);

/* Whether the word of an evaluation says that a person has looked. */
bool is_reviewed(std::string_view status);

}  // namespace ksutil::exchange
#endif
