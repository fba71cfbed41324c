#include "tools/ksevents/event_query.h"

#include <cstring>

#include "platform/elog/elog.h"
#include "tools/common/cells.h"

namespace ksutil::tools {
namespace {

struct Answer {
  int status = -1, type = 0;
  alignas(8) char bytes[EV_VALUE_SIZE] = {};

  template <class Number>
  Number number() const {
    Number value;
    std::memcpy(&value, bytes, sizeof value);
    return value;
  }
};

Answer ask(EVClient &client, const EVEvent &event,
           const std::vector<EVQueryToken> &tokens) {
  Answer answer;
  answer.status = client.getValue(&event, tokens, &answer.type, answer.bytes);
  return answer;
}

/* Whether a query gives times.  Their type is the same as that of other reals, but only
 * a time or a text can be compared with the text of a date. */
bool gives_time(EVClient &client, const std::string &text, int type) {
  if (type != EV_DOUBLE) return false;
  const ElogScope quiet;
  std::vector<EVQueryToken> tokens;
  return client.parse_query("(" + text + ") < \"2000-01-01\"", tokens) >= 0;
}

}  // namespace

bool EventQuery::parse(EVClient &client, const std::string &text, bool raw) {
  if (client.parse_query(text, tokens_) < 0) return false;
  /* An empty event is enough to learn the type, and that the query is about events. */
  EVEvent nothing;
  const Answer answer = ask(client, nothing, tokens_);
  type_ = answer.type;
  time_ = !raw && gives_time(client, text, type_);
  return answer.status >= 0;
}

Column EventQuery::column() const {
  const bool number = !is_text() && !time_;
  return {text(), number, number};
}

bool EventQuery::cell(EVClient &client, const EVEvent &event, std::string &text) const {
  const Answer answer = ask(client, event, tokens_);
  text.clear();
  if (answer.status != 0) return answer.status > 0;
  if (answer.type == EV_TEXT) {
    text = answer.bytes;
  } else if (answer.type == EV_INTEGER) {
    text = std::to_string(answer.number<int64_t>());
  } else {
    const double value = answer.number<double>();
    text = time_ ? time_cell(value) : shortest_cell(value);
  }
  return true;
}

bool EventQuery::holds(EVClient &client, const EVEvent &event, bool &held) const {
  const Answer answer = ask(client, event, tokens_);
  held = answer.status == 0 &&
         (answer.type == EV_INTEGER ? answer.number<int64_t>() != 0
                                    : answer.number<double>() != 0.0);
  return answer.status >= 0;
}

}  // namespace ksutil::tools
