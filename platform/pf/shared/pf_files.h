/* The search for parameter files; private to the library. */
#ifndef KSUTIL_PLATFORM_PF_SHARED_PF_FILES_H
#define KSUTIL_PLATFORM_PF_SHARED_PF_FILES_H

#include <string>
#include <vector>

namespace ksutil {

struct PfFile {
  std::string path, text;
};

/* Reads one file; false with a message in the name of `function`. */
bool read_pf_file(const char *function, const std::string &path, PfFile &file);

/* Reads the files that a name stands for, in the order in which they are merged: a path,
 * or what the directories of KSUTIL_PF_PATH hold.  False with a message in the name of
 * `function` when there is none or one of them cannot be read. */
bool find_pf_files(const char *function, const std::string &name,
                   std::vector<PfFile> &files);

}  // namespace ksutil
#endif
