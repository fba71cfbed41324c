/* expr: compiles and evaluates the expressions of subsets, sorts, joins, match patterns,
 * plot vectors and client queries.  docs/expressions.md is its manual.
 *
 * An expression is compiled once against a Fields, which says what names mean, and then
 * evaluated on any number of records.  Depth, length and run time are bounded.
 * Threads: a Program is immutable: many threads may evaluate it at once. */
#ifndef KSUTIL_PLATFORM_EXPR_EXPR_H
#define KSUTIL_PLATFORM_EXPR_EXPR_H

#include <cstddef>
#include <cstdint>
#include <memory>
#include <string>
#include <string_view>

#include "platform/stock/export.h"

namespace ksutil::expr {

/* The numbers of the first three are also the value type codes of client queries. */
enum class Type { kInteger = 1, kReal = 2, kText = 3, kBoolean = 4, kTime = 5 };

/* One value.  A null value still carries the null's own number or text.
 * Integers and booleans stand in `integer`, reals and times in `real`. */
struct Value {
  Type type = Type::kInteger;
  bool null = false;
  std::int64_t integer = 0;
  double real = 0.0;
  std::string_view text;

  static Value of_integer(std::int64_t v) {
    return {Type::kInteger, false, v, 0.0, {}};
  }
  static Value of_real(double v) { return {Type::kReal, false, 0, v, {}}; }
  static Value of_time(double v) { return {Type::kTime, false, 0, v, {}}; }
  static Value of_boolean(bool v) {
    return {Type::kBoolean, false, v ? 1 : 0, 0.0, {}};
  }
  static Value of_text(std::string_view v) { return {Type::kText, false, 0, 0.0, v}; }
};

/* What the names of an expression mean. */
class KSUTIL_API Fields {
 public:
  virtual ~Fields() = default;
  /* Binds a name, "time", "origin.time" or "origins[0].time", to a slot and a type;
   * false if the name is unknown. */
  virtual bool bind(std::string_view name, int &slot, Type &type) const = 0;
};

/* The values of one record. */
class KSUTIL_API Record {
 public:
  virtual ~Record() = default;
  /* The value of a bound slot, of the type that was bound; false, with a message
   * registered, when it cannot be read.
   * A text must stay valid until the evaluation has ended. */
  virtual bool value(int slot, Value &result) const = 0;
};

/* The place and cause of an error in a text. */
struct Error {
  std::size_t position = 0;  // byte offset in the text
  std::string message;       // what was expected, without the position
};

/* The memory of an evaluation: it owns the texts that functions make.  A result's text
 * is valid until the next evaluation with the same workspace.  Reused, it does not
 * allocate (except for the texts of times).  One thread at a time; it may be used for
 * any programs in turn, and need not outlive or precede them. */
class KSUTIL_API Workspace {
 public:
  Workspace();
  ~Workspace();
  Workspace(const Workspace &) = delete;
  Workspace &operator=(const Workspace &) = delete;

  struct Impl;
  Impl &impl() { return *impl_; }

 private:
  std::unique_ptr<Impl> impl_;
};

class KSUTIL_API Program {
 public:
  /* Null, with `error` filled in and nothing registered, when the text is not an
   * expression over these fields.  At most 65536 bytes, 200 levels of nesting, 30000 constants. */
  static std::unique_ptr<const Program> compile(std::string_view text,
                                                const Fields &fields, Error &error);
  ~Program();

  /* The type of the result. */
  Type type() const;

  /* Whether the value is the same for every record (no field and no `now` in it). */
  bool is_constant() const;

  /* The field, if the whole expression is a bare field, else -1: callers read such a
   * field themselves. */
  int only_slot() const;

  /* The value on a record; false, with a message registered and `result` untouched, when
   * a field cannot be read, a text is not a date where a time is meant, or a bound on
   * texts is exceeded.  Arithmetic on a null gives a null; so do a division by zero and
   * every result that is not finite or does not fit.  A computed null carries -1, -999.0,
   * -9999999999.999, false or "-"; the null of a field keeps its own.
   * A result's text lives as long as the record's, the program and, until its next
   * evaluation, the workspace. */
  bool evaluate(const Record &record, Workspace &workspace, Value &result) const;

 private:
  struct Code;
  explicit Program(std::unique_ptr<const Code> code);
  std::unique_ptr<const Code> code_;
};

/* Converts a value to another type as assignment does: numbers among each other (reals
 * towards zero), texts to and from numbers, dates and "true" or "false".  False, with
 * `result` untouched, when it has no such form; null stays null.  The text of a number is
 * valid until the next conversion with this workspace. */
KSUTIL_API bool convert(const Value &value, Type type, Workspace &workspace,
                        Value &result);

}  // namespace ksutil::expr
#endif
