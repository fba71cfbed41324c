/* entries: reads the entries of a history file, and their times as users write them. */
#ifndef KSUTIL_TOOLS_KSHISTORY_ENTRIES_H
#define KSUTIL_TOOLS_KSHISTORY_ENTRIES_H

#include <string>
#include <vector>

#include "objects/kshistory.h"
#include "tools/common/cli.h"

namespace ksutil::tools {

/* The entries as they are now, even if another program has the file in use; false with
 * a message. */
bool read_entries(const std::string &file, std::vector<KSHistoryEntry> &entries);

/* Reads "now", epoch seconds or a date with an optional time of day. */
bool parse_time(const std::string &text, double &time);

/* CLI11's check of such a text. */
std::string time_fault(const std::string &text);

/* The time as a date; with `raw`, or far from any calendar, as epoch seconds. */
std::string entry_time_cell(double time, bool raw);

}  // namespace ksutil::tools
#endif
