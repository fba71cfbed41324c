/* source_files: copies files of the checkout for a run. */
#ifndef KSUTIL_TESTS_FAULTS_SOURCE_FILES_H
#define KSUTIL_TESTS_FAULTS_SOURCE_FILES_H

#include <string>

namespace faults {

/* Copies a file, a folder with its name, or all files of a pattern that ends with a
 * star; the path counts from the top of the checkout. */
void copy_sources(const std::string &pattern, const std::string &to);

}  // namespace faults

#endif
