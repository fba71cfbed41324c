/* event_query: asks queries of the command line about events. */
#ifndef KSUTIL_TOOLS_KSEVENTS_EVENT_QUERY_H
#define KSUTIL_TOOLS_KSEVENTS_EVENT_QUERY_H

#include <string>
#include <vector>

#include "events/evclient.h"
#include "tools/common/rows.h"

namespace ksutil::tools {

class EventQuery {
 public:
  /* False, with messages registered, when the text is not a query about events.  With `raw`
   * times are shown as epoch seconds. */
  bool parse(EVClient &client, const std::string &text, bool raw = false);

  const std::string &text() const { return tokens_.front().text; }
  bool is_text() const { return type_ == EV_TEXT; }
  /* Whether the query can be asked about an event of which only the rows of event and
   * origin were read. */
  bool needs_outline_only() const { return events::needs_outline_only(tokens_); }
  Column column() const;

  /* The value as text, empty without one: a time as ISO 8601, any other real in the shortest
   * form that reads back the same.  False, with messages and an empty text, when it cannot
   * be read. */
  bool cell(EVClient &client, const EVEvent &event, std::string &text) const;

  /* Whether the value, a number, is neither 0 nor missing; false, with messages, when it
   * cannot be read. */
  bool holds(EVClient &client, const EVEvent &event, bool &held) const;

 private:
  std::vector<EVQueryToken> tokens_;
  int type_ = 0;
  bool time_ = false;  // shown as a time
};

}  // namespace ksutil::tools
#endif
