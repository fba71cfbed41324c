#include "platform/stock/text.h"

namespace {

/* Matches one element of a pattern against one character. */
class Matcher {
 public:
  explicit Matcher(std::string_view pattern) : pattern_(pattern) {}

  /* Whether the element at `at` (no star) takes c; moves `at` past the element. */
  bool take(std::size_t &at, char c) {
    const char element = pattern_[at];
    if (element == '?') {
      ++at;
      return true;
    }
    bool found = false;
    if (element == '[' && take_class(at, c, found)) return found;
    if (element == '\\' && at + 1 < pattern_.size()) ++at;
    return pattern_[at++] == c;
  }

 private:
  /* The bracket expression at `at`; false, with `at` unmoved, when it is not closed:
   * the bracket then stands for itself. */
  bool take_class(std::size_t &at, char c, bool &found) {
    if (unclosed_) return false;
    std::size_t i = at + 1;
    const bool negated =
        i < pattern_.size() && (pattern_[i] == '!' || pattern_[i] == '^');
    if (negated) ++i;
    bool any = false;
    for (bool first = true; i < pattern_.size(); first = false) {
      if (pattern_[i] == ']' && !first) {
        at = i + 1;
        found = any != negated;
        return true;
      }
      const unsigned char low = member(i);
      unsigned char high = low;
      if (i + 1 < pattern_.size() && pattern_[i] == '-' && pattern_[i + 1] != ']') {
        high = member(++i);
      }
      const auto tested = static_cast<unsigned char>(c);
      any = any || (low <= tested && tested <= high);
    }
    /* Later brackets cannot be closed either: remembering this avoids one scan of the
     * rest for each of them. */
    unclosed_ = true;
    return false;
  }

  /* The character at i, or the one quoted there; moves i past it.  A range's end at the
   * end of the pattern is empty. */
  unsigned char member(std::size_t &i) const {
    if (pattern_[i] == '\\' && i + 1 < pattern_.size()) ++i;
    return static_cast<unsigned char>(pattern_[i++]);
  }

  std::string_view pattern_;
  bool unclosed_ = false;
};

}  // namespace

/* Only the last star is tried again: any text that an earlier star could also take, the
 * last star can take instead. */
bool ksutil::glob_match(std::string_view pattern, std::string_view text) {
  Matcher matcher(pattern);
  std::size_t at = 0, i = 0;
  std::size_t after_star = pattern.npos, star_text = 0;
  while (i < text.size()) {
    if (at < pattern.size() && pattern[at] == '*') {
      after_star = ++at;
      star_text = i;
    } else if (at < pattern.size() && matcher.take(at, text[i])) {
      ++i;
    } else if (after_star != pattern.npos) {
      at = after_star;
      i = ++star_text;
    } else {
      return false;
    }
  }
  while (at < pattern.size() && pattern[at] == '*') ++at;
  return at == pattern.size();
}
