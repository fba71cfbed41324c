/* One reader of outside bytes, as the fuzzer and the replay of its corpus call it. */
#ifndef KSUTIL_TESTS_FUZZ_SUBJECT_H
#define KSUTIL_TESTS_FUZZ_SUBJECT_H

#include <cstddef>
#include <cstdint>
#include <string>
#include <string_view>

namespace ksutil::fuzz {

/* Reads an input.  What it must never do shows by itself: crash, hang, or take memory that
 * the input does not account for; a broken promise ends the process through `require`. */
void read_input(std::string_view input);

/* Ends the process with a message unless `kept` holds. */
void require(bool kept, const char *promise);

/* The input as a file without a name, under a path that can be opened until the next call
 * of `file_of`. */
const char *file_of(std::string_view input);

/* The input as a text that ends with a NUL. */
inline std::string text_of(std::string_view input) { return std::string(input); }

}  // namespace ksutil::fuzz
#endif
