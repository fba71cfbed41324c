/* nearest_name: finds the name that a misspelt one probably means, for messages. */
#ifndef KSUTIL_PLATFORM_STOCK_NEAREST_NAME_H
#define KSUTIL_PLATFORM_STOCK_NEAREST_NAME_H

#include <string>
#include <string_view>
#include <vector>

#include "platform/stock/export.h"

namespace ksutil {

/* The one of `known` that `name` is closest to, the first of equally close ones; empty
 * when none is close: a third of the characters of `name`, and at most three, may be
 * inserted, deleted or replaced.
 *
 * Only the first 200 of `known` and names of at most 64 characters are compared.
 * Safe from any thread. */
std::string nearest_name(std::string_view name,
                         const std::vector<std::string_view> &known);

/* " (is it NAME?)" with the nearest name, or an empty text: the end of a message. */
KSUTIL_API std::string nearest_hint(std::string_view name,
                                    const std::vector<std::string_view> &known);

}  // namespace ksutil

#endif
