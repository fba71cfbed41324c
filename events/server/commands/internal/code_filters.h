/* code_filters: tests station and channel codes against shell patterns and regular
 * expressions. */
#ifndef KSUTIL_EVENTS_SERVER_COMMANDS_INTERNAL_CODE_FILTERS_H
#define KSUTIL_EVENTS_SERVER_COMMANDS_INTERNAL_CODE_FILTERS_H

#include <memory>
#include <string>
#include <string_view>

#include "platform/expr/expr.h"

namespace ksutil::events {

/* ShellFilter: a shell pattern for a whole code; an empty pattern accepts every
 * code. */
class ShellFilter {
 public:
  explicit ShellFilter(std::string_view pattern);
  bool any() const { return pattern_.empty(); }
  /* Whether the pattern names one code. */
  bool literal() const;
  const std::string &text() const { return pattern_; }
  bool accepts(std::string_view code) const;

 private:
  std::string pattern_;
};

/* RegexFilter: a regular expression of the expression language, searched for in a
 * code. */
class RegexFilter {
 public:
  /* False, with a message in the name of `who`, if the pattern is not a regular
   * expression. */
  bool compile(const char *who, const std::string &pattern);
  bool any() const { return program_ == nullptr; }
  /* Whether the expression is found; true if it is empty. */
  bool found_in(std::string_view code);

 private:
  std::unique_ptr<const expr::Program> program_;
  expr::Workspace workspace_;
};

}  // namespace ksutil::events
#endif
