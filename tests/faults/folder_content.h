/* folder_content: reads all files of a folder into memory, and puts them back. */
#ifndef KSUTIL_TESTS_FAULTS_FOLDER_CONTENT_H
#define KSUTIL_TESTS_FAULTS_FOLDER_CONTENT_H

#include <map>
#include <string>

namespace faults {

/* The text of each file by its path within the folder; empty folders have an entry
 * that ends with "/". */
using Content = std::map<std::string, std::string>;

Content read_folder(const std::string &folder);

/* Makes the folder hold `content` and nothing else; `now` is what it holds. */
void restore_folder(const std::string &folder, const Content &now,
                    const Content &content);

/* The text of a file, empty for none. */
std::string text_of(const std::string &path);

}  // namespace faults

#endif
