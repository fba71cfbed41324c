/* row_values: writes values that users name as texts into the fields of a row. */
#ifndef KSUTIL_TOOLS_KSDB_ROW_VALUES_H
#define KSUTIL_TOOLS_KSDB_ROW_VALUES_H

#include <string>
#include <string_view>
#include <vector>

#include "platform/db/schema.h"

namespace ksutil::tools {

struct FieldText {
  std::string field, text;
};

/* Splits "field=value" at the first equals sign; false when there is none. */
bool split_assignment(const std::string &operand, FieldText &value);

/* Writes values into a row of the layout: numbers, texts as they are, times and load dates
 * as epoch seconds or as dates, days as YYYYDDD or as dates.  An empty text and "-" are the
 * null of the field.  A row whose time is among the values gets the day of it in jdate
 * unless that is named as well.
 * False, with `problem` set, for a field that the layout lacks or that is named twice, and
 * for a value that its field cannot hold; the row is then of no use. */
bool write_values(const db::Relation &layout, const std::vector<FieldText> &values,
                  std::string &row, std::string &problem);

/* Whether a field is among the values. */
bool is_named(const std::vector<FieldText> &values, std::string_view field);

/* Sets jdate, the year and the day of the year, from the time of a row, where the layout
 * has both; null for a null. */
void date_row(const db::Relation &layout, std::string &row);

/* Sets lddate to now where the layout has it. */
void stamp_row(const db::Relation &layout, std::string &row);

}  // namespace ksutil::tools
#endif
