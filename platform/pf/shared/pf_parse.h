/* pf_parse: parses parameter files; for the library's own rooms. */
#ifndef KSUTIL_PLATFORM_PF_SHARED_PF_PARSE_H
#define KSUTIL_PLATFORM_PF_SHARED_PF_PARSE_H

#include <string>
#include <string_view>

#include "platform/pf/shared/pf_tree.h"

namespace ksutil {

/* The most entries of one tree: bounds the memory that a file of tiny items can
 * claim. */
inline constexpr long kPfMaxEntries = 4L * 1024 * 1024;

/* Where and why a text could not be compiled. */
struct PfError {
  long line = 0;  // from 1
  std::string cause;
};

/* A line as the grammar understands it; the views point into the parsed text. */
struct PfLine {
  enum class Kind {
    kRemark,  // blank, or a comment alone
    kText,    // an entry or item with a text
    kOpen,    // an entry or item that opens a block
    kClose    // the closing brace of the innermost block
  };
  Kind kind = Kind::kRemark;
  long number = 0;       // from 1
  std::string_view raw;  // all of the line, with its line break
  std::string name;      // of an entry
  std::string text;      // of kText
  /* The value as it stands in the line: with its quotes, or from "&" to the brace.
   * Empty for a name without value. */
  std::string_view written;
  int block = PFINVALID;  // of kOpen: PFTBL or PFARR
  bool closed = false;    // of kOpen: "{}", no kClose follows
};

/* Takes the lines of a text in order; it may move the texts out of them. */
class PfLineTaker {
 public:
  virtual ~PfLineTaker() = default;
  virtual void take(PfLine &line) = 0;
};

/* The byte-order mark that a text in UTF-8 begins with, empty when it has none. */
std::string_view byte_order_mark(std::string_view text);

/* Hands the lines of a text, without its byte-order mark, to the taker, blocks properly
 * nested; false with `error` filled at the first fault.  Throws only std::bad_alloc and
 * what the taker throws. */
bool parse_pf_lines(std::string_view text, PfLineTaker &taker, PfError &error);

/* The text that the `written` value of a line means. */
std::string text_of_written(std::string_view written);

/* Takes a quoted text, whose opening quote stands first, off the front of `rest`; false
 * with the cause when it is faulty. */
bool take_quoted(std::string_view &rest, std::string &text, std::string &cause);

/* The tree of a text; null with `error` filled.  Throws only std::bad_alloc. */
PfPtr parse_pf(std::string_view text, PfError &error);

}  // namespace ksutil
#endif
