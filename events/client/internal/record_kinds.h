/* record_kinds: describes each kind of record for queries: its own fields, the rows
 * whose texts it holds, and the records below it. */
#ifndef KSUTIL_EVENTS_CLIENT_INTERNAL_RECORD_KINDS_H
#define KSUTIL_EVENTS_CLIENT_INTERNAL_RECORD_KINDS_H

#include <string_view>
#include <vector>

#include "platform/db/row_text.h"
#include "platform/expr/expr.h"

namespace ksutil::events {

struct RecordKind;

/* OwnField: a member of a record. `read` gives a value of the type, null if the record
 * has none. */
struct OwnField {
  std::string_view name;
  expr::Type type;
  void (*read)(const void *record, expr::Value &value);
  bool in_outline = false;  // known from the rows of event and origin alone
};

struct RowPart {
  std::string_view table;
  const db::RowText &(*row)(const void *record);
  bool in_outline = false;
};

/* Step: leads to a record below: that of a list at the index, or the preferred one at
 * any index; null if there is none. */
struct Step {
  std::string_view name;
  const RecordKind &(*kind)();
  const void *(*to)(const void *record, long index);
};

struct RecordKind {
  std::vector<OwnField> own;
  std::vector<RowPart> rows;       // the record is made from the first
  std::vector<Step> lists, steps;  // names of `steps` may be left out of a query
};

const RecordKind &event_kind();
const RecordKind &origin_kind();

}  // namespace ksutil::events
#endif
