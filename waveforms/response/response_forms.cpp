/* response_forms: what the readers of the forms share, and the choice among them. */
#include "waveforms/response/internal/response_forms.h"

#include <sys/stat.h>

#include <algorithm>
#include <cctype>
#include <cerrno>
#include <cmath>
#include <cstring>

#include "platform/stock/files.h"
#include "platform/stock/text.h"

namespace ksutil {
namespace {

constexpr std::size_t kMaxBytes = std::size_t{64} << 20;

char capital(char c) {
  return static_cast<char>(std::toupper(static_cast<unsigned char>(c)));
}

bool is_gap(char c) { return c == ' ' || c == '\t' || c == ',' || c == '\r'; }

}  // namespace

bool ResponseLines::next() {
  if (again_) {
    again_ = false;
    return true;
  }
  while (!rest_.empty()) {
    const std::size_t end = std::min(rest_.find('\n'), rest_.size());
    line_ = trimmed(rest_.substr(0, end));
    rest_.remove_prefix(std::min(end + 1, rest_.size()));
    ++number_;
    if (!std::all_of(line_.begin(), line_.end(), is_gap)) return true;
  }
  line_ = {};
  return false;
}

std::vector<std::string_view> ResponseLines::words() const {
  return response_words(line_);
}

bool ResponseLines::refuse(const std::string &text) {
  problem_ = path_ + ":" + std::to_string(number_) + ": " + text;
  return false;
}

std::vector<std::string_view> response_words(std::string_view text) {
  std::vector<std::string_view> words;
  for (std::size_t at = 0; at < text.size();) {
    while (at < text.size() && is_gap(text[at])) ++at;
    const std::size_t begin = at;
    while (at < text.size() && !is_gap(text[at])) ++at;
    if (at > begin) words.push_back(text.substr(begin, at - begin));
  }
  return words;
}

bool read_finite(std::string_view word, double &value) {
  double read;
  if (!parse_real(word, read) || !std::isfinite(read)) return false;
  value = read;
  return true;
}

bool read_count(std::string_view word, long low, long high, long &value) {
  std::int64_t read;
  if (!parse_integer(word, read) || read < low || read > high) return false;
  value = static_cast<long>(read);
  return true;
}

std::string unit_of(std::string_view text) {
  const auto words = response_words(text);
  std::string unit(words.empty() ? std::string_view() : words.front());
  std::transform(unit.begin(), unit.end(), unit.begin(), capital);
  return unit;
}

bool is_word(std::string_view word, std::initializer_list<const char *> words) {
  const std::string low = lowered(word);
  return std::any_of(words.begin(), words.end(),
                     [&](const char *each) { return low == each; });
}

void ResponseChoice::offer(Response response, const ResponseEpoch &epoch) {
  any_ = true;
  if (time_ != kNullTime && !epoch.holds(time_)) return;
  best_ = std::move(response);
  found_ = true;
}

bool ResponseChoice::take(ResponseLines &lines, Response &response) {
  if (!any_) return lines.refuse("the file ends before a response");
  if (!found_) {
    return lines.refuse("no response of the file holds at " + time_text(time_));
  }
  response = std::move(best_);
  return true;
}

bool read_response_file(const std::string &path, Response &response,
                        std::string &problem, double time) {
  std::string text;
  struct stat status;
  /* Opening a pipe would wait for its writer. */
  if (::stat(path.c_str(), &status) == 0 && !S_ISREG(status.st_mode)) {
    problem = path + ": is not a regular file";
    return false;
  }
  if (!read_file(path, kMaxBytes, text)) {
    problem = path + ": " + std::strerror(errno);
    return false;
  }
  ResponseLines lines(path, text), look(path, text);
  Response found;
  bool read = false;
  for (;;) {
    if (!look.next()) {
      read = look.refuse("the file is not a response of the form CSS3.0, RESP or SAC");
      break;
    }
    const std::string_view line = look.line();
    if (line.front() == '#' || line.front() == '*') continue;
    const auto words = look.words();
    if (line.front() == 'B' && line.size() > 7 && line[4] == 'F') {
      read = read_seed_response(lines, time, found);
    } else if (!words.empty() && is_word(words[0], {"theoretical", "measured"})) {
      read = read_css_response(lines, found);
    } else if (!words.empty() && is_word(words[0], {"zeros", "poles", "constant"})) {
      read = read_sac_response(lines, time, found);
    } else {
      read = look.refuse("the file is not a response of the form CSS3.0, RESP or SAC");
    }
    break;
  }
  if (!read) {
    problem = lines.problem().empty() ? look.problem() : lines.problem();
    return false;
  }
  response = std::move(found);
  return true;
}

}  // namespace ksutil
