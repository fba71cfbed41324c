/* response_forms: reads the text of a response file in each of its forms. */
#ifndef KSUTIL_WAVEFORMS_RESPONSE_INTERNAL_RESPONSE_FORMS_H
#define KSUTIL_WAVEFORMS_RESPONSE_INTERNAL_RESPONSE_FORMS_H

#include <initializer_list>
#include <string>
#include <string_view>
#include <vector>

#include "waveforms/response.h"

namespace ksutil {

/* No stage of a response has a larger number, and no response more stages. */
inline constexpr long kMaxResponseStages = 1000;

/* Goes through the lines of a text, and says where in it something is wrong. */
class ResponseLines {
 public:
  ResponseLines(std::string path, std::string_view text)
      : path_(std::move(path)), rest_(text) {}

  /* Goes to the next line that has a word; false at the end. */
  bool next();
  /* The line without blanks at both ends. */
  std::string_view line() const { return line_; }
  /* The next call of next() gives this line again. */
  void again() { again_ = true; }
  /* The words of the line, parted by blanks and commas. */
  std::vector<std::string_view> words() const;

  /* Sets the problem: "path:line: text".  Always false. */
  bool refuse(const std::string &text);
  const std::string &problem() const { return problem_; }

 private:
  std::string path_;
  std::string_view rest_, line_;
  long number_ = 0;
  bool again_ = false;
  std::string problem_;
};

/* The words of a text, parted by blanks and commas. */
std::vector<std::string_view> response_words(std::string_view text);

/* A finite number; a whole number within bounds.  False for anything else. */
bool read_finite(std::string_view word, double &value);
bool read_count(std::string_view word, long low, long high, long &value);

/* The first word of a text in capitals: "M/S - Velocity" gives "M/S". */
std::string unit_of(std::string_view text);

/* Whether `word` is one of the words, whatever its case. */
bool is_word(std::string_view word, std::initializer_list<const char *> words);

/* The time in which a response holds: low <= time < high, epoch seconds. */
struct ResponseEpoch {
  double low = -1e300, high = 1e300;
  bool holds(double time) const { return low <= time && time < high; }
};

/* Keeps the response of the epoch that is looked for. */
class ResponseChoice {
 public:
  explicit ResponseChoice(double time) : time_(time) {}
  void offer(Response response, const ResponseEpoch &epoch);
  /* False, with a problem, when no epoch in the file holds at the time. */
  bool take(ResponseLines &lines, Response &response);

 private:
  double time_;
  bool found_ = false, any_ = false;
  Response best_;
};

/* Read the forms; false after refuse(). */
bool read_css_response(ResponseLines &lines, Response &response);
bool read_seed_response(ResponseLines &lines, double time, Response &response);
bool read_sac_response(ResponseLines &lines, double time, Response &response);

}  // namespace ksutil
#endif
