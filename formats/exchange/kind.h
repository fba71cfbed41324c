/* kind: recognises what kind of file an input is from its first bytes. */
#ifndef KSUTIL_FORMATS_EXCHANGE_KIND_H
#define KSUTIL_FORMATS_EXCHANGE_KIND_H

#include <string>
#include <string_view>
#include <vector>

namespace ksutil::exchange {

enum class Kind {
  kEmpty,
  kCsv,       // a table of events with column names
  kFdsnText,  // the text form of the FDSN event service
  kNdk,       // moment tensors of the global CMT project
  kOther      // recognised or not, but not read
};

struct Recognised {
  Kind kind = Kind::kOther;
  std::string name;    // "QuakeML", "a gzip archive", ...
  std::string hint;    // what can be done about it; may be empty
  char delimiter = 0;  // of the columns of kCsv
};

/* `head` is the beginning of the text, the first few thousand bytes at least. */
Recognised recognise(std::string_view head);

/* The words that --format takes, and the kind of each: kOther for another word. */
std::vector<std::string> format_words();
Kind kind_of_word(std::string_view word);

/* The delimiter that makes the most columns of the first line. */
char delimiter_of(std::string_view head);

}  // namespace ksutil::exchange
#endif
