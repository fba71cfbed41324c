#include <algorithm>

#include "platform/elog/failure.h"
#include "platform/expr/internal/convert.h"
#include "platform/expr/internal/functions.h"
#include "platform/stock/text.h"

namespace ksutil::expr {

namespace {

std::string_view text_of(const Call &call, std::size_t i) {
  return call.arguments[i]->text;
}

bool length(Call &call) {
  call.result.integer = static_cast<std::int64_t>(text_of(call, 0).size());
  return true;
}

template <char first, char last>
bool change_case(Call &call) {
  const std::string_view text = text_of(call, 0);
  char *const copy = call.scratch.take(text.size());
  if (copy == nullptr) return false;
  std::transform(text.begin(), text.end(), copy, [](char c) {
    return c >= first && c <= last ? static_cast<char>(c ^ 0x20) : c;
  });
  call.result.text = {copy, text.size()};
  return true;
}

bool trim(Call &call) {
  call.result.text = trimmed(text_of(call, 0));
  return true;
}

/* The places before the first and after the last character are empty. */
bool part(Call &call) {
  const std::string_view text = text_of(call, 0);
  const auto size = static_cast<std::int64_t>(text.size());
  const std::int64_t start = call.arguments[1]->integer;
  const std::int64_t count =
      std::clamp<std::int64_t>(call.arguments[2]->integer, 0, size);
  const std::int64_t begin = std::clamp<std::int64_t>(start, 1, size + 1) - 1;
  call.result.text =
      text.substr(static_cast<std::size_t>(begin), static_cast<std::size_t>(count));
  return true;
}

bool contains(Call &call) {
  call.result.integer =
      text_of(call, 0).find(text_of(call, 1)) != std::string_view::npos;
  return true;
}

bool glob(Call &call) {
  const std::string_view pattern = text_of(call, 0);
  if (pattern.size() > kMaxPatternLength) {
    return fail("expr", "pattern longer than %zu bytes", kMaxPatternLength);
  }
  call.result.integer = glob_match(pattern, text_of(call, 1));
  return true;
}

bool to_text(Call &call) {
  char buffer[kConvertedSize];
  Value text;
  if (!convert_into(*call.arguments[0], Type::kText, buffer, text)) return false;
  if (call.arguments[0]->type != Type::kText) {
    return call.scratch.copy(text.text, call.result);
  }
  call.result.text = text.text;
  return true;
}

/* A text that is not a number becomes null. */
template <Type type>
bool to_number(Call &call) {
  char buffer[kConvertedSize];
  if (!convert_into(*call.arguments[0], type, buffer, call.result)) {
    call.result.type = type;
    set_null(call.result);
  }
  return true;
}

constexpr Function kTextFunctions[] = {
    general("length", "s", 'i', length, "the number of bytes"),
    general("upper", "s", 's', change_case<'a', 'z'>, "a to z in capitals"),
    general("lower", "s", 's', change_case<'A', 'Z'>, "A to Z in small letters"),
    general("trim", "s", 's', trim, "without the blanks at both ends"),
    general("substr", "sii", 's', part, "substr(text, start, count), start from 1"),
    general("contains", "ss", 'b', contains, "whether the second is part of the first"),
    general("glob", "ss", 'b', glob, "glob(pattern, text): matches the whole text",
            kGlobs),
    general("text", "v", 's', to_text, "the value as text"),
    general("int", "v", 'i', to_number<Type::kInteger>, "as an integer, towards zero"),
    general("real", "v", 'r', to_number<Type::kReal>, "as a real number")};

}  // namespace

std::span<const Function> text_functions() { return kTextFunctions; }

}  // namespace ksutil::expr
