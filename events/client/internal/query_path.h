/* PathFinder: resolves the names of a query to fields of records. */
#ifndef KSUTIL_EVENTS_CLIENT_INTERNAL_QUERY_PATH_H
#define KSUTIL_EVENTS_CLIENT_INTERNAL_QUERY_PATH_H

#include <functional>
#include <map>
#include <memory>
#include <string>
#include <string_view>
#include <vector>

#include "events/client/internal/record_kinds.h"
#include "events/client/internal/row_field.h"
#include "platform/expr/expr.h"

namespace ksutil::events {

/* Gives the layouts of a table's rows; none for an unknown table. */
using LayoutSource = std::function<Layouts(std::string_view table)>;

/* QueryPath: a resolved name of a query: the moves from the record to another one, and
 * the field to read there, its own or one of a row. */
struct QueryPath {
  struct Move {
    const void *(*to)(const void *record, long index);
    long index;
  };
  std::vector<Move> moves;
  const OwnField *own = nullptr;
  const RowPart *part = nullptr;
  std::shared_ptr<const RowField> field;

  expr::Type type() const { return own != nullptr ? own->type : field->type(); }
  /* Whether the value is known from the rows of event and origin alone. */
  bool in_outline() const {
    return own != nullptr ? own->in_outline : part->in_outline;
  }
  /* The value is null without such a record; the text of a row's field is copied to
   * `text`.  False, with a message, if the row cannot be read. */
  bool read(const void *record, expr::Value &value, std::string &text) const;
};

/* PathFinder: resolves names on one kind of record. */
class PathFinder {
 public:
  explicit PathFinder(LayoutSource layouts) : layouts_(std::move(layouts)) {}
  /* False if the kind of record has no such name. */
  bool find(const RecordKind &kind, std::string_view name, QueryPath &path);

 private:
  bool find_here(const RecordKind &kind, std::string_view name, QueryPath &path);
  bool find_below(const RecordKind &kind, std::string_view name, QueryPath &path);
  bool find_row(const RowPart &part, std::string_view field, QueryPath &path);
  const Layouts &layouts(std::string_view table);

  LayoutSource layouts_;
  std::map<std::string, Layouts, std::less<>> known_;
};

}  // namespace ksutil::events
#endif
