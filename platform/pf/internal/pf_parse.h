/* The parser of parameter files; private to the library. */
#ifndef KSUTIL_PLATFORM_PF_INTERNAL_PF_PARSE_H
#define KSUTIL_PLATFORM_PF_INTERNAL_PF_PARSE_H

#include <string>
#include <string_view>

#include "platform/pf/internal/pf_tree.h"

namespace ksutil {

/* Entries of one tree: bounds the memory that a file of tiny items can claim. */
inline constexpr long kPfMaxEntries = 4L * 1024 * 1024;

/* Where and why a text could not be compiled. */
struct PfError {
  long line = 0;  // from 1
  std::string cause;
};

/* The tree of a text; null with `error` filled.  Throws only std::bad_alloc. */
PfPtr parse_pf(std::string_view text, PfError &error);

}  // namespace ksutil
#endif
