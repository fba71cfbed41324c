/* table_formats: the formats that are tables with column names. */
#ifndef KSUTIL_FORMATS_EXCHANGE_TABLE_TABLE_FORMATS_H
#define KSUTIL_FORMATS_EXCHANGE_TABLE_TABLE_FORMATS_H

#include "formats/exchange/format.h"

namespace ksutil::exchange {

extern const Format kCsvFormat;       // the columns of the ComCat event feed
extern const Format kFdsnTextFormat;  // the text form of the FDSN event service

/* The delimiter that makes the most columns of a line with column names. */
char delimiter_of(std::string_view first_line);

}  // namespace ksutil::exchange
#endif
