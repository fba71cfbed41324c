#include "formats/exchange/quakeml/bulletin_reader.h"

#include <utility>

#include "platform/stock/text.h"

namespace ksutil::exchange {

BulletinReader::Step BulletinReader::next_event(EventParts &parts) {
  for (;;) {
    switch (xml_.next()) {
      case XmlReader::Got::kFailed:
        return Step::kFailed;
      case XmlReader::Got::kDone:
        return Step::kEnd;
      case XmlReader::Got::kEnd:
        if (lowered(xml_.name()) == "eventparameters") inside_ = false;
        continue;
      case XmlReader::Got::kStart:
        break;
    }
    if (!inside_) {
      inside_ = lowered(xml_.name()) == "eventparameters";
      if (!inside_ && xml_.depth() > 1) {
        left_out_.add(xml_.name());
        if (!xml_.skip()) return Step::kFailed;
      }
      continue;
    }
    if (xml_.name() == "event") {
      parts = EventParts();
      line_ = xml_.line();
      if (!elements_.take_event(parts)) return Step::kFailed;
      if (!parts.origins.empty() || parts.origin_references.empty())
        return Step::kEvent;
      if (waiting_.size() < kMostRecords) waiting_.push_back(std::move(parts));
      continue;
    }
    const std::string name = xml_.name();
    switch (elements_.take_part(beside_)) {
      case XmlElement::Child::kFailed:
        return Step::kFailed;
      case XmlElement::Child::kTaken:
        continue;
      case XmlElement::Child::kKept:
        if (name != "creationInfo") left_out_.add("eventParameters/" + name);
        if (!xml_.skip()) return Step::kFailed;
    }
  }
}

BulletinReader::Got BulletinReader::give(EventParts &&parts, Event &event) {
  event = Event();
  const bool good = assemble(std::move(parts), event, problem_, left_out_);
  return good ? Got::kRecord : Got::kRefused;
}

BulletinReader::Got BulletinReader::next(Event &event) {
  problem_.clear();
  if (failed_) problem_ = xml_.problem();
  if (failed_) return Got::kFailed;
  if (!ended_) {
    EventParts parts;
    switch (next_event(parts)) {
      case Step::kFailed:
        failed_ = true;
        problem_ = xml_.problem();
        return Got::kFailed;
      case Step::kEvent:
        return give(std::move(parts), event);
      case Step::kEnd:
        ended_ = true;
    }
  }
  /* A fault in the parts that stand beside is one of all events. */
  if (given_ < waiting_.size() && !beside_.problem.empty()) {
    if (std::exchange(told_, true)) return Got::kEnd;
    problem_ = beside_.problem;
    return Got::kRefused;
  }
  if (flat_ == nullptr) flat_ = std::make_unique<FlatParts>(beside_);
  if (given_ == waiting_.size()) {
    if (!std::exchange(told_, true)) flat_->count_rest(left_out_);
    return Got::kEnd;
  }
  EventParts own = std::move(waiting_[given_++]);
  line_ = own.event.line;
  flat_->give(own);
  return give(std::move(own), event);
}

}  // namespace ksutil::exchange
