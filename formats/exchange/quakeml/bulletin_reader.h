/* BulletinReader: events from QuakeML 1.2 and from the sc3ml dialect.
 *
 * An event with its parts in it is given as soon as it has been read, so that the size of
 * the file does not matter.  Parts that stand beside the events, as in sc3ml and in the
 * real-time variant of QuakeML, are kept until the end; together they are bounded like
 * those of one event (kMostRecords). */
#ifndef KSUTIL_FORMATS_EXCHANGE_QUAKEML_BULLETIN_READER_H
#define KSUTIL_FORMATS_EXCHANGE_QUAKEML_BULLETIN_READER_H

#include <memory>
#include <string>
#include <vector>

#include "formats/exchange/quakeml/event_elements.h"
#include "formats/exchange/quakeml/flat_parts.h"
#include "formats/exchange/reader.h"

namespace ksutil::exchange {

class BulletinReader final : public Reader {
 public:
  BulletinReader(Input &input, const XmlDialect &dialect)
      : xml_(input), elements_(xml_, dialect, left_out_) {}

  Got next(Event &event) override;
  std::int64_t line() const override { return line_; }
  const std::string &problem() const override { return problem_; }
  std::vector<Unplaced> without_place() const override { return left_out_.list(); }

 private:
  /* Reads on to the next event with its parts in it. */
  enum class Step { kEvent, kEnd, kFailed };
  Step next_event(EventParts &parts);
  Got give(EventParts &&parts, Event &event);

  XmlReader xml_;
  UnplacedCounts left_out_;
  EventElements elements_;
  EventParts beside_;                // parts outside of the events
  std::unique_ptr<FlatParts> flat_;  // the same, at the end
  std::vector<EventParts> waiting_;  // events that refer to it
  std::size_t given_ = 0;
  bool inside_ = false, ended_ = false, failed_ = false, told_ = false;
  std::int64_t line_ = 0;
  std::string problem_;
};

}  // namespace ksutil::exchange
#endif
