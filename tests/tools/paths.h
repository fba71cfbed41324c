/* paths: where the programs and the data of the tests are. */
#ifndef KSUTIL_TESTS_TOOLS_PATHS_H
#define KSUTIL_TESTS_TOOLS_PATHS_H

#include <string>

namespace ksutil::tools {

inline const std::string kKsdb = KSDB_PROGRAM;
inline const std::string kKsevents = KSEVENTS_PROGRAM;
inline const std::string kData = KSUTIL_SOURCE_DIR "/data";

}  // namespace ksutil::tools
#endif
