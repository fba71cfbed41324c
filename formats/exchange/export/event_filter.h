/* EventFilter: evaluates a condition on events by the rows of their preferred origins. */
#ifndef KSUTIL_FORMATS_EXCHANGE_EXPORT_EVENT_FILTER_H
#define KSUTIL_FORMATS_EXCHANGE_EXPORT_EVENT_FILTER_H

#include <memory>
#include <string>
#include <string_view>
#include <vector>

#include "platform/db/columns.h"
#include "platform/db/schema.h"
#include "platform/expr/expr.h"

namespace ksutil::exchange {

/* Names are the fields of origin, also as "origin.time", those of event that origin lacks
 * or as "event.auth", and `magnitude` and `magtype` of the magnitude that is shown for the
 * event. */
class EventFilter {
 public:
  EventFilter(const db::Relation &event, const db::Relation &origin);

  /* False, with `problem` set, when the text is not a condition on these names. */
  bool compile(const std::string &text, std::string &problem);

  struct Rows {
    std::string_view event, origin;
    double magnitude = -999.0;
    std::string_view magtype;
  };
  /* Whether the condition is true; 0 also for a null, -1 with a message when a field cannot
   * be read. */
  int accepts(const Rows &rows);

 private:
  struct Slot {
    bool of_event = false;
    db::FieldType type = db::FieldType::kText;
    db::IntegerColumn integer;
    db::RealColumn real;
    db::TextColumn text;
    std::string name;
  };
  class Names;
  class Values;

  void add(const db::Relation &layout, bool of_event);

  std::vector<Slot> slots_;  // those of origin first
  std::unique_ptr<const expr::Program> program_;
  expr::Workspace workspace_;
};

}  // namespace ksutil::exchange
#endif
