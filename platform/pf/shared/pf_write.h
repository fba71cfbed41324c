/* pf_write: writes parameter files; for the library's own rooms. */
#ifndef KSUTIL_PLATFORM_PF_SHARED_PF_WRITE_H
#define KSUTIL_PLATFORM_PF_SHARED_PF_WRITE_H

#include <string>
#include <string_view>

#include "platform/pf/shared/pf_tree.h"

namespace ksutil {

/* The lines of a tree; those of an array or of the root compile to an equal tree. */
std::string write_pf(const Pf &pf);

/* A name or a value as it stands in a file, quoted when it has to be. */
std::string written_name(std::string_view name);
std::string written_value(std::string_view text);

/* A text in quotes. */
std::string written_quoted(std::string_view text);

}  // namespace ksutil
#endif
