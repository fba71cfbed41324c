/* messages: prints the messages of a program on standard error, one line for each
 * cause. */
#ifndef KSUTIL_TOOLS_COMMON_MESSAGES_H
#define KSUTIL_TOOLS_COMMON_MESSAGES_H

#include <string>
#include <string_view>
#include <vector>

namespace ksutil::tools {

/* The text with '?' for each control character, which a terminal would obey. */
std::string printable_text(std::string text);

/* Prints "program: text" as one line to standard error, in printable characters. */
void complain(const std::string &text);

/* Whether a message is in the error register. */
bool anything_registered();

/* Prints the causes in the error register and empties it. */
void print_register();

/* The causes in a text of the error register, in the order of registration.
 *
 * The names of functions before the messages are left out; the text of errno follows
 * its message after a colon.  Repetitions are left out as a whole, and so are, after
 * the first message, those that the callers of a failed function add to it ("cannot
 * read table origin.", "EVServer::refreshEvents: refreshEvent() error."). */
std::vector<std::string> register_causes(std::string_view text);
/* Those in the register now; none when memory is short.  They stay there. */
std::vector<std::string> registered_causes();

}  // namespace ksutil::tools
#endif
