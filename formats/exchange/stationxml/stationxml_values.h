/* stationxml_values: reads the numbers and units of StationXML elements. */
#ifndef KSUTIL_FORMATS_EXCHANGE_STATIONXML_STATIONXML_VALUES_H
#define KSUTIL_FORMATS_EXCHANGE_STATIONXML_STATIONXML_VALUES_H

#include <cstdint>
#include <string>
#include <string_view>

#include "formats/exchange/text/xml_element.h"

namespace ksutil::exchange {

/* A fault of a value; thrown by the functions below and caught by the reader, which refuses
 * the station or channel. */
struct ValueFault {
  std::int64_t line;
  std::string cause;
};

/* The number of the element at `path` (see XmlElement::find); `missing` when there is no
 * such element.  A text that is not a finite number is a fault. */
double number_of(const XmlElement &element, std::string_view path, double missing);
/* The same for an element that must be there, and for its own text. */
double needed_number(const XmlElement &element, std::string_view path);
double own_number(const XmlElement &element);

/* The name of the units at `path`, in capitals; "" when there are none. */
std::string unit_of(const XmlElement &element, std::string_view path);

}  // namespace ksutil::exchange
#endif
