/* formats_page: describes all formats, from what they say of themselves. */
#ifndef KSUTIL_FORMATS_EXCHANGE_FORMATS_PAGE_H
#define KSUTIL_FORMATS_EXCHANGE_FORMATS_PAGE_H

#include <string>

#include "formats/exchange/format.h"

namespace ksutil::exchange {

struct Directions {
  bool in = false, out = false;
  bool stations = false;  // not events
};
Directions directions_of(const Format &format);

/* The page docs/formats.md. */
std::string formats_page();

}  // namespace ksutil::exchange
#endif
