/* Reading a text as one exchange format, for the tests of readers. */
#ifndef KSUTIL_TESTS_FORMATS_EXCHANGE_READING_H
#define KSUTIL_TESTS_FORMATS_EXCHANGE_READING_H

#include <gtest/gtest.h>

#include <string>
#include <vector>

#include "formats/exchange/format.h"
#include "tests/support/folder.h"

namespace ksutil::exchange {

struct ReadEvents {
  std::string format;  // as recognised
  std::vector<Event> events;
  std::vector<std::string> refused;   // "LINE: problem"
  std::vector<std::string> unplaced;  // "NAME: count"
  std::string problem;                // of opening
};

inline ReadEvents read_events(const std::string &text) {
  const test::TempFolder folder;
  ReadEvents result;
  const auto input = Input::open(folder.write("input", text), result.problem);
  const Recognised kind = recognise(input->head());
  if (kind.format != nullptr) result.format = kind.format->word;
  const auto reader = open_reader(*input, kind, result.problem);
  if (reader == nullptr) return result;
  for (Event event;;) {
    const Reader::Got got = reader->next(event);
    if (got == Reader::Got::kRecord) result.events.push_back(event);
    if (got == Reader::Got::kRefused) {
      result.refused.push_back(std::to_string(reader->line()) + ": " +
                               reader->problem());
    }
    if (got == Reader::Got::kEnd || got == Reader::Got::kFailed) break;
  }
  for (const Unplaced &name : reader->without_place()) {
    result.unplaced.push_back(name.name + ": " + std::to_string(name.count));
  }
  return result;
}

/* The text with the first `from` in it replaced. */
inline std::string replaced(std::string text, const std::string &from,
                            const std::string &to) {
  const std::size_t at = text.find(from);
  if (at == std::string::npos) {
    ADD_FAILURE() << "no '" << from << "' to replace";
  } else {
    text.replace(at, from.size(), to);
  }
  return text;
}

/* A truncation at any byte, and line breaks of other systems, must cost only what is
 * missing: reads the text cut off at each line and in each line, and with CR-LF. */
inline void check_truncations(const std::string &text) {
  const ReadEvents whole = read_events(text);
  std::string with_cr;
  for (const char c : text)
    with_cr += c == '\n' ? std::string("\r\n") : std::string(1, c);
  const ReadEvents crlf = read_events(with_cr);
  EXPECT_EQ(crlf.refused, whole.refused);
  ASSERT_EQ(crlf.events.size(), whole.events.size());
  for (std::size_t i = 0; i < whole.events.size(); i++) {
    EXPECT_EQ(crlf.events[i].id, whole.events[i].id);
    EXPECT_EQ(crlf.events[i].place, whole.events[i].place);
    EXPECT_EQ(crlf.events[i].comments, whole.events[i].comments);
    EXPECT_EQ(crlf.events[i].picks.size(), whole.events[i].picks.size());
    EXPECT_EQ(crlf.events[i].origins.back().author,
              whole.events[i].origins.back().author);
  }
  for (std::size_t end = 1; end < text.size(); end += text[end] == '\n' ? 1 : 13) {
    const ReadEvents part = read_events(text.substr(0, end));
    EXPECT_LE(part.events.size(), whole.events.size());
    for (const Event &event : part.events) {
      EXPECT_FALSE(event.id.empty());
      EXPECT_LT(event.preferred, event.origins.size());
    }
  }
}

}  // namespace ksutil::exchange
#endif
