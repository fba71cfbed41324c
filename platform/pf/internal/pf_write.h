/* The writer of parameter files; private to the library. */
#ifndef KSUTIL_PLATFORM_PF_INTERNAL_PF_WRITE_H
#define KSUTIL_PLATFORM_PF_INTERNAL_PF_WRITE_H

#include <string>

#include "platform/pf/internal/pf_tree.h"

namespace ksutil {

/* The lines of a tree; of an array or the root they compile to an equal tree. */
std::string write_pf(const Pf &pf);

}  // namespace ksutil
#endif
