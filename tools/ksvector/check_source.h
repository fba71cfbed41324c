/* check_source: refuses text files that the lenient readers of the library would
 * misread.
 *
 * The library takes a word that is not a number for 0, keeps the value of the line
 * before for a missing column, and leaves out rows that are too short.  So it would
 * turn a pole-zero file into a curve. */
#ifndef KSUTIL_TOOLS_KSVECTOR_CHECK_SOURCE_H
#define KSUTIL_TOOLS_KSVECTOR_CHECK_SOURCE_H

#include <string>

#include "tools/ksvector/source.h"

namespace ksutil::tools {

/* Whether each row of a table has a number in every column that is wanted.  False with a
 * complaint that names file and line. */
bool check_table(const std::string &file, const SourceOptions &options);

/* Whether a "fap" or "fap2" file has as many rows as it says, of numbers only.  False with a
 * complaint that names file and line. */
bool check_response(const std::string &file);

}  // namespace ksutil::tools
#endif
