/* joined_row: reads the fields of the table rows that make up one record. */
#ifndef KSUTIL_FORMATS_SAC_INTERNAL_JOINED_ROW_H
#define KSUTIL_FORMATS_SAC_INTERNAL_JOINED_ROW_H

#include <cstdint>
#include <initializer_list>
#include <string>
#include <string_view>
#include <vector>

#include "platform/db/access.h"
#include "platform/db/db.h"
#include "platform/db/schema.h"

namespace ksutil::sac {

inline constexpr double kMetresPerKm = 1000.0;  // rows have km, headers m

struct RowPart {
  Dbptr row;
  const db::Relation *layout;
  db::RowText text;
};

/* Reads look through the named tables in their order; the first value that is not null
 * counts.  A field that cannot be read is null. */
class JoinedRow {
 public:
  using Tables = std::initializer_list<std::string_view>;

  /* Whether a pointer names a record at all. */
  static bool is_valid(Dbptr record);

  /* Reads the rows; false with a message of the database. */
  bool open(Dbptr record);

  const RowPart *part(std::string_view table) const;  // null: the record has none
  std::vector<const RowPart *> parts(Tables tables) const;

  /* False for a null, with the value untouched. */
  bool real(Tables tables, const char *field, double &value) const;
  bool integer(Tables tables, const char *field, std::int64_t &value) const;
  bool text(Tables tables, const char *field, std::string &value) const;

 private:
  std::vector<RowPart> parts_;
};

}  // namespace ksutil::sac
#endif
