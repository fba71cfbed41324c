/* parse: reads the text of an expression and has the generator write its instructions. */
#ifndef KSUTIL_PLATFORM_EXPR_INTERNAL_PARSER_H
#define KSUTIL_PLATFORM_EXPR_INTERNAL_PARSER_H

#include <string_view>

#include "platform/expr/internal/generator.h"

namespace ksutil::expr {

/* False, with `error` filled in, when the text is not an expression. */
bool parse(std::string_view text, Generator &generator, Error &error);

}  // namespace ksutil::expr
#endif
