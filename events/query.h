/* The client query language: fields of events and origins, and expressions over them.
 * docs/query-language.md is its manual.
 *
 * EVClient::parse_query compiles a query once; EVClient::getValue evaluates it on any
 * number of records. */
#ifndef KSUTIL_EVENTS_QUERY_H
#define KSUTIL_EVENTS_QUERY_H

#include <cstddef>
#include <memory>
#include <string>

namespace ksutil::events {
class Query;
}

/* What kind of value getValue has written. */
enum EVValueType {
  EV_INTEGER = 1,  // int64_t; a boolean is 0 or 1
  EV_DOUBLE = 2,   // double; a time is epoch seconds
  EV_TEXT = 3      // characters with a terminating zero
};

/* The bytes that the value buffer of getValue must hold, aligned for an int64_t and a
 * double; a longer text is cut to 1023 characters. */
inline constexpr std::size_t EV_VALUE_SIZE = 1024;

/* A compiled query.  Copies share it, it never changes, and it may be used by any threads
 * at once and by any client, also after the one that parsed it has gone. */
struct EVQueryToken {
  std::string text;
  std::shared_ptr<const ksutil::events::Query> query;
};

#endif
