#include "tools/ksevents/command_line.h"

namespace ksutil::tools {

bool split_command(std::string_view text, std::vector<std::string> &words,
                   std::string &problem) {
  words.clear();
  bool in_word = false;
  char quote = '\0';
  for (std::size_t i = 0; i < text.size(); i++) {
    const char c = text[i];
    const bool blank = c == ' ' || c == '\t' || c == '\n';
    if (quote == '\0' && blank) {
      in_word = false;
      continue;
    }
    if (!in_word) words.emplace_back();
    in_word = true;
    if (quote != '\'' && c == '\\') {
      if (++i == text.size()) {
        problem = "a backslash stands at the end";
        return false;
      }
      words.back() += text[i];
    } else if (quote == '\0' && (c == '\'' || c == '"')) {
      quote = c;
    } else if (quote != '\0' && c == quote) {
      quote = '\0';
    } else {
      words.back() += c;
    }
  }
  if (quote != '\0') {
    problem = std::string("a quote is open: ") + quote;
    return false;
  }
  if (words.empty() || words.front().empty()) {
    problem = "there is no command";
    return false;
  }
  return true;
}

}  // namespace ksutil::tools
