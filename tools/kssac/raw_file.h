/* raw_file: changes SAC files as bytes, so that unchanged parts keep their bytes. */
#ifndef KSUTIL_TOOLS_KSSAC_RAW_FILE_H
#define KSUTIL_TOOLS_KSSAC_RAW_FILE_H

#include <cstddef>
#include <functional>
#include <string>

namespace ksutil::tools {

/* Changes a piece of a file in place; `at` is the offset of its first byte. */
using Change = std::function<void(char *bytes, std::size_t count, std::size_t at)>;

/* Reverses the bytes of the numbers of a piece: all words but those of the header's texts. */
void reverse_words(char *bytes, std::size_t count, std::size_t at);

/* Writes `to` as a changed copy of `from`, piece by piece; pieces but the last have a
 * multiple of 4 bytes, and the first one has the header.  False with a message. */
bool copy_changed(const std::string &from, const std::string &to, const Change &change);

}  // namespace ksutil::tools
#endif
