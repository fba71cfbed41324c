/* LineReader: what the readers of formats made of lines share.  Lines build an event up; a
 * line that breaks the rules is refused alone, and the event comes without it. */
#ifndef KSUTIL_FORMATS_EXCHANGE_TEXT_LINE_READER_H
#define KSUTIL_FORMATS_EXCHANGE_TEXT_LINE_READER_H

#include <cstdint>
#include <string>
#include <string_view>
#include <vector>

#include "formats/exchange/reader.h"
#include "formats/exchange/text/text_lines.h"

namespace ksutil::exchange {

class LineReader : public Reader {
 public:
  /* An event with more lines is refused: its records must fit into memory. */
  static constexpr std::int64_t kMostLines = 200000;

  explicit LineReader(Input &input) : lines_(input) {}

  Got next(Event &event) final;
  std::int64_t line() const final { return line_; }
  const std::string &problem() const final { return problem_; }
  std::vector<Unplaced> without_place() const final { return unplaced_.list(); }

 protected:
  /* Whether the line does not belong to the event that is being built up. */
  virtual bool ends_event(const std::string &line) = 0;
  /* Takes a line; false after refuse(). */
  virtual bool take(const std::string &line) = 0;
  /* Completes the event; false, after refuse(), when it cannot be used. */
  virtual bool finish(Event &event) = 0;
  /* Whether more must follow a line, so that one without a line break is cut off. */
  virtual bool is_cut_off(const std::string &) { return false; }
  /* Whether the input may end here; false after refuse(). */
  virtual bool at_end() { return true; }

  /* Begins an event at the present line.  No other is being built up. */
  Event &begin_event();
  bool in_event() const { return in_event_; }
  Event &event() { return event_; }

  bool refuse(std::string problem) {
    problem_ = std::move(problem);
    return false;
  }
  void without(std::string_view name) { unplaced_.add(name); }

 private:
  Got close(Event &event);

  TextLines lines_;
  std::string text_;
  bool held_ = false;      // text_ has been read and not been taken
  bool in_event_ = false;  // event_ is being built up
  bool too_long_ = false;  // the lines of the event are skipped
  bool ended_ = false;
  Event event_;
  std::int64_t event_lines_ = 0, line_ = 0;
  std::string problem_;
  UnplacedCounts unplaced_;
};

}  // namespace ksutil::exchange
#endif
