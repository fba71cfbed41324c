/* What queries find in each kind of record: its own fields, the rows whose texts it
 * carries, and the records below it. */
#ifndef KSUTIL_EVENTS_CLIENT_INTERNAL_RECORD_KINDS_H
#define KSUTIL_EVENTS_CLIENT_INTERNAL_RECORD_KINDS_H

#include <string_view>
#include <vector>

#include "platform/db/row_text.h"
#include "platform/expr/expr.h"

namespace ksutil::events {

struct RecordKind;

/* A member; `value` has the type and is null when the record has no value there. */
struct OwnField {
  std::string_view name;
  expr::Type type;
  void (*read)(const void *record, expr::Value &value);
};

struct RowPart {
  std::string_view table;
  const db::RowText &(*row)(const void *record);
};

/* A record below: of a list by its index, or the preferred one, whatever the index; null
 * when there is none. */
struct Step {
  std::string_view name;
  const RecordKind &(*kind)();
  const void *(*to)(const void *record, long index);
};

struct RecordKind {
  std::vector<OwnField> own;
  std::vector<RowPart> rows;       // the first is the one that the record is made from
  std::vector<Step> lists, steps;  // a name of `steps` also stands for itself left out
};

const RecordKind &event_kind();
const RecordKind &origin_kind();

}  // namespace ksutil::events
#endif
