/* header_check: refuses implausible values of SAC header variables. */
#ifndef KSUTIL_TOOLS_KSSAC_HEADER_CHECK_H
#define KSUTIL_TOOLS_KSSAC_HEADER_CHECK_H

#include <set>
#include <string>

#include "formats/kssac.h"

namespace ksutil::tools {

/* Checks the variables in `changed` of a header, and makes E follow B, NPTS and DELTA of
 * evenly spaced samples unless E is among them.
 *
 * samples   that the file has, which NPTS must equal
 * IFTYPE and LEVEN must be those of data that the file has room for.
 * False with a complaint in the name of `path`. */
bool check_changes(KSSac *kssac, const std::set<std::string> &changed, long samples,
                   const std::string &path);

}  // namespace ksutil::tools
#endif
