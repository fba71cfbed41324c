/* Queries of the command line, asked about events. */
#ifndef KSUTIL_TOOLS_KSEVENTS_EVENT_QUERY_H
#define KSUTIL_TOOLS_KSEVENTS_EVENT_QUERY_H

#include <string>
#include <vector>

#include "events/evclient.h"
#include "tools/common/rows.h"

namespace ksutil::tools {

class EventQuery {
 public:
  /* False, with messages registered, when the text is no query about events. */
  bool parse(EVClient &client, const std::string &text);

  const std::string &text() const { return tokens_.front().text; }
  bool is_text() const { return type_ == EV_TEXT; }
  Column column() const { return {text(), !is_text(), !is_text()}; }

  /* The value as text, empty without one, reals in the shortest form that reads back the
   * same; false, with messages and an empty text, when it cannot be read. */
  bool cell(EVClient &client, EVEvent &event, std::string &text) const;

  /* Whether the value, a number, is neither 0 nor missing; false, with messages, when it
   * cannot be read. */
  bool holds(EVClient &client, EVEvent &event, bool &held) const;

 private:
  std::vector<EVQueryToken> tokens_;
  int type_ = 0;
};

/* A list of queries at its commas, but for those within parentheses and quotes. */
std::vector<std::string> split_queries(const std::string &list);

}  // namespace ksutil::tools
#endif
