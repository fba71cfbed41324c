/* Query: a compiled query of the client query language, for events and for origins. */
#ifndef KSUTIL_EVENTS_CLIENT_INTERNAL_QUERY_H
#define KSUTIL_EVENTS_CLIENT_INTERNAL_QUERY_H

#include <memory>
#include <string_view>
#include <vector>

#include "events/client/internal/query_path.h"
#include "events/records.h"
#include "platform/expr/expr.h"

namespace ksutil::events {

/* Immutable: many threads may evaluate it at once. */
class Query {
 public:
  /* Null, with `error` set, if the text is not a query for events nor for origins. */
  static std::shared_ptr<const Query> compile(std::string_view text,
                                              const LayoutSource &layouts,
                                              expr::Error &error);

  /* 0 and the value; 1 and a null value; -1 with a message.  A text is valid until this
   * thread evaluates the next query, and not longer than the record. */
  int evaluate(const EVEvent &event, expr::Value &value) const;
  int evaluate(const EVOrigin &origin, expr::Value &value) const;

  /* Whether evaluate() gives for an event without magnitudes, moments and origin errors
   * what it gives for the whole event. */
  bool needs_outline_only() const;

 private:
  struct Program {
    std::unique_ptr<const expr::Program> code;  // null: not a query for this kind
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
