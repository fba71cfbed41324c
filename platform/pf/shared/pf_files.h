/* pf_files: finds parameter files; for the library's own rooms. */
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

/* Reads the files of a name, in the order in which they are merged: the file at a path,
 * or the files of this name in the directories of KSUTIL_PF_PATH.  False with a message
 * in the name of `function` when there is none or one of them cannot be read. */
bool find_pf_files(const char *function, const std::string &name,
                   std::vector<PfFile> &files);

}  // namespace ksutil
#endif
