/* unreadable: reports how much of a database could not be read. */
#ifndef KSUTIL_TOOLS_COMMON_UNREADABLE_H
#define KSUTIL_TOOLS_COMMON_UNREADABLE_H

#include <string>

namespace ksutil::tools {

struct Unreadable {
  long rows = 0;    // left out
  long values = 0;  // shown as nulls

  bool any() const { return rows > 0 || values > 0; }
};

/* The number of records that views have left out as unreadable, from the messages in
 * the error register; removes these messages. */
long take_left_out();

/* Prints one line with the counts and a hint to ksdb verify; `things` names the rows
 * ("records", "events").  Returns kFailure, or kOk when everything was read. */
int report_unreadable(const Unreadable &unreadable, const std::string &things,
                      const std::string &database);

}  // namespace ksutil::tools
#endif
