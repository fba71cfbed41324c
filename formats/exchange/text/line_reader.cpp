#include "formats/exchange/text/line_reader.h"

#include <utility>

namespace ksutil::exchange {

Event &LineReader::begin_event() {
  event_ = Event();
  event_.line = line_;
  event_lines_ = 0;
  too_long_ = false;
  in_event_ = true;
  return event_;
}

Reader::Got LineReader::close(Event &event) {
  in_event_ = false;
  if (too_long_) {
    line_ = event_.line;
    refuse("the event has more than " + std::to_string(kMostLines) + " lines");
    return Got::kRefused;
  }
  if (!finish(event_)) {
    line_ = event_.line;
    return Got::kRefused;
  }
  event = std::move(event_);
  return Got::kRecord;
}

Reader::Got LineReader::next(Event &event) {
  problem_.clear();
  for (;;) {
    if (!held_ && !lines_.next(text_)) {
      if (!lines_.problem().empty()) {
        problem_ = lines_.problem();
        return Got::kFailed;
      }
      if (in_event_) return close(event);
      if (ended_) return Got::kEnd;
      ended_ = true;
      line_ = lines_.number();
      if (!at_end()) return Got::kRefused;
      return Got::kEnd;
    }
    line_ = lines_.number();
    held_ = in_event_ && ends_event(text_);
    if (held_) return close(event);
    if (in_event_ && ++event_lines_ > kMostLines && !too_long_) {
      too_long_ = true;
      const std::int64_t line = event_.line;
      event_ = Event();
      event_.line = line;
    }
    if (too_long_ && in_event_) continue;
    if (!lines_.whole() && is_cut_off(text_)) {
      ended_ = true;  // what a message lacks behind this line is no fault of its own
      refuse("the line is cut off");
      return Got::kRefused;
    }
    if (!take(text_)) return Got::kRefused;
  }
}

}  // namespace ksutil::exchange
