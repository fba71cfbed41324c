#include "tools/ksevents/event_query.h"

#include <charconv>
#include <cstring>

#include "platform/stock/text.h"

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

Answer ask(EVClient &client, EVEvent &event, const std::vector<EVQueryToken> &tokens) {
  Answer answer;
  answer.status = client.getValue(&event, tokens, &answer.type, answer.bytes);
  return answer;
}

std::string shortest(double value) {
  char text[32];
  const auto result = std::to_chars(text, text + sizeof text, value);
  return {text, result.ptr};
}

}  // namespace

bool EventQuery::parse(EVClient &client, const std::string &text) {
  if (client.parse_query(text, tokens_) < 0) return false;
  /* An event without anything in it tells the type, and whether events have one. */
  EVEvent nothing;
  const Answer answer = ask(client, nothing, tokens_);
  type_ = answer.type;
  return answer.status >= 0;
}

bool EventQuery::cell(EVClient &client, EVEvent &event, std::string &text) const {
  const Answer answer = ask(client, event, tokens_);
  text.clear();
  if (answer.status != 0) return answer.status > 0;
  if (answer.type == EV_TEXT) {
    text = answer.bytes;
  } else if (answer.type == EV_INTEGER) {
    text = std::to_string(answer.number<int64_t>());
  } else {
    text = shortest(answer.number<double>());
  }
  return true;
}

bool EventQuery::holds(EVClient &client, EVEvent &event, bool &held) const {
  const Answer answer = ask(client, event, tokens_);
  held = answer.status == 0 &&
         (answer.type == EV_INTEGER ? answer.number<int64_t>() != 0
                                    : answer.number<double>() != 0.0);
  return answer.status >= 0;
}

std::vector<std::string> split_queries(const std::string &list) {
  std::vector<std::string> queries(1);
  int depth = 0;
  char quote = '\0';
  for (std::size_t i = 0; i < list.size(); i++) {
    const char c = list[i];
    if (quote != '\0') {
      if (c == '\\' && i + 1 < list.size()) {
        queries.back() += c;
        queries.back() += list[++i];
        continue;
      }
      if (c == quote) quote = '\0';
    } else if (c == '"' || c == '\'') {
      quote = c;
    } else if (c == '(') {
      depth++;
    } else if (c == ')') {
      depth--;
    } else if (c == ',' && depth <= 0) {
      queries.emplace_back();
      continue;
    }
    queries.back() += c;
  }
  for (std::string &query : queries) query = std::string(trimmed(query));
  return queries;
}

}  // namespace ksutil::tools
