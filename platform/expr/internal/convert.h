/* convert: converts values between the types. */
#ifndef KSUTIL_PLATFORM_EXPR_INTERNAL_CONVERT_H
#define KSUTIL_PLATFORM_EXPR_INTERNAL_CONVERT_H

#include "platform/expr/expr.h"

namespace ksutil::expr {

/* Room for the text of any number or time. */
inline constexpr std::size_t kConvertedSize = 64;

/* convert() with the caller's buffer of kConvertedSize for a text made of a number. */
bool convert_into(const Value &value, Type type, char *buffer, Value &result);

/* Marks a value as null, with the null's own number or text of its type. */
void set_null(Value &value);

/* Whether the value is finite and within the range of integers. */
bool real_to_integer(double real, std::int64_t &integer);

}  // namespace ksutil::expr
#endif
