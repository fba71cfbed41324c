/* event_line: shows an event as one line of a list. */
#ifndef KSUTIL_TOOLS_KSEVENTS_EVENT_LINE_H
#define KSUTIL_TOOLS_KSEVENTS_EVENT_LINE_H

#include <string>
#include <string_view>
#include <vector>

#include "events/records.h"
#include "platform/db/columns.h"
#include "tools/common/rows.h"
#include "tools/common/unreadable.h"

namespace ksutil::tools {

/* Reads the position of an origin from its row, in the layout of one database. */
class OriginReader {
 public:
  /* False, with a message registered, when the database cannot be read. */
  bool open(const std::string &database);

  /* Position and depth in the row of an origin; -999 for a null and for a value that
   * cannot be read, which `unreadable` counts. */
  struct Position {
    double lat = -999.0, lon = -999.0, depth = -999.0;
  };
  Position position(std::string_view row, Unreadable &unreadable) const;

 private:
  db::RealColumn lat_, lon_, depth_;
};

/* Time, position, depth, preferred magnitude, evid and orid of an event; an event without
 * origins has the ids alone. */
class EventLines {
 public:
  /* With `raw` times are epoch seconds, and nulls the numbers that stand for them. */
  explicit EventLines(const OriginReader &origins, bool raw = false)
      : origins_(origins), raw_(raw) {}

  std::vector<Column> columns() const;
  std::vector<std::string> cells(const EVEvent &event, Unreadable &unreadable) const;

  /* The same as one line of text, for reports. */
  std::string sentence(const EVEvent &event) const;

 private:
  std::string real(double value, int decimals) const;

  const OriginReader &origins_;
  bool raw_;
};

/* The preferred origin, else the first one; null without origins. */
const EVOrigin *shown_origin(const EVEvent &event);

}  // namespace ksutil::tools
#endif
