#include "events/server/commands/internal/code_filters.h"

#include "platform/elog/failure.h"
#include "platform/stock/text.h"

namespace ksutil::events {
namespace {

/* CodeField: makes the code the only field of the expression. */
class CodeField final : public expr::Fields {
 public:
  bool bind(std::string_view name, int &slot, expr::Type &type) const override {
    slot = 0;
    type = expr::Type::kText;
    return name == "code";
  }
};

class Code final : public expr::Record {
 public:
  explicit Code(std::string_view code) : code_(code) {}
  bool value(int, expr::Value &result) const override {
    result = expr::Value::of_text(code_);
    return true;
  }

 private:
  std::string_view code_;
};

/* Quotes the text as a constant of the expression language. */
std::string quoted(const std::string &text) {
  std::string constant = "\"";
  for (const char c : text) {
    if (c == '"' || c == '\\') constant += '\\';
    constant += c;
  }
  return constant + '"';
}

}  // namespace

ShellFilter::ShellFilter(std::string_view pattern) : pattern_(trimmed(pattern)) {}

bool ShellFilter::literal() const {
  /* A match takes "-" for a null code, which finds no row; a filter must find it. */
  return !any() && pattern_ != "-" &&
         pattern_.find_first_of("*?[\\") == std::string::npos;
}

bool ShellFilter::accepts(std::string_view code) const {
  return any() || glob_match(pattern_, code);
}

bool RegexFilter::compile(const char *who, const std::string &pattern) {
  program_ = nullptr;
  if (pattern.empty()) return true;
  expr::Error error;
  program_ = expr::Program::compile("code =~ " + quoted(pattern), CodeField(), error);
  if (program_ != nullptr) return true;
  return fail(who, "'%s' is not a regular expression: %s", pattern.c_str(),
              error.message.c_str());
}

bool RegexFilter::found_in(std::string_view code) {
  if (any()) return true;
  expr::Value found;
  return program_->evaluate(Code(code), workspace_, found) && !found.null &&
         found.integer != 0;
}

}  // namespace ksutil::events
