/* Query: a compiled query of the client query language, for events and for origins. */
#ifndef KSUTIL_EVENTS_CLIENT_INTERNAL_QUERY_H
#define KSUTIL_EVENTS_CLIENT_INTERNAL_QUERY_H

#include <functional>
#include <map>
#include <memory>
#include <string>
#include <string_view>
#include <vector>

#include "events/client/internal/record_kinds.h"
#include "events/client/internal/row_field.h"
#include "events/records.h"
#include "platform/expr/expr.h"

namespace ksutil::events {

/* The layouts of a table's rows, empty for a table that is not known. */
using LayoutSource = std::function<Layouts(std::string_view table)>;

/* A name of a query, resolved: the way from the record to another one, and the field that
 * is read there, its own or one of a row. */
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
  /* Null without such a record; false, with a message, when the row cannot be read. */
  bool read(const void *record, expr::Value &value) const;
};

/* Resolves names on one kind of record. */
class PathFinder {
 public:
  explicit PathFinder(LayoutSource layouts) : layouts_(std::move(layouts)) {}
  /* False when the name means nothing there. */
  bool find(const RecordKind &kind, std::string_view name, QueryPath &path);

 private:
  bool find_here(const RecordKind &kind, std::string_view name, QueryPath &path);
  bool find_below(const RecordKind &kind, std::string_view name, QueryPath &path);
  bool find_row(const RowPart &part, std::string_view field, QueryPath &path);
  const Layouts &layouts(std::string_view table);

  LayoutSource layouts_;
  std::map<std::string, Layouts, std::less<>> known_;
};

/* Immutable: many threads may evaluate it at once. */
class Query {
 public:
  /* Null, with `error` filled in, when the text is a query neither for events nor for
   * origins. */
  static std::shared_ptr<const Query> compile(std::string_view text,
                                              const LayoutSource &layouts,
                                              expr::Error &error);

  /* 0 with the value, 1 with a null one; -1 with a message.  A text is valid until this
   * thread evaluates the next query, and no longer than the record. */
  int evaluate(const EVEvent &event, expr::Value &value) const;
  int evaluate(const EVOrigin &origin, expr::Value &value) const;

 private:
  struct Program {
    std::unique_ptr<const expr::Program> code;  // null: no query for this kind
    std::vector<QueryPath> paths;               // by slot
    expr::Error error;                          // why, without code
  };
  static Program compile(std::string_view text, const RecordKind &kind,
                         PathFinder &finder);
  static int evaluate(const Program &program, const char *kind, const void *record,
                      expr::Value &value);

  Program event_, origin_;
};

}  // namespace ksutil::events
#endif
