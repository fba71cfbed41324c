/* One event as a line of a list. */
#ifndef KSUTIL_TOOLS_KSEVENTS_EVENT_LINE_H
#define KSUTIL_TOOLS_KSEVENTS_EVENT_LINE_H

#include <string>
#include <vector>

#include "events/records.h"
#include "platform/db/columns.h"
#include "platform/db/db.h"
#include "tools/common/rows.h"

namespace ksutil::tools {

/* Where the fields of an origin row stand in a database's file. */
class OriginReader {
 public:
  /* False, with a message, when the database cannot be read. */
  bool open(const std::string &database);

  /* Position and depth of an origin; nulls as the row has them. */
  struct Position {
    double lat = -999.0, lon = -999.0, depth = -999.0;
  };
  Position position(const EVOrigin &origin) const;

 private:
  db::RealColumn lat_, lon_, depth_;
};

/* Time, position, depth, preferred magnitude, evid and orid of an event; an event without
 * origins has the ids alone. */
class EventLines {
 public:
  explicit EventLines(const OriginReader &origins) : origins_(origins) {}

  static std::vector<Column> columns();
  std::vector<std::string> cells(const EVEvent &event) const;

  /* The same as one line of text, for reports. */
  std::string sentence(const EVEvent &event) const;

 private:
  const OriginReader &origins_;
};

/* The preferred origin, else the first one; null without origins. */
const EVOrigin *shown_origin(const EVEvent &event);

}  // namespace ksutil::tools
#endif
