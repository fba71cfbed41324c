/* record_bytes: events as bytes, for files that this process alone writes and reads. */
#ifndef KSUTIL_FORMATS_EXCHANGE_IMPORT_RECORD_BYTES_H
#define KSUTIL_FORMATS_EXCHANGE_IMPORT_RECORD_BYTES_H

#include <string>
#include <string_view>

#include "formats/exchange/records.h"

namespace ksutil::exchange {

/* Appends the event to `bytes`.  Its id comes first, after its length in 4 bytes. */
void put_event(const Event &event, std::string &bytes);

/* The event that put_event wrote; false when the bytes are not whole. */
bool get_event(std::string_view bytes, Event &event);

/* The id of the event that put_event wrote. */
std::string_view id_of(std::string_view bytes);

}  // namespace ksutil::exchange
#endif
