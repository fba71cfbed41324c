#include <cstring>
#include <optional>

#include "platform/db/db.h"
#include "platform/db/internal/registry.h"
#include "platform/elog/failure.h"
#include "platform/expr/expr.h"
#include "platform/stock/memory.h"

using namespace ksutil::db;
using ksutil::at_boundary;
using ksutil::fail, ksutil::fail_errno;
namespace expr = ksutil::expr;

struct Expression {
  std::unique_ptr<const expr::Program> program;
  expr::Type type;
  bool has_fields;
  std::string table;  // whose fields these are, and that table's signature at the time
  std::uint64_t signature;
};

namespace {

/* Passes names on to another Fields, and remembers whether there were any. */
class NotedFields final : public expr::Fields {
 public:
  explicit NotedFields(const RecordSource *source) : fields_(source) {}
  bool bind(std::string_view name, int &slot, expr::Type &type) const override {
    if (!fields_.bind(name, slot, type)) return false;
    bound_ = true;
    return true;
  }
  bool bound() const { return bound_; }

 private:
  SourceFields fields_;
  mutable bool bound_ = false;
};

/* The record of an expression without fields. */
class NoRecord final : public expr::Record {
 public:
  bool value(int, expr::Value &) const override { return false; }
};

std::unique_ptr<Expression> compile(const char *who, Dbptr db, const char *text,
                                    int type) {
  if (text == nullptr || type < dbexINTEGER || type > dbexTIME) {
    return fail(who, "no expression, or unknown type %d", type);
  }
  std::optional<Opened> opened;
  const RecordSource *source = nullptr;
  if (db.database >= 0) {
    opened.emplace(who, db);
    if (!*opened) return nullptr;
    source = (*opened)->source(db.table);
  }
  const NotedFields fields(source);
  expr::Error error;
  auto expression = std::make_unique<Expression>();
  expression->program = expr::Program::compile(text, fields, error);
  if (expression->program == nullptr) {
    return fail(who, "Can't compile '%s': %s at position %zu", text,
                error.message.c_str(), error.position);
  }
  expression->type = static_cast<expr::Type>(type);
  expression->has_fields = fields.bound();
  if (source != nullptr) {
    expression->table = source->name();
    expression->signature = source->signature();
  }
  return expression;
}

/* Stores a converted value at the caller's address; false when memory is short. */
bool deliver(const expr::Value &value, void *result) {
  switch (value.type) {
    case expr::Type::kInteger:
      *static_cast<long *>(result) = static_cast<long>(value.integer);
      return true;
    case expr::Type::kReal:
    case expr::Type::kTime:
      *static_cast<double *>(result) = value.real;
      return true;
    case expr::Type::kBoolean:
      *static_cast<int *>(result) = value.integer != 0 ? 1 : 0;
      return true;
    case expr::Type::kText: {
      char *const text = static_cast<char *>(ks_malloc(value.text.size() + 1));
      if (text == nullptr) return false;
      if (!value.text.empty()) std::memcpy(text, value.text.data(), value.text.size());
      text[value.text.size()] = '\0';
      *static_cast<char **>(result) = text;
      return true;
    }
  }
  return false;
}

int evaluate(const char *who, const Expression &expression, const expr::Record &record,
             void *result) {
  thread_local expr::Workspace workspace;
  expr::Value value, converted;
  if (!expression.program->evaluate(record, workspace, value)) {
    return fail(who, "cannot evaluate the expression");
  }
  if (!expr::convert(value, expression.type, workspace, converted)) {
    return fail(who, "the value of the expression cannot be converted");
  }
  if (!deliver(converted, result)) return fail_errno(who, "malloc() error");
  return converted.null ? 1 : 0;
}

int evaluate(const char *who, Dbptr db, const Expression &expression, void *result) {
  if (!expression.has_fields) return evaluate(who, expression, NoRecord(), result);
  const Opened opened(who, db);
  RecordSource *const source = opened ? opened.source(who, db) : nullptr;
  if (source == nullptr) return -1;
  if (source->signature() != expression.signature) {
    return fail(who, "the expression is about %s, not about %s",
                expression.table.c_str(), source->name().c_str());
  }
  const expr::Record *const record = source->record(who, db.record);
  return record == nullptr ? -1 : evaluate(who, expression, *record, result);
}

}  // namespace

int dbex_compile(Dbptr db, const char *text, Expression **expression, int type) {
  return at_boundary("dbex_compile", -1, [&] {
    std::unique_ptr<Expression> compiled = compile("dbex_compile", db, text, type);
    if (compiled == nullptr) return -1;
    *expression = compiled.release();
    return 0;
  });
}

int dbex_eval(Dbptr db, Expression *expression, void *result) {
  return at_boundary("dbex_eval", -1, [&] {
    if (expression != nullptr) return evaluate("dbex_eval", db, *expression, result);
    fail("dbex_eval", "no expression");
    return -1;
  });
}

int dbex_evalstr(Dbptr db, const char *text, int type, void *result) {
  return at_boundary("dbex_evalstr", -1, [&] {
    const std::unique_ptr<Expression> compiled =
        compile("dbex_evalstr", db, text, type);
    return compiled == nullptr ? -1 : evaluate("dbex_evalstr", db, *compiled, result);
  });
}

void dbex_free(Expression *expression) { delete expression; }
