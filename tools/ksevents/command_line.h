/* command_line: splits the text of a command into its words. */
#ifndef KSUTIL_TOOLS_KSEVENTS_COMMAND_LINE_H
#define KSUTIL_TOOLS_KSEVENTS_COMMAND_LINE_H

#include <string>
#include <string_view>
#include <vector>

namespace ksutil::tools {

/* The words of a command, divided by blanks.  Within single quotes all characters stand for
 * themselves; within double quotes and outside quotes a backslash makes the next character
 * stand for itself.  Nothing else has a meaning: no variables, patterns or pipes.
 * False, with `problem` set, for an open quote, a backslash at the end, and no word. */
bool split_command(std::string_view text, std::vector<std::string> &words,
                   std::string &problem);

}  // namespace ksutil::tools
#endif
