/* query: compiles and holds queries of the client query language, which are fields of
 * events and origins and expressions over them.  docs/query-language.md is its manual.
 *
 * EVClient::parse_query compiles a query once; EVClient::getValue evaluates it on any
 * number of records. */
#ifndef KSUTIL_EVENTS_QUERY_H
#define KSUTIL_EVENTS_QUERY_H

#include <cstddef>
#include <memory>
#include <string>
#include <vector>

#include "platform/stock/export.h"

namespace ksutil::events {
class Query;
}

/* The type of a value that getValue has written. */
enum EVValueType {
  EV_INTEGER = 1,  // int64_t; a boolean is 0 or 1
  EV_DOUBLE = 2,   // double; a time is epoch seconds
  EV_TEXT = 3      // characters and a NUL
};

/* Size of the value buffer of getValue, which must be aligned for an int64_t and a
 * double.  A longer text is cut to 1023 characters. */
inline constexpr std::size_t EV_VALUE_SIZE = 1024;

/* A compiled query.  It never changes, and copies share it.  Any threads may use it at
 * once, and any client, also after the client that parsed it was destroyed. */
struct EVQueryToken {
  std::string text;
  std::shared_ptr<const ksutil::events::Query> query;
};

namespace ksutil::events {

/* Whether a query about events needs nothing but the rows of event and origin, so that it
 * can be asked before the rest of an event is read (each_event, events/event_rows.h). */
KSUTIL_API bool needs_outline_only(const std::vector<EVQueryToken> &tokens);

}  // namespace ksutil::events

#endif
