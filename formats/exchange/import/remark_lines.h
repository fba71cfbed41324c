/* remark_lines: what of an event stands in comment lines.
 *
 * A line that the import keeps up to date begins with the name of its first value and is
 * recognised by it; all others are comments, and stay when a revision lacks them. */
#ifndef KSUTIL_FORMATS_EXCHANGE_IMPORT_REMARK_LINES_H
#define KSUTIL_FORMATS_EXCHANGE_IMPORT_REMARK_LINES_H

#include <array>
#include <cstdint>
#include <string>
#include <string_view>
#include <vector>

#include "formats/exchange/records.h"

namespace ksutil::exchange {

struct RemarkLine {
  std::string text;
  /* What a line of this kind begins with, one of these words and ": "; "": none, and with
   * all of them a comment. */
  std::array<std::string_view, 3> kinds{};
  bool is_comment() const { return kinds[0].empty(); }
};

/* The magnitude and the moment tensor that an event prefers; -1: none is named. */
struct PreferredIds {
  std::int64_t magid = -1, mtid = -1;
};
std::vector<RemarkLine> event_remarks(const Event &event, const PreferredIds &preferred,
                                      int width);
std::vector<RemarkLine> origin_remarks(const Origin &origin, int width);
std::vector<RemarkLine> origerr_remarks(const Origin &origin);
/* Comments in lines of at most `width` characters, without control characters. */
std::vector<RemarkLine> comment_lines(const std::vector<std::string> &comments,
                                      int width);

bool is_of_kind(const RemarkLine &line, std::string_view stored);

}  // namespace ksutil::exchange
#endif
