/* Records with made-up fields for the tests of expressions. */
#ifndef TESTS_PLATFORM_EXPR_EXPR_TEST_SUPPORT_H
#define TESTS_PLATFORM_EXPR_EXPR_TEST_SUPPORT_H

#include <cstdlib>
#include <memory>
#include <string>
#include <string_view>
#include <utility>
#include <vector>

#include "platform/elog/elog.h"
#include "platform/expr/expr.h"
#include "tests/support/register.h"

namespace ksutil::expr {

/* Names and values; the slot of a field is its index. */
class Row final : public Fields, public Record {
 public:
  Row(std::initializer_list<std::pair<std::string, Value>> fields) : fields_(fields) {}

  bool bind(std::string_view name, int &slot, Type &type) const override {
    for (std::size_t i = 0; i < fields_.size(); ++i) {
      if (fields_[i].first != name) continue;
      slot = static_cast<int>(i);
      type = fields_[i].second.type;
      return true;
    }
    return false;
  }
  bool value(int slot, Value &result) const override {
    ++reads;
    if (slot == unreadable) {
      elog_log(0, "Row: unreadable.\n");
      return false;
    }
    result = fields_[static_cast<std::size_t>(slot)].second;
    return true;
  }

  void set(std::string_view name, const Value &value) {
    int slot = 0;
    Type type;
    if (bind(name, slot, type)) fields_[static_cast<std::size_t>(slot)].second = value;
  }

  int unreadable = -1;
  mutable int reads = 0;

 private:
  std::vector<std::pair<std::string, Value>> fields_;
};

inline Value null_of(Value value) {
  value.null = true;
  return value;
}

/* The record of docs/expressions.md. */
inline Row example_row() {
  const Value time = Value::of_time(1562383193.04);
  return {{"time", time},
          {"origin.time", time},
          {"endtime", null_of(Value::of_time(9999999999.999))},
          {"lat", Value::of_real(35.7695)},
          {"lon", Value::of_real(-117.5993)},
          {"depth", Value::of_real(8.0)},
          {"mb", null_of(Value::of_real(-999.0))},
          {"sta", Value::of_text("TIN")},
          {"auth", null_of(Value::of_text("-"))},
          {"evid", Value::of_integer(38457511)},
          {"nass", Value::of_integer(12)},
          {"ndef", null_of(Value::of_integer(-1))},
          {"known", Value::of_boolean(true)}};
}

inline std::unique_ptr<const Program> compile(std::string_view text, const Row &row) {
  Error error;
  auto program = Program::compile(text, row, error);
  if (program == nullptr && error.message.empty()) std::abort();
  return program;
}

/* The value as text, "null", or "error" when it does not compile or evaluate. */
inline std::string result_of(std::string_view text, const Row &row) {
  const auto program = compile(text, row);
  if (program == nullptr) return "error";
  Workspace workspace;
  Value value, as_text;
  if (!program->evaluate(row, workspace, value)) return "error";
  if (value.null) return "null";
  if (value.type != program->type()) return "wrong type";
  if (!convert(value, Type::kText, workspace, as_text)) return "no text";
  return std::string(as_text.text);
}

using ksutil::test::taken_messages;

}  // namespace ksutil::expr
#endif
